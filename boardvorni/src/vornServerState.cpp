#include "vornServerState.h"

#include "boardMessage.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "faultmanager/faultManagerIf.h"
#include "miravi/miravi.h"
#include "vornServerDunl.h"
#include "vornSession.h"
#include "vorni/oamState.h"

#include <cassert>
#include <optional>

using namespace tolme;

namespace {

constexpr const char* logCategories = "RadioApplication,RadioBoardCtrl";

/// The state as the clients and the DUNL server number it; nothing for one that is neither of the three.
std::optional<std::uint16_t> oamStateNumber(State state)
{
    switch (state) {
    case State::STARTING:
        return 0;
    case State::OPERATIONAL:
        return 1;
    case State::DISABLED:
        return 2;
    }
    return std::nullopt;
}

void logEnable(const char* step, const VornSignalHeader& header)
{
    miravi_log(logCategories, fmt::format("Enable Operational Mode {} clientRef={}, serverRef={}", step,
                                          header.clientRef.value(), header.serverRef.value()));
}

std::string unexpectedState(const char* stateText)
{
    return fmt::format("signal expected in VornState: STARTING OPERATIONAL, received in VornState: {}", stateText);
}

} // namespace

VornServerState::VornServerState(VornServerCommonData& commonData) : VornServerComponent(commonData) {}

bool VornServerState::init()
{
    subscribe(OmlaVornAuditReqS::number, &VornServerState::handleAuditReq);
    subscribe(OmlaVornEnableOperationReqS::number, &VornServerState::handleEnableOperationReq);
    subscribe(OmlaVornDisableOperationReqS::number, &VornServerState::handleDisableOperationReq);
    m_commonData.getFaultManager().addExceptionalTemperatureCallback(
        [this](bool isFaultRaised) { handleExceptionalTempFault(isFaultRaised); });
    TolmeClient& dunl = m_commonData.getDunlClient();
    dunl.registerHandler(dunl::MsgNo::SetOamStateCfm, [this](const auto& m) { handleSetOamStateCfm(m); });
    dunl.registerHandler(dunl::MsgNo::SetOamStateRej, [this](const auto& m) { handleSetOamStateRej(m); });
    return true;
}

VornSession* VornServerState::findSession(std::uint32_t mboxId) const
{
    VornSession* session = m_commonData.findVornSession(mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: VORN session for mailboxID {}not found, ignore signal", mboxId);
    }
    return session;
}

void VornServerState::handleAuditReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornAuditReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const std::uint32_t sender = kiv_sender(msg.get());
    const VornSession* session = findSession(sender);
    if (session == nullptr) {
        return;
    }
    const auto state = oamStateNumber(session->getVornState());
    if (!state) {
        TRACE_INFO("Unknown O&M-state {}", session->getVornStateName());
        return;
    }
    sendSignal<OmlaVornAuditCfmS>(sender, signal->header.clientRef, signal->header.serverRef,
                                  [&](auto& cfm) { cfm.state = *state; });
}

/// A client that has disabled its operation can't enable it again in the same session.
void VornServerState::handleEnableOperationReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornEnableOperationReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSignalHeader header = signal->header;
    logEnable("Start", header);
    const std::uint32_t sender = kiv_sender(msg.get());
    VornSession* session = findSession(sender);
    if (session == nullptr) {
        return;
    }
    if (session->getVornState() != State::STARTING && session->getVornState() != State::OPERATIONAL) {
        sendEnableOperationRej(sender, header.clientRef, header.serverRef, session->getVornStateName());
        return;
    }
    session->setVornState(State::OPERATIONAL);
    TRACE_1("set VORN state to Operational: ");
    sendEnableOperationCfm(sender, header.clientRef, header.serverRef);
    logEnable("End", header);
    coordinate(sender, State::OPERATIONAL);
}

void VornServerState::handleDisableOperationReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornDisableOperationReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const std::uint32_t sender = kiv_sender(msg.get());
    VornSession* session = findSession(sender);
    if (session == nullptr) {
        return;
    }
    if (!oamStateNumber(session->getVornState())) {
        sendDisableOperationRej(sender, signal->header.clientRef, signal->header.serverRef,
                                session->getVornStateName());
        return;
    }
    session->setVornState(State::DISABLED);
    TRACE_1("set VORN state to Disabled: ");
    sendDisableOperationCfm(sender, signal->header.clientRef, signal->header.serverRef);
    coordinate(sender, State::DISABLED);
}

void VornServerState::coordinate(std::uint32_t mboxId, State state)
{
    if (isCoordinatedStateCapable() && m_coordinatedStateSM->notifyCoordinatedState(mboxId, state)) {
        sendSetOamStateReq();
    }
}

void VornServerState::handleExceptionalTempFault(bool isFaultRaised)
{
    TRACE_1("VornServerState::handleExceptionalTempFault, isFaultRaised = {}", isFaultRaised);
    if (isCoordinatedStateCapable() && m_coordinatedStateSM->notifyExceptionalTempFault(isFaultRaised)) {
        sendSetOamStateReq();
    }
}

void VornServerState::onVornSessionLost(const VornSession& session)
{
    if (isCoordinatedStateCapable() && m_coordinatedStateSM->onVornSessionLost(session.getMboxId())) {
        sendSetOamStateReq();
    }
}

/// Asked of the DUNL server's capabilities once, at the first event that needs the answer, which then holds.
bool VornServerState::isCoordinatedStateCapable()
{
    if (!m_isCapabilityChecked) {
        const bool isCapable = m_commonData.getDunlClient().hasCapability(DunlCapability::VornOamState);
        TRACE_1("{}", isCapable ? "OAM state capability is supported" : "OAM state capability is NOT supported");
        m_isCapabilityChecked = true;
        if (isCapable) {
            m_coordinatedStateSM = std::make_unique<VornCoordinatedStateSM>();
        }
    }
    return m_coordinatedStateSM != nullptr;
}

/// The answers are only traced, so no transaction is kept.
void VornServerState::sendSetOamStateReq()
{
    const State state = m_coordinatedStateSM->getCoordinatedState();
    const auto number = oamStateNumber(state);
    if (!number) {
        TRACE_INFO("ABN: invalid coordinated state {}", coordinatedStateText(state));
        return;
    }
    assert(dunl::OamState_IsValid(*number));
    dunl::SetOamStateReq request;
    request.set_state(static_cast<dunl::OamState>(*number));
    const std::uint32_t procedureRef = m_commonData.getDunlClient().send(dunl::MsgNo::SetOamStateReq, request);
    TRACE_1("SetOamStateReq: procedureRef: {}", procedureRef);
    if (procedureRef == 0) {
        TRACE_INFO("ABN: The procedure of sending setOamStateReq to Board Handler was not successful!");
    }
}

void VornServerState::handleSetOamStateCfm(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    dunl::SetOamStateCfm cfm;
    if (TolmeClient::decode(message, envelope, cfm)) {
        TRACE_REC_SIG(envelope.msgNo, "{}", printMessage(envelope, cfm));
    }
}

void VornServerState::handleSetOamStateRej(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    dunl::SetOamStateRej rej;
    if (TolmeClient::decode(message, envelope, rej)) {
        TRACE_INFO("ABN: {}", printMessage(envelope, rej));
    }
}

void VornServerState::sendEnableOperationCfm(std::uint32_t mboxId, std::uint32_t clientRef,
                                             std::uint32_t serverRef) const
{
    sendSignal<OmlaVornEnableOperationCfmS>(mboxId, clientRef, serverRef);
}

void VornServerState::sendEnableOperationRej(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                                             const char* stateText) const
{
    sendReject<OmlaVornEnableOperationRejS>(mboxId, clientRef, serverRef, 1, unexpectedState(stateText));
}

void VornServerState::sendDisableOperationCfm(std::uint32_t mboxId, std::uint32_t clientRef,
                                              std::uint32_t serverRef) const
{
    sendSignal<OmlaVornDisableOperationCfmS>(mboxId, clientRef, serverRef);
}

void VornServerState::sendDisableOperationRej(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                                              const char* stateText) const
{
    sendReject<OmlaVornDisableOperationRejS>(mboxId, clientRef, serverRef, 1, unexpectedState(stateText));
}
