/// Mailbox ids: node (4 bits) | process (12 bits) | mailbox (16 bits).
///
/// The process is proven once for each connection, and with it the sender of all that comes over it. The mailbox field
/// also tells which of the process's receive queues it belongs to, so that a sender knows, without asking, which
/// connection keeps its messages in order:
///
///   queue 1 to 3      2 bits, not 0   | index (14 bits)          for the first threads, which may clone thousands
///   queue 4 to 514    00 | 9 bits, not 0 | index (5 bits)        for all others
///
/// No process, queue or index is ever 0. Queue 0 stands for the process itself. The node is always 1 today: it is there
/// for a link between machines.
#pragma once

#include "kiv/kiv.h"

#include <cstdint>

namespace kiv {

inline constexpr std::uint32_t ownNode = 1;
inline constexpr std::uint32_t processBits = 12;
inline constexpr std::uint32_t mailboxBits = 16;
inline constexpr std::uint32_t largeIndexBits = 14;
inline constexpr std::uint32_t smallIndexBits = 5;

inline constexpr std::uint32_t lastProcess = (1U << processBits) - 1;
inline constexpr std::uint32_t largeQueues = (1U << (mailboxBits - largeIndexBits)) - 1;
inline constexpr std::uint32_t lastQueue = largeQueues + (1U << (largeIndexBits - smallIndexBits)) - 1;

/// The greatest index of a queue's mailboxes.
constexpr std::uint32_t lastIndexOf(std::uint32_t queue)
{
    return (1U << (queue <= largeQueues ? largeIndexBits : smallIndexBits)) - 1;
}

constexpr kiv_mbox_id_t makeId(std::uint32_t process, std::uint32_t queue, std::uint32_t index)
{
    const std::uint32_t mailbox =
        queue <= largeQueues ? queue << largeIndexBits | index : (queue - largeQueues) << smallIndexBits | index;
    return (ownNode << processBits | process) << mailboxBits | mailbox;
}

constexpr std::uint32_t processOf(kiv_mbox_id_t id)
{
    return id >> mailboxBits & lastProcess;
}

constexpr std::uint32_t queueOf(kiv_mbox_id_t id)
{
    const std::uint32_t mailbox = id & ((1U << mailboxBits) - 1);
    const std::uint32_t small = mailbox >> smallIndexBits;
    return mailbox >> largeIndexBits != 0 ? mailbox >> largeIndexBits : small != 0 ? largeQueues + small : 0;
}

constexpr std::uint32_t indexOf(kiv_mbox_id_t id)
{
    return id & lastIndexOf(queueOf(id));
}

constexpr bool isMailboxId(kiv_mbox_id_t id)
{
    return id >> (processBits + mailboxBits) == ownNode && processOf(id) != 0 && queueOf(id) != 0 && indexOf(id) != 0;
}

} // namespace kiv
