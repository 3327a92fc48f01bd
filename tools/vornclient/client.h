/// One DU client: a mailbox, its references, and the signals that have arrived for it.
#pragma once

#include "vornclient/faultView.h"
#include "vornclient/panelView.h"
#include "vornclient/signal.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace VornClient {

class Client;
class ClientHub;

/// Told of what happens, while it happens. Nothing may be sent or waited for from inside.
class ClientListener
{
public:
    virtual ~ClientListener() = default;
    virtual void onSent(const Client& client, const Signal& signal) = 0;
    virtual void onReceived(const Client& client, const Signal& signal) = 0;
    virtual void onServerPublished(kiv_mbox_id_t server) = 0;
    virtual void onServerGone(kiv_mbox_id_t server) = 0;
    /// The faults that a client is shown aren't what they were.
    virtual void onFaultChange(const Client& client, const FaultChange& change) = 0;
};

/// Signals that have arrived and that nobody has asked for yet, oldest first. Bounded: what a peer floods the client
/// with pushes its oldest signals out.
class Inbox
{
public:
    void add(Signal signal);
    /// Takes the first signal that the predicate holds for, of those that arrived from `since` on.
    std::optional<Signal> take(const std::function<bool(const Signal&)>& predicate, std::uint64_t since = 0);
    const std::deque<Signal>& signals() const { return m_signals; }
    /// Signals arriving from now on have this sequence or a later one.
    std::uint64_t nextSequence() const { return m_nextSequence; }
    void clear();

private:
    std::deque<Signal> m_signals;
    std::size_t m_bytes = 0;
    std::uint64_t m_nextSequence = 0;
};

struct ClientSettings {
    std::string label; ///< empty for the first client of the program
    std::string mailboxName;
    References references;
    std::uint16_t protocolRev = 3;
    Vorni::Protocol protocol = Vorni::Protocol::vorni; ///< by which of the server's mailboxes it is served
};

/// The connection request of a client.
std::vector<std::byte> connectRequest(const ClientSettings& settings);

/// Made and owned by a ClientHub. The mailbox exists from the first signal that is sent until close.
class Client
{
public:
    Client(ClientHub& hub, ClientSettings settings);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const ClientSettings& settings() const { return m_settings; }
    kiv_mbox_id_t mailbox() const { return m_mailbox; }
    /// Whether the server has confirmed a connection that still stands as far as can be seen from here.
    bool isConnected() const { return m_isConnected; }
    /// Those of the settings until a confirm names the server's reference.
    const References& references() const { return m_references; }
    /// Those of the next signal: in RHUNE a procedureRef of its own.
    References nextReferences();
    const FaultView& faults() const { return m_faults; }
    const PanelView& panel() const { return m_panel; }
    /// Whether the server has confirmed a subscription to faults in this connection.
    bool isSubscribedToFaults() const { return m_isSubscribedToFaults; }
    /// The resources that the server has granted the client in this connection, in the order in which it did.
    const std::vector<std::uint16_t>& heldResources() const { return m_heldResources; }
    Inbox& inbox() { return m_inbox; }
    const Inbox& inbox() const { return m_inbox; }

    /// Creates the mailbox where there is none. Returns what is in the way, or an empty text.
    std::string open();
    /// Deletes the mailbox: the server sees the client disappear.
    void close();
    /// Sends to the server's mailbox for the client's protocol; `bytes` has at least four. Returns what is in the way,
    /// or an empty text.
    std::string send(std::vector<std::byte> bytes);

private:
    friend class ClientHub;
    void receive(Signal signal);
    void followConnection(const Signal& signal);
    void followRhuneConnection(const Vorni::DecodedSignal& signal);
    void followResources(const Signal& signal);
    /// What was known by the connection is known no longer.
    void loseConnection();

    ClientHub& m_hub;
    ClientSettings m_settings;
    References m_references;
    kiv_mbox_id_t m_mailbox = KIV_NO_MBOX;
    bool m_isConnected = false;
    bool m_isSubscribedToFaults = false;
    std::vector<std::uint16_t> m_heldResources;
    Inbox m_inbox;
    FaultView m_faults;
    PanelView m_panel;
};

} // namespace VornClient
