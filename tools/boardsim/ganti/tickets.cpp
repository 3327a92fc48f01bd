#include "tools/boardsim/ganti/tickets.h"

#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"

#include <algorithm>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

// Far from what clients number their requests with, so that mixing the two up doesn't go unnoticed.
constexpr std::uint32_t numberBase = 5000;

constexpr std::size_t maxTickets = 4096;

} // namespace

Tickets::Tickets(GantiIndicate indicate) : m_indicate(std::move(indicate)), m_lastNumber(numberBase) {}

Verdict Tickets::acquire(Call& call, const gant::AcquireResourceReq&, gant::AcquireResourceCfm& confirm,
                         gant::AcquireResourceRej& reject)
{
    if (m_tickets.size() >= maxTickets) {
        reject.set_reason(gant::AcquireResourceRej::UNKNOWN_RESOURCE); // the only reason that there is
        return Verdict::reject;
    }
    const std::uint32_t number = ++m_lastNumber;
    m_tickets.push_back({number, call.client, call.procRef});
    confirm.set_ticket_number(number);
    call.then = [this, number] { confirmed(number); };
    return Verdict::confirm;
}

Verdict Tickets::release(Call& call, const gant::ReleaseResourceReq& request, gant::ReleaseResourceCfm&,
                         gant::ReleaseResourceRej& reject)
{
    const std::uint32_t number = request.ticket_number();
    if (standingOf(call.client, number) == Standing::unknown) {
        reject.set_reason(gant::ReleaseResourceRej::INVALID_TICKET_NUMBER);
        return Verdict::reject;
    }
    std::erase_if(m_tickets, [&](const Ticket& ticket) { return ticket.number == number; });
    m_gone(number);
    tellHolderSoon();
    return Verdict::confirm;
}

Tickets::Standing Tickets::standingOf(std::uint32_t client, std::uint32_t number) const
{
    const auto found = std::find_if(m_tickets.begin(), m_tickets.end(), [&](const Ticket& ticket) {
        return ticket.number == number && ticket.client == client;
    });
    if (found == m_tickets.end()) {
        return Standing::unknown;
    }
    return found == m_tickets.begin() ? Standing::usable : Standing::queued;
}

void Tickets::confirmed(std::uint32_t number)
{
    for (Ticket& ticket : m_tickets) {
        ticket.isConfirmed = ticket.isConfirmed || ticket.number == number;
    }
    tellHolder();
}

void Tickets::tellHolder()
{
    if (!m_tickets.empty() && m_tickets.front().isConfirmed && !m_tickets.front().isTold) {
        Ticket& holder = m_tickets.front();
        holder.isTold = true;
        gant::AcquireResourceInd indication;
        indication.set_ticket_number(holder.number);
        m_indicate(holder.client, holder.procRef, indication);
    }
}

/// Behind the answer that is being made.
void Tickets::tellHolderSoon()
{
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = EventLoopIf::getInstance().addTimer(std::chrono::microseconds(0), [this] {
        m_timer = 0;
        tellHolder();
    });
}

void Tickets::clientLost(std::uint32_t client)
{
    std::vector<std::uint32_t> gone;
    for (const Ticket& ticket : m_tickets) {
        if (ticket.client == client) {
            gone.push_back(ticket.number);
        }
    }
    std::erase_if(m_tickets, [&](const Ticket& ticket) { return ticket.client == client; });
    std::for_each(gone.begin(), gone.end(), m_gone);
    tellHolderSoon();
}

void Tickets::reset()
{
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = 0;
    m_tickets.clear();
    m_lastNumber = numberBase;
}

void Tickets::show(Json& server) const
{
    Json tickets = Json::array();
    for (const Ticket& ticket : m_tickets) {
        tickets.push_back({{"ticket", ticket.number},
                           {"client", ticket.client},
                           {"procRef", ticket.procRef},
                           {"state", &ticket == &m_tickets.front() ? "usable" : "queued"},
                           {"told", ticket.isTold}});
    }
    server["tickets"] = std::move(tickets);
}

} // namespace boardsim
