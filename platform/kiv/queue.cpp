#include "kiv/queue.h"

#include "kiv/flow.h"
#include "kiv/id.h"
#include "kiv/log.h"
#include "kiv/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace kiv {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t readyAtOnce = 16;
/// A receive that may not wait gives up behind so many looks that brought nothing of use.
constexpr unsigned maxLooks = 64;
/// So many messages that were pushed, then the connections get their turn.
constexpr unsigned pushedTurn = 64;
/// A round of reading ends behind so much.
constexpr std::size_t maxRound = 4U << 20;
/// What lies here unreceived of one process, of all, and of the own one.
constexpr std::size_t maxUnreceived = 8U << 20;
constexpr std::size_t maxUnreceivedInAll = 64U << 20;
constexpr std::size_t maxPushed = 64U << 20;
/// An honest process has one; and for a while a second, where the first was cut off.
constexpr std::ptrdiff_t maxConnections = 4;

class Deadline
{
public:
    explicit Deadline(std::uint32_t timeout)
        : m_forever(timeout == KIV_WAIT_FOREVER),
          m_end(timeout == KIV_NO_WAIT ? Clock::time_point() : Clock::now() + std::chrono::milliseconds(timeout))
    {
    }

    /// For epoll_wait.
    int left() const
    {
        if (m_forever) {
            return -1;
        }
        if (m_end == Clock::time_point()) {
            return 0;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_end - Clock::now()).count();
        return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
    }

private:
    bool m_forever;
    Clock::time_point m_end;
};

} // namespace

/// The end of a receive that waited, however it comes.
class Queue::Waiting
{
public:
    explicit Waiting(Queue& queue) : m_queue(queue) {}
    ~Waiting()
    {
        const std::lock_guard lock(m_queue.m_mutex);
        m_queue.m_isWaiting = false;
        m_queue.settle();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    Queue& m_queue;
};

bool Selector::matches(const Message& message) const
{
    if (sender != KIV_ANY_SENDER && message.frame.sender != sender) {
        return false;
    }
    if (filter == nullptr) {
        return true;
    }
    const std::uint32_t* numbers = filter + 1;
    return std::find(numbers, numbers + *filter, message.payload()->number) != numbers + *filter;
}

Queue::Queue(Process& process, std::uint32_t number, std::uint32_t lastIndex)
    : m_process(process), m_number(number), m_unreceived(lastProcess + 1), m_lastIndex(lastIndex),
      m_mailboxes(lastIndexOf(number) + 1)
{
}

Queue::~Queue() = default;

int Queue::open()
{
    {
        const DescriptorScope scope;
        m_epoll = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
        m_event = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    epoll_event event{};
    event.events = EPOLLIN;
    return m_epoll && m_event && ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, m_event.get(), &event) == 0 ? 0 : errno;
}

Queue::Watches Queue::close()
{
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    m_mailboxes.assign(m_mailboxes.size(), false);
    m_mailboxCount = 0;
    while (!m_peers.empty()) {
        m_peers.begin()->second.deaths.clear();
        if (m_peers.begin()->second.isHeld) {
            m_process.flow().release();
        }
        unwatch(m_peers.begin()->second);
        m_process.closer().close(std::move(m_peers.begin()->second.socket));
        m_peers.erase(m_peers.begin());
    }
    removeIf([](const Message&) { return true; });
    m_hasQueued = false;
    setEvent(true);
    return std::exchange(m_watches, {});
}

void Queue::quieten()
{
    const std::lock_guard lock(m_mutex);
    setEvent(false);
}

int Queue::descriptor()
{
    const std::lock_guard lock(m_mutex);
    m_isWatched = true;
    settle();
    return m_epoll.get();
}

void Queue::beginDispatch()
{
    const std::lock_guard lock(m_mutex);
    m_isDispatching = true;
}

void Queue::endDispatch()
{
    const std::lock_guard lock(m_mutex);
    m_isDispatching = false;
    settle();
}

kiv_mbox_id_t Queue::addMailbox()
{
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    const std::uint32_t last = lastIndexOf(m_number);
    if (m_closed || m_mailboxCount == last) {
        return KIV_NO_MBOX;
    }
    // Round and round, so that the index of a deleted clone rests for long.
    do {
        m_lastIndex = m_lastIndex % last + 1;
    } while (m_mailboxes[m_lastIndex]);
    m_mailboxes[m_lastIndex] = true;
    ++m_mailboxCount;
    return makeId(m_process.number(), m_number, m_lastIndex);
}

void Queue::removeMailbox(kiv_mbox_id_t id)
{
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    if (owns(id)) {
        m_mailboxes[indexOf(id)] = false;
        --m_mailboxCount;
    }
    removeIf([id](const Message& message) { return message.frame.receiver == id; });
    settle();
}

bool Queue::owns(kiv_mbox_id_t id) const
{
    return m_mailboxes[indexOf(id)];
}

MessagePtr Queue::receive(const Selector& selector, std::uint32_t timeout)
{
    MessagePtr taken;
    {
        const std::lock_guard lock(m_mutex);
        m_scannedRead = m_scannedPushed = nullptr;
        taken = take(selector);
        if (taken && (!m_read.empty() || m_pushedTaken < pushedTurn)) {
            settle();
            return taken;
        }
        // What didn't match stays quiet while this call waits: the event tells of what is new.
        m_isWaiting = true;
        setEvent(false);
    }
    const Waiting waiting(*this);
    if (!taken) {
        flushCollected();
    }
    const Deadline deadline(timeout);
    std::array<epoll_event, readyAtOnce> events;
    for (unsigned looks = 0; !m_closed; ++looks) {
        const int wait = taken ? 0 : deadline.left();
        const int count = ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), wait);
        if (count > 0) {
            const std::lock_guard reading(m_reading);
            readRound({events.data(), static_cast<std::size_t>(count)});
        }
        const std::lock_guard lock(m_mutex);
        m_pushedTaken = 0;
        setEvent(false);
        taken = taken ? std::move(taken) : take(selector);
        const bool isOver = count < 0 ? errno != EINTR : wait == 0 && (count == 0 || looks >= maxLooks);
        if (taken || isOver) {
            break;
        }
    }
    return taken;
}

MessagePtr Queue::take(const Selector& selector)
{
    MessagePtr taken = takeFrom(m_read, m_scannedRead, selector);
    if (taken) {
        accountTaken(*taken);
    } else if ((taken = takeFrom(m_pushed, m_scannedPushed, selector))) {
        m_pushedBytes -= taken->footprint();
        ++m_pushedTaken;
    }
    if (taken) {
        currentCause = taken->process;
    }
    return taken;
}

/// A message leaves the list of what was read: peers that were held up for it may be read again.
void Queue::accountTaken(const Message& message)
{
    const auto reduce = [size = message.footprint()](auto& bytes, std::size_t limit) {
        const std::size_t before = bytes;
        bytes = static_cast<std::remove_reference_t<decltype(bytes)>>(before - size);
        return before > limit && bytes <= limit;
    };
    const bool hasLess = reduce(m_unreceived[message.process], maxUnreceived / 2);
    if ((reduce(m_readBytes, maxUnreceivedInAll / 2) || hasLess || m_readBytes == 0) && m_heldPeers != 0) {
        m_process.flow().relieved();
    }
}

MessagePtr Queue::takeFrom(MessageList& list, Message*& scanned, const Selector& selector)
{
    for (Message* next = nullptr; (next = scanned == nullptr ? list.first() : scanned->next) != nullptr;
         scanned = next) {
        if (selector.matches(*next)) {
            return list.takeAfter(scanned);
        }
    }
    return nullptr;
}

template <typename Match>
void Queue::removeIf(Match match)
{
    m_scannedRead = m_scannedPushed = nullptr;
    m_read.removeIf([&](const Message& message) {
        const bool isMatch = match(message);
        if (isMatch) {
            accountTaken(message);
        }
        return isMatch;
    });
    m_pushed.removeIf([&](const Message& message) {
        const bool isMatch = match(message);
        m_pushedBytes -= isMatch ? message.footprint() : 0;
        return isMatch;
    });
}

void Queue::push(MessagePtr message)
{
    const std::lock_guard lock(m_mutex);
    if (m_pushedBytes > maxPushed) {
        logLine("a message of this process dropped: more than %zu MiB waiting", maxPushed >> 20);
        return;
    }
    pushLocked(std::move(message));
}

void Queue::pushLocked(MessagePtr message)
{
    if (m_closed || !owns(message->frame.receiver)) {
        return;
    }
    m_pushedBytes += message->footprint();
    m_pushed.push(std::move(message));
    announce();
}

/// Something new lies in a list.
void Queue::announce()
{
    if (m_isWaiting) {
        setEvent(true);
    } else {
        settle();
    }
}

void Queue::appendRead(MessageList& fresh)
{
    for (const Message* message = fresh.first(); message != nullptr; message = message->next) {
        m_readBytes += message->footprint();
        m_unreceived[message->process] += static_cast<std::uint32_t>(message->footprint());
    }
    m_read.append(fresh);
}

/// Brings the event up to date with the lists.
void Queue::settle()
{
    if (m_closed) {
        return;
    }
    const bool hasQueued = !m_read.empty() || !m_pushed.empty();
    m_hasQueued.store(hasQueued, std::memory_order_relaxed);
    if (hasQueued ? m_isWatched : !m_isDispatching) {
        setEvent(hasQueued);
    }
}

void Queue::setEvent(bool set)
{
    if (set == m_eventSet) {
        return;
    }
    m_eventSet = set;
    std::uint64_t value = 1;
    const ssize_t done =
        set ? ::write(m_event.get(), &value, sizeof value) : ::read(m_event.get(), &value, sizeof value);
    if (done < 0) {
        m_eventSet = !set;
    }
}

void Queue::addWatch(std::uint32_t ref, Watch watch)
{
    const std::lock_guard lock(m_mutex);
    m_watches.emplace(ref, std::move(watch));
}

MessagePtr Queue::takeWatched(std::uint32_t ref, kiv_mbox_id_t sender)
{
    const auto found = m_watches.find(ref);
    if (found == m_watches.end()) {
        return nullptr;
    }
    MessagePtr message = std::move(found->second.message);
    m_watches.erase(found);
    message->ref = ref;
    message->process = 0;
    message->frame.sender = sender;
    return message;
}

void Queue::deliver(std::uint32_t ref, kiv_mbox_id_t sender)
{
    // In one go: who cancels finds the message either waiting or delivered, never in between.
    const std::lock_guard lock(m_mutex);
    if (MessagePtr message = takeWatched(ref, sender)) {
        pushLocked(std::move(message));
    }
}

/// Behind what has been read.
void Queue::deliverRead(const std::vector<Death>& deaths)
{
    MessageList fresh;
    for (const Death& death : deaths) {
        MessagePtr message = takeWatched(death.ref, death.mailbox);
        if (message && owns(message->frame.receiver)) {
            fresh.push(std::move(message));
        }
    }
    if (fresh.empty()) {
        return;
    }
    appendRead(fresh);
    announce();
}

Queue::Watch Queue::cancel(std::uint32_t ref, bool hunt)
{
    Watch cancelled;
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_watches.find(ref); found != m_watches.end()) {
        if (hunt == !found->second.name.empty()) {
            cancelled = std::move(found->second);
            m_watches.erase(found);
        }
        return cancelled;
    }
    removeIf([ref](const Message& message) { return message.ref == ref; });
    settle();
    return cancelled;
}

void Queue::died(std::uint32_t process, const Identity& identity, const std::vector<Death>& deaths)
{
    const std::lock_guard reading(m_reading);
    auto last = m_peers.end();
    for (auto at = m_peers.begin(); at != m_peers.end(); ++at) {
        if (at->second.process == process && (!identity || at->second.identity == identity)) {
            endSending(at->second);
            last = last == m_peers.end() || at->first > last->first ? at : last;
        }
    }
    if (last != m_peers.end()) {
        last->second.deaths.insert(last->second.deaths.end(), deaths.begin(), deaths.end());
        resumeReading();
        return;
    }
    const std::lock_guard lock(m_mutex);
    deliverRead(deaths);
}

/// Whoever else holds the sending end can't add to it any more.
void Queue::endSending(Peer& peer)
{
    ::shutdown(peer.socket.get(), SHUT_RD);
    peer.isDead = true;
}

const char* Queue::addPeer(Descriptor socket, std::uint32_t process, const Identity& identity)
{
    const std::lock_guard reading(m_reading);
    const auto isSame = [&](const Peers::value_type& other) {
        return other.second.process == process && other.second.identity == identity;
    };
    const auto former = std::count_if(m_peers.begin(), m_peers.end(), isSame);
    for (auto& [key, other] : m_peers) {
        if (other.process == process && other.identity != identity) {
            endSending(other); // the number has changed hands
        }
    }
    Peer peer;
    peer.socket = std::move(socket);
    peer.process = process;
    peer.identity = identity;
    peer.isNext = former == 0;
    const char* reason = former >= maxConnections                   ? "too many connections"
                         : m_closed                                 ? ""
                         : peer.isNext && !watch(++m_lastKey, peer) ? "it can't be watched"
                                                                    : nullptr;
    if (reason != nullptr) {
        m_process.closer().close(std::move(peer.socket));
        return reason;
    }
    m_peers.emplace(peer.isNext ? m_lastKey : ++m_lastKey, std::move(peer));
    return nullptr;
}

bool Queue::watch(std::uint64_t key, const Peer& peer)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = key;
    return ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, peer.socket.get(), &event) == 0;
}

void Queue::unwatch(const Peer& peer)
{
    if (peer.isNext && !peer.isHeld) {
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, peer.socket.get(), nullptr);
    }
}

/// While much lies here, who has less of it than others may go on, one packet at a time: the thread may wait for that.
bool Queue::mayRead(Peer& peer)
{
    if (peer.isDead) {
        return true;
    }
    if (!m_process.flow().mayRead(peer.process, peer.isHeld)) {
        return false;
    }
    const std::lock_guard lock(m_mutex);
    const std::size_t share = peer.isHeld ? 2 : 1;
    std::size_t limit = maxUnreceived;
    if (m_readBytes > maxUnreceivedInAll / share) {
        limit = std::min(limit, maxUnreceivedInAll / m_peers.size());
        peer.atOnce = 1;
    }
    return m_unreceived[peer.process] <= limit / share;
}

void Queue::hold(std::uint64_t key, Peer& peer)
{
    unwatch(peer);
    peer.isHeld = true;
    ++m_heldPeers;
    m_process.flow().hold();
    // Counted first, then asked again: a relief in between isn't missed.
    release(key, peer);
}

void Queue::release(std::uint64_t key, Peer& peer)
{
    if (peer.isNext && mayRead(peer) && watch(key, peer)) {
        peer.isHeld = false;
        --m_heldPeers;
        m_process.flow().release();
    }
}

void Queue::resume()
{
    const std::lock_guard reading(m_reading);
    resumeReading();
}

void Queue::resumeReading()
{
    for (auto& [key, peer] : m_peers) {
        if (m_heldPeers == 0) {
            return;
        }
        if (peer.isHeld) {
            release(key, peer);
        }
    }
}

void Queue::readRound(std::span<const epoll_event> ready)
{
    std::size_t bytes = 0;
    for (const epoll_event& event : ready) {
        if (bytes >= maxRound) {
            return;
        }
        const auto at = m_peers.find(event.data.u64);
        if (at != m_peers.end()) {
            bytes += readPeer(at);
        }
    }
}

/// Some packets. Returns the size of their messages.
std::size_t Queue::readPeer(Peers::iterator at)
{
    Peer& peer = at->second;
    if (!mayRead(peer)) {
        hold(at->first, peer);
        return 0;
    }
    MessageList fresh;
    const char* bad = nullptr;
    bool isOver = false;
    // One by one while they bring memfds: each may hold the largest message.
    std::size_t inPackets = 0;
    for (Packet& packet : m_batch.receive(peer.socket.get(), peer.atOnce)) {
        inPackets += packet.bytes.size();
        peer.atOnce = packet.descriptors.empty() ? PacketBatch::capacity : 1;
        isOver = isOver || packet.result == Packet::Result::over;
        if (packet.result == Packet::Result::broken) {
            bad = "broken connection";
        } else if (packet.result == Packet::Result::packet && bad == nullptr && !isOver) {
            bad = takePacket(peer, packet, fresh);
        }
        // A memfd closes at once; what else came with a bad packet may not.
        if (bad != nullptr) {
            m_process.closer().close(packet.descriptors);
        }
        packet.descriptors.clear();
    }
    std::size_t bytes = 0;
    {
        const std::lock_guard lock(m_mutex);
        const std::size_t before = m_readBytes;
        appendRead(fresh);
        bytes = std::max(m_readBytes - before, inPackets);
    }
    if (bad != nullptr) {
        logLine("process %d cut off: %s", static_cast<int>(peer.identity.pid), bad);
    }
    if (bad != nullptr || isOver) {
        removePeer(at);
    }
    return bytes;
}

/// Null, or why the peer is to be cut off.
const char* Queue::takePacket(const Peer& peer, Packet& packet, MessageList& fresh)
{
    if (packet.bytes.empty()) {
        return "malformed message";
    }
    if (packet.lacksDescriptors && packet.descriptors.empty()) {
        return "no descriptor left";
    }
    FrameReader frames(packet);
    while (!frames.atEnd()) {
        const FrameHeader* frame = frames.next();
        const char* bad =
            frame != nullptr && isAllowed(peer, *frame) ? takeFrame(peer, *frame, frames, fresh) : "malformed message";
        if (bad != nullptr) {
            return bad;
        }
    }
    return nullptr;
}

const char* Queue::takeFrame(const Peer& peer, const FrameHeader& frame, const FrameReader& frames, MessageList& fresh)
{
    if (!owns(frame.receiver)) {
        return nullptr; // gone: it isn't even looked at
    }
    MessagePtr message = frames.message();
    if (!message) {
        return "malformed message, or no memory";
    }
    message->process = static_cast<std::uint16_t>(peer.process);
    if (frame.kind == FrameKind::dead) {
        std::uint32_t ref = 0;
        std::memcpy(&ref, message->payload(), sizeof ref);
        const std::lock_guard lock(m_mutex);
        const auto watch = m_watches.find(ref);
        if (watch == m_watches.end() || watch->second.mailbox != frame.sender) {
            return nullptr;
        }
        message = takeWatched(ref, frame.sender);
        m_process.forgetWatched(frame.sender, ref);
    }
    fresh.push(std::move(message));
    return nullptr;
}

bool Queue::isAllowed(const Peer& peer, const FrameHeader& frame) const
{
    const bool isKind = frame.kind == FrameKind::inlined || frame.kind == FrameKind::memfd ||
                        (frame.kind == FrameKind::dead && frame.size == sizeof(std::uint32_t));
    const bool isOurs = isMailboxId(frame.receiver) && processOf(frame.receiver) == m_process.number() &&
                        queueOf(frame.receiver) == m_number;
    const bool isTheirs =
        frame.sender == KIV_NO_MBOX || (isMailboxId(frame.sender) && processOf(frame.sender) == peer.process);
    return isKind && isOurs && isTheirs;
}

void Queue::removePeer(Peers::iterator at)
{
    Peer peer = std::move(at->second);
    unwatch(peer);
    if (peer.isHeld) {
        --m_heldPeers;
        m_process.flow().release();
    }
    m_peers.erase(at);
    m_process.closer().close(std::move(peer.socket));
    auto next = m_peers.end();
    for (auto other = m_peers.begin(); other != m_peers.end(); ++other) {
        const bool isSame = other->second.process == peer.process && other->second.identity == peer.identity;
        next = isSame && (next == m_peers.end() || other->first < next->first) ? other : next;
    }
    if (next != m_peers.end()) {
        auto& deaths = next->second.deaths;
        deaths.insert(deaths.begin(), peer.deaths.begin(), peer.deaths.end());
        if (!std::exchange(next->second.isNext, true) && !watch(next->first, next->second)) {
            hold(next->first, next->second); // tried again like others that are held up
        }
        return;
    }
    if (!peer.deaths.empty()) {
        const std::lock_guard lock(m_mutex);
        deliverRead(peer.deaths);
    }
}

} // namespace kiv
