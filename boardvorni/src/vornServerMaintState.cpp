#include "vornServerMaintState.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "vorni/maintenanceState.h"

#include <algorithm>
#include <array>
#include <optional>

using namespace tolme;

namespace {

/// Under this key the session has the procedure reference of its subscription.
constexpr std::uint32_t subscriptionKey = fesk::MsgNo::SubscribeMaintStateReq;

/// The clients' numbers of the board's states. A client can't ask for the last.
constexpr std::array<std::uint32_t, 5> clientStates{0, 2, 3, 4, 1};

/// The board's number of a state that a client asks for.
std::optional<fesk::SetMaintStateReq_MaintState> boardState(std::uint32_t maintState)
{
    const auto found = std::find(clientStates.begin(), clientStates.end(), maintState);
    const auto state = static_cast<int>(found - clientStates.begin());
    if (!fesk::SetMaintStateReq_MaintState_IsValid(state)) {
        return std::nullopt;
    }
    return static_cast<fesk::SetMaintStateReq_MaintState>(state);
}

struct Refusal {
    std::uint16_t errorCode;
    const char* text;
};

Refusal refusalOf(const fesk::SetMaintStateRej& rej)
{
    constexpr std::array refusals{Refusal{1, " "}, Refusal{1, "Maintenance State handling not activated"},
                                  Refusal{2, "Illegal state transition requested"},
                                  Refusal{2, "Prohibited due to service man present"}};
    if (!rej.has_error_code()) {
        TRACE_INFO("ABN: SetMaintStateRej missing errorCode! sending default errorCode and errorDescription to "
                   "client.");
    }
    if (rej.error_code() >= refusals.size()) {
        TRACE_INFO("ABN: Unknown errorCode or errorDescription!");
        return {1, ""};
    }
    return refusals[rej.error_code()];
}

} // namespace

VornServerMaintState::VornServerMaintState(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getFeskClient(), {"ABN: No FESK transaction", "."})
{
}

bool VornServerMaintState::init()
{
    using Self = VornServerMaintState;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornSubscribeMaintStateReqS::number, &Self::handleSubscribeMaintStateReq);
    subscribe(OmlaVornSetMaintStateReqS::number, &Self::handleSetMaintStateReq);
    onMessage(fesk::MsgNo::SubscribeMaintStateCfm, &Self::handleSubscribeMaintStateCfm);
    onMessage(fesk::MsgNo::SubscribeMaintStateRej, &Self::handleSubscribeMaintStateRej);
    onMessage(fesk::MsgNo::MaintStateInd, &Self::handleMaintStateInd);
    onMessage(fesk::MsgNo::SetMaintStateCfm, &Self::handleSetMaintStateCfm);
    onMessage(fesk::MsgNo::SetMaintStateRej, &Self::handleSetMaintStateRej);
    return true;
}

VornSession* VornServerMaintState::findSession(std::uint32_t mboxId, const char* ignoring) const
{
    VornSession* session = m_commonData.findVornSession(mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: VornServer has no session for mailbox {}. Ignoring {}.", mboxId, ignoring);
    }
    return session;
}

/// 0, with a trace, where the client may not ask.
std::uint32_t VornServerMaintState::findMmiUser(std::uint32_t mboxId, const char* ignoring) const
{
    const VornSession* session = findSession(mboxId, ignoring);
    if (session == nullptr) {
        return 0;
    }
    const std::uint32_t user = session->getMmiUserId();
    if (user == 0) {
        TRACE_INFO("ABN: The session has not subscribed as an MMI User: ID={}", user);
    }
    return user;
}

// --- Setting the state

void VornServerMaintState::handleSetMaintStateReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSetMaintStateReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, signal->header.sigNo);
    const std::uint32_t user = findMmiUser(client.mboxId, "OMLA_VORN_SET_MAINT_STATE_REQ");
    if (user == 0) {
        return;
    }
    const auto state = boardState(signal->maintState);
    if (!state) {
        TRACE_INFO("ABN: OMLA_VORN_SET_MAINT_STATE_REQ contains an invalid maintState field: {}",
                   signal->maintState.value());
        sendSetMaintStateRej(client, 1, "");
        return;
    }
    fesk::SetMaintStateReq request;
    request.set_mmi_user_id(user);
    request.set_maint_state(*state);
    const std::uint32_t procedureRef = m_procedures.requestFor(client, fesk::MsgNo::SetMaintStateReq, request);
    TRACE_1("SetMaintStateReq: procedureRef: {}", procedureRef);
}

void VornServerMaintState::handleSetMaintStateCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.takeTransaction<fesk::SetMaintStateCfm>(message);
    if (answer && findSession(answer->transaction.mboxId, "OMLA_VORN_SET_MAINT_STATE_CFM") != nullptr) {
        const Client& client = answer->transaction;
        sendSignal<OmlaVornSetMaintStateCfmS>(client);
    }
}

void VornServerMaintState::handleSetMaintStateRej(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.takeTransaction<fesk::SetMaintStateRej>(message);
    if (answer && findSession(answer->transaction.mboxId, "OMLA_VORN_SET_MAINT_STATE_REJ") != nullptr) {
        const Refusal refusal = refusalOf(answer->message);
        sendSetMaintStateRej(answer->transaction, refusal.errorCode, refusal.text);
    }
}

void VornServerMaintState::sendSetMaintStateRej(const Client& client, std::uint16_t errorCode,
                                                const std::string& text) const
{
    sendReject<OmlaVornSetMaintStateRejS>(client, errorCode, text);
}

// --- Subscription

void VornServerMaintState::handleSubscribeMaintStateReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSubscribeMaintStateReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, signal->header.sigNo);
    if (const std::uint32_t user = findMmiUser(client.mboxId, "OMLA_VORN_SUBSCRIBE_MAINT_STATE_REQ"); user != 0) {
        fesk::SubscribeMaintStateReq request;
        request.set_mmi_user_id(user);
        m_procedures.requestFor(client, fesk::MsgNo::SubscribeMaintStateReq, request);
    }
}

void VornServerMaintState::handleSubscribeMaintStateCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.findTransaction<fesk::SubscribeMaintStateCfm>(message);
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    VornSession* session = findSession(client.mboxId, "OMLA_VORN_SUBSCRIBE_MAINT_STATE_CFM");
    if (session == nullptr) {
        m_commonData.getFeskClient().removeTransaction(client.procedureRef);
        return;
    }
    session->addProcedureRef(subscriptionKey, client.procedureRef);
    sendSignal<OmlaVornSubscribeMaintStateCfmS>(client);
}

void VornServerMaintState::handleSubscribeMaintStateRej(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.takeTransaction<fesk::SubscribeMaintStateRej>(message);
    if (answer && findSession(answer->transaction.mboxId, "OMLA_VORN_SUBSCRIBE_MAINT_STATE_REJ") != nullptr) {
        const Client& client = answer->transaction;
        sendReject<OmlaVornSubscribeMaintStateRejS>(client, 1, "subscribing to maintenance state was unsuccessful");
    }
}

void VornServerMaintState::handleMaintStateInd(const TolmeMessagePtr& message)
{
    const auto ind = m_procedures.findTransaction<fesk::MaintStateInd>(message);
    if (!ind) {
        return;
    }
    const Client& client = ind->transaction;
    if (findSession(client.mboxId, "OMLA_VORN_SET_MAINT_STATE_IND") == nullptr) {
        m_commonData.getFeskClient().removeTransaction(client.procedureRef);
        return;
    }
    if (!ind->message.has_maint_state()) {
        TRACE_INFO("ABN: missing maintState in the MaintStateInd! Ignoring signal!");
        return;
    }
    const std::uint32_t state = ind->message.maint_state();
    if (state >= clientStates.size()) {
        TRACE_INFO("ABN: VORN server:: Unknown Maintenance state!");
        return;
    }
    sendSignal<OmlaVornSetMaintStateIndS>(client, [&](auto& signal) { signal.maintState = clientStates[state]; });
}

/// The board isn't told: what it still indicates finds no transaction.
void VornServerMaintState::onVornSessionLost(const VornSession& session)
{
    if (session.hasProcedureRef(subscriptionKey)) {
        const std::uint32_t procedureRef = session.getProcedureRefSignal(subscriptionKey);
        TRACE_1("remove procedureRef: ({}) from transaction map.", procedureRef);
        m_commonData.getFeskClient().removeTransaction(procedureRef);
    }
}
