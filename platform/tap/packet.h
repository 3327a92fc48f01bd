/// What goes from a process to a listener: one packet for each copy. Both are on one machine and of one version, which
/// is in the name of the listener's file; numbers are in host order.
#pragma once

#include "tap/tap.h"

#include <cstddef>
#include <cstdint>

namespace tap {

inline constexpr std::uint32_t packetVersion = 1;

enum class PacketKind : std::uint8_t {
    copy = 1,
    loss = 2, ///< nothing but the count of lost copies
};

/// The names and the copied bytes follow, in this order.
struct PacketHeader {
    std::uint64_t time = 0; ///< nanoseconds since 1970
    std::uint64_t lost = 0; ///< copies that were lost since the previous packet
    std::uint64_t size = 0; ///< of the message, bytes
    std::uint32_t sender = 0;
    std::uint32_t receiver = 0;
    std::uint32_t copied = 0; ///< bytes of the message that follow
    PacketKind kind = PacketKind::copy;
    Carrier carrier = Carrier::kiv;
    Direction direction = Direction::toReceiver;
    std::uint8_t senderNameSize = 0;
    std::uint8_t receiverNameSize = 0;
    std::uint8_t zero[7] = {}; ///< no byte of the sender's memory goes out unset
};
static_assert(sizeof(PacketHeader) == 48);

/// What a packet holds besides the bytes of the message.
inline constexpr std::size_t maxPacketOverhead = sizeof(PacketHeader) + 2 * maxName;

} // namespace tap
