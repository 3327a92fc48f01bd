#include "socket.h"

#include <array>
#include <sys/epoll.h>

namespace Bench {
namespace {

using Buffer = std::array<std::byte, messageSize>;

/// False at the end of the connection.
bool receiveMessage(const Socket& socket, Buffer& buffer)
{
    const std::size_t got = socket.receive(buffer);
    if (got != messageSize && got != 0) {
        throw Failed("socket: short message");
    }
    return got != 0;
}

class SocketChannel final : public Channel
{
public:
    explicit SocketChannel(const std::string& path) : m_socket(connectTo(path)) { m_socket.limitWaiting(); }

    void send() override { m_socket.send(m_buffer); }
    void receive() override
    {
        if (!receiveMessage(m_socket, m_buffer)) {
            throw Failed("socket: the partner has gone");
        }
    }

private:
    Socket m_socket;
    Buffer m_buffer{};
};

} // namespace

std::unique_ptr<Channel> openSocketChannel(const std::string& path)
{
    return std::make_unique<SocketChannel>(path);
}

void runSocketEcho(const std::string& path, const Ready& ready)
{
    const Socket socket = acceptAt(path, ready);
    Buffer buffer;
    while (receiveMessage(socket, buffer)) {
        socket.send(buffer);
    }
}

void runSocketRelay(const std::string& front, const std::string& back, const Ready& ready)
{
    enum Side : std::uint32_t { fromServer, fromClient };
    const Socket server = connectTo(back);
    const Socket client = acceptAt(front, ready);
    const Socket epoll = makeEpoll();
    watch(epoll, server, fromServer);
    watch(epoll, client, fromClient);
    Buffer buffer;
    for (;;) {
        std::array<epoll_event, 2> events;
        const int count = ::epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const bool isFromClient = events[static_cast<std::size_t>(i)].data.u32 == fromClient;
            if (!receiveMessage(isFromClient ? client : server, buffer)) {
                return;
            }
            (isFromClient ? server : client).send(buffer);
        }
    }
}

} // namespace Bench
