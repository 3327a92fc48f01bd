/// The temperatures of the simulated board's hot spots.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace boardsim {

/// A hot spot's temperature wanders slowly between `lowest` and `highest`, each on a way of its own that depends on the
/// steady clock alone, or it is as set. Hot spots are numbered from 1.
class HotSpots
{
public:
    static constexpr std::uint32_t max = 32;
    static constexpr std::int32_t lowest = 42; ///< degrees Celsius
    static constexpr std::int32_t highest = 68;

    std::uint32_t count() const { return m_count; }
    void setCount(std::uint32_t count) { m_count = count; } ///< at most `max`

    /// From 1 to `max`, also one beyond the count. Nothing: it wanders.
    void set(std::uint32_t hotSpot, std::optional<std::int32_t> degrees) { m_set.at(hotSpot - 1) = degrees; }
    bool isSet(std::uint32_t hotSpot) const { return m_set.at(hotSpot - 1).has_value(); }

    std::vector<std::int32_t> readings(std::chrono::steady_clock::time_point now) const;

private:
    std::uint32_t m_count = 4;
    std::array<std::optional<std::int32_t>, max> m_set;
};

} // namespace boardsim
