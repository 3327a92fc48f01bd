/// Frames and packets.
///
/// A packet on a connection holds one or more frames, each a header and its payload, one behind the other. A message
/// that a socket carries well goes as such a frame; a larger one goes alone, as a bare header beside a sealed memfd:
/// the receiver checks the seals, so that nobody shrinks or changes the memory under its hands. The first packet of a
/// connection is a Hello. What comes from a peer is not believed: everything is checked before it becomes a message.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/message.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <sys/socket.h>
#include <sys/uio.h>
#include <vector>

namespace kiv {

/// Largest payload that goes inside of a packet.
inline constexpr std::uint32_t maxInlined = 65U * 1024U; // 64 KiB of data and what a protocol puts in front of it
inline constexpr std::size_t maxPacket = sizeof(FrameHeader) + maxInlined;
/// Most frames that one packet carries.
inline constexpr std::size_t maxFrames = 64;

inline constexpr std::uint32_t protocolVersion = 0x4B495602;

struct Hello {
    std::uint32_t version = protocolVersion;
    std::uint32_t process = 0; ///< who connects
    std::uint32_t queue = 0;   ///< what it wants to reach: a receive queue, or 0 for the process itself
};

enum class SendResult {
    sent,
    full,   ///< the socket takes no more for now: wait until it is writable
    later,  ///< the system is short of something: try again after a while
    broken, ///< the connection is
};

SendResult sendHello(int socket, const Hello& hello);

/// Sends the messages from `first` on that fit in one packet, without waiting. `count`: how many these are, at least 1.
SendResult sendPacket(int socket, Message* first, std::size_t& count);

/// Whether the message goes as a memfd, which costs the receiver's user memory outside of the socket's account.
inline bool goesAsMemfd(const Message& message)
{
    return message.frame.size > maxInlined;
}

/// A received packet with the descriptors that came along.
struct Packet {
    enum class Result {
        packet,
        none,   ///< nothing is there now
        over,   ///< the peer has ended the connection
        broken, ///< the connection is
    };
    Result result = Result::none;
    std::span<const std::byte> bytes;
    bool isTruncated = false;      ///< it was longer than the buffer
    bool lacksDescriptors = false; ///< some couldn't be taken
    /// All that came: the kernel closes those that there is no room for then and there, which may take as long as their
    /// maker likes.
    std::vector<Descriptor> descriptors;
};

/// Receives one packet, without waiting, into `buffer`.
Packet receivePacket(int socket, std::span<std::byte> buffer);

/// Receives several packets at once, without waiting. Their memory is mapped: what is never used is never touched.
class PacketBatch
{
public:
    static constexpr unsigned capacity = 8;

    PacketBatch();
    ~PacketBatch();
    PacketBatch(const PacketBatch&) = delete;
    PacketBatch& operator=(const PacketBatch&) = delete;

    /// What lies in the socket, up to `limit` packets, behind each other; what isn't a packet comes alone. They are
    /// valid until the next call.
    std::span<Packet> receive(int socket, unsigned limit);

private:
    struct Room;
    std::unique_ptr<Room> m_room;
    std::array<Packet, capacity> m_packets;
};

/// Takes a packet apart: the header of each frame, then its payload if it is wanted.
class FrameReader
{
public:
    explicit FrameReader(const Packet& packet) : m_packet(packet), m_rest(packet.bytes) {}

    bool atEnd() const { return m_rest.empty(); }
    /// The next frame's header, behind which its payload lies; null where the packet is malformed. The addresses are
    /// still to be checked.
    const FrameHeader* next();
    /// That frame as a message; null where there is no memory or a memfd isn't what it should be.
    MessagePtr message() const;

private:
    const Packet& m_packet;
    std::span<const std::byte> m_rest;
    std::span<const std::byte> m_payload;
    FrameHeader m_header{};
};

} // namespace kiv
