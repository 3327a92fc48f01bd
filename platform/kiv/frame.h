/// Frames on a data connection: one message, one packet.
///
/// A message that a socket carries well goes as header and payload in one packet. A larger one goes as a sealed memfd
/// beside a bare header: the receiver checks the seals, so that nobody shrinks or changes the memory under its hands.
/// What comes from a peer is not believed: everything is checked before it becomes a message.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/message.h"

#include <cstddef>
#include <span>

namespace kiv {

/// Largest payload that goes inside of a packet.
inline constexpr std::uint32_t maxInlined = 65U * 1024U; // 64 KiB of data and what a protocol puts in front of it
inline constexpr std::size_t maxPacket = sizeof(FrameHeader) + maxInlined;

enum class SendResult {
    sent,
    full,   ///< the socket takes no more for now: wait until it is writable
    later,  ///< the system is short of something: try again after a while
    broken, ///< the connection is
};

/// Sends one message without waiting. Sets the kind in its header.
SendResult sendFrame(int socket, Message& message);

/// Whether the message goes as a memfd, which costs the receiver's user memory outside of the socket's account.
inline bool goesAsMemfd(const Message& message)
{
    return message.frame.size > maxInlined;
}

/// Makes the message of a received packet and the descriptors that came with it; null where the packet is malformed.
/// The addresses in it are still to be checked.
MessagePtr parseFrame(std::span<const std::byte> packet, std::span<const Descriptor> descriptors);

} // namespace kiv
