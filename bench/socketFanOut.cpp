#include "fanOut.h"
#include "faultTimes.h"
#include "socket.h"

#include <algorithm>
#include <array>
#include <sys/epoll.h>
#include <vector>

namespace Bench {
namespace {

using std::chrono::nanoseconds;

using Sizes = std::array<std::size_t, 2>;

/// As large as what vornserver gets and sends for a fault and for its end.
constexpr Sizes indicationSizes{16, 14};
constexpr Sizes signalSizes{168, 28};
using Buffer = std::array<std::byte, 168>;

std::string timesPath(const std::string& folder)
{
    return folder + "/times";
}
/// Where the hub waits for the subscribers and then for the sender.
std::string hubPath(const std::string& folder)
{
    return folder + "/hub";
}
/// Where the sender waits for orders.
std::string senderPath(const std::string& folder)
{
    return folder + "/sender";
}

std::size_t sizeOf(FaultStep step, const Sizes& sizes)
{
    return sizes[static_cast<std::size_t>(step)];
}

/// Of a packet that is told by its size.
FaultStep stepOf(std::size_t size, const Sizes& sizes)
{
    for (const FaultStep step : {FaultStep::raise, FaultStep::cease}) {
        if (size == sizeOf(step, sizes)) {
            return step;
        }
    }
    throw Failed(size == 0 ? "socket: the partner has gone" : "socket: not the packet that was sent");
}

/// The subscribers' part of a fan-out.
class Subscribers
{
public:
    Subscribers() = default;
    virtual ~Subscribers() = default;
    Subscribers(const Subscribers&) = delete;
    Subscribers& operator=(const Subscribers&) = delete;

    virtual nanoseconds awaitReceipt(FaultStep step, FaultTimes& times) = 0;
};

class SocketsOfOneThread final : public Subscribers
{
public:
    SocketsOfOneThread(const std::string& folder, unsigned count) : m_epoll(makeEpoll())
    {
        while (m_sockets.size() < count) {
            m_sockets.push_back(connectTo(hubPath(folder)));
            watch(m_epoll, m_sockets.back(), static_cast<std::uint32_t>(m_sockets.size() - 1));
        }
    }

    nanoseconds awaitReceipt(FaultStep step, FaultTimes& times) override
    {
        constexpr auto timeout = static_cast<int>(std::chrono::milliseconds(patience).count());
        std::array<epoll_event, 64> events;
        Buffer buffer;
        for (std::size_t missing = m_sockets.size(); missing > 0;) {
            const int count =
                ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(std::min(events.size(), missing)), timeout);
            if (count <= 0) {
                throw Failed("socket: nothing comes back");
            }
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
                if (stepOf(m_sockets[events[i].data.u32].receive(buffer), signalSizes) != step) {
                    throw Failed("socket: not the packet that was sent");
                }
            }
            missing -= static_cast<std::size_t>(count);
        }
        return times.sinceSent();
    }

private:
    Socket m_epoll;
    std::vector<Socket> m_sockets;
};

class SocketProcesses final : public Subscribers
{
public:
    SocketProcesses(const std::string& folder, unsigned count)
    {
        while (m_processes.size() < count) {
            m_processes.push_back(startRole({"socketSubscriber", folder}));
        }
    }

    nanoseconds awaitReceipt(FaultStep, FaultTimes& times) override { return times.awaitLastReceipt(); }

private:
    std::vector<Child> m_processes;
};

std::unique_ptr<Subscribers> connectSubscribers(const std::string& folder, Clients kind, unsigned count)
{
    if (kind == Clients::mailboxes) {
        return std::make_unique<SocketsOfOneThread>(folder, count);
    }
    return std::make_unique<SocketProcesses>(folder, count);
}

/// The hub takes its connections in the order of the members.
class SocketFanOut final : public FanOut
{
public:
    SocketFanOut(const std::string& folder, Clients kind, unsigned count)
        : m_times(timesPath(folder), count), m_hub(startRole({"socketFaultHub", folder, std::to_string(count)})),
          m_subscribers(connectSubscribers(folder, kind, count)), m_sender(startRole({"socketFaultSender", folder})),
          m_orders(connectTo(senderPath(folder)))
    {
    }

    nanoseconds run(FaultStep step) override
    {
        m_orders.send(std::as_bytes(std::span(&step, 1)));
        return m_subscribers->awaitReceipt(step, m_times);
    }

private:
    FaultTimes m_times;
    Child m_hub;
    std::unique_ptr<Subscribers> m_subscribers;
    Child m_sender;
    Socket m_orders;
};

} // namespace

std::unique_ptr<FanOut> openSocketFanOut(const std::string& folder, Clients kind, unsigned subscribers)
{
    return std::make_unique<SocketFanOut>(folder, kind, subscribers);
}

void runSocketFaultSender(const std::string& folder, const Ready& ready)
{
    FaultTimes times(timesPath(folder));
    const Socket hub = connectTo(hubPath(folder));
    const Socket orders = acceptAt(senderPath(folder), ready);
    const Buffer indication{};
    FaultStep step{};
    while (orders.receive(std::as_writable_bytes(std::span(&step, 1))) == sizeof step) {
        times.noteSent();
        hub.send(std::span(indication).first(sizeOf(step, indicationSizes)));
    }
}

void runSocketFaultHub(const std::string& folder, unsigned subscribers, const Ready& ready)
{
    const Socket listening = listenAt(hubPath(folder), subscribers + 1);
    ready();
    const Socket epoll = makeEpoll();
    std::vector<Socket> sockets;
    while (sockets.size() < subscribers) {
        sockets.push_back(acceptFrom(listening));
        watch(epoll, sockets.back(), static_cast<std::uint32_t>(sockets.size() - 1));
    }
    const Socket sender = acceptFrom(listening);
    watch(epoll, sender, subscribers);
    Buffer buffer{};
    for (;;) {
        epoll_event event{};
        // Subscribers say nothing; like a server, the hub would hear if one did.
        if (::epoll_wait(epoll.get(), &event, 1, -1) != 1 || event.data.u32 != subscribers) {
            return;
        }
        const std::size_t got = sender.receive(buffer);
        if (got == 0) {
            return;
        }
        const std::span signal = std::span(buffer).first(sizeOf(stepOf(got, indicationSizes), signalSizes));
        for (const Socket& subscriber : sockets) {
            subscriber.send(signal);
        }
    }
}

void runSocketSubscriber(const std::string& folder, const Ready& ready)
{
    FaultTimes times(timesPath(folder));
    const Socket hub = connectTo(hubPath(folder));
    ready();
    Buffer buffer;
    FaultStep expected = FaultStep::raise;
    while (const std::size_t got = hub.receive(buffer)) {
        times.noteReceipt();
        if (stepOf(got, signalSizes) != expected) {
            throw Failed("socket: not the packet that was sent");
        }
        expected = expected == FaultStep::raise ? FaultStep::cease : FaultStep::raise;
    }
}

} // namespace Bench
