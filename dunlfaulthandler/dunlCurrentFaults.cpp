#include "dunlfaulthandler/dunlCurrentFaults.h"

#include "trace/trace.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

void DunlCurrentFaults::sortMerged()
{
    m_merged.sort([](const DunlActiveFault& a, const DunlActiveFault& b) { // stable
        return std::make_tuple(a.getPriority(), a.getFaultId()) < std::make_tuple(b.getPriority(), b.getFaultId());
    });
}

void DunlCurrentFaults::markAllReportedFaultsAsCeaseCandidates()
{
    for (DunlActiveFault& fault : m_reported) {
        fault.markAsCeaseCandidate();
    }
}

void DunlCurrentFaults::updateReportedFaults(const DunlActiveFault& fault)
{
    const auto found = std::find_if(m_reported.begin(), m_reported.end(), [&](const DunlActiveFault& entry) {
        return entry.getFaultCase() == fault.getFaultCase() && entry.getFaultId() == fault.getFaultId();
    });
    if (found == m_reported.end()) {
        TRACE_1("adding new pending fault, {}", fault.toString());
        addReported(fault);
    } else if (found->getReportState() == ReportState::CEASE_CANDIDATE) {
        found->setReportState(ReportState::REPORTED);
    } else if (found->getReportState() == ReportState::DELETE) {
        found->setReportState(ReportState::PENDING);
    }
}

bool DunlCurrentFaults::isFaultActive(std::int32_t dunlFaultId) const
{
    return std::any_of(m_intake.begin(), m_intake.end(),
                       [&](const DunlActiveFault& fault) { return fault.getDunlFaultId() == dunlFaultId; });
}

void DunlCurrentFaults::purge()
{
    const auto isCeased = [](const DunlActiveFault& fault) { return fault.isCeased(); };
    m_intake.remove_if(isCeased);
    m_reported.remove_if(isCeased);
}

void DunlCurrentFaults::dropUnreachable()
{
    std::set<std::pair<std::uint16_t, std::uint32_t>> seen;
    m_reported.remove_if([&seen](const DunlActiveFault& entry) {
        const bool isFirst = seen.emplace(entry.getFaultId(), entry.getFaultCase()).second;
        return !isFirst && entry.getReportState() == ReportState::DELETE;
    });
}
