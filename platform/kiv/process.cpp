#include "kiv/process.h"

#include "kiv/door.h"
#include "kiv/frame.h"
#include "kiv/log.h"
#include "tap/tap.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
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
/// Half of what a collected message may wait: one that just missed a tick goes with the next.
constexpr auto flushInterval = 500us;
/// So long the I/O thread ticks on without being woken for it.
constexpr auto flushLinger = 100ms;
constexpr auto monitorRetry = 100ms;
/// Between the first indices of processes that had the same number one after the other.
constexpr std::uint32_t indexStride = 1009;
/// What one process can make this one remember: each of its threads may watch thousands of mailboxes, not more.
constexpr std::size_t maxRemote = 20'000;
/// Each has a name in the unit's folder: an honest process, with a mailbox for each of its clients, stays below.
constexpr std::size_t maxMailboxes = 20'000;

/// What a forked child inherited and must not touch; reachable, so that it is no leak.
struct Abandoned {
    Process* process;
    ThreadMailbox mailbox;
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
        try {
            flushCollected();
            Process* process = current;
            if (mailbox.queue && process != nullptr) {
                process->removeQueue(mailbox.queue);
            }
        } catch (const std::exception& error) {
            logLine("a thread's mailboxes aren't cleared: %s", error.what());
        }
        threadEnds = true;
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
    abandoned = new Abandoned{current.exchange(nullptr), {}, abandoned};
    if (own != nullptr) {
        std::swap(abandoned->mailbox, *own);
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

Process::Process() : m_flow([this] { resume(); }), m_hunts(*this) {}

Process::~Process() = default;

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
    {
        const std::lock_guard lock(m_tables);
        for (const auto& [id, mailbox] : m_mailboxes) {
            names.emplace_back(mailbox.name, id);
        }
    }
    for (const auto& [name, id] : names) {
        m_registry.removeName(name, id);
    }
    const auto end = std::chrono::steady_clock::now() + exitPatience;
    for (const auto& link : links()) {
        link->flush(nullptr);
        while (!link->idle() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(exitInterval);
        }
    }
    if (m_number != 0) {
        m_registry.removeProcess(m_number);
    }
}

/// The I/O thread and the number. Returns 0 or an errno value.
int Process::start()
{
    if (m_number != 0) {
        return 0;
    }
    tap::start();
    const std::lock_guard lock(m_starting);
    const int error = m_number != 0 ? 0 : m_io.start();
    return error != 0 || m_number != 0 ? error : takeNumber();
}

int Process::takeNumber()
{
    Registry::Claim claim = m_registry.claim();
    if (!claim.listening) {
        return errno;
    }
    m_round = claim.round;
    const auto door = std::make_shared<Door>(*this);
    if (!door->open(std::move(claim.listening))) {
        m_registry.removeProcess(claim.process);
        return ENOSPC;
    }
    m_io.post([this, door] { m_door = door; });
    m_number = claim.process;
    return 0;
}

/// With the tables locked. 0 where all are taken.
std::uint32_t Process::freeQueueNumber() const
{
    for (std::uint32_t number = 1; number <= largeQueues; ++number) {
        if (!m_queues[number].queue) {
            return number;
        }
    }
    // Round and round, so that the number of a thread that ended rests for long.
    constexpr std::uint32_t small = lastQueue - largeQueues;
    for (std::uint32_t step = 0; step < small; ++step) {
        const std::uint32_t number = largeQueues + 1 + (m_lastSmall - largeQueues + step) % small;
        if (!m_queues[number].queue) {
            return number;
        }
    }
    return 0;
}

std::shared_ptr<Queue> Process::createQueue(const std::string& name, kiv_mbox_id_t& first)
{
    std::shared_ptr<Queue> queue;
    if ((errno = start()) != 0) {
        return queue;
    }
    {
        const std::lock_guard lock(m_tables);
        const std::uint32_t number = freeQueueNumber();
        if (number == 0) {
            errno = ENOSPC;
            return queue;
        }
        Owned& owned = m_queues[number];
        // The numbers of processes go round: ids of the dead rest for longer still.
        const std::uint32_t before =
            owned.lastIndex != 0 ? owned.lastIndex : m_round * indexStride % lastIndexOf(number);
        queue = std::make_shared<Queue>(*this, number, before);
        if ((errno = queue->open()) != 0) {
            return nullptr;
        }
        owned.queue = queue;
        owned.first = KIV_NO_MBOX;
        m_lastSmall = number > largeQueues ? number : m_lastSmall;
    }
    first = addMailbox(queue, name);
    if (first == KIV_NO_MBOX) {
        const int error = errno;
        removeQueue(queue);
        errno = error;
        return nullptr;
    }
    return queue;
}

kiv_mbox_id_t Process::addMailbox(const std::shared_ptr<Queue>& queue, const std::string& name)
{
    const kiv_mbox_id_t id = queue->addMailbox();
    if (id == KIV_NO_MBOX) {
        errno = queue->closed() ? EINVAL : ENOSPC;
        return id;
    }
    int error = 0;
    {
        // Before the name is there: who finds it may send at once.
        const std::lock_guard lock(m_tables);
        Owned& owned = m_queues[queue->number()];
        error = owned.queue != queue                 ? EINVAL // another thread has just deleted it
                : m_mailboxes.size() >= maxMailboxes ? ENOSPC
                                                     : 0;
        if (error == 0) {
            owned.first = owned.first == KIV_NO_MBOX ? id : owned.first;
            m_mailboxes[id] = {name, queue};
        }
    }
    if (error == 0 && (error = m_registry.addName(name, id)) != 0) {
        const std::lock_guard lock(m_tables);
        m_mailboxes.erase(id);
    }
    if (error != 0) {
        queue->removeMailbox(id);
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
    bool isFirst = false;
    {
        const std::lock_guard lock(m_tables);
        const auto found = m_mailboxes.find(id);
        if (found == m_mailboxes.end()) {
            return false;
        }
        mailbox = found->second;
        isFirst = m_queues[mailbox.queue->number()].first == id;
        if (!isFirst) {
            m_mailboxes.erase(found);
        }
    }
    if (isFirst) {
        removeQueue(mailbox.queue);
        return true;
    }
    mailbox.queue->removeMailbox(id);
    m_registry.removeName(mailbox.name, id);
    tellDeath(id, takeWatchers(id));
    return true;
}

void Process::removeQueue(const std::shared_ptr<Queue>& queue)
{
    std::vector<std::pair<kiv_mbox_id_t, std::string>> mailboxes;
    {
        const std::lock_guard lock(m_tables);
        Owned& owned = m_queues[queue->number()];
        // The number may have been handed out again.
        if (owned.queue != queue) {
            return;
        }
        owned.queue.reset();
        owned.lastIndex = queue->lastIndex();
        for (auto at = m_mailboxes.begin(); at != m_mailboxes.end();) {
            if (at->second.queue == queue) {
                mailboxes.emplace_back(at->first, std::move(at->second.name));
                at = m_mailboxes.erase(at);
            } else {
                ++at;
            }
        }
    }
    for (const auto& [id, name] : mailboxes) {
        m_registry.removeName(name, id); // free before a receiver that waits is woken
    }
    for (const auto& [ref, watch] : queue->close()) {
        if (watch.name.empty()) {
            cancelMonitor(ref, watch.mailbox, watch.message->frame.receiver);
        } else {
            m_hunts.cancel(ref);
        }
    }
    for (const auto& [id, name] : mailboxes) {
        tellDeath(id, takeWatchers(id));
    }
}

std::vector<Process::Watcher> Process::takeWatchers(kiv_mbox_id_t id)
{
    std::vector<Watcher> taken;
    const std::lock_guard lock(m_tables);
    const auto begin = m_watchers.lower_bound({id, {}});
    auto end = begin;
    for (; end != m_watchers.end() && end->first == id; ++end) {
        taken.push_back(end->second);
        if (processOf(end->second.mailbox) != m_number) {
            --m_remoteCount[processOf(end->second.mailbox)];
        }
    }
    m_watchers.erase(begin, end);
    return taken;
}

void Process::tellDeath(kiv_mbox_id_t mailbox, const std::vector<Watcher>& watchers)
{
    for (const Watcher& watcher : watchers) {
        if (processOf(watcher.mailbox) != m_number) {
            sendControl(FrameKind::dead, mailbox, watcher.mailbox, watcher.ref);
        } else if (const auto queue = queueOfMailbox(watcher.mailbox)) {
            queue->deliver(watcher.ref, mailbox);
        }
    }
}

bool Process::hasMailbox(kiv_mbox_id_t id)
{
    const std::lock_guard lock(m_tables);
    return m_mailboxes.contains(id);
}

std::shared_ptr<Queue> Process::queueOfMailbox(kiv_mbox_id_t id)
{
    const std::lock_guard lock(m_tables);
    const auto found = m_mailboxes.find(id);
    return found != m_mailboxes.end() ? found->second.queue : nullptr;
}

std::shared_ptr<Queue> Process::queueNumber(std::uint32_t number)
{
    const std::lock_guard lock(m_tables);
    return m_queues[number].queue;
}

/// With the tables locked.
std::shared_ptr<Link> Process::linkTo(std::uint32_t process, std::uint32_t queue)
{
    std::shared_ptr<Link>& link = m_links[process << mailboxBits | queue];
    if (!link) {
        link = std::make_shared<Link>(*this, process, queue);
    }
    return link;
}

std::vector<std::shared_ptr<Link>> Process::links()
{
    std::vector<std::shared_ptr<Link>> all;
    const std::lock_guard lock(m_tables);
    for (const auto& [key, link] : m_links) {
        all.push_back(link);
    }
    return all;
}

void Process::removeLink(const Link& link)
{
    std::shared_ptr<Link> removed;
    const std::lock_guard lock(m_tables);
    const auto found = m_links.find(link.destination() << mailboxBits | link.queue());
    if (found != m_links.end() && found->second.get() == &link) {
        removed = std::move(found->second);
        m_links.erase(found);
    }
}

void Process::send(MessagePtr message, kiv_mbox_id_t receiver, kiv_mbox_id_t sender)
{
    std::shared_ptr<Queue> own;
    const bool isLocal = processOf(receiver) == m_number;
    {
        const std::lock_guard lock(m_tables);
        // A clone that is gone may still be named, as long as its queue lives.
        if (sender != KIV_NO_MBOX &&
            (!isMailboxId(sender) || processOf(sender) != m_number || !m_queues[queueOf(sender)].queue)) {
            return;
        }
        if (isLocal) {
            own = m_queues[queueOf(receiver)].queue;
        }
    }
    message->ref = 0;
    message->frame = {sender, receiver, message->frame.size, FrameKind::inlined};
    if (tap::isOpen()) {
        copyToTap(*message);
    }
    if (!isLocal) {
        ThreadMailbox* thread = threadMailbox();
        const bool collects =
            thread != nullptr && (thread->dispatches != 0 || (thread->queue && thread->queue->hasQueued()));
        message->process = currentCause;
        sendOver(processOf(receiver), queueOf(receiver), std::move(message), collects ? thread : nullptr);
    } else if (own) {
        message->process = 0;
        own->push(std::move(message));
    }
}

void Process::copyToTap(const Message& message)
{
    const auto nameOf = [this](kiv_mbox_id_t id) {
        const std::lock_guard lock(m_tables);
        const auto found = m_mailboxes.find(id);
        return found != m_mailboxes.end() ? found->second.name : std::string();
    };
    const std::string sender = nameOf(message.frame.sender);
    const std::string receiver = nameOf(message.frame.receiver);
    tap::copy({.carrier = tap::Carrier::kiv,
               .sender = message.frame.sender,
               .receiver = message.frame.receiver,
               .senderName = sender,
               .receiverName = receiver,
               .size = message.frame.size,
               .bytes = message.payload()});
}

void Process::sendOver(std::uint32_t process, std::uint32_t queue, MessagePtr message, ThreadMailbox* collector)
{
    if (start() != 0) {
        return;
    }
    for (bool sent = false; !sent;) {
        std::shared_ptr<Link> link;
        {
            const std::lock_guard lock(m_tables);
            link = linkTo(process, queue);
        }
        sent = link->send(message, collector);
    }
}

void Process::sendControl(FrameKind kind, kiv_mbox_id_t sender, kiv_mbox_id_t receiver, std::uint32_t ref)
{
    MessagePtr message = makeMessage(sizeof ref, false);
    if (!message) {
        throw std::bad_alloc();
    }
    std::memcpy(static_cast<void*>(message->payload()), &ref, sizeof ref);
    message->frame = {sender, receiver, sizeof ref, kind};
    sendOver(processOf(receiver), kind == FrameKind::dead ? queueOf(receiver) : 0, std::move(message), nullptr);
}

kiv_mbox_id_t Process::locate(const std::string& name)
{
    const kiv_mbox_id_t id = m_registry.readName(name);
    if (id == KIV_NO_MBOX || processOf(id) == m_number) {
        return hasMailbox(id) ? id : KIV_NO_MBOX;
    }
    return m_registry.isAlive(processOf(id)) ? id : KIV_NO_MBOX;
}

Link::Clock::duration Process::restOf(kiv_mbox_id_t id)
{
    std::shared_ptr<Link> link;
    {
        const std::lock_guard lock(m_tables);
        const auto found = m_links.find(processOf(id) << mailboxBits | queueOf(id));
        link = found != m_links.end() ? found->second : nullptr;
    }
    return link ? link->rest() : Link::Clock::duration::zero();
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
    const bool isRemote = isMailboxId(mailbox) && processOf(mailbox) != m_number;
    {
        const std::lock_guard lock(m_tables);
        if (m_mailboxes.contains(mailbox)) {
            m_watchers.emplace(mailbox, Watcher{ref, receiver});
            return ref;
        }
        if (isRemote) {
            m_watched[processOf(mailbox)].emplace(ref, Watched{mailbox, queue, receiver});
        }
    }
    if (isRemote) {
        sendControl(FrameKind::monitor, receiver, mailbox, ref);
    } else {
        queue->deliver(ref, mailbox);
    }
    return ref;
}

void Process::unmonitor(std::uint32_t ref, Queue& queue, kiv_mbox_id_t receiver)
{
    const Queue::Watch cancelled = queue.cancel(ref, false);
    if (cancelled.message) {
        cancelMonitor(ref, cancelled.mailbox, receiver);
    }
}

void Process::cancelMonitor(std::uint32_t ref, kiv_mbox_id_t mailbox, kiv_mbox_id_t receiver)
{
    if (processOf(mailbox) == m_number) {
        removeRemote(mailbox, {ref, receiver});
        return;
    }
    bool wasWatched = false;
    {
        const std::lock_guard lock(m_tables);
        const auto found = m_watched.find(processOf(mailbox));
        wasWatched = found != m_watched.end() && found->second.erase(ref) != 0;
    }
    if (wasWatched) {
        sendControl(FrameKind::unmonitor, receiver, mailbox, ref);
    }
}

bool Process::addRemote(kiv_mbox_id_t mailbox, const Watcher& watcher)
{
    {
        const std::lock_guard lock(m_tables);
        if (m_mailboxes.contains(mailbox)) {
            std::size_t& count = m_remoteCount[processOf(watcher.mailbox)];
            if (count >= maxRemote) {
                return false;
            }
            count += m_watchers.emplace(mailbox, watcher).second ? 1 : 0;
            return true;
        }
    }
    tellDeath(mailbox, {watcher});
    return true;
}

void Process::removeRemote(kiv_mbox_id_t mailbox, const Watcher& watcher)
{
    const std::lock_guard lock(m_tables);
    if (m_watchers.erase({mailbox, watcher}) != 0 && processOf(watcher.mailbox) != m_number) {
        --m_remoteCount[processOf(watcher.mailbox)];
    }
}

void Process::removeRemoteOf(std::uint32_t process)
{
    const std::lock_guard lock(m_tables);
    if (const auto count = m_remoteCount.extract(process); !count.empty() && count.mapped() != 0) {
        std::erase_if(m_watchers, [=](const auto& entry) { return processOf(entry.second.mailbox) == process; });
    }
}

void Process::forgetWatched(kiv_mbox_id_t mailbox, std::uint32_t ref)
{
    const std::lock_guard lock(m_tables);
    if (const auto found = m_watched.find(processOf(mailbox)); found != m_watched.end()) {
        found->second.erase(ref);
    }
}

void Process::lostProcess(std::uint32_t process, const Identity& identity, bool refused)
{
    m_io.post([=, this] { processGone(process, identity, refused); });
}

/// On the I/O thread.
void Process::processGone(std::uint32_t process, const Identity& identity, bool refused)
{
    const bool lives = refused && m_registry.isAlive(process);
    if (lives) {
        // Too busy to have us: everything is asked for once more.
        m_io.after(monitorRetry, [this, process] { monitorAgain(process); });
        return;
    }
    // What it had sent before comes first.
    if (m_door) {
        m_door->takeIn();
        m_door->forget(process);
    }
    m_flow.forget(process);
    WatchedOf watched;
    {
        const std::lock_guard lock(m_tables);
        if (auto node = m_watched.extract(process); !node.empty()) {
            watched = std::move(node.mapped());
        }
    }
    std::unordered_map<std::shared_ptr<Queue>, std::vector<Queue::Death>> deaths;
    for (const auto& [ref, one] : watched) {
        if (auto queue = one.queue.lock()) {
            deaths[std::move(queue)].push_back({ref, one.mailbox});
        }
    }
    for (const auto& [queue, own] : deaths) {
        queue->died(process, identity, own);
    }
}

void Process::monitorAgain(std::uint32_t process)
{
    WatchedOf watched;
    {
        const std::lock_guard lock(m_tables);
        if (const auto found = m_watched.find(process); found != m_watched.end()) {
            watched = found->second;
        }
    }
    for (const auto& [ref, one] : watched) {
        sendControl(FrameKind::monitor, one.receiver, one.mailbox, ref);
    }
}

void Process::linkCutOff(std::uint32_t process, std::uint32_t queue)
{
    m_io.post([=, this] {
        std::vector<std::pair<std::uint32_t, Watched>> fired;
        {
            const std::lock_guard lock(m_tables);
            if (const auto found = m_watched.find(process); found != m_watched.end()) {
                std::erase_if(found->second, [&](const auto& entry) {
                    const bool isCut = queueOf(entry.second.mailbox) == queue;
                    if (isCut) {
                        fired.push_back(entry);
                    }
                    return isCut;
                });
            }
        }
        for (const auto& [ref, watched] : fired) {
            if (const auto watching = watched.queue.lock()) {
                watching->deliver(ref, watched.mailbox);
            }
            sendControl(FrameKind::unmonitor, watched.receiver, watched.mailbox, ref);
        }
    });
}

void Process::cutLargest()
{
    if (m_cutsLargest.exchange(true)) {
        return;
    }
    m_io.post([this] {
        m_cutsLargest = false;
        std::shared_ptr<Link> largest;
        std::size_t most = 0;
        for (const auto& link : links()) {
            const bool matters = m_flow.waitingInAll() > Flow::maxWaitingInAll ||
                                 m_flow.waitingFor(link->destination()) > Flow::maxWaiting;
            if (const std::size_t waiting = matters ? link->waiting() : 0; waiting > most) {
                most = waiting;
                largest = link;
            }
        }
        if (largest) {
            largest->cutOff();
        }
    });
}

void Process::flushSoon(std::shared_ptr<Link> link)
{
    const std::lock_guard lock(m_soonMutex);
    m_soon.push_back(std::move(link));
    if (!m_ticks) {
        m_lastSoon = std::chrono::steady_clock::now();
        m_io.after(flushInterval, [this] { flushTick(); });
        m_ticks = true;
    }
}

/// On the I/O thread, for as long as something is collected now and then.
void Process::flushTick()
{
    std::vector<std::shared_ptr<Link>> due;
    {
        const std::lock_guard lock(m_soonMutex);
        due.swap(m_soon);
        const auto now = std::chrono::steady_clock::now();
        m_lastSoon = due.empty() ? m_lastSoon : now;
        m_ticks = false;
        if (now - m_lastSoon < flushLinger) {
            m_io.after(flushInterval, [this] { flushTick(); });
            m_ticks = true;
        }
    }
    for (const auto& link : due) {
        link->flush(nullptr);
    }
}

/// Peers that are held up may be read again.
void Process::resume()
{
    if (m_resumes.exchange(true)) {
        return;
    }
    m_io.post([this] {
        m_resumes = false;
        std::vector<std::shared_ptr<Queue>> queues;
        {
            const std::lock_guard lock(m_tables);
            for (const Owned& owned : m_queues) {
                if (owned.queue) {
                    queues.push_back(owned.queue);
                }
            }
        }
        for (const auto& queue : queues) {
            queue->resume();
        }
    });
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
