#include "ostinel/kivMailboxMonitor.h"

#include "ostinel/kivTicket.h"

#include <atomic>
#include <unordered_map>
#include <utility>

namespace Ostinel::KivMailboxMonitor::V1 {
namespace {

constexpr std::uint32_t noMonitor = 0xFFFFFFFF;

struct Monitored {
    std::uint32_t id;
    kiv_mbox_id_t mbox;
    std::uint32_t kivReference;
    std::function<void(std::uint32_t)> callback;
};

class Monitor final : public KivMailboxMonitorIf
{
public:
    std::uint32_t monitor(std::uint32_t mboxId, std::function<void(std::uint32_t)> callback) override;
    void stopMonitor(std::uint32_t monitorId) override;

private:
    void onGone(const kiv_msg& msg);
    std::uint32_t nextId() const;

    TicketSubscription m_subscription;
    std::unordered_map<Ticket, Monitored> m_pending;
    std::unordered_map<std::uint32_t, Ticket> m_tickets; ///< by monitor id
};

/// Unique in the process, so that an id is unknown to every thread but its own.
std::uint32_t Monitor::nextId() const
{
    static std::atomic<std::uint32_t> lastId = 0;
    std::uint32_t id = 0;
    do {
        id = ++lastId;
    } while (id == 0 || id == noMonitor || m_tickets.contains(id));
    return id;
}

std::uint32_t Monitor::monitor(std::uint32_t mboxId, std::function<void(std::uint32_t)> callback)
{
    if (m_subscription.ensure(monitorMessage, [this](const kiv_msg& msg) { onGone(msg); }) != 0) {
        return noMonitor;
    }
    const Ticket ticket = drawTicket();
    kiv_msg* msg = makeTicketMessage(monitorMessage, ticket);
    const std::uint32_t reference = msg == nullptr ? 0 : kiv_monitor(mboxId, msg);
    if (reference == 0) {
        return noMonitor;
    }
    const std::uint32_t id = nextId();
    m_pending.emplace(ticket, Monitored{id, mboxId, reference, std::move(callback)});
    m_tickets.emplace(id, ticket);
    return id;
}

void Monitor::stopMonitor(std::uint32_t monitorId)
{
    const auto ticket = m_tickets.extract(monitorId);
    if (!ticket.empty()) {
        const auto stopped = m_pending.extract(ticket.mapped());
        if (!stopped.empty()) {
            kiv_unmonitor(stopped.mapped().kivReference);
        }
    }
}

void Monitor::onGone(const kiv_msg& msg)
{
    const auto ticket = readTicket(msg);
    const auto found = ticket ? m_pending.find(*ticket) : m_pending.end();
    if (found == m_pending.end() || found->second.mbox != kiv_sender(&msg)) {
        return;
    }
    const auto gone = m_pending.extract(found);
    m_tickets.erase(gone.mapped().id);
    gone.mapped().callback(gone.mapped().mbox);
}

} // namespace

KivMailboxMonitorIf& KivMailboxMonitorIf::getInstance()
{
    // The thread's monitors go with its mailbox: nothing to cancel here at its end.
    static thread_local Monitor monitor;
    return monitor;
}

} // namespace Ostinel::KivMailboxMonitor::V1
