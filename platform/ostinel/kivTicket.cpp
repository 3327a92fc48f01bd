#include "ostinel/kivTicket.h"

#include "ostinel/kivMessageSubscription.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <unistd.h>

namespace Ostinel {

using KivMessageSubscription::V1::KivMessageSubscriptionIf;

namespace {

struct TicketMessage {
    std::uint32_t number;
    std::byte ticket[sizeof(Ticket)];
};
static_assert(sizeof(TicketMessage) == 12);

} // namespace

Ticket drawTicket()
{
    Ticket ticket = 0;
    if (::getentropy(&ticket, sizeof(ticket)) != 0) {
        throw std::system_error(errno, std::generic_category(), "getentropy");
    }
    return ticket;
}

kiv_msg* makeTicketMessage(std::uint32_t number, Ticket ticket)
{
    kiv_msg* msg = kiv_alloc(sizeof(TicketMessage), number);
    if (msg != nullptr) {
        std::memcpy(reinterpret_cast<std::byte*>(msg) + offsetof(TicketMessage, ticket), &ticket, sizeof(ticket));
    }
    return msg;
}

std::optional<Ticket> readTicket(const kiv_msg& msg)
{
    if (kiv_size(&msg) != sizeof(TicketMessage)) {
        return std::nullopt;
    }
    Ticket ticket = 0;
    std::memcpy(&ticket, reinterpret_cast<const std::byte*>(&msg) + offsetof(TicketMessage, ticket), sizeof(ticket));
    return ticket;
}

TicketSubscription::TicketSubscription()
{
    KivMessageSubscriptionIf::getInstance();
}

int TicketSubscription::ensure(std::uint32_t number, const std::function<void(const kiv_msg&)>& handler)
{
    // Each time: the entry is gone where someone emptied the table. One that is there is ours if we entered it before.
    const int error = KivMessageSubscriptionIf::getInstance().subscribe(
        number, [handler](const std::shared_ptr<kiv_msg>& msg) { handler(*msg); });
    m_entered = m_entered || error == 0;
    return m_entered ? 0 : error;
}

} // namespace Ostinel
