/// One fault that the DUNL server has raised.
#pragma once

#include "dunlfaulthandler/dunlFaultTable.h"

#include <cstdint>
#include <string>

/// What the fault manager has been told of a fault, or is to be told.
enum class ReportState : std::uint32_t {
    PENDING = 0,         ///< to be raised
    REPORTED = 1,        ///< raised
    CEASE_CANDIDATE = 2, ///< raised; to be ceased unless the running coordination keeps it
    DELETE = 3,          ///< was pending and lost, or has been ceased; stays in its list and does nothing
};

/// A plain value: a copy in another list goes its own way.
class DunlActiveFault
{
public:
    DunlActiveFault(const DunlFaultInfo& info, std::int32_t dunlFaultId, std::uint32_t faultCase);

    std::int32_t getDunlFaultId() const { return m_dunlFaultId; }
    const std::string& getDunlFaultName() const { return m_dunlFaultName; }
    std::uint32_t getFaultCase() const { return m_faultCase; }
    std::uint16_t getFaultId() const { return m_faultId; }
    std::uint32_t getPriority() const { return m_priority; }
    std::uint32_t getFaultDescTag() const { return m_faultDescTag; }
    const std::string& getFaultDescription() const { return m_faultDescription; }
    ReportState getReportState() const { return m_reportState; }

    /// The text, or where it is empty that of the fault's tag.
    void setDescription(const std::string& additionalText);

    void setCeased() { m_ceased = true; }
    bool isCeased() const { return m_ceased; }

    void setReportState(ReportState state);
    /// At the start of a coordination: what is reported is to be kept or ceased, what is pending has lost.
    void markAsCeaseCandidate();

    /// One line for the traces.
    std::string toString() const;

private:
    std::int32_t m_dunlFaultId; ///< the DUNL server's number
    std::string m_dunlFaultName;
    std::uint32_t m_faultCase;
    std::uint16_t m_faultId; ///< the unit's number
    std::uint32_t m_priority;
    std::uint32_t m_faultDescTag;
    std::string m_faultDescription;
    ReportState m_reportState = ReportState::PENDING;
    bool m_ceased = false;
};
