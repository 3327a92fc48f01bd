/// The client end of a board resource server: the DUNL and the FESK server.
#pragma once

#include "boardMessage.h"
#include "kiv/kiv.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A received message; the last copy frees it.
using TolmeMessagePtr = std::shared_ptr<kiv_msg>;

using TolmeEnvelope = BoardEnvelope;

/// What a server says that it can do: a plain structure that begins with the code. Records with parameters derive from
/// it.
struct TolmeCapability {
    std::uint16_t code;
    explicit TolmeCapability(std::uint16_t capabilityCode) : code(capabilityCode) {}
};

/// A record with parameters as what it is; null where it is another one.
template <typename Record>
const Record* capabilityAs(const TolmeCapability& capability)
{
    return capability.code == Record::ownCode ? static_cast<const Record*>(&capability) : nullptr;
}

/// Locates its server by name, establishes the connection, routes what the server sends to the handler of its number,
/// keeps the requests in flight and the server's capabilities. What a connection carries is its connector's business.
///
/// Several instances share the process's subscriptions: a message finds its instance by connectionRef, which is the
/// instance's client id. Server thread only.
class TolmeClient
{
public:
    using Handler = std::function<void(TolmeMessagePtr)>;

    /// A request in flight.
    struct ProcedureTransaction {
        std::uint32_t procedureRef; ///< the key
        std::uint32_t mboxId;       ///< the client's mailbox
        std::uint32_t serverRef;    ///< the client's
        std::uint32_t clientRef;    ///< the client's
        std::uint32_t requestMsgNo; ///< number of the request that was sent
    };

    // Reserved message numbers of the connection events; the handler gets a message of 4 bytes.
    static constexpr std::uint32_t serverFound = 0xFFFFFFFF; ///< the server is there and monitored
    static constexpr std::uint32_t serverLost = 0;           ///< it is gone and the state is cleared

    /// Takes the lowest free client id at or above `wishedId`.
    explicit TolmeClient(std::uint32_t wishedId);
    ~TolmeClient();
    TolmeClient(const TolmeClient&) = delete;
    TolmeClient& operator=(const TolmeClient&) = delete;

    /// Looks for the server, whose ConnEstablishCfm is `CfmType` with this number. The calling thread's mailbox is the
    /// sender of all messages.
    template <typename CfmType>
    void start(std::uint32_t connEstablishCfmMsgNo, const std::string& serverName)
    {
        startLocating(connEstablishCfmMsgNo, serverName, [this](const TolmeMessagePtr& message) {
            TolmeEnvelope envelope;
            CfmType cfm;
            if (decode(message, envelope, cfm)) {
                acceptConnection(envelope, cfm.has_selected_protocol_revision()
                                               ? std::optional<std::uint32_t>(cfm.selected_protocol_revision())
                                               : std::nullopt);
            }
        });
    }

    /// Sends the interface's ConnEstablishReq with its protocol revisions, unless connected or the server isn't there.
    template <typename ReqType>
    void sendConnEstablishReq(std::uint32_t msgNo, const ReqType& request)
    {
        if (!isConnected() && isServerFound() && request.protocol_revision_size() > 0) {
            if (OwnedMessage msg = encode({msgNo, m_clientId, m_clientId}, request)) {
                sendOwned(std::move(msg), m_serverMbox, m_ownMbox);
            }
        }
    }

    /// Enters the handler of a number, replacing an earlier one.
    void registerHandler(std::uint32_t msgNo, Handler handler);

    bool isConnected() const { return m_connectionRef != 0 && m_selectedProtocolRev != 0; }
    bool isServerFound() const { return m_serverMbox != KIV_NO_MBOX && m_monitorId != 0xFFFFFFFF; }
    std::uint32_t getSelectedProtocolRev() const { return m_selectedProtocolRev; }
    std::uint32_t getClientId() const { return m_clientId; }

    /// Sends a message in a new procedure, or in the one given. Returns the procedureRef, or 0 where it can't be sent:
    /// it is lost then.
    std::uint32_t send(std::uint32_t msgNo, const google::protobuf::Message& message, std::uint32_t procedureRef = 0);

    /// Takes a message apart. False, with a trace, where it is too short or doesn't parse.
    static bool decode(const TolmeMessagePtr& message, TolmeEnvelope& envelope, google::protobuf::Message& body);

    /// A reference that no transaction has; never 0.
    std::uint32_t nextProcedureRef();

    /// False, and no change, where the procedureRef is in use.
    bool addTransaction(const ProcedureTransaction& transaction);
    ProcedureTransaction* findTransaction(std::uint32_t procedureRef);
    /// The first that `predicate` holds for, in the order of their references, or null.
    ProcedureTransaction* findTransactionIf(const std::function<bool(const ProcedureTransaction&)>& predicate);
    bool removeTransaction(std::uint32_t procedureRef);

    void addCapability(std::shared_ptr<const TolmeCapability> record) { m_capabilities.push_back(std::move(record)); }
    /// Appends all records; false where there are none.
    bool getCapabilities(std::vector<std::shared_ptr<const TolmeCapability>>& records) const;
    bool hasCapabilities() const { return !m_capabilities.empty(); }
    bool hasCapability(std::uint16_t code) const;
    void setCapabilitiesReceived() { m_capabilitiesReceived = true; }
    bool areCapabilitiesReceived() const { return m_capabilitiesReceived; }

    /// At exit: takes all subscriptions back and leaves the routing.
    void disconnect();

private:
    void startLocating(std::uint32_t connEstablishCfmMsgNo, const std::string& serverName, Handler cfmDecoder);
    void locateServer();
    void onServerFound(std::uint32_t mbox);
    void onServerLost(std::uint32_t mbox);
    void callEventHandler(std::uint32_t event);
    bool callHandler(std::uint32_t msgNo, const TolmeMessagePtr& message);
    static bool isHandled(std::uint32_t msgNo);
    void leaveRouting();
    void acceptConnection(const TolmeEnvelope& envelope, std::optional<std::uint32_t> selectedProtocolRev);
    bool isInternal(std::uint32_t msgNo) const;
    bool undoHandler(std::uint32_t msgNo);
    static OwnedMessage encode(const TolmeEnvelope& envelope, const google::protobuf::Message& message);
    static void routeConnEstablishCfm(const TolmeMessagePtr& message);
    static void routeMessage(std::uint32_t msgNo, const TolmeMessagePtr& message);

    static std::map<std::uint32_t, TolmeClient*> s_clients;

    std::map<std::uint32_t, Handler> m_handlers; ///< also by the numbers of the connection events
    Handler m_connEstablishCfmDecoder;
    std::uint32_t m_clientId;
    std::uint32_t m_ownMbox = KIV_NO_MBOX;
    std::uint32_t m_connectionRef = 0; ///< given by the server; not 0 while connected
    std::uint32_t m_selectedProtocolRev = 0;
    std::uint32_t m_serverMbox = KIV_NO_MBOX;
    std::uint32_t m_monitorId = 0;
    std::map<std::uint32_t, std::function<bool()>> m_subscriptions; ///< how each is taken back
    std::string m_serverName;
    std::uint32_t m_connEstablishCfmMsgNo = 0;
    std::uint32_t m_nextProcedureRef = 0; ///< the last one used
    std::vector<std::shared_ptr<const TolmeCapability>> m_capabilities;
    std::map<std::uint32_t, ProcedureTransaction> m_transactions;
    bool m_capabilitiesReceived = false;
};
