/// SOCK_SEQPACKET Unix sockets, with calls that block and fail with an exception.
#pragma once

#include "channels.h"

#include <cstddef>
#include <span>
#include <string>

namespace Bench {

class Socket
{
public:
    /// Takes a descriptor over; a negative one is the failure of the call that made it.
    explicit Socket(int descriptor);
    Socket(Socket&& other) noexcept;
    ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    Socket& operator=(Socket&&) = delete;

    int get() const { return m_descriptor; }
    /// The size of the packet; 0 at the end of the connection.
    std::size_t receive(std::span<std::byte> buffer) const;
    void send(std::span<const std::byte> packet) const;
    /// Lets nothing be waited for longer than `patience`.
    void limitWaiting() const;

private:
    int m_descriptor;
};

Socket connectTo(const std::string& path);
Socket listenAt(const std::string& path, unsigned backlog);
Socket acceptFrom(const Socket& listening);
/// The one connection that is made to `path`.
Socket acceptAt(const std::string& path, const Ready& ready);

Socket makeEpoll();
/// Its event carries the number `tag`.
void watch(const Socket& epoll, const Socket& socket, std::uint32_t tag);

} // namespace Bench
