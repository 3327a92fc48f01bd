/// All messaging of the tool. One thread's receive queue carries any number of clients, each a clone with an id and a
/// name of its own, and the news of the server: found under its public name, watched, and found again under a new id
/// when it has been away. Nothing is printed here.
#pragma once

#include "vornclient/client.h"

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

/// Belongs to the thread that made it, which has no other mailbox.
class ClientHub
{
public:
    using Clock = std::chrono::steady_clock;
    using Condition = std::function<bool()>;
    using Tick = std::function<void(Clock::duration waited)>;

    static constexpr const char* serverName = "VornServer";

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
    /// KIV_NO_MBOX while the server isn't published.
    kiv_mbox_id_t server() const { return m_server; }
    /// How often a published server has gone away: a wait for its answer is over when this changes.
    unsigned serverLosses() const { return m_serverLosses; }
    ClientListener& listener() { return m_listener; }

    /// Readable while something has arrived.
    int fd() const;
    /// Takes in what has arrived, without waiting.
    void pump();
    /// Takes in what arrives until the condition holds. `tick` is called a few times a second meanwhile.
    WaitResult waitUntil(const Condition& condition, Clock::time_point deadline, const Tick& tick = {});
    /// Waits end with WaitResult::interrupted while this descriptor is readable; -1 for none.
    void setInterruptFd(int fd) { m_interruptFd = fd; }

private:
    void hunt();
    void dispatch(const kiv_msg* msg);
    void onServerFound(kiv_mbox_id_t server);
    void onServerLost(kiv_mbox_id_t server);
    /// Returns whether the wait was interrupted.
    bool waitForArrival(Clock::duration atMost) const;

    ClientListener& m_listener;
    kiv_mbox_id_t m_mailbox;
    kiv_mbox_id_t m_server = KIV_NO_MBOX;
    unsigned m_serverLosses = 0;
    int m_interruptFd = -1;
    std::vector<std::unique_ptr<Client>> m_clients;
};

} // namespace VornClient
