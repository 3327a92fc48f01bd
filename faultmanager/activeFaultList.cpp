#include "faultmanager/activeFaultList.h"

#include <algorithm>

namespace VornServer {

namespace {

auto hasId(std::uint16_t faultId)
{
    return [faultId](const ActiveFault& fault) { return fault.faultId == faultId; };
}

} // namespace

ActiveFault& ActiveFaultList::find(std::uint16_t faultId)
{
    for (auto& [priority, bucket] : m_buckets) {
        const auto found = std::find_if(bucket.begin(), bucket.end(), hasId(faultId));
        if (found != bucket.end()) {
            return *found;
        }
    }
    static ActiveFault sentinel;
    return sentinel;
}

ActiveFault& ActiveFaultList::add(const FaultData& fault, Priority priority)
{
    return m_buckets[priority].emplace_back(fault, m_number);
}

ActiveFault ActiveFaultList::take(std::uint16_t faultId)
{
    for (auto& [priority, bucket] : m_buckets) {
        const auto found = std::find_if(bucket.begin(), bucket.end(), hasId(faultId));
        if (found != bucket.end()) {
            ActiveFault taken = *found;
            bucket.erase(found);
            return taken;
        }
    }
    return {};
}

bool ActiveFaultList::hasHigherPriority(Priority priority) const
{
    return std::any_of(m_buckets.begin(), m_buckets.end(),
                       [priority](const auto& entry) { return entry.first > priority && !entry.second.empty(); });
}

} // namespace VornServer
