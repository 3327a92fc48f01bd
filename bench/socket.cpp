#include "socket.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace Bench {
namespace {

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

} // namespace

Socket::Socket(int descriptor) : m_descriptor(descriptor)
{
    if (descriptor < 0) {
        throw Failed(std::string("socket: ") + std::strerror(errno));
    }
}

Socket::Socket(Socket&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

Socket::~Socket()
{
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

std::size_t Socket::receive(std::span<std::byte> buffer) const
{
    const ssize_t got = ::recv(m_descriptor, buffer.data(), buffer.size(), 0);
    if (got < 0) {
        throw Failed(std::string("socket: ") + std::strerror(errno));
    }
    return static_cast<std::size_t>(got);
}

void Socket::send(std::span<const std::byte> packet) const
{
    if (::send(m_descriptor, packet.data(), packet.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(packet.size())) {
        throw Failed(std::string("socket: ") + std::strerror(errno));
    }
}

void Socket::limitWaiting() const
{
    const timeval timeout{std::chrono::seconds(patience).count(), 0};
    ::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
}

Socket connectTo(const std::string& path)
{
    Socket socket = makeSocket();
    const sockaddr_un address = addressOf(path);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw Failed(path + ": " + std::strerror(errno));
    }
    return socket;
}

Socket listenAt(const std::string& path, unsigned backlog)
{
    Socket listening = makeSocket();
    const sockaddr_un address = addressOf(path);
    if (::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listening.get(), static_cast<int>(backlog)) != 0) {
        throw Failed(path + ": " + std::strerror(errno));
    }
    return listening;
}

Socket acceptFrom(const Socket& listening)
{
    return Socket(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

Socket acceptAt(const std::string& path, const Ready& ready)
{
    const Socket listening = listenAt(path, 1);
    ready();
    return acceptFrom(listening);
}

Socket makeEpoll()
{
    return Socket(::epoll_create1(EPOLL_CLOEXEC));
}

void watch(const Socket& epoll, const Socket& socket, std::uint32_t tag)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = tag;
    if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, socket.get(), &event) != 0) {
        throw Failed(std::string("epoll: ") + std::strerror(errno));
    }
}

} // namespace Bench
