#include "ostinel/kivMailboxLocator.h"

#include "ostinel/kivTicket.h"

#include <cerrno>
#include <unordered_map>
#include <utility>

namespace Ostinel::KivMailboxLocator::V1 {
namespace {

class Locator final : public KivMailboxLocatorIf
{
public:
    int locate(const std::string& name, std::function<void(std::uint32_t)> callback) override;

private:
    void onFound(const kiv_msg& msg);

    TicketSubscription m_subscription;
    std::unordered_map<Ticket, std::function<void(std::uint32_t)>> m_pending;
};

int Locator::locate(const std::string& name, std::function<void(std::uint32_t)> callback)
{
    if (name.empty() || name.size() > KIV_NAME_MAX || name.find('\0') != std::string::npos) {
        return EINVAL;
    }
    if (kiv_current_mbox() == KIV_NO_MBOX) {
        return ENOTCONN;
    }
    const int error = m_subscription.ensure(locatorMessage, [this](const kiv_msg& msg) { onFound(msg); });
    if (error != 0) {
        return error;
    }
    const Ticket ticket = drawTicket();
    kiv_msg* msg = makeTicketMessage(locatorMessage, ticket);
    if (msg == nullptr || kiv_hunt(name.c_str(), msg) == 0) {
        return ENOMEM;
    }
    m_pending.emplace(ticket, std::move(callback));
    return 0;
}

void Locator::onFound(const kiv_msg& msg)
{
    const auto ticket = readTicket(msg);
    const auto found = ticket ? m_pending.extract(*ticket) : decltype(m_pending)::node_type();
    if (!found.empty()) {
        found.mapped()(kiv_sender(&msg));
    }
}

} // namespace

KivMailboxLocatorIf& KivMailboxLocatorIf::getInstance()
{
    // The thread's hunts go with its mailbox: nothing to cancel here at its end.
    static thread_local Locator locator;
    return locator;
}

} // namespace Ostinel::KivMailboxLocator::V1
