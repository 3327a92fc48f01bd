#include "kiv/queue.h"

#include "kiv/channel.h"
#include "kiv/frame.h"
#include "kiv/id.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace kiv {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t batchSize = 8;
constexpr std::size_t readyAtOnce = 16;
/// A receive that may not wait gives up behind so many looks that brought nothing of use.
constexpr unsigned mostLooks = 64;
constexpr int socketBuffer = 1 << 20;

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

/// What recvmmsg reads into. The packets' memory is mapped, so that what is never used is never touched.
struct Queue::Batch {
    Batch()
        : packets(static_cast<std::byte*>(::mmap(nullptr, batchSize * maxPacket, PROT_READ | PROT_WRITE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)))
    {
        if (static_cast<void*>(packets) == MAP_FAILED) {
            throw std::bad_alloc();
        }
        for (std::size_t i = 0; i < batchSize; ++i) {
            parts[i] = {packets + i * maxPacket, maxPacket};
            headers[i].msg_hdr.msg_iov = &parts[i];
            headers[i].msg_hdr.msg_iovlen = 1;
            headers[i].msg_hdr.msg_control = controls[i].data();
        }
    }
    ~Batch() { ::munmap(packets, batchSize * maxPacket); }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /// One packet at a time while they come singly, which saves a look in vain; a batch where more lie waiting.
    int read(int socket)
    {
        limit = singles < trySeveral ? 1 : batchSize;
        for (mmsghdr& header : headers) {
            header.msg_hdr.msg_controllen = controls[0].size();
            header.msg_hdr.msg_flags = 0;
        }
        const int count =
            ::recvmmsg(socket, headers.data(), static_cast<unsigned>(limit), MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
        singles = count > 1 ? trySeveral : limit == 1 ? singles + 1 : 0;
        return count;
    }

    static constexpr unsigned trySeveral = 8;
    unsigned singles = 0;
    std::size_t limit = 1;

    std::byte* packets;
    std::array<mmsghdr, batchSize> headers{};
    std::array<iovec, batchSize> parts{};
    alignas(cmsghdr) std::array<std::array<std::byte, CMSG_SPACE(sizeof(int))>, batchSize> controls{};
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

Queue::Queue(const Registry& registry, std::uint32_t slot) : m_registry(registry), m_slot(slot) {}

Queue::~Queue() = default;

int Queue::open()
{
    m_batch = std::make_unique<Batch>();
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
    m_indices.clear();
    for (const auto& [key, peer] : m_peers) {
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, peer.socket.get(), nullptr);
    }
    m_peers.clear();
    m_parked.clear();
    m_local.clear();
    m_scanned = nullptr;
    setEvent(true);
    return std::exchange(m_watches, {});
}

void Queue::quieten()
{
    const std::lock_guard lock(m_mutex);
    setEvent(!m_local.empty());
}

kiv_mbox_id_t Queue::addMailbox()
{
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    if (m_indices.size() == lastIndex) {
        return KIV_NO_MBOX;
    }
    // Round and round, so that the index of a deleted clone rests for long.
    auto place = m_indices.end();
    do {
        m_lastIndex = m_lastIndex % lastIndex + 1;
        place = std::lower_bound(m_indices.begin(), m_indices.end(), m_lastIndex);
    } while (place != m_indices.end() && *place == m_lastIndex);
    m_indices.insert(place, m_lastIndex);
    return makeId(m_slot, m_lastIndex);
}

void Queue::removeMailbox(kiv_mbox_id_t id)
{
    const std::lock_guard reading(m_reading);
    const std::lock_guard lock(m_mutex);
    const auto place = std::lower_bound(m_indices.begin(), m_indices.end(), indexOf(id));
    if (place != m_indices.end() && *place == indexOf(id)) {
        m_indices.erase(place);
    }
    m_local.removeIf([id](const Message& message) { return message.frame.receiver == id; });
    m_scanned = nullptr;
    setEvent(!m_local.empty());
}

bool Queue::owns(kiv_mbox_id_t id) const
{
    return std::binary_search(m_indices.begin(), m_indices.end(), indexOf(id));
}

MessagePtr Queue::receive(const Selector& selector, std::uint32_t timeout)
{
    const Deadline deadline(timeout);
    std::array<epoll_event, readyAtOnce> events;
    MessagePtr taken;
    bool look = false;
    {
        const std::lock_guard lock(m_mutex);
        m_scanned = nullptr;
        taken = takeLocal(selector);
        look = !taken || ++m_sinceRead >= m_turn;
        // While this call waits, the event tells of what is new; what didn't match stays quiet until the end.
        setEvent(!look && !m_local.empty());
    }
    for (unsigned looks = 0; look && !m_closed; ++looks) {
        const int wait = taken ? 0 : deadline.left();
        const int count = ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), wait);
        if (count > 0) {
            const std::lock_guard reading(m_reading);
            MessageList fresh;
            m_packets = 0;
            readReady({events.data(), static_cast<std::size_t>(count)}, fresh);
            const std::lock_guard lock(m_mutex);
            m_sinceRead = 0;
            // As many are taken as were read before the next are read, or the list would grow under load.
            m_turn = std::max(localTurn, m_packets);
            append(fresh);
            if (!taken) {
                taken = takeLocal(selector);
            }
            look = !taken;
            setEvent(!look && !m_local.empty());
        } else if (wait == 0 || (count < 0 && errno != EINTR)) {
            break;
        }
        if (wait == 0 && looks >= mostLooks) {
            break;
        }
    }
    if (look || m_closed) {
        const std::lock_guard lock(m_mutex);
        m_sinceRead = 0;
        setEvent(!m_local.empty());
    }
    return taken;
}

void Queue::push(MessagePtr message)
{
    const std::lock_guard lock(m_mutex);
    pushLocked(std::move(message));
}

void Queue::pushLocked(MessagePtr message)
{
    if (!m_closed && owns(message->frame.receiver)) {
        m_local.push(std::move(message));
        setEvent(true);
    }
}

MessagePtr Queue::takeLocal(const Selector& selector)
{
    for (Message* previous = m_scanned;; previous = m_scanned) {
        const Message* next = previous == nullptr ? m_local.first() : previous->next;
        if (next == nullptr) {
            return nullptr;
        }
        if (selector.matches(*next)) {
            return m_local.takeAfter(previous);
        }
        m_scanned = previous == nullptr ? m_local.first() : previous->next;
    }
}

void Queue::append(MessageList& fresh)
{
    m_local.append(fresh);
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

MessagePtr Queue::takeWatchedLocked(std::uint32_t ref, kiv_mbox_id_t sender)
{
    const auto found = m_watches.find(ref);
    if (found == m_watches.end()) {
        return nullptr;
    }
    MessagePtr message = std::move(found->second.message);
    m_watches.erase(found);
    message->ref = ref;
    message->frame.sender = sender;
    return message;
}

void Queue::deliver(std::uint32_t ref, kiv_mbox_id_t sender)
{
    // In one go: who cancels finds the message either waiting or delivered, never in between.
    const std::lock_guard lock(m_mutex);
    if (MessagePtr message = takeWatchedLocked(ref, sender)) {
        pushLocked(std::move(message));
    }
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
    m_local.removeIf([ref](const Message& message) { return message.ref == ref; });
    m_scanned = nullptr;
    setEvent(!m_local.empty());
    return cancelled;
}

void Queue::died(std::uint32_t ref, kiv_mbox_id_t mailbox, pid_t process, std::uint64_t count)
{
    const std::lock_guard reading(m_reading);
    Peer* peer = peerOf(process, slotOf(mailbox));
    if (peer == nullptr) {
        if (count == 0 || count == allUnread) {
            deliver(ref, mailbox);
        } else {
            m_parked.push_back({process, {ref, mailbox, count}});
        }
        return;
    }
    if (peer->received >= count || (count == allUnread && !hasUnread(*peer))) {
        deliver(ref, mailbox);
        return;
    }
    peer->deaths.push_back({ref, mailbox, count});
}

void Queue::releaseParked(std::uint32_t ref)
{
    const std::lock_guard reading(m_reading);
    const auto found =
        std::find_if(m_parked.begin(), m_parked.end(), [ref](const Parked& parked) { return parked.death.ref == ref; });
    if (found != m_parked.end()) {
        const Death death = found->death;
        m_parked.erase(found);
        deliver(death.ref, death.mailbox);
    }
}

std::uint64_t Queue::addPeer(pid_t process, std::uint32_t provenSlot, CutOff cutOff, Descriptor& farEnd)
{
    Peer peer;
    int ends[2] = {-1, -1};
    {
        const DescriptorScope scope;
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            return 0;
        }
        peer.socket = Descriptor(ends[0]);
        peer.farEnd = Descriptor(ends[1]);
        farEnd = Descriptor(::fcntl(ends[1], F_DUPFD_CLOEXEC, 0));
    }
    ::setsockopt(peer.farEnd.get(), SOL_SOCKET, SO_SNDBUF, &socketBuffer, sizeof socketBuffer);
    peer.process = process;
    peer.cutOff = std::move(cutOff);
    if (provenSlot != 0) {
        peer.provenSlots.push_back(provenSlot);
    }

    const std::lock_guard reading(m_reading);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = ++m_lastKey;
    if (!farEnd || m_closed || ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, peer.socket.get(), &event) != 0) {
        return 0;
    }
    const auto own = std::stable_partition(m_parked.begin(), m_parked.end(),
                                           [process](const Parked& parked) { return parked.process != process; });
    for (auto parked = own; parked != m_parked.end(); ++parked) {
        peer.deaths.push_back(parked->death);
    }
    m_parked.erase(own, m_parked.end());
    m_peers.emplace(m_lastKey, std::move(peer));
    return m_lastKey;
}

void Queue::addProvenSlot(std::uint64_t key, std::uint32_t slot)
{
    const std::lock_guard reading(m_reading);
    for (auto& [other, peer] : m_peers) {
        // A slot has one owner: who had it before lost it.
        std::erase(peer.provenSlots, slot);
        if (other == key) {
            peer.provenSlots.push_back(slot);
        }
    }
}

void Queue::endPeer(std::uint64_t key)
{
    MessageList fresh;
    const std::lock_guard reading(m_reading);
    const auto found = m_peers.find(key);
    if (found == m_peers.end()) {
        return;
    }
    found->second.ended = true;
    if (hasUnread(found->second)) {
        // Whoever else holds the sending end can't add to it any more.
        ::shutdown(found->second.farEnd.get(), SHUT_WR);
        return;
    }
    removePeer(key, fresh);
    const std::lock_guard lock(m_mutex);
    if (!fresh.empty()) {
        append(fresh);
        setEvent(true);
    }
}

void Queue::readReady(std::span<const epoll_event> ready, MessageList& fresh)
{
    for (const epoll_event& event : ready) {
        if (event.data.u64 != 0) {
            readPeer(event.data.u64, fresh);
        }
    }
}

void Queue::readPeer(std::uint64_t key, MessageList& fresh)
{
    const auto found = m_peers.find(key);
    if (found == m_peers.end()) {
        return;
    }
    Peer& peer = found->second;
    const int count = m_batch->read(peer.socket.get());
    const auto packets = static_cast<std::size_t>(std::max(count, 0));
    m_packets += static_cast<unsigned>(packets);
    const char* bad = count < 0 && errno != EAGAIN && errno != EINTR ? "broken data connection" : nullptr;
    bool over = false;
    for (std::size_t i = 0; i < packets; ++i) {
        over = over || (m_batch->headers[i].msg_len == 0 && isOver(peer));
        if (over || bad != nullptr) {
            // Looked at even behind a bad packet: it may hold descriptors.
            const Passed passed(m_batch->headers[i].msg_hdr);
        } else {
            bad = takePacket(peer, i, fresh);
        }
    }
    if (bad != nullptr) {
        cut(key, bad, fresh);
        return;
    }
    if (over) {
        removePeer(key, fresh);
        return;
    }
    if (!peer.ended && peer.deaths.empty()) {
        return;
    }
    const bool drained = packets < m_batch->limit || !hasUnread(peer);
    if (drained && peer.ended) {
        removePeer(key, fresh);
    } else {
        releaseDeaths(peer, drained, fresh);
    }
}

/// Null, or why the peer is to be cut off.
const char* Queue::takePacket(Peer& peer, std::size_t at, MessageList& fresh)
{
    const mmsghdr& packet = m_batch->headers[at];
    Passed passed(packet.msg_hdr);
    ++peer.received;
    constexpr const char* malformed = "malformed message";
    if ((packet.msg_hdr.msg_flags & MSG_TRUNC) != 0) {
        return malformed;
    }
    if ((packet.msg_hdr.msg_flags & MSG_CTRUNC) != 0) {
        return passed.size() == 0 ? "no descriptor left" : malformed;
    }
    MessagePtr message =
        parseFrame({m_batch->packets + at * maxPacket, packet.msg_len}, {passed.begin(), passed.size()});
    if (!message) {
        return malformed;
    }
    const Address address = addressOf(peer, message->frame);
    if (address == Address::ours) {
        fresh.push(std::move(message));
    }
    return address == Address::foreign ? malformed : nullptr;
}

Queue::Address Queue::addressOf(Peer& peer, const FrameHeader& frame)
{
    if (!isMailboxId(frame.receiver) || slotOf(frame.receiver) != m_slot) {
        return Address::foreign;
    }
    if (frame.sender != KIV_NO_MBOX && !(isMailboxId(frame.sender) && isProven(peer, slotOf(frame.sender)))) {
        return Address::foreign;
    }
    return owns(frame.receiver) ? Address::ours : Address::gone;
}

bool Queue::isProven(Peer& peer, std::uint32_t slot)
{
    const auto& proven = peer.provenSlots;
    if (std::find(proven.rbegin(), proven.rend(), slot) != proven.rend()) {
        return true;
    }
    // The claim is still on its way to the I/O thread.
    if (m_registry.ownerOf(slot, true) != peer.process) {
        return false;
    }
    peer.provenSlots.push_back(slot);
    return true;
}

void Queue::releaseDeaths(Peer& peer, bool drained, MessageList& fresh)
{
    const std::lock_guard lock(m_mutex);
    std::erase_if(peer.deaths, [&](const Death& death) {
        const bool due = peer.received >= death.count || (drained && death.count == allUnread);
        if (MessagePtr message = due ? takeWatchedLocked(death.ref, death.mailbox) : nullptr) {
            fresh.push(std::move(message));
        }
        return due;
    });
}

void Queue::removePeer(std::uint64_t key, MessageList& fresh)
{
    const auto found = m_peers.find(key);
    Peer& peer = found->second;
    peer.received = allUnread;
    releaseDeaths(peer, true, fresh);
    ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, peer.socket.get(), nullptr);
    m_peers.erase(found);
}

void Queue::cut(std::uint64_t key, const char* reason, MessageList& fresh)
{
    Peer& peer = m_peers.find(key)->second;
    if (!peer.ended) {
        peer.cutOff(reason);
    }
    removePeer(key, fresh);
}

Queue::Peer* Queue::peerOf(pid_t process, std::uint32_t slot)
{
    for (auto& [key, peer] : m_peers) {
        const auto& proven = peer.provenSlots;
        if (process != 0 ? peer.process == process : std::find(proven.begin(), proven.end(), slot) != proven.end()) {
            return &peer;
        }
    }
    return nullptr;
}

/// Whether the sender closed its end, which a packet of length 0 looks like.
bool Queue::isOver(const Peer& peer)
{
    pollfd state{peer.socket.get(), POLLRDHUP, 0};
    return peer.ended || (::poll(&state, 1, 0) == 1 && (state.revents & POLLRDHUP) != 0);
}

bool Queue::hasUnread(const Peer& peer)
{
    char byte = 0;
    const ssize_t got = ::recv(peer.socket.get(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
    // Nothing in it is the end of one that ended, and a malformed packet of one that lives.
    return got > 0 || (got == 0 && !peer.ended);
}

} // namespace kiv
