/// What the library keeps for a process: its number, its mailboxes, its links to others, the registry and the I/O
/// thread.
///
/// Made with the first call that needs it and never destroyed, so that threads that outlive main find it. The number is
/// taken, and the I/O thread started, with the first mailbox or the first message to another process. A child of fork
/// closes what it inherited and starts with an empty one of its own; the parent's, copied with the memory, is kept
/// aside untouched: its locks and threads are in no usable state.
///
/// At a normal exit the process gives what waits in its links half a second to go out.
///
/// Threads: usable from all. Order of the locks: Link; Queue (m_reading, m_mutex); Hunts; then the tables; then the
/// leaves (I/O thread, closer, the list of links to flush). Links and queues are never locked together.
#pragma once

#include "kiv/closer.h"
#include "kiv/flow.h"
#include "kiv/hunts.h"
#include "kiv/id.h"
#include "kiv/ioThread.h"
#include "kiv/link.h"
#include "kiv/queue.h"
#include "kiv/registry.h"

#include <array>
#include <atomic>
#include <chrono>
#include <compare>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kiv {

class Door;

class Process
{
public:
    /// The process's own; null, with errno set, where the run-time directory can't be used.
    static Process* get();

    Process();
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    Registry& registry() { return m_registry; }
    IoThread& io() { return m_io; }
    Closer& closer() { return m_closer; }
    Flow& flow() { return m_flow; }
    /// 0 before it is taken.
    std::uint32_t number() const { return m_number; }

    /// A new queue with its first mailbox, or null with errno set.
    std::shared_ptr<Queue> createQueue(const std::string& name, kiv_mbox_id_t& first);
    /// KIV_NO_MBOX, and errno set, on failure.
    kiv_mbox_id_t addMailbox(const std::shared_ptr<Queue>& queue, const std::string& name);
    /// False where this process has no such mailbox. The first of a queue takes all of it along.
    bool removeMailbox(kiv_mbox_id_t id);
    void removeQueue(const std::shared_ptr<Queue>& queue);
    bool hasMailbox(kiv_mbox_id_t id);
    /// The queue of a mailbox of this process, or null.
    std::shared_ptr<Queue> queueOfMailbox(kiv_mbox_id_t id);
    /// Null where there is none.
    std::shared_ptr<Queue> queueNumber(std::uint32_t number);

    void send(MessagePtr message, kiv_mbox_id_t receiver, kiv_mbox_id_t sender);
    kiv_mbox_id_t locate(const std::string& name);
    /// How long a mailbox is not to be found, because the link to it was cut off lately.
    Link::Clock::duration restOf(kiv_mbox_id_t id);

    std::uint32_t monitor(kiv_mbox_id_t mailbox, MessagePtr message, const std::shared_ptr<Queue>& queue,
                          kiv_mbox_id_t receiver);
    void unmonitor(std::uint32_t ref, Queue& queue, kiv_mbox_id_t receiver);
    std::uint32_t hunt(const std::string& name, MessagePtr message, const std::shared_ptr<Queue>& queue,
                       kiv_mbox_id_t receiver);
    void unhunt(std::uint32_t ref, Queue& queue);

    /// Who is told of a mailbox's death: a mailbox, by its own reference.
    struct Watcher {
        std::uint32_t ref;
        kiv_mbox_id_t mailbox;
        auto operator<=>(const Watcher&) const = default;
    };
    /// Of another process. Tells it at once where the mailbox is dead; false where the process has too many.
    bool addRemote(kiv_mbox_id_t mailbox, const Watcher& watcher);
    void removeRemote(kiv_mbox_id_t mailbox, const Watcher& watcher);
    void removeRemoteOf(std::uint32_t process);
    /// A mailbox of another process was reported dead.
    void forgetWatched(kiv_mbox_id_t mailbox, std::uint32_t ref);

    // What links report, with their lock held: it takes effect on the I/O thread.
    void removeLink(const Link& link);
    /// The connection to the process itself is lost; `refused` where it never was proven.
    void lostProcess(std::uint32_t process, const Identity& identity, bool refused);
    void linkCutOff(std::uint32_t process, std::uint32_t queue);
    void cutLargest();
    /// Within a millisecond, if nobody does it before.
    void flushSoon(std::shared_ptr<Link> link);

private:
    struct Mailbox {
        std::string name;
        std::shared_ptr<Queue> queue;
    };
    struct Owned {
        std::shared_ptr<Queue> queue;
        kiv_mbox_id_t first = KIV_NO_MBOX;
        std::uint32_t lastIndex = 0; ///< of the queue that had the number last
    };
    struct Watched {
        kiv_mbox_id_t mailbox;
        std::weak_ptr<Queue> queue;
        kiv_mbox_id_t receiver;
    };
    using WatchedOf = std::unordered_map<std::uint32_t, Watched>; ///< by reference

    static Process* make();
    static void atExit();
    void leave();
    int start();
    int takeNumber();
    std::uint32_t freeQueueNumber() const;
    std::shared_ptr<Link> linkTo(std::uint32_t process, std::uint32_t queue);
    std::vector<std::shared_ptr<Link>> links();
    void copyToTap(const Message& message);
    void sendOver(std::uint32_t process, std::uint32_t queue, MessagePtr message, ThreadMailbox* collector);
    void sendControl(FrameKind kind, kiv_mbox_id_t sender, kiv_mbox_id_t receiver, std::uint32_t ref);
    std::uint32_t nextRef();
    void cancelMonitor(std::uint32_t ref, kiv_mbox_id_t mailbox, kiv_mbox_id_t receiver);
    std::vector<Watcher> takeWatchers(kiv_mbox_id_t id);
    void tellDeath(kiv_mbox_id_t mailbox, const std::vector<Watcher>& watchers);
    void processGone(std::uint32_t process, const Identity& identity, bool refused);
    void monitorAgain(std::uint32_t process);
    void flushTick();
    void resume();

    Registry m_registry;
    IoThread m_io;
    Closer m_closer;
    Flow m_flow;
    Hunts m_hunts;
    std::shared_ptr<Door> m_door;
    std::atomic<std::uint32_t> m_lastRef = 0;
    std::atomic<std::uint32_t> m_number = 0;
    std::uint32_t m_round = 0;
    std::mutex m_starting;
    std::atomic<bool> m_resumes = false;
    std::atomic<bool> m_cutsLargest = false;

    std::mutex m_tables;
    std::unordered_map<kiv_mbox_id_t, Mailbox> m_mailboxes;
    std::array<Owned, lastQueue + 1> m_queues;
    std::uint32_t m_lastSmall = largeQueues;
    std::unordered_map<std::uint32_t, std::shared_ptr<Link>> m_links; ///< by process and queue
    std::set<std::pair<kiv_mbox_id_t, Watcher>> m_watchers;           ///< of own mailboxes
    std::unordered_map<std::uint32_t, std::size_t> m_remoteCount;     ///< of them, by process
    std::unordered_map<std::uint32_t, WatchedOf> m_watched;           ///< mailboxes of others, by process

    std::mutex m_soonMutex;
    std::vector<std::shared_ptr<Link>> m_soon;
    bool m_ticks = false;
    std::chrono::steady_clock::time_point m_lastSoon;
};

/// What the calling thread has. Its end is the end of its mailboxes.
struct ThreadMailbox {
    std::shared_ptr<Queue> queue;
    kiv_mbox_id_t first = KIV_NO_MBOX;
    unsigned dispatches = 0;                      ///< event loops that dispatch on this thread, one in the other
    std::vector<std::shared_ptr<Link>> collected; ///< in which it has collected messages
};

/// Null where the thread is ending.
ThreadMailbox* threadMailbox();

} // namespace kiv
