/// The readings of a running measurement, hot spot by hot spot, as they are drawn.
#pragma once

#include "vornclient/shownFields.h"
#include "vorni/temperature.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace VornClient {

struct PlotStyle {
    std::size_t width = 80;   ///< of a line, characters
    bool drawsBlocks = false; ///< rather than plain ASCII
};

class TemperaturePlot
{
public:
    void apply(const OmlaVornTempMeasIndS& indication);
    std::uint64_t indications() const { return m_indications; }
    /// A line of titles and a line for each hot spot: its latest reading, the lowest and the highest ever, the last
    /// ones.
    std::vector<std::string> print(const PlotStyle& style) const;
    /// The same without the last ones, on one line.
    std::string printLine() const;
    /// The same as fields, a row a hot spot.
    std::vector<ShownFields> rows() const;

private:
    /// Nothing where an indication was without a reading for the hot spot.
    using Reading = std::optional<std::int16_t>;

    struct HotSpot {
        std::deque<Reading> last; ///< the latest is the last; empty where none has ever been read
        std::int16_t lowest = 0;
        std::int16_t highest = 0;
    };

    static void add(HotSpot& spot, Reading reading);
    static std::string draw(const HotSpot& spot, std::size_t width, bool drawsBlocks);

    std::array<HotSpot, vornMaxReadings> m_spots;
    std::uint64_t m_indications = 0;
};

} // namespace VornClient
