/// What the library keeps for a process: its mailboxes, its links to others, the registry and the I/O thread.
///
/// Made with the first call that needs it and never destroyed, so that threads that outlive main find it. A child of
/// fork closes what it inherited and starts with an empty one of its own; the parent's, copied with the memory, is kept
/// aside untouched: its locks and threads are in no usable state.
///
/// At a normal exit the process gives what waits in its links half a second to go out.
///
/// Threads: usable from all. Order of the locks: Link, Queue (m_reading, m_mutex), Hunts; then the tables; then the I/O
/// thread's. Links and queues are never locked together.
#pragma once

#include "kiv/hunts.h"
#include "kiv/ioThread.h"
#include "kiv/link.h"
#include "kiv/queue.h"
#include "kiv/registry.h"
#include "kiv/slotSocket.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kiv {

class Process
{
public:
    /// The process's own; null, with errno set, where the run-time directory can't be used.
    static Process* get();

    Process() : m_hunts(*this) {}
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    Registry& registry() { return m_registry; }
    IoThread& io() { return m_io; }

    /// A new queue with its first mailbox, or null with errno set.
    std::shared_ptr<Queue> createQueue(const std::string& name, kiv_mbox_id_t& first);
    /// KIV_NO_MBOX, and errno set, on failure.
    kiv_mbox_id_t addMailbox(const std::shared_ptr<Queue>& queue, const std::string& name);
    /// False where this process has no such mailbox. The first of a queue takes all of it along.
    bool removeMailbox(kiv_mbox_id_t id);
    void removeQueue(const std::shared_ptr<Queue>& queue);
    bool hasMailbox(kiv_mbox_id_t id);
    /// The queue of a mailbox of this process, or null.
    std::shared_ptr<Queue> queueOf(kiv_mbox_id_t id);

    void send(MessagePtr message, kiv_mbox_id_t receiver, kiv_mbox_id_t sender);
    kiv_mbox_id_t locate(const std::string& name);

    std::uint32_t monitor(kiv_mbox_id_t mailbox, MessagePtr message, const std::shared_ptr<Queue>& queue,
                          kiv_mbox_id_t receiver);
    void unmonitor(std::uint32_t ref, Queue& queue);
    std::uint32_t hunt(const std::string& name, MessagePtr message, const std::shared_ptr<Queue>& queue,
                       kiv_mbox_id_t receiver);
    void unhunt(std::uint32_t ref, Queue& queue);

    /// How much was sent over the link to a slot of that process.
    std::uint64_t sentTo(std::uint32_t slot, pid_t process);
    void removeLink(const Link& link);

private:
    struct Mailbox {
        std::string name;
        std::shared_ptr<Queue> queue;
    };
    struct Slot {
        std::shared_ptr<Queue> queue;
        std::shared_ptr<SlotSocket> socket;
        kiv_mbox_id_t first = KIV_NO_MBOX;
    };
    struct LocalMonitor {
        std::uint32_t ref;
        std::weak_ptr<Queue> queue;
    };
    using LocalMonitors = std::unordered_multimap<kiv_mbox_id_t, LocalMonitor>;

    static Process* make();
    static void atExit();
    void flush();
    void leave();
    std::shared_ptr<Link> linkTo(std::uint32_t slot);
    std::uint32_t nextRef();
    void cancelMonitor(std::uint32_t ref, kiv_mbox_id_t mailbox);
    std::vector<LocalMonitor> takeMonitors(kiv_mbox_id_t id);

    Registry m_registry;
    IoThread m_io;
    Hunts m_hunts;
    std::atomic<std::uint32_t> m_lastRef = 0;

    std::mutex m_tables;
    std::unordered_map<kiv_mbox_id_t, Mailbox> m_mailboxes;
    std::unordered_map<std::uint32_t, Slot> m_slots;
    std::unordered_map<std::uint32_t, std::shared_ptr<Link>> m_links;
    LocalMonitors m_monitors;
};

/// What the calling thread has. Its end is the end of its mailboxes.
struct ThreadMailbox {
    std::shared_ptr<Queue> queue;
    kiv_mbox_id_t first = KIV_NO_MBOX;
};

/// Null where the thread is ending.
ThreadMailbox* threadMailbox();

} // namespace kiv
