#include "vornServerYarrowI.h"

#include "boardMessage.h"
#include "deepSleepCommands.h"
#include "ostinel/commandRegistry.h"
#include "ostinel/kivMailboxLocator.h"
#include "ostinel/kivMailboxMonitor.h"
#include "signalNames.h"
#include "ulmoQueue.h"
#include "vornServerUlmo.h"
#include "vornSession.h"
#include "vorni/deepSleep.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <array>

using Ostinel::CommandRegistry::V1::onOwnThread;
using Ostinel::KivMailboxLocator::V1::KivMailboxLocatorIf;
using Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf;

namespace {

constexpr std::uint32_t startUpMbox = 1;       ///< stands for no client
constexpr std::uint32_t ownMbox = KIV_NO_MBOX; ///< as a sender: the calling thread's
constexpr std::uint16_t deepSleepErrorCode = 2;
constexpr std::uint32_t supportedProtocolRev = 1;

/// What clients are told of a state or status, by its number.
struct StateTexts {
    const char* activateRej;
    const char* deactivateRej;
    const char* statusInd;
};

constexpr std::array stateTexts{
    StateTexts{"Client not in INACTIVE state. DeepSleep state: INACTIVE", "radio in INACTIVE mode",
               "deep sleep deactivated"},
    StateTexts{"Client not in INACTIVE state. DeepSleep state: PRE_ACTIVE", "radio in PRE_ACTIVE mode",
               "Radio gets into PRE_ACTIVE status"},
    StateTexts{"Client not in INACTIVE state. DeepSleep state: ACTIVATING", "radio in ACTIVATING mode",
               "deep sleep activating"},
    StateTexts{"Client not in INACTIVE state. DeepSleep state: ACTIVE", "radio in ACTIVE mode",
               "Radio gets into Active Status"},
    StateTexts{"Client not in INACTIVE state. DeepSleep state: FAILURE", "radio in FAILURE mode",
               "Radio fails to get into deep sleep"},
};

static_assert(stateTexts.size() == yarrowi::DeepSleepState_ARRAYSIZE);

/// The state that a message tells, which may be left out for the first one; nothing where it is one that isn't known.
template <typename Message>
std::optional<std::uint16_t> stateIn(const Message& message, yarrowi::DeepSleepState state, int fieldNumber)
{
    if (!unknownEnumValues(message, fieldNumber).empty()) {
        return std::nullopt;
    }
    return static_cast<std::uint16_t>(state);
}

template <typename Rej>
StateTexts textsOf(const Rej& rej)
{
    const auto state = stateIn(rej, rej.deep_sleep_state(), Rej::kDeepSleepStateFieldNumber);
    return state ? stateTexts.at(*state) : StateTexts{"", "", ""};
}

} // namespace

template <typename Message>
struct VornServerYarrowI::Received {
    BoardEnvelope envelope;
    Message message;
    clientInfo* client = nullptr;
};

VornServerYarrowI::VornServerYarrowI(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_yarrowI(commonData.getYarrowIClient()),
      m_ulmoQueue(std::make_shared<UlmoQueue>())
{
}

VornServerYarrowI::~VornServerYarrowI()
{
    if (m_hasCommand) {
        VornServerUlmo::getInstance().unregisterCmdTable(deepSleepCommand);
    }
}

bool VornServerYarrowI::init()
{
    using Self = VornServerYarrowI;
    const std::string server = yarrowi::ServerMetadata().name();
    KivMailboxLocatorIf::getInstance().locate(server,
                                              [this](std::uint32_t mboxId) { handleDeepSleepServerLocate(mboxId); });
    TRACE_1("DeepSleep Server is locating {}", server);
    subscribe(yarrowi::MsgNo::ConnectionEstablishCfm, &Self::handleConnectionEstablishCfm);
    subscribe(yarrowi::MsgNo::ConnectionEstablishRej, &Self::handleConnectionEstablishRej);
    subscribe(yarrowi::MsgNo::CapabilityExchangeCfm, &Self::handleCapabilitiesExchCfm);
    subscribe(yarrowi::MsgNo::CapabilityExchangeRej, &Self::handleCapabilitiesExchRej);
    subscribe(OmlaVornActivateDeepSleepReqS::number, &Self::handleActivateDeepSleepReq);
    subscribe(yarrowi::MsgNo::ActivateDeepSleepCfm, &Self::handleActivateDeepSleepCfm);
    subscribe(yarrowi::MsgNo::ActivateDeepSleepRej, &Self::handleActivateDeepSleepRej);
    subscribe(OmlaVornDeactivateDeepSleepReqS::number, &Self::handleDeactivateDeepSleepReq);
    subscribe(yarrowi::MsgNo::DeactivateDeepSleepCfm, &Self::handleDeactivateDeepSleepCfm);
    subscribe(yarrowi::MsgNo::DeactivateDeepSleepRej, &Self::handleDeactivateDeepSleepRej);
    subscribe(OmlaVornSubscribeDeepSleepStatusReqS::number, &Self::handleSubscribeDeepSleepStatusReq);
    subscribe(yarrowi::MsgNo::SubscribeDeepSleepStatusCfm, &Self::handleSubscribeDeepSleepStatusCfm);
    subscribe(yarrowi::MsgNo::SubscribeDeepSleepStatusRej, &Self::handleSubscribeDeepSleepStatusRej);
    subscribe(yarrowi::MsgNo::DeepSleepStatusInd, &Self::handleDeepSleepStatusInd);
    subscribe(yarrowi::MsgNo::ConnectionClosedownCfm, &Self::handleConnectionClosedownCfm);
    m_hasCommand = VornServerUlmo::getInstance().registerCmdTable(
        deepSleepCommand, makeDeepSleepCommands(m_yarrowI, m_commonData.getPrivateMbox(), m_ulmoQueue), onOwnThread);
    registerSignalNames();
    return true;
}

void VornServerYarrowI::registerSignalNames()
{
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (signal.number >= OmlaVornSubscribeDeepSleepStatusReqS::number &&
            signal.number <= OmlaVornDeactivateDeepSleepRejS::number) {
            addSignalName(signal.number, signal.name);
        }
    }
    for (const MessageNumber& message : yarrowi::messages) {
        addSignalName(message.number, message.name);
    }
}

// --- The server and its connections

void VornServerYarrowI::handleDeepSleepServerLocate(std::uint32_t mboxId)
{
    TRACE_INFO("VornServerYarrowI::handleDeepSleepServerLocate, DeepSleepServer mboxId located {} :{}",
               yarrowi::ServerMetadata().name(), mboxId);
    m_yarrowI.setServerMbox(mboxId);
    m_isServerUp = true;
    m_monitorId = KivMailboxMonitorIf::getInstance().monitor(
        mboxId, [this](std::uint32_t lost) { handleDeepSleepServerDown(lost); });
    sendConnectionEstablishReq(m_yarrowI.addClientInfo(startUpMbox));
}

/// Capabilities stay, and nothing is told to the clients: their later requests find no connection.
void VornServerYarrowI::handleDeepSleepServerDown(std::uint32_t mboxId)
{
    TRACE_INFO("DeepSleepServer mailbox went down, 0x{:x}", mboxId);
    m_isServerUp = false;
    m_yarrowI.removeAllClientInfo();
}

void VornServerYarrowI::sendConnectionEstablishReq(clientInfo& client)
{
    yarrowi::ConnectionEstablishReq request;
    request.add_protocol_revision(supportedProtocolRev);
    m_yarrowI.send(yarrowi::MsgNo::ConnectionEstablishReq, request, &client, ownMbox);
}

void VornServerYarrowI::sendConnectionClosedownReq(clientInfo* client)
{
    m_yarrowI.send(yarrowi::MsgNo::ConnectionClosedownReq, yarrowi::ConnectionClosedownReq(), client, ownMbox);
}

void VornServerYarrowI::onNewVornSession(VornSession& session)
{
    sendConnectionEstablishReq(m_yarrowI.addClientInfo(session.getMboxId()));
}

void VornServerYarrowI::onVornSessionLost(const VornSession& session)
{
    clientInfo* client = m_yarrowI.findByMailbox(session.getMboxId());
    sendConnectionClosedownReq(client);
    if (client != nullptr && !m_isServerUp) {
        m_yarrowI.removeClientInfo(client->clientConnectionRef); // nobody is left to confirm it
    }
}

void VornServerYarrowI::shutdown()
{
    KivMailboxMonitorIf::getInstance().stopMonitor(m_monitorId);
}

template <typename Message>
std::optional<VornServerYarrowI::Received<Message>> VornServerYarrowI::decode(const MessagePtr& msg) const
{
    Received<Message> received;
    if (!decodeBoardMessage(msg.get(), received.envelope, received.message)) {
        TRACE_ERROR("Unable to parse GPB message {} of size {} bytes", received.message.GetTypeName(),
                    kiv_size(msg.get()));
        return std::nullopt;
    }
    TRACE_REC_SIG(msg->number, "{}", printMessage(received.envelope, received.message));
    return received;
}

template <typename Message>
std::optional<VornServerYarrowI::Received<Message>>
VornServerYarrowI::receiveForConnection(const MessagePtr& msg, const std::string& name) const
{
    auto received = decode<Message>(msg);
    if (received) {
        received->client = m_yarrowI.findByConnectionRef(received->envelope.connectionRef);
        if (received->client == nullptr) {
            TRACE_INFO("Unable to find clientInfo in {} with connectionRef {}", name, received->envelope.connectionRef);
            received.reset();
        }
    }
    return received;
}

template <typename Message>
std::optional<VornServerYarrowI::Received<Message>> VornServerYarrowI::receiveForProcedure(const MessagePtr& msg) const
{
    auto received = decode<Message>(msg);
    if (received) {
        received->client = m_yarrowI.findByProcedureRef(received->envelope.procedureRef);
        if (received->client == nullptr) {
            TRACE_INFO("Unable to find clientInfo in {} with procedureRef {}", Message::descriptor()->name(),
                       received->envelope.procedureRef);
            received.reset();
        }
    }
    return received;
}

bool VornServerYarrowI::isForUlmo(const clientInfo& client) const
{
    return client.mboxId == m_commonData.getPrivateMbox();
}

VornSession* VornServerYarrowI::findSession(const clientInfo& client, const char* ignoring) const
{
    VornSession* session = m_commonData.findVornSession(client.mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No VORN session found for mailbox ID: {}. Ignoring {}.", client.mboxId, ignoring);
    }
    return session;
}

void VornServerYarrowI::handleConnectionEstablishCfm(const MessagePtr& msg)
{
    const auto received = receiveForProcedure<yarrowi::ConnectionEstablishCfm>(msg);
    if (!received) {
        return;
    }
    clientInfo& client = *received->client;
    if (isForUlmo(client)) {
        forwardToUlmoQueue(msg);
        return;
    }
    client.serverConnectionRef = received->envelope.connectionRef;
    if (received->message.selected_protocol_revision() != supportedProtocolRev) { // 0 where it is absent
        TRACE_INFO("ABN: ConnectionEstablishCfm message invalid: selected protocol revision unsupported or field is "
                   "missing");
        sendConnectionClosedownReq(&client);
        return;
    }
    if (!m_capabilitiesReceived) {
        TRACE_INFO(
            "ConnectionEstablishCfm, successfully connected to YarrowI server. Sending CapabilityExchangeReq...");
        m_yarrowI.send(yarrowi::MsgNo::CapabilityExchangeReq, yarrowi::CapabilityExchangeReq(), &client, ownMbox);
        return;
    }
    TRACE_INFO("ConnectionEstablishCfm, successfully connected to YarrowI server");
    if (VornSession* session = findSession(client, "ConnectionEstablishCfm")) {
        session->setDeepSleepConnectionReqResponded(true);
    }
}

/// A session whose connection is refused keeps its gate closed; a refused start-up connection isn't tried again.
void VornServerYarrowI::handleConnectionEstablishRej(const MessagePtr& msg)
{
    const auto received = receiveForProcedure<yarrowi::ConnectionEstablishRej>(msg);
    if (!received) {
        return;
    }
    const clientInfo& client = *received->client;
    if (isForUlmo(client)) {
        forwardToUlmoQueue(msg);
        return;
    }
    if (received->message.has_reject_reason()) {
        TRACE_INFO("ABN: VornServerYarrowI:handleConnectionEstablishRej() reject_reason {}",
                   yarrowi::ConnectionEstablishRej::RejectReason_Name(received->message.reject_reason()));
    }
    if (!m_capabilitiesReceived && findSession(client, "ConnectionEstablishRej") != nullptr) {
        TRACE_INFO("YarrowI server refused to establish connection with VornServer.");
    }
    m_yarrowI.removeClientInfo(client.clientConnectionRef);
}

void VornServerYarrowI::handleCapabilitiesExchCfm(const MessagePtr& msg)
{
    const auto received = receiveForConnection<yarrowi::CapabilityExchangeCfm>(msg, "CapabilityExchangeCfm");
    if (!received) {
        return;
    }
    if (received->message.has_deep_sleep_supported()) {
        m_yarrowI.setDeepSleepSupported(received->message.deep_sleep_supported());
    }
    if (received->message.has_wake_up_time()) {
        m_yarrowI.setWakeUpTime(received->message.wake_up_time());
    }
    m_capabilitiesReceived = true;
    if (areComponentsReadyToPublish) {
        areComponentsReadyToPublish();
    }
    sendConnectionClosedownReq(received->client);
}

void VornServerYarrowI::handleCapabilitiesExchRej(const MessagePtr& msg)
{
    if (const auto received = receiveForConnection<yarrowi::CapabilityExchangeRej>(msg, "CapabilityExchangeRej")) {
        sendConnectionClosedownReq(received->client);
    }
}

void VornServerYarrowI::handleConnectionClosedownCfm(const MessagePtr& msg)
{
    const auto received = receiveForConnection<yarrowi::ConnectionClosedownCfm>(msg, "ConnectionClosedownCfm");
    if (!received) {
        return;
    }
    if (isForUlmo(*received->client)) {
        forwardToUlmoQueue(msg); // the command removes the connection
        return;
    }
    m_yarrowI.removeClientInfo(received->client->clientConnectionRef);
}

// --- The clients' requests

template <typename RejSignal, typename Request>
void VornServerYarrowI::handleClientReq(const MessagePtr& msg, std::uint32_t msgNo, const char* notFound)
{
    if (receiveSignal<VornSignalHeader>(msg) == nullptr) {
        return;
    }
    const std::uint32_t sender = kiv_sender(msg.get());
    clientInfo* client = m_yarrowI.findByMailbox(sender);
    if (client == nullptr) {
        TRACE_INFO("{} 0x{:x}", notFound, sender);
        return;
    }
    if (!m_yarrowI.isDeepSleepSupported()) {
        sendRej<RejSignal>(client, deepSleepErrorCode, "DeepSleep not supported");
        return;
    }
    m_yarrowI.send(msgNo, Request(), client, ownMbox);
}

void VornServerYarrowI::handleActivateDeepSleepReq(const MessagePtr& msg)
{
    handleClientReq<OmlaVornActivateDeepSleepRejS, yarrowi::ActivateDeepSleepReq>(
        msg, yarrowi::MsgNo::ActivateDeepSleepReq,
        "ABN: Unable to find clientInfo for OMLA_VORN_ACTIVATE_DEEP_SLEEP_REQ from DU! with mailbox");
}

void VornServerYarrowI::handleDeactivateDeepSleepReq(const MessagePtr& msg)
{
    handleClientReq<OmlaVornDeactivateDeepSleepRejS, yarrowi::DeactivateDeepSleepReq>(
        msg, yarrowi::MsgNo::DeactivateDeepSleepReq,
        "ABN: Unable to find clientInfo for OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REQ from DU with mailbox");
}

void VornServerYarrowI::handleSubscribeDeepSleepStatusReq(const MessagePtr& msg)
{
    handleClientReq<OmlaVornSubscribeDeepSleepStatusRejS, yarrowi::SubscribeDeepSleepStatusReq>(
        msg, yarrowi::MsgNo::SubscribeDeepSleepStatusReq,
        "Unable to find clientInfo for OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REQ from DU with mbox");
}

// --- The server's answers

template <typename Message>
VornSession* VornServerYarrowI::receiveForSession(const MessagePtr& msg, Message& message, const char* name,
                                                  const char* ignoring)
{
    const auto received = receiveForConnection<Message>(msg, name);
    if (!received) {
        return nullptr;
    }
    if (isForUlmo(*received->client)) {
        forwardToUlmoQueue(msg);
        return nullptr;
    }
    message = received->message;
    return findSession(*received->client, ignoring);
}

template <typename Message, typename Signal>
void VornServerYarrowI::handleCfm(const MessagePtr& msg, const char* name)
{
    Message message;
    if (const VornSession* session = receiveForSession(msg, message, name, name)) {
        sendSignal<Signal>(session->getMboxId(), session->getClientRef(), session->getServerRef());
    }
}

void VornServerYarrowI::handleActivateDeepSleepCfm(const MessagePtr& msg)
{
    handleCfm<yarrowi::ActivateDeepSleepCfm, OmlaVornActivateDeepSleepCfmS>(msg, "ActivateDeepSleepCfm");
}

void VornServerYarrowI::handleDeactivateDeepSleepCfm(const MessagePtr& msg)
{
    handleCfm<yarrowi::DeactivateDeepSleepCfm, OmlaVornDeactivateDeepSleepCfmS>(msg, "DeactivateDeepSleepCfm");
}

void VornServerYarrowI::handleSubscribeDeepSleepStatusCfm(const MessagePtr& msg)
{
    // The texts name another message, and always have; so does one of the status indication's.
    handleCfm<yarrowi::SubscribeDeepSleepStatusCfm, OmlaVornSubscribeDeepSleepStatusCfmS>(msg,
                                                                                          "DeactivateDeepSleepCfm");
}

void VornServerYarrowI::handleDeepSleepStatusInd(const MessagePtr& msg)
{
    using Ind = yarrowi::DeepSleepStatusInd;
    Ind ind;
    const VornSession* session = receiveForSession(msg, ind, "DeepSleepStatusInd", "DeactivateDeepSleepCfm");
    if (session == nullptr) {
        return;
    }
    sendSignal<OmlaVornDeepSleepStatusIndS>(
        session->getMboxId(), session->getClientRef(), session->getServerRef(), [&](auto& signal) {
            if (const auto status = stateIn(ind, ind.deep_sleep_status(), Ind::kDeepSleepStatusFieldNumber)) {
                signal.status = *status;
                copyErrorDescription(signal.statusText, sizeof(signal.statusText), stateTexts.at(*status).statusInd);
            }
        });
}

template <typename Message, typename Signal, typename Reason>
void VornServerYarrowI::handleRej(const MessagePtr& msg, Reason&& reason)
{
    const auto received = receiveForConnection<Message>(msg, Message::descriptor()->name());
    if (!received) {
        return;
    }
    if (isForUlmo(*received->client)) {
        forwardToUlmoQueue(msg);
        return;
    }
    sendRej<Signal>(received->client, deepSleepErrorCode, reason(received->message));
}

void VornServerYarrowI::handleActivateDeepSleepRej(const MessagePtr& msg)
{
    handleRej<yarrowi::ActivateDeepSleepRej, OmlaVornActivateDeepSleepRejS>(
        msg, [](const auto& rej) { return textsOf(rej).activateRej; });
}

void VornServerYarrowI::handleDeactivateDeepSleepRej(const MessagePtr& msg)
{
    handleRej<yarrowi::DeactivateDeepSleepRej, OmlaVornDeactivateDeepSleepRejS>(
        msg, [](const auto& rej) { return textsOf(rej).deactivateRej; });
}

void VornServerYarrowI::handleSubscribeDeepSleepStatusRej(const MessagePtr& msg)
{
    handleRej<yarrowi::SubscribeDeepSleepStatusRej, OmlaVornSubscribeDeepSleepStatusRejS>(
        msg, [](const auto&) { return "Client has already subscribed to deep sleep"; });
}

template <typename Signal>
void VornServerYarrowI::sendRej(const clientInfo* client, std::uint16_t errorCode, const std::string& reason)
{
    if (client == nullptr) {
        TRACE_INFO("ABN: clientInfo parameter is NULL. Ignoring.");
        return;
    }
    const VornSession* session = m_commonData.findVornSession(client->mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No VORN session found for mailbox ID: {}. Ignoring.", client->mboxId);
        return;
    }
    TRACE_1("VornServerYarrowI:sendRej() {} reason: {}", getSignalName(Signal::number), reason);
    sendReject<Signal>(session->getMboxId(), session->getClientRef(), session->getServerRef(), errorCode, reason);
}

// --- The debug commands

void VornServerYarrowI::forwardToUlmoQueue(const MessagePtr& message)
{
    m_ulmoQueue->push(message);
}

VornServerComponent::MessagePtr VornServerYarrowI::waitForUlmoMessage(std::uint32_t seconds)
{
    return m_ulmoQueue->wait(seconds);
}
