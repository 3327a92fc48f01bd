#include "channels.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace Bench {
namespace {

using Buffer = std::array<std::byte, messageSize>;

class Socket
{
public:
    explicit Socket(int descriptor) : m_descriptor(descriptor)
    {
        if (descriptor < 0) {
            throw Failed(std::string("socket: ") + std::strerror(errno));
        }
    }
    Socket(Socket&& other) noexcept : m_descriptor(other.m_descriptor) { other.m_descriptor = -1; }
    ~Socket()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&&) = delete;

    int get() const { return m_descriptor; }

    /// False at the end of the connection.
    bool receive(Buffer& buffer) const
    {
        const ssize_t got = ::recv(m_descriptor, buffer.data(), buffer.size(), 0);
        if (got != messageSize && got != 0) {
            throw Failed(std::string("socket: ") + (got < 0 ? std::strerror(errno) : "short message"));
        }
        return got != 0;
    }

    void send(const Buffer& buffer) const
    {
        if (::send(m_descriptor, buffer.data(), buffer.size(), MSG_NOSIGNAL) != messageSize) {
            throw Failed(std::string("socket: ") + std::strerror(errno));
        }
    }

private:
    int m_descriptor;
};

Socket makeSocket()
{
    return Socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw Failed("too long for a socket: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

Socket connectTo(const std::string& path)
{
    Socket socket = makeSocket();
    const sockaddr_un address = addressOf(path);
    const timeval timeout{std::chrono::seconds(patience).count(), 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw Failed(path + ": " + std::strerror(errno));
    }
    return socket;
}

Socket acceptAt(const std::string& path, const Ready& ready)
{
    const Socket listening = makeSocket();
    const sockaddr_un address = addressOf(path);
    if (::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listening.get(), 1) != 0) {
        throw Failed(path + ": " + std::strerror(errno));
    }
    ready();
    return Socket(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

class SocketChannel final : public Channel
{
public:
    explicit SocketChannel(const std::string& path) : m_socket(connectTo(path)) {}

    void send() override { m_socket.send(m_buffer); }
    void receive() override
    {
        if (!m_socket.receive(m_buffer)) {
            throw Failed("socket: the partner has gone");
        }
    }

private:
    Socket m_socket;
    Buffer m_buffer{};
};

void watch(int epoll, const Socket& socket)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket.get();
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, socket.get(), &event) != 0) {
        throw Failed(std::string("epoll: ") + std::strerror(errno));
    }
}

} // namespace

std::unique_ptr<Channel> openSocketChannel(const std::string& path)
{
    return std::make_unique<SocketChannel>(path);
}

void runSocketEcho(const std::string& path, const Ready& ready)
{
    const Socket socket = acceptAt(path, ready);
    Buffer buffer;
    while (socket.receive(buffer)) {
        socket.send(buffer);
    }
}

void runSocketRelay(const std::string& front, const std::string& back, const Ready& ready)
{
    const Socket server = connectTo(back);
    const Socket client = acceptAt(front, ready);
    const Socket epoll(::epoll_create1(EPOLL_CLOEXEC));
    watch(epoll.get(), server);
    watch(epoll.get(), client);
    Buffer buffer;
    for (;;) {
        std::array<epoll_event, 2> events;
        const int count = ::epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i) {
            const bool fromClient = events[static_cast<std::size_t>(i)].data.fd == client.get();
            if (!(fromClient ? client : server).receive(buffer)) {
                return;
            }
            (fromClient ? server : client).send(buffer);
        }
    }
}

} // namespace Bench
