#include "kiv/process.h"

#include "kiv/id.h"

#include <cerrno>
#include <cstdlib>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto exitPatience = 500ms;
constexpr auto exitInterval = 1ms;

/// What a forked child inherited and must not touch; reachable, so that it is no leak.
struct Abandoned {
    Process* process;
    std::shared_ptr<Queue> queue;
    Abandoned* next;
};

std::atomic<Process*> current = nullptr;
Abandoned* abandoned = nullptr;

std::mutex& makingMutex()
{
    static std::mutex mutex;
    return mutex;
}

thread_local bool threadEnds = false;

class ThreadLife
{
public:
    ThreadMailbox mailbox;

    ThreadLife() = default;
    ~ThreadLife()
    {
        threadEnds = true;
        Process* process = current;
        if (mailbox.queue && process != nullptr) {
            process->removeQueue(mailbox.queue);
        }
    }
    ThreadLife(const ThreadLife&) = delete;
    ThreadLife& operator=(const ThreadLife&) = delete;
};

void beforeFork()
{
    makingMutex().lock();
    descriptorMutex().lock();
}

void inParent()
{
    descriptorMutex().unlock();
    makingMutex().unlock();
}

void inChild()
{
    closeAllDescriptors();
    ThreadMailbox* own = threadMailbox();
    abandoned = new Abandoned{current.exchange(nullptr), own != nullptr ? std::move(own->queue) : nullptr, abandoned};
    if (own != nullptr) {
        *own = {};
    }
    inParent();
}

void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

ThreadMailbox* threadMailbox()
{
    if (threadEnds) {
        return nullptr;
    }
    static thread_local ThreadLife life;
    return &life.mailbox;
}

Process* Process::get()
{
    Process* process = current;
    return process != nullptr ? process : make();
}

Process* Process::make()
{
    const std::lock_guard lock(makingMutex());
    if (Process* made = current) {
        return made;
    }
    raiseDescriptorLimit();
    auto process = std::make_unique<Process>();
    if (const int error = process->m_registry.open(); error != 0) {
        errno = error;
        return nullptr;
    }
    static const bool handlers = [] {
        pthread_atfork(beforeFork, inParent, inChild);
        return std::atexit(atExit) == 0;
    }();
    static_cast<void>(handlers);
    current = process.get();
    return process.release();
}

void Process::atExit()
{
    if (Process* process = current) {
        process->leave();
    }
}

/// Lets what waits go out, and clears what others would otherwise have to recognise as dead.
void Process::leave()
{
    std::vector<std::pair<std::string, kiv_mbox_id_t>> names;
    std::vector<std::uint32_t> slots;
    std::vector<std::shared_ptr<Link>> links;
    {
        const std::lock_guard lock(m_tables);
        for (const auto& [id, mailbox] : m_mailboxes) {
            names.emplace_back(mailbox.name, id);
        }
        for (const auto& [number, slot] : m_slots) {
            slots.push_back(number);
        }
        for (const auto& [slot, link] : m_links) {
            links.push_back(link);
        }
    }
    for (const auto& [name, id] : names) {
        m_registry.removeName(name, id);
    }
    const auto end = std::chrono::steady_clock::now() + exitPatience;
    for (const auto& link : links) {
        while (!link->idle() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(exitInterval);
        }
    }
    for (const std::uint32_t slot : slots) {
        m_registry.removeSlot(slot);
    }
}

std::shared_ptr<Queue> Process::createQueue(const std::string& name, kiv_mbox_id_t& first)
{
    if (const int error = m_io.start(); error != 0) {
        errno = error;
        return nullptr;
    }
    Registry::Slot claimed = m_registry.claimSlot();
    if (!claimed.listening) {
        return nullptr;
    }
    const std::uint32_t slot = claimed.number;
    auto queue = std::make_shared<Queue>(m_registry, slot);
    if (const int error = queue->open(); error != 0) {
        m_registry.removeSlot(slot);
        queue.reset();
        errno = error;
        return nullptr;
    }
    // From here on the slot is given back by its object.
    auto socket = std::make_shared<SlotSocket>(*this, std::move(claimed), queue);
    if (!*socket) {
        socket.reset();
        queue.reset();
        errno = ENOSPC;
        return nullptr;
    }
    {
        const std::lock_guard lock(m_tables);
        m_slots[slot] = {queue, socket, KIV_NO_MBOX};
    }
    first = addMailbox(queue, name);
    if (first != KIV_NO_MBOX) {
        return queue;
    }
    const int error = errno;
    {
        const std::lock_guard lock(m_tables);
        m_slots.erase(slot);
    }
    socket.reset();
    queue.reset();
    errno = error;
    return nullptr;
}

kiv_mbox_id_t Process::addMailbox(const std::shared_ptr<Queue>& queue, const std::string& name)
{
    std::shared_ptr<SlotSocket> socket; // keeps the slot alive while the name is made
    const kiv_mbox_id_t id = queue->addMailbox();
    if (id == KIV_NO_MBOX) {
        errno = ENOSPC;
        return id;
    }
    {
        // Before the name is there: who finds it may send at once.
        const std::lock_guard lock(m_tables);
        const auto slot = m_slots.find(queue->slot());
        if (slot == m_slots.end() || slot->second.queue != queue) {
            errno = EINVAL; // another thread has just deleted it
            return KIV_NO_MBOX;
        }
        socket = slot->second.socket;
        if (slot->second.first == KIV_NO_MBOX) {
            slot->second.first = id;
        }
        m_mailboxes[id] = {name, queue};
    }
    if (const int error = m_registry.addName(name, id); error != 0) {
        {
            const std::lock_guard lock(m_tables);
            m_mailboxes.erase(id);
        }
        queue->removeMailbox(id);
        socket.reset();
        errno = error;
        return KIV_NO_MBOX;
    }
    if (!hasMailbox(id)) {
        // Deleted while it was made: whoever did that may have come before the name was there.
        m_registry.removeName(name, id);
    }
    return id;
}

bool Process::removeMailbox(kiv_mbox_id_t id)
{
    Mailbox mailbox;
    std::shared_ptr<SlotSocket> socket;
    {
        const std::lock_guard lock(m_tables);
        const auto found = m_mailboxes.find(id);
        const auto slot = m_slots.find(slotOf(id));
        if (found == m_mailboxes.end() || slot == m_slots.end()) {
            return false;
        }
        mailbox = found->second;
        if (slot->second.first != id) {
            socket = slot->second.socket;
            m_mailboxes.erase(found);
        }
    }
    if (!socket) {
        removeQueue(mailbox.queue);
        return true;
    }
    mailbox.queue->removeMailbox(id);
    m_registry.removeName(mailbox.name, id);
    socket->announceDeath(id);
    for (const LocalMonitor& monitor : takeMonitors(id)) {
        if (const auto queue = monitor.queue.lock()) {
            queue->deliver(monitor.ref, id);
        }
    }
    return true;
}

void Process::removeQueue(const std::shared_ptr<Queue>& queue)
{
    Slot slot;
    std::vector<std::pair<kiv_mbox_id_t, Mailbox>> mailboxes;
    {
        const std::lock_guard lock(m_tables);
        const auto found = m_slots.find(queue->slot());
        // The number may have been handed out again.
        if (found == m_slots.end() || found->second.queue != queue) {
            return;
        }
        slot = std::move(found->second);
        m_slots.erase(found);
        for (auto at = m_mailboxes.begin(); at != m_mailboxes.end();) {
            if (at->second.queue == queue) {
                mailboxes.emplace_back(at->first, std::move(at->second));
                at = m_mailboxes.erase(at);
            } else {
                ++at;
            }
        }
    }
    for (const auto& [id, mailbox] : mailboxes) {
        m_registry.removeName(mailbox.name, id); // free before a receiver that waits is woken
    }
    for (const auto& [ref, watch] : queue->close()) {
        if (watch.name.empty()) {
            cancelMonitor(ref, watch.mailbox);
        } else {
            m_hunts.cancel(ref);
        }
    }
    slot.socket->announceEnd();
    for (const auto& [id, mailbox] : mailboxes) {
        for (const LocalMonitor& monitor : takeMonitors(id)) {
            if (const auto watching = monitor.queue.lock()) {
                watching->deliver(monitor.ref, id);
            }
        }
    }
}

std::vector<Process::LocalMonitor> Process::takeMonitors(kiv_mbox_id_t id)
{
    std::vector<LocalMonitor> taken;
    const std::lock_guard lock(m_tables);
    const auto [begin, end] = m_monitors.equal_range(id);
    for (auto at = begin; at != end; ++at) {
        taken.push_back(std::move(at->second));
    }
    m_monitors.erase(begin, end);
    return taken;
}

bool Process::hasMailbox(kiv_mbox_id_t id)
{
    const std::lock_guard lock(m_tables);
    return m_mailboxes.contains(id);
}

std::shared_ptr<Queue> Process::queueOf(kiv_mbox_id_t id)
{
    const std::lock_guard lock(m_tables);
    const auto found = m_mailboxes.find(id);
    return found != m_mailboxes.end() ? found->second.queue : nullptr;
}

/// With the tables locked.
std::shared_ptr<Link> Process::linkTo(std::uint32_t slot)
{
    std::shared_ptr<Link>& link = m_links[slot];
    if (!link) {
        link = std::make_shared<Link>(*this, slot);
    }
    return link;
}

std::uint64_t Process::sentTo(std::uint32_t slot, pid_t process)
{
    std::shared_ptr<Link> link;
    {
        const std::lock_guard lock(m_tables);
        if (const auto found = m_links.find(slot); found != m_links.end()) {
            link = found->second;
        }
    }
    return link ? link->sentTo(process) : 0;
}

void Process::removeLink(const Link& link)
{
    std::shared_ptr<Link> removed;
    const std::lock_guard lock(m_tables);
    const auto found = m_links.find(link.slot());
    if (found != m_links.end() && found->second.get() == &link) {
        removed = std::move(found->second);
        m_links.erase(found);
    }
}

void Process::send(MessagePtr message, kiv_mbox_id_t receiver, kiv_mbox_id_t sender)
{
    std::shared_ptr<SlotSocket> from;
    std::shared_ptr<Queue> queue;
    std::shared_ptr<Link> link;
    {
        const std::lock_guard lock(m_tables);
        if (sender != KIV_NO_MBOX) {
            // A clone that is gone may still be named: what is proven to receivers is the queue.
            const auto own = m_slots.find(slotOf(sender));
            if (!isMailboxId(sender) || own == m_slots.end()) {
                return;
            }
            from = own->second.socket;
        }
        if (const auto slot = m_slots.find(slotOf(receiver)); slot != m_slots.end()) {
            queue = slot->second.queue;
        } else {
            link = linkTo(slotOf(receiver));
        }
    }
    message->ref = 0;
    message->frame.sender = sender;
    message->frame.receiver = receiver;
    if (queue) {
        queue->push(std::move(message));
    } else if (m_io.start() == 0) {
        link->send(std::move(message), from);
    }
}

kiv_mbox_id_t Process::locate(const std::string& name)
{
    const kiv_mbox_id_t id = m_registry.readName(name);
    if (id == KIV_NO_MBOX || hasMailbox(id)) {
        return id;
    }
    return m_registry.isAlive(slotOf(id)) ? id : KIV_NO_MBOX;
}

std::uint32_t Process::nextRef()
{
    for (;;) {
        if (const std::uint32_t ref = ++m_lastRef; ref != 0) {
            return ref;
        }
    }
}

std::uint32_t Process::monitor(kiv_mbox_id_t mailbox, MessagePtr message, const std::shared_ptr<Queue>& queue,
                               kiv_mbox_id_t receiver)
{
    const std::uint32_t ref = nextRef();
    message->frame.receiver = receiver;
    queue->addWatch(ref, {std::move(message), mailbox, {}});
    std::shared_ptr<Link> link;
    if (isMailboxId(mailbox)) {
        const std::lock_guard lock(m_tables);
        if (m_mailboxes.contains(mailbox)) {
            m_monitors.emplace(mailbox, LocalMonitor{ref, queue});
            return ref;
        }
        if (!m_slots.contains(slotOf(mailbox))) {
            link = linkTo(slotOf(mailbox));
        }
    }
    if (link) {
        link->monitor(ref, mailbox, queue);
    } else {
        queue->deliver(ref, mailbox);
    }
    return ref;
}

void Process::unmonitor(std::uint32_t ref, Queue& queue)
{
    const Queue::Watch cancelled = queue.cancel(ref, false);
    if (cancelled.message) {
        cancelMonitor(ref, cancelled.mailbox);
    }
}

void Process::cancelMonitor(std::uint32_t ref, kiv_mbox_id_t mailbox)
{
    std::shared_ptr<Link> link;
    {
        const std::lock_guard lock(m_tables);
        const auto [begin, end] = m_monitors.equal_range(mailbox);
        for (auto at = begin; at != end; ++at) {
            if (at->second.ref == ref) {
                m_monitors.erase(at);
                return;
            }
        }
        if (const auto found = m_links.find(slotOf(mailbox)); found != m_links.end()) {
            link = found->second;
        }
    }
    if (link) {
        link->unmonitor(ref);
    }
}

std::uint32_t Process::hunt(const std::string& name, MessagePtr message, const std::shared_ptr<Queue>& queue,
                            kiv_mbox_id_t receiver)
{
    const std::uint32_t ref = nextRef();
    message->frame.receiver = receiver;
    queue->addWatch(ref, {std::move(message), KIV_NO_MBOX, name});
    m_hunts.add(name, ref, queue);
    return ref;
}

void Process::unhunt(std::uint32_t ref, Queue& queue)
{
    queue.cancel(ref, true);
    m_hunts.cancel(ref);
}

} // namespace kiv
