/// The messages behind the callbacks of locator and monitor.
///
/// Each asks kiv to deliver a message of a reserved number that carries a ticket, a random number that no other thread
/// or process knows. Anyone can send a message of that number; only the ticket proves that it is the awaited one.
#pragma once

#include "kiv/kiv.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace Ostinel {

constexpr std::uint32_t locatorMessage = 0xFFFFFF01;
constexpr std::uint32_t monitorMessage = 0xFFFFFF02;

using Ticket = std::uint64_t;

Ticket drawTicket();

/// A message of `number` that carries the ticket; null where there is no memory.
kiv_msg* makeTicketMessage(std::uint32_t number, Ticket ticket);

/// The ticket of a received message; nothing where its size is another.
std::optional<Ticket> readTicket(const kiv_msg& msg);

/// Leads the calling thread's messages of a number to a function.
class TicketSubscription
{
public:
    /// Creates the thread's table where it is missing, so that it goes after the owner of this object.
    TicketSubscription();

    /// Enters `handler` for the number on the first call. Returns 0, or an errno value where the number is taken.
    int ensure(std::uint32_t number, const std::function<void(const kiv_msg&)>& handler);

private:
    bool m_entered = false;
};

} // namespace Ostinel
