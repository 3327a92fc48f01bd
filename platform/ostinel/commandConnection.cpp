#include "ostinel/commandConnection.h"

#include "ostinel/commandProtocol.h"
#include "ostinel/eventLoop.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace Ostinel {

using EventLoop::V1::EventLoopIf;

CommandConnection::CommandConnection(UniqueFd socket, std::atomic<std::size_t>& count)
    : m_socket(std::move(socket)), m_count(count)
{
    ++m_count;
}

CommandConnection::~CommandConnection()
{
    --m_count;
}

void CommandConnection::watch(std::uint32_t events, std::function<void()> onReady)
{
    EventLoopIf::getInstance().addFd(m_socket.get(), events,
                                     [self = shared_from_this(), ready = std::move(onReady)](int) { ready(); });
}

void CommandConnection::unwatch()
{
    EventLoopIf::getInstance().removeFd(m_socket.get());
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = 0;
}

void CommandConnection::limitTo(std::chrono::seconds deadline)
{
    EventLoopIf& loop = EventLoopIf::getInstance();
    loop.removeTimer(m_timer);
    m_timer = loop.addTimer(deadline, [self = shared_from_this()] { self->unwatch(); });
}

void CommandConnection::readWords(OnWords onWords)
{
    watch(EPOLLIN, [this, handler = std::move(onWords)] { onReadable(handler); });
    limitTo(lineDeadline);
}

void CommandConnection::onReadable(const OnWords& onWords)
{
    std::array<char, 4096> buffer;
    const ssize_t got = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    const std::size_t seen = m_bytes.size();
    m_bytes.append(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    if (hasAllWords(m_bytes, seen)) {
        unwatch();
        onWords(shared_from_this(), parseWords(m_bytes));
    } else if (got <= 0 || m_bytes.size() >= longestLine) {
        unwatch();
    }
}

void CommandConnection::write(std::string answer)
{
    m_bytes = std::move(answer);
    watch(EPOLLOUT, [this] { onWritable(); });
    limitTo(stallDeadline);
}

void CommandConnection::onWritable()
{
    const ssize_t sent =
        ::send(m_socket.get(), m_bytes.data() + m_written, m_bytes.size() - m_written, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    m_written += sent > 0 ? static_cast<std::size_t>(sent) : 0;
    if (sent < 0 || m_written == m_bytes.size()) {
        unwatch();
        return;
    }
    limitTo(stallDeadline);
}

} // namespace Ostinel
