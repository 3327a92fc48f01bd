#include "vornclient/temperaturePlot.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace VornClient {

namespace {

constexpr std::size_t readingsKept = 300;
constexpr std::size_t fewestDrawn = 8;

/// From low to high.
constexpr std::array<std::string_view, 8> blocks{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<std::string_view, 8> plain{"_", ".", "-", "~", "=", "+", "*", "#"};

std::string_view symbol(int reading, int lowest, int highest, bool drawsBlocks)
{
    constexpr int steps = static_cast<int>(blocks.size()) - 1;
    const int range = std::max(highest - lowest, steps); // a degree is a step at most: noise shall look like noise
    const auto level = static_cast<std::size_t>((reading - lowest) * steps / range);
    return drawsBlocks ? blocks[level] : plain[level];
}

std::string printReading(const std::optional<std::int16_t>& reading)
{
    return reading ? std::to_string(*reading) : "-";
}

} // namespace

void TemperaturePlot::apply(const OmlaVornTempMeasIndS& indication)
{
    ++m_indications;
    const std::size_t count = std::min<std::size_t>(indication.noOfReadings, vornMaxReadings);
    for (std::size_t index = 0; index < m_spots.size(); ++index) {
        add(m_spots[index], index < count ? Reading(indication.readings[index]) : std::nullopt);
    }
}

void TemperaturePlot::add(HotSpot& spot, Reading reading)
{
    if (spot.last.empty() && !reading) {
        return;
    }
    if (reading) {
        spot.lowest = spot.last.empty() ? *reading : std::min(spot.lowest, *reading);
        spot.highest = spot.last.empty() ? *reading : std::max(spot.highest, *reading);
    }
    spot.last.push_back(reading);
    if (spot.last.size() > readingsKept) {
        spot.last.pop_front();
    }
}

std::string TemperaturePlot::draw(const HotSpot& spot, std::size_t width, bool drawsBlocks)
{
    const auto begin = spot.last.end() - static_cast<std::ptrdiff_t>(std::min(width, spot.last.size()));
    int lowest = INT16_MAX;
    int highest = INT16_MIN;
    for (auto reading = begin; reading != spot.last.end(); ++reading) {
        lowest = *reading ? std::min<int>(lowest, **reading) : lowest;
        highest = *reading ? std::max<int>(highest, **reading) : highest;
    }
    std::string drawn;
    for (auto reading = begin; reading != spot.last.end(); ++reading) {
        drawn += *reading ? symbol(**reading, lowest, highest, drawsBlocks) : " ";
    }
    return drawn;
}

std::vector<std::string> TemperaturePlot::print(const PlotStyle& style) const
{
    const std::string titles = fmt::format("{:>4}  {:>7}  {:>6}  {:>6}  ", "SPOT", "PRESENT", "LOWEST", "HIGHEST");
    const std::size_t width =
        std::min(std::max(style.width, titles.size() + fewestDrawn) - titles.size(), readingsKept);
    std::vector<std::string> lines{titles + "LAST"};
    for (std::size_t index = 0; index < m_spots.size(); ++index) {
        const HotSpot& spot = m_spots[index];
        if (!spot.last.empty()) {
            lines.push_back(fmt::format("{:>4}  {:>7}  {:>6}  {:>7}  {}", index + 1, printReading(spot.last.back()),
                                        spot.lowest, spot.highest, draw(spot, width, style.drawsBlocks)));
        }
    }
    return lines;
}

std::string TemperaturePlot::printLine() const
{
    std::string line;
    for (const HotSpot& spot : m_spots) {
        if (!spot.last.empty()) {
            line += fmt::format("{}{} ({} to {})", line.empty() ? "" : ", ", printReading(spot.last.back()),
                                spot.lowest, spot.highest);
        }
    }
    return "hot spots: " + (line.empty() ? "none" : line);
}

std::vector<ShownFields> TemperaturePlot::rows() const
{
    std::vector<ShownFields> rows;
    for (std::size_t index = 0; index < m_spots.size(); ++index) {
        const HotSpot& spot = m_spots[index];
        if (spot.last.empty()) {
            continue;
        }
        ShownFields row{{"spot", static_cast<std::int64_t>(index + 1)}};
        if (spot.last.back()) {
            row.push_back({"present", *spot.last.back()});
        }
        row.push_back({"lowest", spot.lowest});
        row.push_back({"highest", spot.highest});
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace VornClient
