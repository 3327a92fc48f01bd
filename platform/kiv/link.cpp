#include "kiv/link.h"

#include "kiv/flow.h"
#include "kiv/frame.h"
#include "kiv/id.h"
#include "kiv/log.h"
#include "kiv/process.h"

#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto busyRetry = 2ms;
constexpr auto shortageRetry = 10ms;
/// A peer that wouldn't have us isn't asked for each message anew.
constexpr auto refusedRest = 100ms;
constexpr auto firstCutRest = 100ms;
constexpr unsigned maxDoublings = 7;
constexpr auto cutsForgotten = 1min;
/// The I/O thread sends so many packets before others get the lock.
constexpr std::size_t packetsAtOnce = 16;
constexpr std::size_t noLimit = SIZE_MAX;
/// Memory in memfds that the peer hasn't read, beyond what waits in the list.
constexpr std::size_t maxInMemfds = 32U << 20;
/// No packet occupies as little as this: the socket is empty.
constexpr int emptySocket = 64;
constexpr int socketBuffer = 1 << 20;

bool isEmpty(int socket)
{
    int bytes = 0;
    return ::ioctl(socket, SIOCOUTQ, &bytes) == 0 && bytes < emptySocket;
}

bool isShortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

} // namespace

class Link::Events : public Handler
{
public:
    Events(std::shared_ptr<Link> link, std::uint64_t connection) : m_link(std::move(link)), m_connection(connection) {}
    void onEvents(std::uint32_t events) override { m_link->onEvents(m_connection, events); }

private:
    std::shared_ptr<Link> m_link;
    std::uint64_t m_connection;
};

void flushCollected()
{
    ThreadMailbox* own = threadMailbox();
    if (own == nullptr || own->collected.empty()) {
        return;
    }
    std::vector<std::shared_ptr<Link>> links;
    links.swap(own->collected);
    for (const auto& link : links) {
        link->flush(own);
    }
    links.clear();
    own->collected.swap(links); // keeps its memory
}

Link::Link(Process& process, std::uint32_t destination, std::uint32_t queue)
    : m_process(process), m_destination(destination), m_queue(queue)
{
}

Link::~Link()
{
    clear();
}

bool Link::send(MessagePtr& message, ThreadMailbox* collector)
{
    const std::lock_guard lock(m_mutex);
    if (m_state == State::retired) {
        return false;
    }
    if (m_state == State::closed) {
        connect();
    }
    if (m_state != State::connecting && m_state != State::open) {
        message.reset();
        return true;
    }
    push(std::move(message));
    if (m_state != State::open || m_isBlocked) {
        return true;
    }
    const bool isFull = m_messages >= maxFrames || m_bytes >= maxInlined;
    if (collector == nullptr || isFull || (m_messages > 1 && m_collector != collector)) {
        flushLocked(noLimit);
    } else if (m_messages == 1) {
        collect(*collector);
    }
    return true;
}

void Link::collect(ThreadMailbox& collector)
{
    const auto self = shared_from_this();
    if (m_collector != &collector) {
        auto& links = collector.collected;
        if (std::find(links.begin(), links.end(), self) == links.end()) {
            links.push_back(self);
        }
        m_collector = &collector;
    }
    if (!m_isListed) {
        m_process.flushSoon(self);
        m_isListed = true;
    }
}

void Link::flush(const ThreadMailbox* collector)
{
    const std::lock_guard lock(m_mutex);
    if (collector == nullptr) {
        m_isListed = false;
    } else if (m_collector == collector) {
        m_collector = nullptr;
    }
    if (m_state == State::open && !m_isBlocked) {
        flushLocked(noLimit);
    }
}

bool Link::idle()
{
    const std::lock_guard lock(m_mutex);
    return m_state == State::retired || m_state == State::closed ||
           (m_state == State::open && m_list.empty() && m_isProven);
}

std::size_t Link::waiting()
{
    const std::lock_guard lock(m_mutex);
    return m_bytes;
}

Link::Clock::duration Link::rest()
{
    const std::lock_guard lock(m_mutex);
    if (m_cuts == 0) {
        return Clock::duration::zero();
    }
    return m_lastCut + firstCutRest * (1U << std::min(m_cuts - 1, maxDoublings)) - Clock::now();
}

void Link::connect()
{
    if (Clock::now() < m_closedUntil) {
        return;
    }
    if (!m_isCounted) {
        m_process.flow().sought(m_destination);
        m_toServer = m_process.flow().isServer(m_destination);
    }
    Descriptor socket = m_process.registry().connectTo(m_destination);
    const int error = socket ? 0 : errno;
    if (socket) {
        open(std::move(socket));
    } else if (error == EAGAIN || isShortage(error)) {
        m_state = State::connecting;
        retryLater(isShortage(error) ? shortageRetry : busyRetry);
    } else {
        lose();
    }
}

void Link::open(Descriptor socket)
{
    m_socket = std::move(socket);
    m_isProven = m_isBlocked = m_watchesOut = false;
    m_inMemfds = 0;
    m_peer = peerOf(m_socket.get());
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_SNDBUF, &socketBuffer, sizeof socketBuffer);
    const Hello hello{.process = m_process.number(), .queue = m_queue};
    m_token = m_process.io().add(m_socket.get(), EPOLLRDHUP | EPOLLET,
                                 std::make_shared<Events>(shared_from_this(), ++m_connection));
    m_state = State::open;
    if (m_token == 0 || sendHello(m_socket.get(), hello) != SendResult::sent) {
        lose();
    }
}

void Link::retryLater(Clock::duration delay)
{
    if (!std::exchange(m_retries, true)) {
        m_process.io().after(delay, [self = shared_from_this()] { self->onRetry(); });
    }
}

void Link::onRetry()
{
    const std::lock_guard lock(m_mutex);
    m_retries = false;
    if (m_state == State::connecting) {
        m_state = State::closed;
        connect();
    }
    if (m_state == State::open) {
        m_isBlocked = false;
        flushLocked(packetsAtOnce);
    }
}

void Link::push(MessagePtr message)
{
    ++m_messages;
    m_bytes += message->footprint();
    if (m_isCounted) {
        m_process.flow().add({m_destination, m_toServer, message->process, message->footprint()});
    }
    m_list.push(std::move(message));
    if (m_state == State::connecting) {
        count();
    }
    if (!m_isCounted) {
        return;
    }
    const Flow& flow = m_process.flow();
    const std::size_t waiting = flow.waitingFor(m_destination);
    if (waiting > Flow::maxWaiting && m_bytes >= waiting / 2) {
        cutOffLocked();
    } else if (waiting > Flow::maxWaiting || flow.waitingInAll() > Flow::maxWaitingInAll) {
        m_process.cutLargest();
    }
}

/// From now on what waits is more than a packet that is being collected.
void Link::count()
{
    if (!std::exchange(m_isCounted, true)) {
        for (const Message* message = m_list.first(); message != nullptr; message = message->next) {
            m_process.flow().add({m_destination, m_toServer, message->process, message->footprint()});
        }
    }
}

void Link::popFront(std::size_t count)
{
    m_messages -= count;
    for (; count > 0; --count) {
        const MessagePtr message = m_list.pop();
        m_bytes -= message->footprint();
        if (m_isCounted) {
            m_process.flow().remove({m_destination, m_toServer, message->process, message->footprint()});
        }
    }
    m_isCounted = m_isCounted && !m_list.empty();
}

void Link::clear()
{
    const bool wasCounted = m_isCounted;
    popFront(m_messages);
    if (wasCounted) {
        m_process.flow().relieved();
    }
}

SendResult Link::transmit(std::size_t& count)
{
    const std::size_t large = goesAsMemfd(*m_list.first()) ? m_list.first()->frame.size : 0;
    if (large != 0 && m_inMemfds != 0) {
        if (isEmpty(m_socket.get())) {
            m_inMemfds = 0;
        } else if (m_inMemfds + large > maxInMemfds) {
            return SendResult::full;
        }
    }
    const SendResult result = sendPacket(m_socket.get(), m_list.first(), count);
    m_inMemfds += result == SendResult::sent ? large : 0;
    return result;
}

void Link::flushLocked(std::size_t maxPackets)
{
    const bool wasCounted = m_isCounted;
    for (std::size_t packets = 0; m_state == State::open && !m_list.empty(); ++packets) {
        std::size_t count = 0;
        if (packets == maxPackets) {
            m_isBlocked = true;
            watch(true); // goes on when others have had their turn
            break;
        }
        const SendResult result = transmit(count);
        if (result == SendResult::sent) {
            popFront(count);
        } else if (result == SendResult::broken) {
            lose();
        } else {
            this->count();
            waitToSend(result);
            break;
        }
    }
    if (wasCounted) {
        m_process.flow().relieved();
    }
}

void Link::waitToSend(SendResult result)
{
    m_isBlocked = true;
    if (result == SendResult::later) {
        retryLater(shortageRetry);
    } else if (!m_watchesOut) {
        watch(true);
    }
}

/// Edge triggered: the event comes whenever the peer has read something, also where the socket has space but too much
/// memory is on its way. It also comes at once, if the socket has space, whenever this is called.
void Link::watch(bool out)
{
    m_watchesOut = out;
    m_process.io().modify(m_token, m_socket.get(), EPOLLRDHUP | EPOLLET | (out ? EPOLLOUT : 0U));
}

void Link::onEvents(std::uint64_t connection, std::uint32_t events)
{
    const std::lock_guard lock(m_mutex);
    if (connection != m_connection || m_state != State::open) {
        return;
    }
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        lose();
        return;
    }
    m_isProven = m_isProven || (events & EPOLLRDHUP) != 0;
    if (m_isBlocked && (events & EPOLLOUT) != 0) {
        m_isBlocked = false;
        flushLocked(packetsAtOnce);
        if (m_state == State::open && !m_isBlocked) {
            watch(false);
        }
    }
}

void Link::cutOff()
{
    const std::lock_guard lock(m_mutex);
    if (m_state == State::connecting || m_state == State::open) {
        cutOffLocked();
    }
}

void Link::cutOffLocked()
{
    logLine("process %d (number %u) cut off: more than %zu MiB waiting", static_cast<int>(m_peer.pid), m_destination,
            m_bytes >> 20);
    const auto now = Clock::now();
    m_cuts = now - m_lastCut < cutsForgotten ? m_cuts + 1 : 1;
    m_lastCut = now;
    close();
    m_process.linkCutOff(m_destination, m_queue);
    retireLater(cutsForgotten);
}

void Link::close()
{
    m_state = State::closed;
    if (m_socket) {
        m_process.io().remove(m_token, m_socket.get());
        m_process.closer().close(std::move(m_socket));
    }
    clear();
}

/// The connection has ended, or none can be made.
void Link::lose()
{
    const bool isRefused = m_socket && !m_isProven;
    const Identity peer = m_peer;
    close();
    m_closedUntil = isRefused || m_cuts != 0 ? Clock::now() + refusedRest : Clock::time_point();
    if (m_queue == 0) {
        m_process.lostProcess(m_destination, peer, isRefused);
    }
    if (isRefused || m_cuts != 0) {
        retireLater(m_cuts != 0 ? Clock::duration(cutsForgotten) : Clock::duration(refusedRest));
    } else {
        m_state = State::retired;
        m_process.removeLink(*this);
    }
}

/// For as long as it remembers something.
void Link::retireLater(Clock::duration delay)
{
    if (std::exchange(m_retires, true)) {
        return;
    }
    m_process.io().after(delay, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) {
            return;
        }
        const std::lock_guard lock(self->m_mutex);
        self->m_retires = false;
        if (self->m_state == State::closed) {
            self->m_state = State::retired;
            self->m_process.removeLink(*self);
        }
    });
}

} // namespace kiv
