/// Mailbox ids: node (4 bits) | slot (14 bits) | index (14 bits).
///
/// A slot is one receive queue, thus one thread; the index tells the queue's mailboxes (the first one and its clones)
/// apart. The node is always 1 today: it is there for a link between machines. Neither slot nor index is ever 0.
#pragma once

#include "kiv/kiv.h"

#include <cstdint>

namespace kiv {

inline constexpr std::uint32_t indexBits = 14;
inline constexpr std::uint32_t slotBits = 14;
inline constexpr std::uint32_t lastIndex = (1U << indexBits) - 1;
inline constexpr std::uint32_t lastSlot = (1U << slotBits) - 1;
inline constexpr std::uint32_t ownNode = 1;

constexpr kiv_mbox_id_t makeId(std::uint32_t slot, std::uint32_t index)
{
    return ownNode << (slotBits + indexBits) | slot << indexBits | index;
}

constexpr std::uint32_t slotOf(kiv_mbox_id_t id)
{
    return (id >> indexBits) & lastSlot;
}

constexpr std::uint32_t indexOf(kiv_mbox_id_t id)
{
    return id & lastIndex;
}

constexpr bool isMailboxId(kiv_mbox_id_t id)
{
    return id >> (slotBits + indexBits) == ownNode && slotOf(id) != 0 && indexOf(id) != 0;
}

} // namespace kiv
