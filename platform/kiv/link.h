/// The sender's side: the connection from this process to one slot of another.
///
/// All threads of the process share it, so a slot sees one stream from each process, and what one thread sends stays in
/// order whichever of the slot's mailboxes it goes to. A message goes straight from the sending thread into the socket.
/// What the socket does not take, and what is sent before the connection stands, waits in the backlog, which the I/O
/// thread sends on. A peer that lets too much wait is cut off.
///
/// The other side believes no sender: each slot that this process sends from is claimed before its first message, and
/// its socket is kept until the claim is confirmed.
///
/// Monitors of the slot's mailboxes hang on the same control connection.
///
/// Threads: one lock per link, taken before those of the process tables and of the I/O thread, never together with
/// those of a queue: what has to be told to queues is posted.
#pragma once

#include "kiv/channel.h"
#include "kiv/message.h"
#include "kiv/queue.h"
#include "kiv/slotSocket.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace kiv {

enum class SendResult;

class Link : public std::enable_shared_from_this<Link>
{
public:
    /// More than this waiting for one peer cuts it off.
    static constexpr std::size_t mostWaiting = 64U << 20;

    Link(Process& process, std::uint32_t slot);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// `sender` is the slot that the message comes from, or null.
    void send(MessagePtr message, const std::shared_ptr<SlotSocket>& sender);
    void monitor(std::uint32_t ref, kiv_mbox_id_t mailbox, const std::shared_ptr<Queue>& queue);
    void unmonitor(std::uint32_t ref);

    /// How many messages were sent since the link stands, those in the backlog included; 0 to another process.
    std::uint64_t sentTo(pid_t process);
    /// Nothing waits, neither messages nor claims.
    bool idle();

    std::uint32_t slot() const { return m_slot; }

private:
    class ControlHandler;
    class DataHandler;
    enum class State {
        fresh,
        connecting,
        connected,
        ending, ///< nothing more is sent; what died is still to be heard on the control connection
        cut,
        dead,
    };
    struct Claim {
        std::uint32_t slot;
        std::shared_ptr<SlotSocket> unconfirmed; ///< null when confirmed
    };
    struct Watcher {
        kiv_mbox_id_t mailbox;
        std::weak_ptr<Queue> queue;
    };

    // All of these with the lock held.
    bool ready();
    bool takesMessages() const { return m_state == State::connecting || m_state == State::connected; }
    void connectLater(std::chrono::milliseconds delay);
    void connect();
    void claim(const std::shared_ptr<SlotSocket>& sender);
    void confirm(std::uint32_t slot);
    void tell(const ControlFrame& frame);
    void enqueue(MessagePtr message);
    SendResult transmit(Message& message);
    void waitToSend(SendResult result);
    void flush();
    void cutOff();
    void loseData();
    void loseControl();
    void die();
    void closeData();
    void fireWatchers();
    void handle(const ControlFrame& frame, Descriptor passed);
    void dead(const ControlFrame& frame);

    void onControl(std::uint32_t events);
    void onWritable(std::uint32_t events);

    Process& m_process;
    const std::uint32_t m_slot;

    std::mutex m_mutex;
    State m_state = State::fresh;
    pid_t m_pid = 0;
    Channel m_control;
    bool m_dataAsked = false;
    Descriptor m_data;
    std::uint64_t m_dataToken = 0;
    std::vector<Claim> m_claims; ///< sorted by slot
    MessageList m_backlog;
    std::size_t m_waiting = 0;  ///< bytes in the backlog
    std::size_t m_inMemfds = 0; ///< bytes sent as memfd since the socket was seen empty
    std::uint64_t m_sent = 0;
    std::unordered_map<std::uint32_t, Watcher> m_watchers;
};

} // namespace kiv
