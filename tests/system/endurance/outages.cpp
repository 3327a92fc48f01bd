#include "outages.h"

#include <algorithm>
#include <limits>

namespace Endurance {

namespace {

constexpr std::int64_t open = std::numeric_limits<std::int64_t>::max();

} // namespace

void Outages::begin(BackEnd backEnd, std::int64_t at)
{
    m_outages.push_back({backEnd, at, open});
}

void Outages::end(BackEnd backEnd, std::int64_t at)
{
    for (Outage& outage : m_outages) {
        if (outage.backEnd == backEnd && outage.to == open) {
            outage.to = at;
        }
    }
}

bool Outages::isOut(BackEnd backEnd) const
{
    return std::any_of(m_outages.begin(), m_outages.end(),
                       [=](const Outage& outage) { return outage.backEnd == backEnd && outage.to == open; });
}

unsigned Outages::count(BackEnd backEnd) const
{
    return static_cast<unsigned>(std::count_if(m_outages.begin(), m_outages.end(),
                                               [=](const Outage& outage) { return outage.backEnd == backEnd; }));
}

bool Outages::overlap(BackEnds backEnds, std::int64_t from, std::int64_t to) const
{
    return std::any_of(m_outages.begin(), m_outages.end(), [=](const Outage& outage) {
        return (only(outage.backEnd) & backEnds) != 0 && outage.from <= to && from <= outage.to;
    });
}

} // namespace Endurance
