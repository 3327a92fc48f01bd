#include "child.h"
#include "load.h"
#include "socket.h"

#include <array>
#include <boost/endian/arithmetic.hpp>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <vector>

namespace Bench {
namespace {

/// As large as the block's and the acknowledgement's signal, sequence number and all.
struct Header {
    std::byte references[12];
    boost::endian::big_uint16_t sequence;
    std::byte reserved[2];
};
constexpr std::size_t blockHeaderSize = 20;
constexpr std::size_t largestPacket = blockHeaderSize + 64 * 1024;
static_assert(sizeof(Header) == 16);

std::string frontPath(const std::string& folder)
{
    return folder + "/front";
}
std::string backPath(const std::string& folder)
{
    return folder + "/back";
}

/// As much as the server's socket to the software manager has.
const Socket& makeRoom(const Socket& socket)
{
    constexpr int room = 1024 * 1024;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0) {
        ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }
    return socket;
}

class SocketLoad final : public Load
{
public:
    explicit SocketLoad(const std::string& folder)
        : m_sink(startRole({"socketLoadSink", folder})), m_relay(startRole({"socketLoadRelay", folder})),
          m_socket(connectTo(frontPath(folder))), m_packet(largestPacket)
    {
        m_socket.limitWaiting();
        makeRoom(m_socket);
    }

    std::chrono::nanoseconds processorTime() const override { return m_relay.processorTime(); }

protected:
    void sendBlock(std::uint16_t sequence, std::size_t size) override
    {
        reinterpret_cast<Header*>(m_packet.data())->sequence = sequence;
        m_socket.send(std::span(m_packet).first(blockHeaderSize + size));
    }
    void awaitAck(std::uint16_t sequence) override
    {
        Header ack{};
        if (m_socket.receive(std::as_writable_bytes(std::span(&ack, 1))) != sizeof ack) {
            throw Failed("socket: the partner has gone");
        }
        if (ack.sequence != sequence) {
            throw Failed("a block is acknowledged out of turn");
        }
    }

private:
    Child m_sink;
    Child m_relay;
    Socket m_socket;
    std::vector<std::byte> m_packet;
};

} // namespace

std::unique_ptr<Load> openSocketLoad(const std::string& folder)
{
    return std::make_unique<SocketLoad>(folder);
}

void runSocketLoadSink(const std::string& folder, const Ready& ready)
{
    const Socket relay = acceptAt(backPath(folder), ready);
    std::vector<std::byte> packet(largestPacket);
    while (relay.receive(packet) != 0) {
        relay.send(std::span(packet).first(sizeof(Header)));
    }
}

void runSocketLoadRelay(const std::string& folder, const Ready& ready)
{
    enum Side : std::uint32_t { fromSink, fromClient };
    const Socket sink = connectTo(backPath(folder));
    const Socket client = acceptAt(frontPath(folder), ready);
    const Socket epoll = makeEpoll();
    watch(epoll, makeRoom(sink), fromSink);
    watch(epoll, client, fromClient);
    std::vector<std::byte> packet(largestPacket);
    for (;;) {
        std::array<epoll_event, 2> events;
        const int count = ::epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const bool isFromClient = events[static_cast<std::size_t>(i)].data.u32 == fromClient;
            const std::size_t got = (isFromClient ? client : sink).receive(packet);
            if (got == 0) {
                return;
            }
            (isFromClient ? sink : client).send(std::span(packet).first(got));
        }
    }
}

} // namespace Bench
