#include "dunlfaulthandler/dunlActiveFault.h"

#include "trace/trace.h"

namespace {

const char* reportStateText(ReportState state)
{
    switch (state) {
    case ReportState::PENDING:
        return "PENDING";
    case ReportState::REPORTED:
        return "REPORTED";
    case ReportState::CEASE_CANDIDATE:
        return "CEASE_CANDIDATE";
    case ReportState::DELETE:
        break;
    }
    return "DELETE";
}

} // namespace

DunlActiveFault::DunlActiveFault(const DunlFaultInfo& info, std::int32_t dunlFaultId, std::uint32_t faultCase)
    : m_dunlFaultId(dunlFaultId), m_dunlFaultName(info.name), m_faultCase(faultCase), m_faultId(info.faultId),
      m_priority(DunlFaultTable::priority(info.faultId)), m_faultDescTag(info.faultDescTag)
{
}

void DunlActiveFault::setDescription(const std::string& additionalText)
{
    if (!additionalText.empty()) {
        m_faultDescription = additionalText;
        return;
    }
    if (m_faultDescTag == 0) {
        m_faultDescription = m_dunlFaultName;
        return;
    }
    const char* text = DunlFaultTable::description(m_faultDescTag);
    if (text == nullptr) {
        TRACE_ERROR("fault description text not found for dunlFaultId:{}, faultDescTag:{}", m_dunlFaultName,
                    m_faultDescTag);
        return;
    }
    m_faultDescription = text;
}

void DunlActiveFault::setReportState(ReportState state)
{
    const ReportState previous = m_reportState;
    m_reportState = state;
    TRACE_1("{}, previous state: {}", toString(), reportStateText(previous));
}

void DunlActiveFault::markAsCeaseCandidate()
{
    if (m_reportState == ReportState::REPORTED) {
        setReportState(ReportState::CEASE_CANDIDATE);
    } else if (m_reportState == ReportState::PENDING) {
        setReportState(ReportState::DELETE);
    }
}

std::string DunlActiveFault::toString() const
{
    return fmt::format("DunlFaultId = {} ({}), faultId = 0x{:x}, faultCase = {}, priority = 0x{:x}, reportState = {}",
                       m_dunlFaultName, m_dunlFaultId, m_faultId, m_faultCase, m_priority,
                       reportStateText(m_reportState));
}
