#include "tolmeClient.h"

#include "ostinel/kivMailboxLocator.h"
#include "ostinel/kivMailboxMonitor.h"
#include "ostinel/kivMessageSubscription.h"
#include "trace/trace.h"

#include <algorithm>
#include <google/protobuf/message.h>
#include <iterator>

using Ostinel::KivMailboxLocator::V1::KivMailboxLocatorIf;
using Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf;
using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;

namespace {

/// As much of a message's header as a ConnEstablishCfm is routed by.
struct BoardMessageStart {
    boost::endian::native_uint32_t msgNo;
    boost::endian::big_uint32_t procedureRef;
};

void traceTooShort(const TolmeMessagePtr& message)
{
    TRACE_INFO("ABN: message 0x{:x} of {} bytes is too short. Ignoring it.", message->number, kiv_size(message.get()));
}

} // namespace

std::map<std::uint32_t, TolmeClient*> TolmeClient::s_clients;

TolmeClient::TolmeClient(std::uint32_t wishedId) : m_clientId(wishedId)
{
    while (s_clients.contains(m_clientId)) {
        ++m_clientId;
    }
    s_clients.emplace(m_clientId, this);
}

TolmeClient::~TolmeClient()
{
    leaveRouting();
}

/// The id may have gone to another instance after a disconnect.
void TolmeClient::leaveRouting()
{
    const auto self = s_clients.find(m_clientId);
    if (self != s_clients.end() && self->second == this) {
        s_clients.erase(self);
    }
}

void TolmeClient::startLocating(std::uint32_t connEstablishCfmMsgNo, const std::string& serverName, Handler cfmDecoder)
{
    m_connEstablishCfmMsgNo = connEstablishCfmMsgNo;
    m_serverName = serverName;
    m_ownMbox = kiv_current_mbox();
    KivMessageSubscriptionIf::getInstance().subscribe(connEstablishCfmMsgNo, routeConnEstablishCfm);
    m_connEstablishCfmDecoder = std::move(cfmDecoder);
    m_subscriptions[connEstablishCfmMsgNo] = [connEstablishCfmMsgNo] {
        return KivMessageSubscriptionIf::getInstance().unsubscribe(connEstablishCfmMsgNo) == 0;
    };
    locateServer();
}

void TolmeClient::locateServer()
{
    if (KivMailboxLocatorIf::getInstance().locate(m_serverName, [this](std::uint32_t mbox) { onServerFound(mbox); }) !=
        0) {
        TRACE_ERROR("ABN: {} can't be located", m_serverName);
    }
}

bool TolmeClient::isInternal(std::uint32_t msgNo) const
{
    return msgNo == serverLost || msgNo == serverFound || msgNo == m_connEstablishCfmMsgNo;
}

void TolmeClient::registerHandler(std::uint32_t msgNo, Handler handler)
{
    if (!isInternal(msgNo)) {
        // Taken already where the other instance listens to the number too: the routing serves both.
        const bool isShared = isHandled(msgNo);
        const int result = KivMessageSubscriptionIf::getInstance().subscribe(
            msgNo, [msgNo](const TolmeMessagePtr& message) { routeMessage(msgNo, message); });
        if (result != 0 && !isShared) {
            TRACE_ERROR("ABN: message 0x{:x} has a subscriber already", msgNo);
            return;
        }
        m_subscriptions[msgNo] = [this, msgNo] { return undoHandler(msgNo); };
    }
    m_handlers[msgNo] = std::move(handler);
}

bool TolmeClient::isHandled(std::uint32_t msgNo)
{
    return std::any_of(s_clients.begin(), s_clients.end(),
                       [msgNo](const auto& client) { return client.second->m_handlers.contains(msgNo); });
}

bool TolmeClient::undoHandler(std::uint32_t msgNo)
{
    m_handlers.erase(msgNo);
    return isHandled(msgNo) || KivMessageSubscriptionIf::getInstance().unsubscribe(msgNo) == 0;
}

void TolmeClient::onServerFound(std::uint32_t mbox)
{
    m_serverMbox = mbox;
    m_monitorId = KivMailboxMonitorIf::getInstance().monitor(mbox, [this](std::uint32_t lost) { onServerLost(lost); });
    callEventHandler(serverFound);
}

/// Requests in flight, capabilities and the mark that they were received stay.
void TolmeClient::onServerLost(std::uint32_t /*mbox*/)
{
    m_connectionRef = 0;
    m_selectedProtocolRev = 0;
    m_serverMbox = KIV_NO_MBOX;
    m_monitorId = 0;
    locateServer();
    callEventHandler(serverLost);
}

void TolmeClient::callEventHandler(std::uint32_t event)
{
    callHandler(event, Ostinel::KivMessageSubscription::V1::makeShared(kiv_alloc(sizeof(event), event)));
}

void TolmeClient::acceptConnection(const TolmeEnvelope& envelope, std::optional<std::uint32_t> selectedProtocolRev)
{
    if (selectedProtocolRev && *selectedProtocolRev != 0) {
        m_connectionRef = envelope.connectionRef;
        m_selectedProtocolRev = *selectedProtocolRev;
        return;
    }
    if (selectedProtocolRev) {
        TRACE_INFO("ABN: ConnEstablishCfm message invalid: selected protocol revision is zero");
    } else {
        TRACE_INFO("ABN: ConnEstablishCfm message invalid: selected protocol revision field is missing");
    }
    m_connectionRef = 0;
    m_selectedProtocolRev = 0;
}

/// Needs the procedureRef alone: a message that is too short for more is refused by the decoder.
void TolmeClient::routeConnEstablishCfm(const TolmeMessagePtr& message)
{
    const auto* start = viewSignal<BoardMessageStart>(message);
    if (start == nullptr) {
        traceTooShort(message);
        return;
    }
    const std::uint32_t clientId = start->procedureRef;
    const auto found = s_clients.find(clientId);
    if (found == s_clients.end()) {
        TRACE_INFO("ABN: Unroutable connection establish confirm message (0x{:x}) meant for TOLME client {}",
                   message->number, clientId);
        return;
    }
    TolmeClient& client = *found->second;
    if (client.m_connEstablishCfmDecoder) {
        client.m_connEstablishCfmDecoder(message);
    }
    client.callHandler(message->number, message);
}

void TolmeClient::routeMessage(std::uint32_t msgNo, const TolmeMessagePtr& message)
{
    const auto envelope = readBoardEnvelope(message.get());
    if (!envelope) {
        traceTooShort(message);
        return;
    }
    const auto found = s_clients.find(envelope->connectionRef);
    if (found == s_clients.end()) {
        TRACE_INFO("ABN: Unroutable message (0x{:x}) meant for TOLME client {}", msgNo, envelope->connectionRef);
        return;
    }
    if (!found->second->callHandler(msgNo, message)) {
        TRACE_INFO("ABN: The TOLME Client {} received a message (0x{:x}) but has no registered handler for it.",
                   envelope->connectionRef, msgNo);
    }
}

/// A copy is called: a handler may replace itself. False where the number has none.
bool TolmeClient::callHandler(std::uint32_t msgNo, const TolmeMessagePtr& message)
{
    const auto found = m_handlers.find(msgNo);
    if (found == m_handlers.end()) {
        return false;
    }
    const Handler handler = found->second;
    handler(message);
    return true;
}

bool TolmeClient::decode(const TolmeMessagePtr& message, TolmeEnvelope& envelope, google::protobuf::Message& body)
{
    if (!decodeBoardMessage(message.get(), envelope, body)) {
        TRACE_ERROR("Unable to parse GPB message {} of size {} bytes", body.GetTypeName(), kiv_size(message.get()));
        return false;
    }
    return true;
}

std::uint32_t TolmeClient::send(std::uint32_t msgNo, const google::protobuf::Message& message,
                                std::uint32_t procedureRef)
{
    if (!isConnected()) {
        TRACE_INFO("ABN: Failed to send message -- not connected to TOLME server");
        return 0;
    }
    const TolmeEnvelope envelope{msgNo, procedureRef != 0 ? procedureRef : nextProcedureRef(), m_connectionRef};
    OwnedMessage msg = encode(envelope, message);
    if (msg == nullptr) {
        return 0;
    }
    TRACE_SEND_SIG(envelope.msgNo, m_serverMbox, "{}", printMessage(envelope, message));
    sendOwned(std::move(msg), m_serverMbox, m_ownMbox);
    return envelope.procedureRef;
}

OwnedMessage TolmeClient::encode(const TolmeEnvelope& envelope, const google::protobuf::Message& message)
{
    OwnedMessage msg = encodeBoardMessage(envelope, message);
    if (msg == nullptr) {
        TRACE_ERROR("Failed to encode message {}", envelope.msgNo);
    }
    return msg;
}

std::uint32_t TolmeClient::nextProcedureRef()
{
    do {
        ++m_nextProcedureRef;
        if (m_nextProcedureRef == 0) {
            m_nextProcedureRef = 1;
        }
    } while (m_transactions.contains(m_nextProcedureRef));
    return m_nextProcedureRef;
}

bool TolmeClient::addTransaction(const ProcedureTransaction& transaction)
{
    return m_transactions.emplace(transaction.procedureRef, transaction).second;
}

TolmeClient::ProcedureTransaction* TolmeClient::findTransaction(std::uint32_t procedureRef)
{
    const auto found = m_transactions.find(procedureRef);
    return found != m_transactions.end() ? &found->second : nullptr;
}

TolmeClient::ProcedureTransaction*
TolmeClient::findTransactionIf(const std::function<bool(const ProcedureTransaction&)>& predicate)
{
    const auto found = std::find_if(m_transactions.begin(), m_transactions.end(),
                                    [&](const auto& entry) { return predicate(entry.second); });
    return found != m_transactions.end() ? &found->second : nullptr;
}

bool TolmeClient::removeTransaction(std::uint32_t procedureRef)
{
    return m_transactions.erase(procedureRef) != 0;
}

bool TolmeClient::getCapabilities(std::vector<std::shared_ptr<const TolmeCapability>>& records) const
{
    std::copy(m_capabilities.begin(), m_capabilities.end(), std::back_inserter(records));
    return hasCapabilities();
}

bool TolmeClient::hasCapability(std::uint16_t code) const
{
    return std::any_of(m_capabilities.begin(), m_capabilities.end(),
                       [code](const auto& record) { return record->code == code; });
}

void TolmeClient::disconnect()
{
    m_connectionRef = 0;
    m_selectedProtocolRev = 0;
    for (const auto& [msgNo, undo] : m_subscriptions) {
        undo();
    }
    m_subscriptions.clear();
    if (m_monitorId != 0) {
        KivMailboxMonitorIf::getInstance().stopMonitor(m_monitorId);
        m_monitorId = 0;
    }
    leaveRouting();
}
