#include "kiv/frame.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kiv {
namespace {

constexpr int allSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
/// The most that the kernel passes with one packet.
constexpr std::size_t maxPassed = 253;

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

int sendMessage(int socket, const msghdr& header)
{
    while (::sendmsg(socket, &header, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
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
        file.reset();
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
    const int error = sendMessage(socket, header);
    if (error != 0) {
        message.frame.kind = FrameKind::inlined; // it may still go otherwise
    }
    return error == 0 ? SendResult::sent : resultOf(error);
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

struct Control {
    alignas(cmsghdr) std::byte bytes[CMSG_SPACE(maxPassed * sizeof(int))];
};

/// ECONNRESET comes once, in front of what the peer had sent before it closed.
bool isPassing(int error)
{
    return error == EINTR || error == ECONNRESET;
}

Packet noPacket(int error)
{
    Packet packet;
    packet.result = error == EAGAIN ? Packet::Result::none : Packet::Result::broken;
    return packet;
}

Packet packetOf(int socket, const msghdr& header, std::size_t length)
{
    Packet packet;
    for (const cmsghdr* at = CMSG_FIRSTHDR(&header); at != nullptr;
         at = CMSG_NXTHDR(const_cast<msghdr*>(&header), const_cast<cmsghdr*>(at))) {
        if (at->cmsg_level != SOL_SOCKET || at->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (at->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(at) + i * sizeof descriptor, sizeof descriptor);
            packet.descriptors.emplace_back(descriptor);
        }
    }
    const iovec& part = header.msg_iov[0];
    packet.bytes = {static_cast<const std::byte*>(part.iov_base), std::min(length, part.iov_len)};
    packet.isTruncated = (header.msg_flags & MSG_TRUNC) != 0;
    packet.lacksDescriptors = (header.msg_flags & MSG_CTRUNC) != 0;
    pollfd state{socket, POLLRDHUP, 0};
    // A packet of length 0 looks like the end.
    const bool isOver = length == 0 && packet.descriptors.empty() && ::poll(&state, 1, 0) == 1 &&
                        (state.revents & (POLLRDHUP | POLLHUP)) != 0;
    packet.result = isOver ? Packet::Result::over : Packet::Result::packet;
    return packet;
}

} // namespace

SendResult sendHello(int socket, const Hello& hello)
{
    iovec part{const_cast<Hello*>(&hello), sizeof hello};
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    const int error = sendMessage(socket, header);
    return error == 0 ? SendResult::sent : resultOf(error);
}

SendResult sendPacket(int socket, Message* first, std::size_t& count)
{
    count = 1;
    if (goesAsMemfd(*first)) {
        return sendMemfd(socket, *first);
    }
    std::array<iovec, maxFrames> parts;
    std::size_t parted = 0;
    std::size_t bytes = 0;
    for (Message* message = first; message != nullptr && parted < maxFrames; message = message->next) {
        const std::size_t size = sizeof message->frame + message->frame.size;
        if (goesAsMemfd(*message) || bytes + size > maxPacket) {
            break;
        }
        bytes += size;
        parts[parted++] = {&message->frame, size};
    }
    msghdr header{};
    header.msg_iov = parts.data();
    header.msg_iovlen = count = parted;
    const int error = sendMessage(socket, header);
    if (error == EMSGSIZE) {
        // A system with a very small limit of socket buffers: one by one, and beside the socket what still doesn't fit.
        header.msg_iovlen = count = 1;
        const int alone = parted > 1 ? sendMessage(socket, header) : error;
        return alone == EMSGSIZE ? sendMemfd(socket, *first) : alone == 0 ? SendResult::sent : resultOf(alone);
    }
    return error == 0 ? SendResult::sent : resultOf(error);
}

Packet receivePacket(int socket, std::span<std::byte> buffer)
{
    iovec part{buffer.data(), buffer.size()};
    Control control;
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.bytes;
    header.msg_controllen = sizeof control.bytes;
    ssize_t length = 0;
    const DescriptorScope scope;
    do {
        length = ::recvmsg(socket, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (length < 0 && isPassing(errno));
    return length < 0 ? noPacket(errno) : packetOf(socket, header, static_cast<std::size_t>(length));
}

struct PacketBatch::Room {
    std::byte* packets;
    std::array<mmsghdr, capacity> headers{};
    std::array<iovec, capacity> parts{};
    std::array<Control, capacity> controls;
};

PacketBatch::PacketBatch() : m_room(std::make_unique<Room>())
{
    m_room->packets = static_cast<std::byte*>(
        ::mmap(nullptr, capacity * maxPacket, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (static_cast<void*>(m_room->packets) == MAP_FAILED) {
        throw std::bad_alloc();
    }
    for (std::size_t i = 0; i < capacity; ++i) {
        m_room->parts[i] = {m_room->packets + i * maxPacket, maxPacket};
        m_room->headers[i].msg_hdr.msg_iov = &m_room->parts[i];
        m_room->headers[i].msg_hdr.msg_iovlen = 1;
        m_room->headers[i].msg_hdr.msg_control = m_room->controls[i].bytes;
    }
}

PacketBatch::~PacketBatch()
{
    ::munmap(m_room->packets, capacity * maxPacket);
}

std::span<Packet> PacketBatch::receive(int socket, unsigned limit)
{
    for (unsigned i = 0; i < limit; ++i) {
        m_room->headers[i].msg_hdr.msg_controllen = sizeof m_room->controls[i].bytes;
        m_room->headers[i].msg_hdr.msg_flags = 0;
    }
    int count = 0;
    const DescriptorScope scope;
    do {
        count = ::recvmmsg(socket, m_room->headers.data(), limit, MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
    } while (count < 0 && isPassing(errno));
    if (count < 0) {
        m_packets[0] = noPacket(errno);
        return {m_packets.data(), 1};
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        m_packets[i] = packetOf(socket, m_room->headers[i].msg_hdr, m_room->headers[i].msg_len);
    }
    return {m_packets.data(), static_cast<std::size_t>(count)};
}

const FrameHeader* FrameReader::next()
{
    if (m_packet.isTruncated || m_packet.lacksDescriptors || m_rest.size() < sizeof m_header) {
        return nullptr;
    }
    std::memcpy(&m_header, m_rest.data(), sizeof m_header);
    m_rest = m_rest.subspan(sizeof m_header);
    const bool isAlone = m_rest.empty() && m_packet.bytes.size() == sizeof m_header;
    const bool isWhole = m_header.kind == FrameKind::memfd
                             ? isAlone && m_packet.descriptors.size() == 1
                             : m_header.size <= m_rest.size() && m_packet.descriptors.empty();
    if (!isWhole || !isMessageSize(m_header.size)) {
        return nullptr;
    }
    m_payload = m_rest.first(m_header.kind == FrameKind::memfd ? 0 : m_header.size);
    m_rest = m_rest.subspan(m_payload.size());
    return &m_header;
}

MessagePtr FrameReader::message() const
{
    if (m_header.kind == FrameKind::memfd) {
        MessagePtr message = readMemfd(m_header, m_packet.descriptors.front().get());
        if (message) {
            message->frame = m_header;
        }
        return message;
    }
    MessagePtr message = makeMessage(m_header.size, false);
    if (message) {
        std::memcpy(static_cast<void*>(message->payload()), m_payload.data(), m_payload.size());
        message->frame = m_header;
    }
    return message;
}

} // namespace kiv
