#include "kiv/door.h"

#include "kiv/flow.h"
#include "kiv/id.h"
#include "kiv/log.h"
#include "kiv/process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto acceptPause = 100ms;
constexpr auto helloPatience = 5s;
constexpr auto sweepInterval = 1s;
constexpr auto proofRetry = 10ms;
constexpr int acceptsAtOnce = 64;
constexpr int packetsAtOnce = 16;
/// Of one process, not proven yet: its threads may reach several queues at once.
constexpr unsigned maxArrivals = 32;
/// Connections of one process to this process itself: one, and for a while a second.
constexpr std::size_t maxVisits = 4;

} // namespace

/// A connection that has to say who it is.
class Door::Arrival : public Handler
{
public:
    Arrival(Door& door, std::uint64_t number, Descriptor from)
        : key(number), socket(std::move(from)), identity(peerOf(socket.get())), since(Clock::now()), m_door(door)
    {
    }
    void onEvents(std::uint32_t /*events*/) override
    {
        if (!hasSpoken) {
            m_door.receiveHello(*this);
        }
    }

    const std::uint64_t key;
    Descriptor socket;
    std::uint64_t token = 0;
    const Identity identity;
    const Clock::time_point since;
    Hello hello;
    bool hasSpoken = false;

private:
    Door& m_door;
};

/// A proven connection to the process itself.
class Door::Visitor : public Handler, public std::enable_shared_from_this<Visitor>
{
public:
    Visitor(Door& door, std::uint32_t process, Descriptor socket, const Identity& identity)
        : m_door(door), m_process(process), m_socket(std::move(socket)), m_identity(identity)
    {
    }

    bool start()
    {
        m_token = m_door.m_process.io().add(m_socket.get(), EPOLLIN, shared_from_this());
        return m_token != 0;
    }
    void onEvents(std::uint32_t events) override;

private:
    const char* take(MessagePtr message);
    void end(const char* reason);

    Door& m_door;
    const std::uint32_t m_process;
    Descriptor m_socket;
    std::uint64_t m_token = 0;
    const Identity m_identity;
};

bool Door::open(Descriptor listening)
{
    m_listening = std::move(listening);
    m_token = m_process.io().add(m_listening.get(), EPOLLIN, shared_from_this());
    return m_token != 0;
}

void Door::onEvents(std::uint32_t /*events*/)
{
    for (int i = 0; i < acceptsAtOnce && acceptOne(); ++i) {
    }
}

bool Door::acceptOne()
{
    Descriptor socket;
    {
        const DescriptorScope scope;
        socket = Descriptor(::accept4(m_listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    }
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            pause();
        }
        return false;
    }
    const auto arrival = std::make_shared<Arrival>(*this, ++m_lastArrival, std::move(socket));
    m_arrivals.emplace(arrival->key, arrival);
    if (++m_arrivalsOf[arrival->identity.pid] > maxArrivals) {
        drop(*arrival, "too many connections");
        return true;
    }
    arrival->token = m_process.io().add(arrival->socket.get(), EPOLLIN, arrival);
    if (!arrival->identity || arrival->token == 0) {
        drop(*arrival, arrival->identity ? "it can't be watched" : nullptr); // who has died since needs no line
        return true;
    }
    sweepLater(sweepInterval);
    // Who connects to send has said hello by now.
    receiveHello(*arrival);
    return true;
}

/// Out of descriptors: the connections wait in the kernel meanwhile.
void Door::pause()
{
    logLine("no descriptors left for new peers");
    m_process.io().modify(m_token, m_listening.get(), 0);
    m_process.io().after(acceptPause, [self = shared_from_this()] {
        self->m_process.io().modify(self->m_token, self->m_listening.get(), EPOLLIN);
    });
}

void Door::takeIn()
{
    onEvents(EPOLLIN);
    sweep();
}

void Door::receiveHello(Arrival& arrival)
{
    std::array<std::byte, sizeof(Hello)> buffer;
    Packet packet = receivePacket(arrival.socket.get(), buffer);
    if (packet.result == Packet::Result::none) {
        return;
    }
    const bool isWhole = packet.result == Packet::Result::packet && packet.bytes.size() == sizeof arrival.hello &&
                         !packet.isTruncated && !packet.lacksDescriptors && packet.descriptors.empty();
    m_process.closer().close(packet.descriptors);
    if (isWhole) {
        std::memcpy(&arrival.hello, packet.bytes.data(), sizeof arrival.hello);
        arrival.hasSpoken = true;
    }
    const Hello& hello = arrival.hello;
    if (!isWhole || hello.version != protocolVersion || hello.process == 0 || hello.process > lastProcess ||
        hello.queue > lastQueue) {
        // Who asked whether we live has gone without a word.
        drop(arrival, packet.result == Packet::Result::packet ? "no hello of this version" : nullptr);
        return;
    }
    // Silent until it is proven.
    m_process.io().remove(arrival.token, arrival.socket.get());
    prove(arrival);
}

void Door::prove(Arrival& arrival)
{
    for (const auto& [key, former] : m_arrivals) {
        if (key < arrival.key && former->hasSpoken && former->identity == arrival.identity) {
            sweepLater(proofRetry); // in the order in which they came
            return;
        }
    }
    const std::uint32_t process = arrival.hello.process;
    Identity& known = m_known[process];
    if (known != arrival.identity) {
        Descriptor probe = m_process.registry().connectTo(process);
        if (!probe && errno != ECONNREFUSED && errno != ENOENT) {
            sweepLater(proofRetry); // busy, or the system is short of something
            return;
        }
        known = probe ? peerOf(probe.get()) : Identity();
        if (probe) {
            m_process.closer().close(std::move(probe));
        }
    }
    if (known == arrival.identity) {
        admit(arrival);
    } else {
        // What a dying process leaves half done is not worth a line.
        drop(arrival, known ? "number of another process" : nullptr);
    }
}

void Door::admit(Arrival& arrival)
{
    const Hello hello = arrival.hello;
    const Identity identity = arrival.identity;
    Descriptor socket = std::move(arrival.socket);
    drop(arrival, nullptr);
    m_process.flow().came(hello.process);
    ::shutdown(socket.get(), SHUT_WR);
    const char* reason = nullptr;
    if (hello.queue != 0) {
        const auto queue = m_process.queueNumber(hello.queue);
        reason = queue ? queue->addPeer(std::move(socket), hello.process, identity) : "";
    } else if (m_visits.count(hello.process) >= maxVisits) {
        reason = "too many connections";
    } else {
        const auto visitor = std::make_shared<Visitor>(*this, hello.process, std::move(socket), identity);
        m_visits.emplace(hello.process, visitor);
        reason = visitor->start() ? nullptr : "it can't be watched";
    }
    if (socket) {
        m_process.closer().close(std::move(socket));
    }
    if (reason != nullptr && *reason != '\0') {
        logLine("process %d cut off: %s", static_cast<int>(identity.pid), reason);
    }
}

void Door::drop(Arrival& arrival, const char* reason)
{
    if (reason != nullptr) {
        logLine("process %d cut off: %s", static_cast<int>(arrival.identity.pid), reason);
    }
    if (arrival.socket) {
        m_process.io().remove(arrival.token, arrival.socket.get());
        m_process.closer().close(std::move(arrival.socket));
    }
    if (const auto count = m_arrivalsOf.find(arrival.identity.pid);
        count != m_arrivalsOf.end() && --count->second == 0) {
        m_arrivalsOf.erase(count);
    }
    m_arrivals.erase(arrival.key);
}

/// Ends what said nothing, and tries again to prove what has.
void Door::sweep()
{
    const auto now = Clock::now();
    std::vector<std::shared_ptr<Arrival>> arrivals;
    for (const auto& [key, arrival] : m_arrivals) {
        arrivals.push_back(arrival);
    }
    for (const auto& arrival : arrivals) {
        if (now - arrival->since > helloPatience) {
            drop(*arrival, arrival->hasSpoken ? "it can't be proven" : "no hello");
        } else if (arrival->hasSpoken) {
            prove(*arrival);
        }
    }
}

void Door::sweepLater(Clock::duration delay)
{
    const auto at = Clock::now() + delay;
    if (at >= m_sweepAt) {
        return;
    }
    m_sweepAt = at;
    m_process.io().after(delay, [self = shared_from_this(), at] {
        if (self->m_sweepAt != at) {
            return; // an earlier one has taken its place
        }
        self->m_sweepAt = Clock::time_point::max();
        self->sweep();
        if (!self->m_arrivals.empty()) {
            self->sweepLater(sweepInterval);
        }
    });
}

void Door::Visitor::onEvents(std::uint32_t /*events*/)
{
    auto& buffer = m_door.m_packet;
    for (int count = 0; count < packetsAtOnce && m_socket; ++count) {
        Packet packet = receivePacket(m_socket.get(), buffer);
        if (packet.result == Packet::Result::none) {
            return;
        }
        if (packet.result != Packet::Result::packet) {
            end(nullptr);
            return;
        }
        const char* reason =
            packet.bytes.empty() || !packet.descriptors.empty() ? "malformed control message" : nullptr;
        FrameReader frames(packet);
        while (reason == nullptr && !frames.atEnd()) {
            reason = take(frames.next() != nullptr ? frames.message() : nullptr);
        }
        if (reason != nullptr) {
            m_door.m_process.closer().close(packet.descriptors);
            end(reason);
        }
    }
}

const char* Door::Visitor::take(MessagePtr message)
{
    constexpr const char* malformed = "malformed control message";
    std::uint32_t ref = 0;
    if (!message || message->frame.size != sizeof ref) {
        return malformed;
    }
    std::memcpy(&ref, message->payload(), sizeof ref);
    const kiv_mbox_id_t watcher = message->frame.sender;
    const kiv_mbox_id_t mailbox = message->frame.receiver;
    if (!isMailboxId(watcher) || processOf(watcher) != m_process) {
        return malformed;
    }
    switch (message->frame.kind) {
    case FrameKind::monitor:
        return m_door.m_process.addRemote(mailbox, {ref, watcher}) ? nullptr : "too many monitors";
    case FrameKind::unmonitor:
        m_door.m_process.removeRemote(mailbox, {ref, watcher});
        return nullptr;
    default:
        return malformed;
    }
}

void Door::Visitor::end(const char* reason)
{
    const auto self = shared_from_this();
    if (reason != nullptr) {
        logLine("process %d cut off: %s", static_cast<int>(m_identity.pid), reason);
    }
    m_door.m_process.io().remove(m_token, m_socket.get());
    m_door.m_process.closer().close(std::move(m_socket));
    const auto [begin, last] = m_door.m_visits.equal_range(m_process);
    m_door.m_visits.erase(std::find_if(begin, last, [&](const auto& visit) { return visit.second == self; }));
    if (!m_door.m_visits.contains(m_process)) {
        m_door.m_process.removeRemoteOf(m_process);
    }
}

} // namespace kiv
