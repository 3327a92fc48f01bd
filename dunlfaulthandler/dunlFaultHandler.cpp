#include "dunlfaulthandler/dunlFaultHandler.h"

#include "boardMessage.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "faultmanager/faultManagerIf.h"
#include "signalNames.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <array>

using namespace tolme;

namespace {

constexpr std::uint32_t internalDcFault = 317; // a case of HW_FAULT

/// Decodes a message of the DUNL server; false, with a trace, where that fails.
bool decode(const TolmeMessagePtr& message, google::protobuf::Message& body)
{
    BoardEnvelope envelope;
    if (!decodeBoardMessage(message.get(), envelope, body)) {
        TRACE_ERROR("Failed to decode message: {}", getSignalName(message->number));
        return false;
    }
    TRACE_REC_SIG(envelope.msgNo, "{}", printMessage(envelope, body));
    return true;
}

/// Appends a part of a description: a value that the message has, within its words. A missing one is only traced.
void append(std::string& text, bool isThere, const std::string& part, const char* missing)
{
    if (isThere) {
        text += part;
    } else {
        TRACE_ERROR("{}", missing);
    }
}

std::string fanFailedText(const dunl::FaultInd& ind)
{
    std::string text;
    if (ind.has_fan_product_info()) {
        const auto& fan = ind.fan_product_info();
        append(text, fan.has_fan_product_number(), "Fan product number is " + fan.fan_product_number(),
               "EXTERNAL_FAN_FAILED does not contain fan product number");
        append(text, fan.has_fan_position_slot(), fmt::format(", Fan Position slot {}", fan.fan_position_slot()),
               "EXTERNAL_FAN_FAILED does not contain fan position slot");
    }
    return text;
}

std::string fanDisconnectedText(const dunl::FaultInd& ind)
{
    std::string text;
    if (ind.has_fan_product_info()) {
        const auto& fan = ind.fan_product_info();
        append(text, fan.has_fan_product_number(), "Fan product number is " + fan.fan_product_number(),
               "EXTERNAL_FAN_DISCONNECTED does not contain fan product number");
    }
    return text;
}

std::string fanHostDisconnectedText(const dunl::FaultInd& ind)
{
    const auto& fan = ind.fan_product_info();
    std::string text;
    append(text, fan.has_fan_parent_product_number(),
           fmt::format("Contact lost with unit ({})", fan.fan_parent_product_number()),
           "EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan parent product number");
    append(text, fan.has_fan_product_number(),
           fmt::format(" hosting the fan ({}) and external alarm ports", fan.fan_product_number()),
           "EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan product number");
    return text;
}

/// What the message tells beyond the fault's number. A lost fan host is a disconnected fan from here on.
std::string additionalText(const dunl::FaultInd& ind, std::int32_t& dunlFaultId)
{
    switch (dunlFaultId) {
    case DunlFaultTable::hwFault:
        return ind.fault_case() == internalDcFault ? "Internal DC fault" : "";
    case DunlFaultTable::externalFanFailed:
        return fanFailedText(ind);
    case DunlFaultTable::externalFanDisconnected:
        return fanDisconnectedText(ind);
    case DunlFaultTable::externalFanHostDisconnected:
        if (!ind.has_fan_product_info()) {
            TRACE_ERROR("EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan product info");
            return "";
        }
        dunlFaultId = DunlFaultTable::externalFanDisconnected;
        return fanHostDisconnectedText(ind);
    default:
        return "";
    }
}

enum class Choice {
    passes,
    isLast, ///< it is kept, and hides all behind it
    loses,  ///< it is hidden, and so are all behind it
};

Choice choose(std::uint32_t current, std::uint32_t priority)
{
    struct Digit {
        std::uint32_t mask;
        std::uint32_t hidesRest;
    };
    constexpr std::array digits{Digit{0xF000, 0xA000}, Digit{0x0F00, 0x0A00}, Digit{0x00F0, 0x00A0},
                                Digit{0x000F, 0x000A}};
    for (const Digit& digit : digits) {
        const std::uint32_t a = current & digit.mask;
        const std::uint32_t b = priority & digit.mask;
        if (a != 0 && a < b) {
            return Choice::loses;
        }
        if (b == digit.hidesRest) {
            return Choice::isLast;
        }
    }
    return Choice::passes;
}

} // namespace

bool DunlFaultHandler::init()
{
    addSignalName(dunl::MsgNo::SubscribeFaultsCfm, "dunl::SubscribeFaultsCfm");
    addSignalName(dunl::MsgNo::FaultInd, "dunl::FaultInd");
    addSignalName(dunl::MsgNo::FaultCeaseInd, "dunl::FaultCeaseInd");
    TolmeClient& dunl = m_commonData.getDunlClient();
    dunl.registerHandler(dunl::MsgNo::SubscribeFaultsCfm, [this](const auto& m) { handleSubscribeFaultsCfm(m); });
    dunl.registerHandler(dunl::MsgNo::FaultInd, [this](const auto& m) { handleFaultInd(m); });
    dunl.registerHandler(dunl::MsgNo::FaultCeaseInd, [this](const auto& m) { handleFaultCeaseInd(m); });
    return true;
}

void DunlFaultHandler::handleSubscribeFaultsCfm(const TolmeMessagePtr& message)
{
    TRACE_REC_SIG(message->number, "{}", getSignalName(message->number));
}

void DunlFaultHandler::handleFaultInd(const TolmeMessagePtr& message)
{
    dunl::FaultInd ind;
    if (!decode(message, ind)) {
        return;
    }
    if (!ind.has_fault_id()) {
        TRACE_ERROR("{} does not contain fault_id", getSignalName(message->number));
        return;
    }
    if (!ind.has_fault_case()) {
        TRACE_ERROR("{} does not contain fault_case", getSignalName(message->number));
        return;
    }
    if (takeIn(ind)) {
        runFaultCoordination();
        m_faults.purge();
    }
}

/// A fault that is raised twice makes two records and takes two ceases. False where the fault isn't supported.
bool DunlFaultHandler::takeIn(const dunl::FaultInd& ind)
{
    std::int32_t dunlFaultId = ind.fault_id();
    const std::string text = additionalText(ind, dunlFaultId);
    const DunlFaultInfo* info = DunlFaultTable::find(dunlFaultId);
    if (info == nullptr) {
        TRACE_ERROR("dunlFaultId: {} is not supported", dunlFaultId);
        return false;
    }
    if (m_commonData.isFaultFilterActive() && dunlFaultId == DunlFaultTable::externalPowerSupplyFault &&
        info->faultId == OMLA_CONST_FH_FAULT_ID_POWER_FAILURE) {
        TRACE_1("Fault suppressed, faultId: {}", info->name);
        return true;
    }
    TRACE_INFO("ABN:Local fault, faultId:{}, interface:VORNI, faultCase:{}", info->name, ind.fault_case());
    DunlActiveFault fault(*info, dunlFaultId, ind.fault_case());
    fault.setDescription(text);
    m_faults.addIntake(fault);
    TRACE_1("new active fault: {}", fault.toString());
    return true;
}

void DunlFaultHandler::handleFaultCeaseInd(const TolmeMessagePtr& message)
{
    dunl::FaultCeaseInd ind;
    if (!decode(message, ind)) {
        return;
    }
    if (!ind.has_fault_id()) {
        TRACE_ERROR("{} does not contain fault_id", getSignalName(message->number));
        return;
    }
    auto& intake = m_faults.intake();
    const auto found = std::find_if(intake.begin(), intake.end(), [&](const DunlActiveFault& fault) {
        return fault.getDunlFaultId() == ind.fault_id();
    });
    if (found != intake.end()) {
        found->setCeased();
        runFaultCoordination();
    } else {
        TRACE_1("no active fault found, faultId ={}", ind.fault_id());
    }
    m_faults.purge();
}

void DunlFaultHandler::runFaultCoordination()
{
    mergeFaults();
    m_faults.markAllReportedFaultsAsCeaseCandidates();
    m_faults.sortMerged();
    chooseFaults();
    reportNotReportedFaults();
    m_faults.dropUnreachable();
}

void DunlFaultHandler::mergeFaults()
{
    m_faults.clearMerged();
    for (const DunlActiveFault& fault : m_faults.intake()) {
        if (!fault.isCeased()) {
            m_faults.addMerged(fault);
        }
    }
}

void DunlFaultHandler::chooseFaults()
{
    std::uint32_t current = 0;
    for (const DunlActiveFault& fault : m_faults.merged()) {
        if (fault.isCeased()) {
            continue;
        }
        switch (choose(current, fault.getPriority())) {
        case Choice::loses:
            TRACE_1("suppressing {} and lower priority faults", fault.toString());
            return;
        case Choice::isLast:
            TRACE_1("suppressing lower priority fault by {}", fault.getDunlFaultName());
            m_faults.updateReportedFaults(fault);
            return;
        case Choice::passes:
            current = fault.getPriority();
            // One entry more than the update would make: the fault manager counts it as another source, so that the
            // clients aren't told again.
            m_faults.addReported(fault);
            m_faults.updateReportedFaults(fault);
            break;
        }
    }
}

/// All ceases go before all raises.
void DunlFaultHandler::reportNotReportedFaults()
{
    for (DunlActiveFault& fault : m_faults.reported()) {
        if (fault.getReportState() == ReportState::CEASE_CANDIDATE) {
            reportCeasedFault(fault);
            fault.setReportState(ReportState::DELETE);
        }
    }
    for (DunlActiveFault& fault : m_faults.reported()) {
        if (fault.getReportState() == ReportState::PENDING) {
            reportRaisedFault(fault);
            fault.setReportState(ReportState::REPORTED);
        }
    }
}

void DunlFaultHandler::reportRaisedFault(const DunlActiveFault& fault)
{
    VornServer::FaultData data;
    data.source = VornServer::FaultSource::DUNL;
    data.faultId = fault.getFaultId();
    data.faultCase = static_cast<std::uint16_t>(fault.getFaultCase());
    data.faultDescription = fault.getFaultDescription();
    m_commonData.getFaultManager().addFault(data);
    TRACE_1("raised fault sent to FaultManager, {}", fault.toString());
}

void DunlFaultHandler::reportCeasedFault(const DunlActiveFault& fault)
{
    m_commonData.getFaultManager().removeFault(fault.getFaultId());
    TRACE_1("ceased fault sent to FaultManager, {}", fault.toString());
}
