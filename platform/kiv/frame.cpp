#include "kiv/frame.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace kiv {
namespace {

constexpr int allSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

SendResult resultOf(int error)
{
    switch (error) {
    case EAGAIN:
        return SendResult::full;
    case ENOBUFS:
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case ETOOMANYREFS:
    case ENOSPC:
        return SendResult::later;
    default:
        return SendResult::broken;
    }
}

bool writeAll(int file, const Message& message)
{
    const auto* bytes = reinterpret_cast<const std::byte*>(message.payload());
    for (std::size_t done = 0; done < message.frame.size;) {
        const ssize_t written = ::write(file, bytes + done, message.frame.size - done);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        done += written < 0 ? 0 : static_cast<std::size_t>(written);
    }
    return true;
}

Descriptor makeMemfd(const Message& message)
{
    Descriptor file;
    {
        const DescriptorScope scope;
        file = Descriptor(::memfd_create("kiv", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    }
    if (file && (!writeAll(file.get(), message) || ::fcntl(file.get(), F_ADD_SEALS, allSeals) != 0)) {
        const int error = errno;
        file.reset();
        errno = error;
    }
    return file;
}

SendResult sendMemfd(int socket, Message& message)
{
    // Not worth making the memfd when the socket is full.
    pollfd writable{socket, POLLOUT, 0};
    if (::poll(&writable, 1, 0) == 0) {
        return SendResult::full;
    }
    const Descriptor file = makeMemfd(message);
    if (!file) {
        // Whatever it was, the connection is as good as before.
        return SendResult::later;
    }
    message.frame.kind = FrameKind::memfd;
    iovec part{&message.frame, sizeof message.frame};
    alignas(cmsghdr) std::byte control[CMSG_SPACE(sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
    cmsghdr* rights = CMSG_FIRSTHDR(&header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int));
    const int descriptor = file.get();
    std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
    ssize_t sent = 0;
    do {
        sent = ::sendmsg(socket, &header, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0 ? SendResult::sent : resultOf(errno);
}

bool readAll(int file, Message& message)
{
    auto* bytes = reinterpret_cast<std::byte*>(message.payload());
    for (std::size_t done = 0; done < message.frame.size;) {
        const ssize_t got = ::pread(file, bytes + done, message.frame.size - done, static_cast<off_t>(done));
        if (got == 0 || (got < 0 && errno != EINTR)) {
            return false;
        }
        done += got < 0 ? 0 : static_cast<std::size_t>(got);
    }
    return true;
}

MessagePtr readMemfd(const FrameHeader& header, int file)
{
    struct stat status {
    };
    // The kernel may have added seals of its own.
    const int seals = ::fcntl(file, F_GET_SEALS);
    if (seals < 0 || (seals & allSeals) != allSeals || ::fstat(file, &status) != 0 ||
        status.st_size != static_cast<off_t>(header.size)) {
        return nullptr;
    }
    MessagePtr message = makeMessage(header.size, false);
    return message && readAll(file, *message) ? std::move(message) : nullptr;
}

} // namespace

SendResult sendFrame(int socket, Message& message)
{
    if (goesAsMemfd(message)) {
        return sendMemfd(socket, message);
    }
    message.frame.kind = FrameKind::inlined;
    const std::size_t size = sizeof message.frame + message.frame.size;
    ssize_t sent = 0;
    do {
        sent = ::send(socket, &message.frame, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) {
        return SendResult::sent;
    }
    // A system with a very small limit of socket buffers.
    return errno == EMSGSIZE ? sendMemfd(socket, message) : resultOf(errno);
}

MessagePtr parseFrame(std::span<const std::byte> packet, std::span<const Descriptor> descriptors)
{
    FrameHeader header{};
    if (packet.size() < sizeof header) {
        return nullptr;
    }
    std::memcpy(&header, packet.data(), sizeof header);
    const std::span<const std::byte> payload = packet.subspan(sizeof header);
    if (!isMessageSize(header.size)) {
        return nullptr;
    }
    MessagePtr message;
    if (header.kind == FrameKind::inlined && payload.size() == header.size && descriptors.empty()) {
        message = makeMessage(header.size, false);
        if (message) {
            std::memcpy(static_cast<void*>(message->payload()), payload.data(), payload.size());
        }
    } else if (header.kind == FrameKind::memfd && payload.empty() && descriptors.size() == 1) {
        message = readMemfd(header, descriptors.front().get());
    }
    if (message) {
        message->frame = header;
    }
    return message;
}

} // namespace kiv
