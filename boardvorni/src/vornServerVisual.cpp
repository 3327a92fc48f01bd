#include "vornServerVisual.h"

#include "fesk/fesk.pb.h"
#include "vorni/visualIndication.h"

#include <map>
#include <optional>

using namespace tolme;
using fesk::SetVisualIndicationReq_VisualizedState;

namespace {

/// What the board calls a client's order. Two of the codes are one order.
const std::map<std::uint16_t, int> visualizedStates{
    {0x010, 19}, {0x011, 20}, {0x060, 17}, {0x061, 18}, {0x110, 1},  {0x111, 2},  {0x120, 3},  {0x121, 4},
    {0x130, 5},  {0x131, 6},  {0x140, 7},  {0x141, 8},  {0x210, 22}, {0x211, 22}, {0x212, 21}, {0x310, 11},
    {0x311, 12}, {0x320, 13}, {0x321, 14}, {0x331, 15}, {0x332, 16}, {0x410, 9},  {0x411, 10},
};

using Codes = std::map<int, std::uint16_t>;

// What the clients call what the board shows.
const Codes firstCodes{{1, 0x411}, {2, 0x410}};
const Codes secondCodes{{1, 0x120}, {2, 0x121}, {3, 0x130}, {4, 0x140}, {5, 0x110}, {6, 0x110}, {7, 0x110}};
const Codes thirdCodes{{1, 0x311}, {2, 0x310}, {3, 0x331}, {4, 0x320}, {5, 0x313}, {6, 0x312}};
const Codes fourthCodes{{1, 1}, {2, 4}};

constexpr const char* specialIndicator = "Support Unit Fault Indicator"; ///< whose state is the fourth indication

std::optional<std::uint16_t> codeOf(const Codes& codes, bool isThere, int indication)
{
    const auto found = codes.find(indication);
    return isThere && found != codes.end() ? std::optional(found->second) : std::nullopt;
}

std::optional<std::uint16_t> fourthCode(const fesk::GetVisualIndicationCfm& cfm)
{
    return codeOf(fourthCodes, cfm.has_fourth_indication(), cfm.fourth_indication());
}

} // namespace

VornServerVisual::VornServerVisual(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_procedures(commonData, commonData.getFeskClient())
{
}

bool VornServerVisual::init()
{
    using Self = VornServerVisual;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornSetVisualIndicationReqS::number, &Self::handleSetVisualIndicationReq);
    subscribe(OmlaVornGetVisualIndicationReqS::number, &Self::handleGetVisualIndicationReq);
    subscribe(OmlaVornGetSpecialIndicatorReqS::number, &Self::handleGetSpecialIndicatorReq);
    onMessage(fesk::MsgNo::SetVisualIndicationCfm, &Self::handleSetVisualIndicationCfm);
    onMessage(fesk::MsgNo::SetVisualIndicationRej, &Self::handleSetVisualIndicationRej);
    onMessage(fesk::MsgNo::GetVisualIndicationCfm, &Self::handleGetVisualIndicationCfm);
    onMessage(fesk::MsgNo::GetVisualIndicationRej, &Self::handleGetVisualIndicationRej);
    return true;
}

const VornSession* VornServerVisual::findSender(const MessagePtr& msg) const
{
    const VornSession* session = m_commonData.findVornSession(kiv_sender(msg.get()));
    if (session == nullptr) {
        TRACE_INFO("ABN: There is no session for the received message 0x{:x}", msg->number);
    }
    return session;
}

template <typename Message>
std::optional<TolmeAnswer<Message>> VornServerVisual::take(const TolmeMessagePtr& message)
{
    auto answer = m_procedures.decode<Message>(message);
    if (!answer) {
        return std::nullopt;
    }
    TolmeClient& client = m_commonData.getFeskClient();
    const Client* found = client.findTransaction(answer->envelope.procedureRef);
    if (found == nullptr) {
        TRACE_INFO("Cannot find a matching transaction for this {} with procedureRef {}", answer->name,
                   answer->envelope.procedureRef);
        return std::nullopt;
    }
    answer->transaction = *found;
    client.removeTransaction(found->procedureRef);
    return answer;
}

bool VornServerVisual::hasSession(const Client& client, const char* name) const
{
    const bool isThere = m_commonData.findVornSession(client.mboxId) != nullptr;
    if (!isThere) {
        TRACE_INFO("ABN: Cannot find a matching session for this {} with mailbox 0x{:x}", name, client.mboxId);
    }
    return isThere;
}

// --- Setting an indicator

/// The indicators of such a unit aren't such a client's business: it is told that all is done as it wants.
bool VornServerVisual::isGsmOnIru(std::uint32_t serverRef) const
{
    const HwPid& pid = m_commonData.getHwPid();
    return pid.allPidData != 0 && pid.productName.starts_with("IRU") &&
           isGsmServerRef(static_cast<std::int32_t>(serverRef));
}

void VornServerVisual::handleSetVisualIndicationReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSetVisualIndicationReqS>(msg);
    const VornSession* session = signal != nullptr ? findSender(msg) : nullptr;
    if (session == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, 0);
    if (isGsmOnIru(client.serverRef)) {
        TRACE_1("Disabled Led handling for GSM serverRef: {}", client.serverRef);
        sendSignal<OmlaVornSetVisualIndicationCfmS>(client);
        return;
    }
    const auto found = visualizedStates.find(signal->visualState);
    if (found == visualizedStates.end() || !fesk::SetVisualIndicationReq_VisualizedState_IsValid(found->second)) {
        sendSetVisualIndicationRej(client,
                                   fmt::format("Invalid parameter VisualizedState: {}", signal->visualState.value()));
        return;
    }
    const std::uint32_t user = session->getMmiUserId();
    if (user == 0) {
        sendSetVisualIndicationRej(client, fmt::format("The session has not subscribed as an MMI User: ID={}", user));
        return;
    }
    const auto state = static_cast<SetVisualIndicationReq_VisualizedState>(found->second);
    fesk::SetVisualIndicationReq request;
    request.set_mmi_user_id(user);
    request.set_visual_state(state);
    const std::uint32_t procedureRef = m_procedures.requestFor(client, fesk::MsgNo::SetVisualIndicationReq, request);
    if (procedureRef == 0) {
        TRACE_ERROR("Cannot send fesk::SetVisualIndicationReq to the FESK server");
        return;
    }
    TRACE_1("VornServer sends SetVisualIndicationReq to FESK server with procedureRef {} and visualState {}",
            procedureRef, fesk::SetVisualIndicationReq_VisualizedState_Name(state));
}

void VornServerVisual::sendSetVisualIndicationRej(const Client& client, const std::string& text) const
{
    sendReject<OmlaVornSetVisualIndicationRejS>(client, 1, text);
}

void VornServerVisual::handleSetVisualIndicationCfm(const TolmeMessagePtr& message)
{
    const auto answer = take<fesk::SetVisualIndicationCfm>(message);
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if (client.mboxId == KIV_NO_MBOX) {
        TRACE_1("fesk::SetVisualIndicationCfm for internal request");
    } else if (hasSession(client, "GetVisualIndicationCfm")) { // the name is another message's, and always has been
        sendSignal<OmlaVornSetVisualIndicationCfmS>(client);
    }
}

/// The unit's own order has no session either.
void VornServerVisual::handleSetVisualIndicationRej(const TolmeMessagePtr& message)
{
    const auto answer = take<fesk::SetVisualIndicationRej>(message);
    if (answer && hasSession(answer->transaction, "GetVisualIndicationCfm")) {
        sendSetVisualIndicationRej(answer->transaction, "See logs to reveal why the FESK server rejected the request");
    }
}

// --- Reading the indicators: two requests of the clients, one of the board

template <typename Req, typename Rej>
void VornServerVisual::handleReadReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<Req>(msg);
    const VornSession* session = signal != nullptr ? findSender(msg) : nullptr;
    if (session == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, Req::number);
    const std::uint32_t user = session->getMmiUserId();
    if (user == 0) {
        sendReject<Rej>(client, 1, "The session has not subscribed as an MMI User");
        return;
    }
    fesk::GetVisualIndicationReq request;
    request.set_mmi_user_id(user);
    const std::uint32_t procedureRef = m_procedures.requestFor(client, fesk::MsgNo::GetVisualIndicationReq, request);
    if (procedureRef == 0) {
        TRACE_ERROR("Cannot send fesk::GetVisualIndicationReq to the FESK server");
        return;
    }
    TRACE_1("VornServer sends fesk::GetVisualIndicationReq to FESK server with procedureRef {}", procedureRef);
}

void VornServerVisual::handleGetVisualIndicationReq(const MessagePtr& msg)
{
    handleReadReq<OmlaVornGetVisualIndicationReqS, OmlaVornGetVisualIndicationRejS>(msg);
}

void VornServerVisual::handleGetSpecialIndicatorReq(const MessagePtr& msg)
{
    handleReadReq<OmlaVornGetSpecialIndicatorReqS, OmlaVornGetSpecialIndicatorRejS>(msg);
}

void VornServerVisual::handleGetVisualIndicationCfm(const TolmeMessagePtr& message)
{
    const auto answer = take<fesk::GetVisualIndicationCfm>(message);
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if (client.mboxId == KIV_NO_MBOX) {
        TRACE_1("fesk::GetVisualIndicationCfm for internal request");
        return;
    }
    if (!hasSession(client, "GetVisualIndicationCfm")) {
        return;
    }
    if (client.requestMsgNo == OmlaVornGetVisualIndicationReqS::number) {
        sendIndications(client, answer->message);
    } else if (client.requestMsgNo == OmlaVornGetSpecialIndicatorReqS::number) {
        sendSpecialIndicators(client, answer->message);
    } else {
        TRACE_INFO("ABN: Unrecognized message number stored in transaction from GetVisualIndicationCfm {}",
                   client.requestMsgNo);
    }
}

void VornServerVisual::sendIndications(const Client& client, const fesk::GetVisualIndicationCfm& cfm) const
{
    sendSignal<OmlaVornGetVisualIndicationCfmS>(client, [&](auto& signal) {
        const auto code = [](const Codes& codes, bool isThere, int indication) {
            return codeOf(codes, isThere, indication).value_or(vornUnknownIndication);
        };
        signal.firstIndication = code(firstCodes, cfm.has_first_indication(), cfm.first_indication());
        signal.secondIndication = code(secondCodes, cfm.has_second_indication(), cfm.second_indication());
        signal.thirdIndication = code(thirdCodes, cfm.has_third_indication(), cfm.third_indication());
        signal.fourthIndication = fourthCode(cfm).value_or(vornUnknownIndication);
    });
}

/// There is one of them, where the board tells it.
void VornServerVisual::sendSpecialIndicators(const Client& client, const fesk::GetVisualIndicationCfm& cfm) const
{
    const auto state = fourthCode(cfm);
    const std::uint32_t count = state ? 1 : 0;
    TRACE_1("OMLA_VORN_GET_SPECIAL_INDICATOR_CFM with {} special indicators", count);
    const auto fill = [&](OmlaVornGetSpecialIndicatorCfmS& signal) {
        signal.noOfIndicators = count;
        if (state) {
            auto& indicator = *reinterpret_cast<VornSpecialIndicatorS*>(&signal + 1);
            fillText(indicator.name, specialIndicator);
            indicator.state = *state;
        }
    };
    sendSignal<OmlaVornGetSpecialIndicatorCfmS>(client, fill, count * sizeof(VornSpecialIndicatorS));
}

void VornServerVisual::handleGetVisualIndicationRej(const TolmeMessagePtr& message)
{
    const auto answer = take<fesk::GetVisualIndicationRej>(message);
    if (!answer || !hasSession(answer->transaction, "GetVisualIndicationRej")) {
        return;
    }
    constexpr const char* text = "Interaction failure";
    const Client& client = answer->transaction;
    if (client.requestMsgNo == OmlaVornGetVisualIndicationReqS::number) {
        sendReject<OmlaVornGetVisualIndicationRejS>(client, 1, text);
    } else if (client.requestMsgNo == OmlaVornGetSpecialIndicatorReqS::number) {
        sendReject<OmlaVornGetSpecialIndicatorRejS>(client, 1, text);
    }
}
