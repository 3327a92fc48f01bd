#include "rhuneFaultFwd.h"

#include "faultmanager/faultManagerIf.h"
#include "rhune/rhuneSignals.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace VornServer::Rhune {
namespace {

/// What clients of this interface may raise and cease.
constexpr std::array<std::uint16_t, 7> acceptedFaultIds{
    OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION,
    OMLA_CONST_FH_FAULT_ID_SW_ERROR,
    OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED,
    OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION,
    OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL,
    OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW,
    OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED,
};

bool isAccepted(std::uint16_t faultId)
{
    return std::find(acceptedFaultIds.begin(), acceptedFaultIds.end(), faultId) != acceptedFaultIds.end();
}

/// The text that begins at an offset of a signal, up to the next zero. Where its field has none it goes on into what
/// follows, at most to the end of the message.
std::string textAt(const kiv_msg& msg, std::size_t offset)
{
    const std::string_view bytes(reinterpret_cast<const char*>(&msg), kiv_size(&msg));
    const std::string_view rest = bytes.substr(offset);
    return std::string(rest.substr(0, rest.find('\0')));
}

} // namespace

void RhuneFaultFwd::addMessageHandlers()
{
    m_subscriptions.add(RhuneVornFaultFwdS::number, this, &RhuneFaultFwd::handleFaultFwd);
    m_subscriptions.add(RhuneVornFaultceaseFwdS::number, this, &RhuneFaultFwd::handleFaultceaseFwd);
}

bool RhuneFaultFwd::isConnected(std::uint32_t serverRef) const
{
    if (m_client.getClient(serverRef)) {
        return true;
    }
    TRACE_1("Client with server connection reference {} is not connected. The failure is dropped.", serverRef);
    return false;
}

void RhuneFaultFwd::handleFaultFwd(const MessagePtr& msg)
{
    const auto* signal = viewReceived<RhuneVornFaultFwdS>(msg);
    if (signal == nullptr) {
        return;
    }
    FaultData fault;
    fault.source = FaultSource::RHUNE;
    fault.faultId = signal->faultId;
    fault.faultDescription = textAt(*msg, offsetof(RhuneVornFaultFwdS, faultDescription));
    fault.recoveryTime = signal->recoveryTime;
    fault.hwFaultLabel = textAt(*msg, offsetof(RhuneVornFaultFwdS, hwFaultLabel));
    const std::uint32_t serverRef = signal->header.connectionRef;
    TRACE_REC_SIG(msg->number,
                  "Received signal RHUNE_VORN_FAULT_FWD: connectionRef: {} procedureRef: {} faultId: {} "
                  "faultDescription: {} recoveryTime: {} hwFaultLabel: {} mbox: 0x{:x}",
                  serverRef, signal->header.procedureRef.value(), fault.faultId, fault.faultDescription,
                  fault.recoveryTime, fault.hwFaultLabel, kiv_sender(msg.get()));
    if (!isConnected(serverRef)) {
        return;
    }
    if (!isAccepted(fault.faultId)) {
        TRACE_ERROR("Unknown Fault-id 0x{:x} is ignored by VORN-RHUNE", fault.faultId);
        return;
    }
    if (!m_faultManager.addFault(fault)) {
        TRACE_ERROR("active fault 0x{:x} from VORN-RHUNE added failed", fault.faultId);
    }
}

void RhuneFaultFwd::handleFaultceaseFwd(const MessagePtr& msg)
{
    const auto* signal = viewReceived<RhuneVornFaultceaseFwdS>(msg);
    if (signal == nullptr) {
        return;
    }
    const std::uint16_t faultId = signal->faultId;
    const std::uint32_t serverRef = signal->header.connectionRef;
    TRACE_REC_SIG(
        msg->number,
        "Received signal RHUNE_VORN_FAULTCEASE_FWD: connectionRef: {} procedureRef: {} faultId: {} mbox: 0x{:x}",
        serverRef, signal->header.procedureRef.value(), faultId, kiv_sender(msg.get()));
    if (!isConnected(serverRef)) {
        return;
    }
    if (!isAccepted(faultId)) {
        TRACE_ERROR("Unknown FaultCease-id 0x{:x} is ignored by VORN-RHUNE", faultId);
        return;
    }
    m_faultManager.removeFault(faultId);
}

} // namespace VornServer::Rhune
