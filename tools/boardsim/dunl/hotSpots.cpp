#include "tools/boardsim/dunl/hotSpots.h"

#include <cmath>

namespace boardsim {

namespace {

// Two swings, so that nobody sees the same minute twice; together they stay within the bounds.
constexpr double middle = 0.5 * (HotSpots::lowest + HotSpots::highest);
constexpr double slowSwing = 10; // degrees
constexpr double quickSwing = 3;
static_assert(middle + slowSwing + quickSwing <= HotSpots::highest);

constexpr double slowPeriod = 600; // seconds, of the first hot spot; the others take a little longer each
constexpr double quickPeriod = 70;
constexpr double phase = 2.4; // radians from one hot spot to the next

double swing(double seconds, double period, double start)
{
    constexpr double fullCircle = 6.283185307179586;
    return std::sin(fullCircle * seconds / period + start);
}

std::int32_t wandering(std::uint32_t index, double seconds)
{
    const double stretch = 1 + 0.07 * index;
    const double start = phase * index;
    return static_cast<std::int32_t>(std::lround(middle + slowSwing * swing(seconds, slowPeriod * stretch, start) +
                                                 quickSwing * swing(seconds, quickPeriod * stretch, 2 * start)));
}

} // namespace

std::vector<std::int32_t> HotSpots::readings(std::chrono::steady_clock::time_point now) const
{
    const double seconds = std::chrono::duration<double>(now.time_since_epoch()).count();
    std::vector<std::int32_t> readings;
    for (std::uint32_t index = 0; index < m_count; ++index) {
        readings.push_back(m_set.at(index).value_or(wandering(index, seconds)));
    }
    return readings;
}

} // namespace boardsim
