#include "tools/boardsim/core/kivServer.h"

#include "ostinel/eventLoop.h"
#include "ostinel/kivMailboxMonitor.h"
#include "ostinel/kivMessageSubscription.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/epoll.h>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;
using Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf;
using Ostinel::KivMessageSubscription::V1::Handler;
using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;

constexpr std::uint32_t noMonitor = 0xFFFFFFFF;

} // namespace

std::string mailboxText(kiv_mbox_id_t mbox)
{
    return fmt::format("{:#x}", mbox);
}

KivServer::KivServer(std::string name, std::string mailboxName)
    : Server(std::move(name)), m_mailboxName(std::move(mailboxName))
{
}

void KivServer::open()
{
    dropState(); // what commands have done to it while it was stopped
    m_mailbox = kiv_create_mailbox(m_mailboxName.c_str());
    if (m_mailbox == KIV_NO_MBOX) {
        throw std::runtime_error(fmt::format("no mailbox \"{}\": {}", m_mailboxName, std::strerror(errno)));
    }
    m_fd = kiv_get_fd();
    EventLoopIf::getInstance().addFd(m_fd, EPOLLIN, [this](int) { receiveOne(); });
}

void KivServer::close()
{
    for (const auto& [client, monitor] : m_monitors) {
        KivMailboxMonitorIf::getInstance().stopMonitor(monitor);
    }
    m_monitors.clear();
    EventLoopIf::getInstance().removeFd(m_fd);
    kiv_delete_mailbox(m_mailbox);
    m_mailbox = KIV_NO_MBOX;
    dropState();
}

void KivServer::receiveOne()
{
    kiv_msg* received = kiv_receive(nullptr, KIV_NO_WAIT, KIV_ANY_SENDER);
    if (received == nullptr) {
        return;
    }
    const auto msg = Ostinel::KivMessageSubscription::V1::makeShared(received);
    Handler framework; // the mailbox monitor's messages come this way
    if (KivMessageSubscriptionIf::getInstance().lookUp(msg->number, framework) == 0) {
        framework(msg);
    } else {
        receive(msg);
    }
}

bool KivServer::watch(kiv_mbox_id_t client)
{
    if (m_monitors.count(client) != 0) {
        return true;
    }
    const std::uint32_t monitor = KivMailboxMonitorIf::getInstance().monitor(client, [this](std::uint32_t gone) {
        m_monitors.erase(gone);
        clientLost(gone);
    });
    if (monitor == noMonitor) {
        return false;
    }
    m_monitors[client] = monitor;
    return true;
}

void KivServer::unwatch(kiv_mbox_id_t client)
{
    if (const auto found = m_monitors.find(client); found != m_monitors.end()) {
        KivMailboxMonitorIf::getInstance().stopMonitor(found->second);
        m_monitors.erase(found);
    }
}

void KivServer::send(kiv_mbox_id_t receiver, std::uint32_t number, const std::string& bytes)
{
    kiv_msg* msg = kiv_alloc(static_cast<std::uint32_t>(sizeof(number) + bytes.size()), number);
    if (msg == nullptr) {
        countBad("an answer too large to send");
        return;
    }
    std::memcpy(reinterpret_cast<std::byte*>(msg) + sizeof(number), bytes.data(), bytes.size());
    kiv_send(&msg, receiver, m_mailbox);
}

void KivServer::showState(Json& server) const
{
    server["mailboxName"] = m_mailboxName;
    server["mailbox"] = isRunning() ? Json(mailboxText(m_mailbox)) : Json();
}

} // namespace boardsim
