/// A receive queue: what one thread's mailboxes receive.
///
/// The queue's epoll instance is the descriptor that programs wait on. In it are the connections of the peers, which
/// the I/O thread has proven, and one event descriptor. What arrives lies in two lists: what was read from connections,
/// a packet with all its messages at a time, and what threads of the same process pushed, with the messages of monitors
/// and hunts. The connections are read again when all that was read has been taken. The event descriptor is set while
/// the lists hold something and somebody may wait for it.
///
/// A death comes in band: a "dead" frame behind all that the mailbox had sent, or the end of the connection of a
/// process that died. A peer's further connections wait until its former one has been read to its end.
///
/// A peer isn't read while flow control holds it up, or while much of what it sent lies here unreceived, because the
/// thread receives selectively. Then it is out of the epoll instance.
///
/// Threads: the owner receives; the I/O thread adds and ends peers; any thread pushes. Two locks, taken in this order:
///   m_reading  the peers and what is being read from them
///   m_mutex    the lists, the watches
/// The set of mailboxes changes under both, so it can be read under either.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/frame.h"
#include "kiv/message.h"
#include "kiv/registry.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

struct epoll_event;

namespace kiv {

class Process;

/// What kiv_receive asks for.
struct Selector {
    const std::uint32_t* filter = nullptr;
    kiv_mbox_id_t sender = KIV_ANY_SENDER;

    bool matches(const Message& message) const;
};

class Queue
{
public:
    Queue(Process& process, std::uint32_t number, std::uint32_t lastIndex);
    ~Queue();
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Returns 0 or an errno value.
    int open();

    struct Watch;
    using Watches = std::unordered_map<std::uint32_t, Watch>;

    /// Nothing is received any more; everything queued is freed. A thread that waits in receive wakes up. Returns what
    /// was still waited for.
    Watches close();
    /// Ends the wake-up that close() made, for a thread that didn't wait.
    void quieten();

    std::uint32_t number() const { return m_number; }
    /// For programs to wait on.
    int descriptor();
    bool isDescriptor(int descriptor) const { return descriptor == m_epoll.get(); }
    bool closed() const { return m_closed; }
    /// Something can be received without asking the system.
    bool hasQueued() const { return m_hasQueued.load(std::memory_order_relaxed); }
    /// While an event loop dispatches, the descriptor may stay readable for a message that is taken already.
    void beginDispatch();
    void endDispatch();

    /// A new mailbox of this queue; KIV_NO_MBOX where there are too many.
    kiv_mbox_id_t addMailbox();
    void removeMailbox(kiv_mbox_id_t id);
    std::uint32_t lastIndex() const { return m_lastIndex; }

    MessagePtr receive(const Selector& selector, std::uint32_t timeout);
    void push(MessagePtr message);

    /// Monitors and hunts: the message waits here until it is delivered or cancelled.
    struct Watch {
        MessagePtr message;
        kiv_mbox_id_t mailbox = KIV_NO_MBOX; ///< of a monitor
        std::string name;                    ///< of a hunt
    };
    void addWatch(std::uint32_t ref, Watch watch);
    /// Behind all that has been pushed.
    void deliver(std::uint32_t ref, kiv_mbox_id_t sender);
    /// Frees the message, wherever it is. Returns what was still waiting.
    Watch cancel(std::uint32_t ref, bool hunt);

    /// The mailbox of a monitor in another process.
    struct Death {
        std::uint32_t ref;
        kiv_mbox_id_t mailbox;
    };
    /// The process died: delivers behind all that it had sent. Without identity: whichever had the number.
    void died(std::uint32_t process, const Identity& identity, const std::vector<Death>& deaths);

    /// A connection of another process. Null, or why it isn't taken.
    const char* addPeer(Descriptor socket, std::uint32_t process, const Identity& identity);
    /// Looks again at the peers that are held up.
    void resume();

private:
    class Waiting;
    struct Peer {
        Descriptor socket;
        std::uint32_t process = 0;
        Identity identity;
        bool isNext = true; ///< else a former connection is still being read
        bool isHeld = false;
        bool isDead = false;       ///< nothing more comes: what is there is read, whatever else holds
        unsigned atOnce = 1;       ///< packets; more only behind one that brought no memfd
        std::vector<Death> deaths; ///< behind its end
    };
    using Peers = std::unordered_map<std::uint64_t, Peer>;

    // With m_reading held.
    void readRound(std::span<const epoll_event> ready);
    std::size_t readPeer(Peers::iterator at);
    const char* takePacket(const Peer& peer, Packet& packet, MessageList& fresh);
    const char* takeFrame(const Peer& peer, const FrameHeader& frame, const FrameReader& frames, MessageList& fresh);
    bool isAllowed(const Peer& peer, const FrameHeader& frame) const;
    void removePeer(Peers::iterator at);
    bool mayRead(Peer& peer);
    void hold(std::uint64_t key, Peer& peer);
    void release(std::uint64_t key, Peer& peer);
    static void endSending(Peer& peer);
    bool watch(std::uint64_t key, const Peer& peer);
    void unwatch(const Peer& peer);
    void resumeReading();

    // With m_mutex held.
    bool owns(kiv_mbox_id_t id) const;
    void pushLocked(MessagePtr message);
    void announce();
    MessagePtr takeWatched(std::uint32_t ref, kiv_mbox_id_t sender);
    void deliverRead(const std::vector<Death>& deaths);
    void appendRead(MessageList& fresh);
    void accountTaken(const Message& message);
    MessagePtr take(const Selector& selector);
    MessagePtr takeFrom(MessageList& list, Message*& scanned, const Selector& selector);
    template <typename Match>
    void removeIf(Match match);
    void settle();
    void setEvent(bool set);

    Process& m_process;
    const std::uint32_t m_number;
    std::atomic<bool> m_closed = false;
    Descriptor m_epoll;
    Descriptor m_event;

    std::mutex m_reading;
    PacketBatch m_batch;
    std::uint64_t m_lastKey = 0; ///< key 0 is the event descriptor
    Peers m_peers;
    std::atomic<std::size_t> m_heldPeers = 0;

    std::mutex m_mutex;
    MessageList m_read;
    MessageList m_pushed;
    Message* m_scannedRead = nullptr; ///< up to here nothing matched in the call that goes on
    Message* m_scannedPushed = nullptr;
    std::size_t m_readBytes = 0;
    std::size_t m_pushedBytes = 0;
    std::vector<std::uint32_t> m_unreceived; ///< of m_readBytes, by process
    unsigned m_pushedTaken = 0;              ///< since the connections were looked at
    bool m_isWatched = false;                ///< a program has the descriptor
    bool m_isWaiting = false;                ///< the owner waits in receive
    bool m_isDispatching = false;
    bool m_eventSet = false;
    std::atomic<bool> m_hasQueued = false;
    Watches m_watches;

    std::atomic<std::uint32_t> m_lastIndex; ///< also read when the queue is removed, without its locks
    std::size_t m_mailboxCount = 0;
    std::vector<bool> m_mailboxes; ///< by index
};

} // namespace kiv
