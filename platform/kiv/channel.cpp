#include "kiv/channel.h"

#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace kiv {
namespace {

/// More answers than this wait only for a peer that doesn't read.
constexpr std::size_t mostWaiting = 65'536;

int sendControl(int socket, const ControlFrame& frame, const Descriptor& passed)
{
    ControlFrame copy = frame;
    iovec part{&copy, sizeof copy};
    alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    if (passed) {
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        cmsghdr* rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        const int descriptor = passed.get();
        std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
    }
    while (::sendmsg(socket, &header, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace

Passed::Passed(const msghdr& header)
{
    for (const cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr;
         part = CMSG_NXTHDR(const_cast<msghdr*>(&header), const_cast<cmsghdr*>(part))) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof descriptor, sizeof descriptor);
            if (m_count < most) {
                m_descriptors[m_count++] = Descriptor(descriptor);
            } else {
                ::close(descriptor);
            }
        }
    }
}

bool Channel::open(Descriptor socket, std::shared_ptr<Handler> handler)
{
    m_socket = std::move(socket);
    m_watchesOut = !m_waiting.empty();
    m_token = m_io.add(m_socket.get(), EPOLLIN | (m_watchesOut ? EPOLLOUT : 0U), std::move(handler));
    return m_token != 0;
}

void Channel::finish()
{
    m_waiting.clear();
    if (m_socket) {
        ::shutdown(m_socket.get(), SHUT_RDWR);
        watch();
    }
}

void Channel::close()
{
    if (m_socket) {
        m_io.remove(m_token, m_socket.get());
        m_socket.reset();
    }
    m_waiting.clear();
}

void Channel::watch()
{
    const bool out = !m_waiting.empty();
    if (out != m_watchesOut) {
        m_watchesOut = out;
        m_io.modify(m_token, m_socket.get(), EPOLLIN | (out ? EPOLLOUT : 0U));
    }
}

bool Channel::send(const ControlFrame& frame, Descriptor passed)
{
    if (m_waiting.size() >= mostWaiting) {
        return false;
    }
    if (m_socket && m_waiting.empty()) {
        const int error = sendControl(m_socket.get(), frame, passed);
        if (error == 0) {
            return true;
        }
        if (error != EAGAIN) {
            return false;
        }
    }
    m_waiting.push_back({frame, std::move(passed)});
    if (m_socket) {
        watch();
    }
    return true;
}

bool Channel::flush()
{
    while (m_socket && !m_waiting.empty()) {
        const int error = sendControl(m_socket.get(), m_waiting.front().frame, m_waiting.front().passed);
        if (error == EAGAIN) {
            break;
        }
        if (error != 0) {
            return false;
        }
        m_waiting.pop_front();
    }
    if (m_socket) {
        watch();
    }
    return true;
}

Channel::Received Channel::receive(ControlFrame& frame, Descriptor& passed)
{
    iovec part{&frame, sizeof frame};
    alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(int))];
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    ssize_t length = 0;
    // ECONNRESET comes once, in front of what the peer had sent before it closed.
    const DescriptorScope scope;
    do {
        length = ::recvmsg(m_socket.get(), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (length < 0 && (errno == EINTR || errno == ECONNRESET));
    if (length < 0) {
        return errno == EAGAIN ? Received::none : Received::closed;
    }
    Passed descriptors(header);
    if (length == 0) {
        return Received::closed;
    }
    if (length != sizeof frame || (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || descriptors.size() > 1) {
        return Received::malformed;
    }
    if (descriptors.size() == 1) {
        passed = std::move(*descriptors.begin());
    }
    return Received::frame;
}

} // namespace kiv
