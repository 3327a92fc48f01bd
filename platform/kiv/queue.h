/// A receive queue: what one thread's mailboxes receive.
///
/// The queue's epoll instance is the descriptor that programs wait on. In it are the data connections of the peers and
/// one event descriptor, which is set exactly while messages lie in the local list: what threads of the same process
/// sent, what a batch brought beyond the first message, and messages of monitors and hunts. A peer's death makes no
/// event there, because the queue keeps a copy of the peer's end: connections end by word of the I/O thread.
///
/// A message of a monitor comes behind all that the dead mailbox had sent: where that is still unread in the peer's
/// connection, it is put off until the connection has been read that far.
///
/// Threads: the owner receives; the I/O thread adds and ends peers; any thread pushes. Two locks, taken in this order:
///   m_reading  the peers and what is being read from them
///   m_mutex    the local list, the watches
/// The set of mailboxes changes under both, so it can be read under either.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/message.h"
#include "kiv/registry.h"

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

struct epoll_event;

namespace kiv {

/// What kiv_receive asks for.
struct Selector {
    const std::uint32_t* filter = nullptr;
    kiv_mbox_id_t sender = KIV_ANY_SENDER;

    bool matches(const Message& message) const;
};

class Queue : public std::enable_shared_from_this<Queue>
{
public:
    /// As the count of a death: behind whatever the dead one's connection holds.
    static constexpr std::uint64_t allUnread = std::numeric_limits<std::uint64_t>::max();

    Queue(const Registry& registry, std::uint32_t slot);
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

    std::uint32_t slot() const { return m_slot; }
    int descriptor() const { return m_epoll.get(); }
    bool closed() const { return m_closed; }

    /// A new mailbox of this queue; KIV_NO_MBOX where there are too many.
    kiv_mbox_id_t addMailbox();
    void removeMailbox(kiv_mbox_id_t id);

    MessagePtr receive(const Selector& selector, std::uint32_t timeout);
    void push(MessagePtr message);

    /// Monitors and hunts: the message waits here until it is delivered or cancelled.
    struct Watch {
        MessagePtr message;
        kiv_mbox_id_t mailbox = KIV_NO_MBOX; ///< of a monitor
        std::string name;                    ///< of a hunt
    };
    void addWatch(std::uint32_t ref, Watch watch);
    void deliver(std::uint32_t ref, kiv_mbox_id_t sender);
    /// Frees the message, wherever it is. Returns what was still waiting.
    Watch cancel(std::uint32_t ref, bool hunt);
    /// The mailbox of a monitor died: delivers behind the first `count` messages of its process's connection.
    void died(std::uint32_t ref, kiv_mbox_id_t mailbox, pid_t process, std::uint64_t count);
    /// Ends the waiting for a connection that died() expected.
    void releaseParked(std::uint32_t ref);

    /// A data connection from a process. `cutOff` is called, with locks held, when it was closed for what came in.
    /// Returns its key, or 0; and the end that goes to the peer.
    using CutOff = std::function<void(const char* reason)>;
    std::uint64_t addPeer(pid_t process, std::uint32_t provenSlot, CutOff cutOff, Descriptor& farEnd);
    /// The peer may send in the name of this slot.
    void addProvenSlot(std::uint64_t key, std::uint32_t slot);
    /// No more will come: ends the connection behind what is still unread.
    void endPeer(std::uint64_t key);

private:
    struct Death {
        std::uint32_t ref;
        kiv_mbox_id_t mailbox;
        std::uint64_t count;
    };
    struct Peer {
        pid_t process = 0;
        Descriptor socket;
        Descriptor farEnd; ///< a copy of what the peer sends on
        bool ended = false;
        std::uint64_t received = 0;
        std::vector<std::uint32_t> provenSlots;
        std::vector<Death> deaths;
        CutOff cutOff;
    };
    struct Parked {
        pid_t process;
        Death death;
    };
    struct Batch;
    enum class Address { ours, gone, foreign };

    void readReady(std::span<const epoll_event> ready, MessageList& fresh);
    void readPeer(std::uint64_t key, MessageList& fresh);
    const char* takePacket(Peer& peer, std::size_t at, MessageList& fresh);
    Address addressOf(Peer& peer, const FrameHeader& frame);
    bool isProven(Peer& peer, std::uint32_t slot);
    void releaseDeaths(Peer& peer, bool drained, MessageList& fresh);
    void removePeer(std::uint64_t key, MessageList& fresh);
    void cut(std::uint64_t key, const char* reason, MessageList& fresh);
    Peer* peerOf(pid_t process, std::uint32_t slot);
    static bool hasUnread(const Peer& peer);
    static bool isOver(const Peer& peer);

    /// These two with m_mutex held.
    void pushLocked(MessagePtr message);
    MessagePtr takeWatchedLocked(std::uint32_t ref, kiv_mbox_id_t sender);
    bool owns(kiv_mbox_id_t id) const;
    MessagePtr takeLocal(const Selector& selector);
    void append(MessageList& fresh);
    void setEvent(bool set);

    const Registry& m_registry;
    const std::uint32_t m_slot;
    std::atomic<bool> m_closed = false;
    Descriptor m_epoll;
    Descriptor m_event;

    std::mutex m_reading;
    std::unique_ptr<Batch> m_batch;
    std::uint64_t m_lastKey = 0; ///< key 0 is the event descriptor
    std::unordered_map<std::uint64_t, Peer> m_peers;
    std::vector<Parked> m_parked;
    unsigned m_packets = 0; ///< of the read that goes on

    std::mutex m_mutex;
    MessageList m_local;
    Message* m_scanned = nullptr; ///< up to here nothing matched in the call that goes on
    bool m_eventSet = false;
    /// So many messages of the local list at least, before the connections get their turn.
    static constexpr unsigned localTurn = 64;
    unsigned m_turn = localTurn;
    unsigned m_sinceRead = 0; ///< messages taken since the connections were looked at
    Watches m_watches;

    std::uint32_t m_lastIndex = 0;
    std::vector<std::uint32_t> m_indices; ///< sorted
};

} // namespace kiv
