/// The sender's side: the connection from this process to one receive queue of another, or to the process itself.
///
/// All threads of the process share it, so a queue sees one stream from each process, and what one thread sends stays
/// in order whichever of the queue's mailboxes it goes to. Messages wait in one list and go out in packets:
///
///   - a thread that has more to receive, or runs inside an event loop's dispatch, collects: what it sends stays in the
///     list until it calls flushCollected, until another thread uses the link, a packet is full, or a millisecond is
///     over
///   - what the socket doesn't take, and what is sent while the process is too busy to be connected to, stays there
///     until the I/O thread sends it on
///
/// Too much waiting cuts the connection off: what waits is dropped, monitors of the queue's mailboxes fire, and the
/// next message makes a new connection. The first use connects; nothing has to be answered before messages can be sent.
/// The receiver ends its own sending side once it has proven who we are, which is how we know that it did.
///
/// The link to the process itself (queue 0) carries monitors. Its end is the end of the process.
///
/// Threads: one lock a link, taken before those of the process tables and of the I/O thread, never together with those
/// of a receive queue: what has to be told to queues is posted.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/ioThread.h"
#include "kiv/message.h"
#include "kiv/registry.h"

#include <chrono>
#include <memory>
#include <mutex>

namespace kiv {

class Process;
struct ThreadMailbox;
enum class SendResult;

class Link : public std::enable_shared_from_this<Link>
{
public:
    using Clock = std::chrono::steady_clock;

    Link(Process& process, std::uint32_t destination, std::uint32_t queue);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// False, and the message is still the caller's, where the link is no longer in use: another has taken its place.
    /// With a collector the message may wait for others until its thread calls flushCollected.
    bool send(MessagePtr& message, ThreadMailbox* collector);
    /// Sends what is collected, at the word of a collector or, with null, of the I/O thread.
    void flush(const ThreadMailbox* collector);
    /// Nothing waits, and the receiver knows who we are.
    bool idle();
    /// Drops what waits and ends the connection.
    void cutOff();

    std::uint32_t destination() const { return m_destination; }
    std::uint32_t queue() const { return m_queue; }
    std::size_t waiting();
    /// How long its mailboxes are not to be found by name, because it was cut off lately. Doubles with each time.
    Clock::duration rest();

private:
    class Events;
    enum class State { closed, connecting, open, retired };

    // All of these with the lock held.
    void collect(ThreadMailbox& collector);
    void connect();
    void open(Descriptor socket);
    void retryLater(Clock::duration delay);
    void push(MessagePtr message);
    void popFront(std::size_t count);
    void flushLocked(std::size_t maxPackets);
    SendResult transmit(std::size_t& count);
    void waitToSend(SendResult result);
    void watch(bool out);
    void count();
    void clear();
    void cutOffLocked();
    void close();
    void lose();
    void retireLater(Clock::duration delay);

    void onEvents(std::uint64_t connection, std::uint32_t events);
    void onRetry();

    Process& m_process;
    const std::uint32_t m_destination;
    const std::uint32_t m_queue;

    std::mutex m_mutex;
    State m_state = State::closed;
    Descriptor m_socket;
    std::uint64_t m_token = 0;
    std::uint64_t m_connection = 0; ///< counts them, so that a late event of a former one is recognised
    Identity m_peer;
    bool m_isProven = false;
    bool m_toServer = false;
    bool m_isBlocked = false;  ///< the socket is full
    bool m_watchesOut = false; ///< until it isn't
    bool m_retires = false;    ///< is about to, if it stays closed
    bool m_retries = false;    ///< a retry is on its way
    bool m_isListed = false;   ///< among those that the I/O thread flushes at its next tick

    MessageList m_list;
    std::size_t m_messages = 0;
    std::size_t m_bytes = 0;
    bool m_isCounted = false; ///< what waits is known to flow control: more than a packet that is being collected
    const ThreadMailbox* m_collector = nullptr; ///< the thread that collects, if this link is noted there
    std::size_t m_inMemfds = 0;                 ///< bytes sent as memfd since the socket was seen empty

    Clock::time_point m_closedUntil; ///< nothing is tried before
    Clock::time_point m_lastCut;
    unsigned m_cuts = 0;
};

/// Sends what the calling thread has collected.
void flushCollected();
} // namespace kiv
