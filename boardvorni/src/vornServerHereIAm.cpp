#include "vornServerHereIAm.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "vorni/hereIAm.h"
#include "zephrin/tyvra.h"

using namespace tolme;

namespace {

/// Under this key the session has the procedure reference of its subscription.
constexpr std::uint32_t subscriptionKey = fesk::MsgNo::SubscribeHereIAmStateReq;

constexpr const char* noMmiUser = "MMI user has not been registered yet.";
constexpr const char* rejectedByBoard = "See logs to reveal why the FESK server rejected the request.";

// Numbers of the events of the unit's log.
constexpr std::uint32_t orderOnWithoutUser = 180;
constexpr std::uint32_t orderOffWithoutUser = 181;
constexpr std::uint32_t orderWithoutSubscription = 7;

void logEvent(std::uint32_t number, const char* text)
{
    Zephrin::Tyvra::V2::TyvraIf::getInstance().event(number, text, "");
}

} // namespace

VornServerHereIAm::VornServerHereIAm(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getFeskClient(), {"ABN: No FESK transaction", "."})
{
}

bool VornServerHereIAm::init()
{
    using Self = VornServerHereIAm;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornOrderHereIAmReqS::number, &Self::handleOrderHereIAmReq);
    subscribe(OmlaVornSubscribeHereIAmStateReqS::number, &Self::handleSubscribeHereIAmStateReq);
    onMessage(fesk::MsgNo::SubscribeHereIAmStateCfm, &Self::handleSubscribeHereIAmStateCfm);
    onMessage(fesk::MsgNo::SubscribeHereIAmStateRej, &Self::handleSubscribeHereIAmStateRej);
    onMessage(fesk::MsgNo::HereIAmStateInd, &Self::handleHereIAmStateInd);
    onMessage(fesk::MsgNo::OrderHereIAmCfm, &Self::handleOrderHereIAmCfm);
    onMessage(fesk::MsgNo::OrderHereIAmRej, &Self::handleOrderHereIAmRej);
    return true;
}

// --- Subscription

void VornServerHereIAm::handleSubscribeHereIAmStateReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSubscribeHereIAmStateReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, fesk::MsgNo::SubscribeHereIAmStateReq);
    const VornSession* session = m_commonData.findVornSession(client.mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ!");
        return;
    }
    if (session->getMmiUserId() == 0) {
        TRACE_INFO("ABN: MMI user has not been registered yet. Rejecting the "
                   "OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ!");
        sendSubscribeHereIAmStateRej(client, noMmiUser);
        return;
    }
    fesk::SubscribeHereIAmStateReq request;
    request.set_mmi_user_id(session->getMmiUserId());
    if (m_procedures.requestFor(client, fesk::MsgNo::SubscribeHereIAmStateReq, request) == 0) {
        sendSubscribeHereIAmStateRej(client, "Could not subscribe HereIAmState.");
    }
}

void VornServerHereIAm::sendSubscribeHereIAmStateRej(const Client& client, const char* text) const
{
    sendReject<OmlaVornSubscribeHereIAmStateRejS>(client, 1, text);
}

void VornServerHereIAm::handleSubscribeHereIAmStateCfm(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.find<fesk::SubscribeHereIAmStateCfm>(message)) {
        const Client& client = answer->transaction;
        answer->session->addProcedureRef(subscriptionKey, client.procedureRef);
        sendSignal<OmlaVornSubscribeHereIAmStateCfmS>(client);
    }
}

void VornServerHereIAm::handleSubscribeHereIAmStateRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<fesk::SubscribeHereIAmStateRej>(message)) {
        sendSubscribeHereIAmStateRej(answer->transaction, rejectedByBoard);
    }
}

void VornServerHereIAm::handleHereIAmStateInd(const TolmeMessagePtr& message)
{
    auto ind = m_procedures.decode<fesk::HereIAmStateInd>(message);
    if (!ind) {
        return;
    }
    if (!ind->message.has_state()) {
        TRACE_INFO("ABN: HereIAmStateInd does not have a state.");
        return;
    }
    if (const auto told = m_procedures.withClient(std::move(ind))) {
        const Client& client = told->transaction;
        sendSignal<OmlaVornHereIAmStateIndS>(
            client, [&](auto& signal) { signal.state = static_cast<std::uint16_t>(told->message.state()); });
    }
}

// --- Orders, in the procedure of the subscription

void VornServerHereIAm::handleOrderHereIAmReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornOrderHereIAmReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, fesk::MsgNo::OrderHereIAmReq);
    const int order = signal->order;
    const VornSession* session = m_commonData.findVornSession(client.mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!");
        return;
    }
    if (session->getMmiUserId() == 0) {
        // Not ignored, whatever the trace says.
        TRACE_INFO("ABN: MMI user has not been registered yet. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!");
        logEvent(order == fesk::OrderHereIAmReq::ORDER_1 ? orderOnWithoutUser : orderOffWithoutUser,
                 "mmiUserId not valid");
        sendOrderHereIAmRej(client, noMmiUser);
        return;
    }
    const std::uint32_t procedureRef = session->getProcedureRefSignal(subscriptionKey);
    if (procedureRef == 0) {
        TRACE_INFO("ABN: Here I Am client has not subscribed yet. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!");
        logEvent(orderWithoutSubscription, "The client is not subscribed to hereIam state change");
        sendOrderHereIAmRej(client, "Here I Am client has not subscribed yet.");
        return;
    }
    if (!fesk::OrderHereIAmReq_Order_IsValid(order)) {
        TRACE_INFO("ABN: OMLA_VORN_ORDER_HERE_I_AM_REQ has an invalid state: {}", order);
        sendOrderHereIAmRej(client, "OMLA_VORN_ORDER_HERE_I_AM_REQ has an invalid state.");
        return;
    }
    fesk::OrderHereIAmReq request;
    request.set_mmi_user_id(session->getMmiUserId());
    request.set_order_here_i_am(static_cast<fesk::OrderHereIAmReq_Order>(order));
    m_commonData.getFeskClient().send(fesk::MsgNo::OrderHereIAmReq, request, procedureRef);
}

void VornServerHereIAm::sendOrderHereIAmRej(const Client& client, const char* text) const
{
    sendReject<OmlaVornOrderHereIAmRejS>(client, 1, text);
}

void VornServerHereIAm::handleOrderHereIAmCfm(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.find<fesk::OrderHereIAmCfm>(message)) {
        const Client& client = answer->transaction;
        sendSignal<OmlaVornOrderHereIAmCfmS>(client, [&](auto& signal) {
            signal.state = static_cast<std::uint16_t>(answer->message.state()); // 0 where there is none
            if (answer->message.has_description()) {
                fillText(signal.description, answer->message.description());
            }
        });
    }
}

void VornServerHereIAm::handleOrderHereIAmRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.find<fesk::OrderHereIAmRej>(message)) {
        sendOrderHereIAmRej(answer->transaction, rejectedByBoard);
    }
}

/// The board isn't told: what it still indicates finds no transaction.
void VornServerHereIAm::onVornSessionLost(const VornSession& session)
{
    if (const std::uint32_t procedureRef = session.getProcedureRefSignal(subscriptionKey); procedureRef != 0) {
        TRACE_1("remove procedureRef: ({}) from transaction map.", procedureRef);
        m_commonData.getFeskClient().removeTransaction(procedureRef);
    }
}
