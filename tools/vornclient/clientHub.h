/// All messaging of the tool. One thread's receive queue carries any number of clients, each a clone with an id and a
/// name of its own, and the news of the server's mailboxes: found under their names, watched, and found again under new
/// ids when they have been away. Nothing is printed here.
#pragma once

#include "vornclient/client.h"

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace VornClient {

enum class WaitResult {
    fulfilled,
    timedOut,
    interrupted, ///< the interrupt descriptor became readable
};

/// One of the server's mailboxes: the public one serves VORNI, the private one RHUNE.
struct ServerMailbox {
    const char* name;
    kiv_mbox_id_t id = KIV_NO_MBOX; ///< KIV_NO_MBOX while there is none
    unsigned losses = 0;            ///< how often it has gone away: a wait for its answer is over when this changes
};

/// Belongs to the thread that made it, which has no other mailbox.
class ClientHub
{
public:
    using Clock = std::chrono::steady_clock;
    using Condition = std::function<bool()>;
    using Tick = std::function<void(Clock::duration waited)>;

    static constexpr const char* serverName = "VornServer";
    static constexpr const char* privateServerName = "private_VornServer";

    /// `mailboxName`: of the hub's own mailbox, which no client is. Throws std::system_error where it can't be made.
    ClientHub(const std::string& mailboxName, ClientListener& listener);
    ~ClientHub();
    ClientHub(const ClientHub&) = delete;
    ClientHub& operator=(const ClientHub&) = delete;

    Client& addClient(ClientSettings settings);
    /// Null where no client has this label.
    Client* findClient(const std::string& label);
    const std::vector<std::unique_ptr<Client>>& clients() const { return m_clients; }

    kiv_mbox_id_t mailbox() const { return m_mailbox; }
    /// The mailbox that serves clients of a protocol.
    const ServerMailbox& serverFor(Vorni::Protocol protocol) const;
    /// KIV_NO_MBOX while the server isn't published.
    kiv_mbox_id_t server() const { return serverFor(Vorni::Protocol::vorni).id; }
    unsigned serverLosses() const { return serverFor(Vorni::Protocol::vorni).losses; }
    ClientListener& listener() { return m_listener; }

    /// Readable while something has arrived.
    int fd() const;
    /// Takes in what has arrived, without waiting.
    void pump();
    /// Takes in what arrives until the condition holds. `tick` is called a few times a second meanwhile.
    WaitResult waitUntil(const Condition& condition, Clock::time_point deadline, const Tick& tick = {});
    /// Waits end with WaitResult::interrupted while this descriptor is readable; -1 for none.
    void setInterruptFd(int fd) { m_interruptFd = fd; }
    bool hasInterruptFd() const { return m_interruptFd >= 0; }
    int interruptFd() const { return m_interruptFd; }
    /// For work that hardly ever waits.
    bool isInterrupted() const { return waitForArrival({}); }

private:
    void hunt(std::size_t index);
    void dispatch(const kiv_msg* msg);
    void onNews(std::uint32_t number, kiv_mbox_id_t server);
    void onServerFound(std::size_t index, kiv_mbox_id_t server);
    void onServerLost(std::size_t index, kiv_mbox_id_t server);
    void deliver(Client& client, const kiv_msg* msg);
    /// Returns whether the wait was interrupted.
    bool waitForArrival(Clock::duration atMost) const;

    ClientListener& m_listener;
    kiv_mbox_id_t m_mailbox;
    std::array<ServerMailbox, 2> m_servers; ///< by Vorni::Protocol
    int m_interruptFd = -1;
    std::vector<std::unique_ptr<Client>> m_clients;
};

} // namespace VornClient
