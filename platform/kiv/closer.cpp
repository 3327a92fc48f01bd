#include "kiv/closer.h"

#include "kiv/frame.h"
#include "kiv/ioThread.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace kiv {
namespace {

/// More packets than a socket's buffer holds.
constexpr int maxDrained = 65'536;

bool isLocalSocket(const Descriptor& descriptor)
{
    int domain = 0;
    socklen_t size = sizeof domain;
    return ::getsockopt(descriptor.get(), SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

/// None where no connection waits, or it isn't a listening socket.
Descriptor acceptFrom(int socket)
{
    const DescriptorScope scope;
    // A shut down one doesn't block.
    return Descriptor(::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

/// Moves the descriptors that wait in a socket to `found`, and the connections that wait for a listening one to accept
/// them.
void drain(const Descriptor& socket, std::vector<Descriptor>& found)
{
    std::array<std::byte, sizeof(Hello)> buffer;
    ::shutdown(socket.get(), SHUT_RDWR);
    while (Descriptor waiting = acceptFrom(socket.get())) {
        found.push_back(std::move(waiting));
    }
    for (int count = 0; count < maxDrained; ++count) {
        Packet packet = receivePacket(socket.get(), buffer);
        if (packet.result != Packet::Result::packet) {
            return;
        }
        std::move(packet.descriptors.begin(), packet.descriptors.end(), std::back_inserter(found));
    }
}

} // namespace

void Closer::close(Descriptor descriptor)
{
    // The connection ends now, whenever it is closed.
    ::shutdown(descriptor.get(), SHUT_RDWR);
    const std::lock_guard lock(m_mutex);
    m_running = m_running || startThread("kiv-close", threadMain, this) == 0;
    if (descriptor) {
        m_waiting.push_back(std::move(descriptor));
        m_wake.notify_one();
    }
}

void Closer::close(std::vector<Descriptor>& descriptors)
{
    for (Descriptor& descriptor : descriptors) {
        close(std::move(descriptor));
    }
    descriptors.clear();
}

void* Closer::threadMain(void* self)
{
    static_cast<Closer*>(self)->run();
    return nullptr;
}

void Closer::run()
{
    std::vector<Descriptor> closing;
    for (;;) {
        if (closing.empty()) {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return !m_waiting.empty(); });
            closing.swap(m_waiting);
        }
        Descriptor descriptor = std::move(closing.back());
        closing.pop_back();
        if (isLocalSocket(descriptor)) {
            drain(descriptor, closing);
        }
        const linger off{0, 0};
        ::setsockopt(descriptor.get(), SOL_SOCKET, SO_LINGER, &off, sizeof off); // fails on what is no socket
        // Not as a Descriptor closes itself: that holds off fork, and other threads, for as long as it takes.
        const int released = descriptor.release();
        NotedFd::forget(released);
        ::close(released);
    }
}

} // namespace kiv
