#include "gantiRequestRecords.h"

#include <algorithm>
#include <utility>

template <typename Predicate>
GantiRequestRecord* GantiRequestRecords::find(Predicate&& predicate)
{
    const auto found = std::find_if(m_records.begin(), m_records.end(), predicate);
    return found != m_records.end() ? &*found : nullptr;
}

GantiRequestRecord& GantiRequestRecords::append(GantiRequestRecord record)
{
    record.procRef = ++m_lastProcRef;
    return m_records.emplace_back(std::move(record));
}

GantiRequestRecord* GantiRequestRecords::findByProcRef(std::uint32_t procRef)
{
    return find([=](const auto& record) { return record.procRef == procRef; });
}

GantiRequestRecord* GantiRequestRecords::findByTicket(std::uint32_t procRef, std::uint32_t ticket)
{
    return find([=](const auto& record) { return record.procRef == procRef && record.ticket == ticket; });
}

GantiRequestRecord* GantiRequestRecords::findByServerRef(std::uint32_t procRef, std::uint32_t serverRef)
{
    return find([=](const auto& record) { return record.procRef == procRef && record.serverRef == serverRef; });
}

GantiRequestRecord* GantiRequestRecords::findRequest(std::uint32_t req, std::uint32_t serverRef)
{
    return find([=](const auto& record) { return record.req == req && record.serverRef == serverRef; });
}

GantiRequestRecord* GantiRequestRecords::findRequest(std::uint32_t req, std::uint32_t serverRef, std::uint32_t resource)
{
    return find([=](const auto& record) {
        return record.req == req && record.serverRef == serverRef && record.resource == resource;
    });
}

void GantiRequestRecords::remove(const GantiRequestRecord& record)
{
    m_records.erase(m_records.begin() + (&record - m_records.data()));
}

void GantiRequestRecords::removeAllOfTicket(std::uint32_t ticket)
{
    std::erase_if(m_records, [=](const auto& record) { return record.ticket == ticket; });
}

void GantiRequestRecords::sortHighestFirst()
{
    std::stable_sort(m_records.begin(), m_records.end(),
                     [](const auto& left, const auto& right) { return left.req > right.req; });
}
