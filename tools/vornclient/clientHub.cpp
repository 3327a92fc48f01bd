#include "vornclient/clientHub.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <system_error>
#include <utility>

namespace VornClient {

namespace {

// News for the hub's own mailbox. Neither is believed: the name is looked up, the id compared.
constexpr std::uint32_t serverFound = 0x7FFF0001;
constexpr std::uint32_t serverLost = 0x7FFF0002;

// A flood must not keep a wait from its deadline.
constexpr int messagesPerPump = 1000;

constexpr std::chrono::milliseconds tickPeriod{200};

} // namespace

ClientHub::ClientHub(const std::string& mailboxName, ClientListener& listener)
    : m_listener(listener), m_mailbox(kiv_create_mailbox(mailboxName.c_str()))
{
    if (m_mailbox == KIV_NO_MBOX) {
        throw std::system_error(errno, std::generic_category(), "mailbox \"" + mailboxName + "\" can't be made");
    }
    // Asked here, so that a server that is there is known from the start.
    onServerFound(kiv_locate(serverName));
}

ClientHub::~ClientHub()
{
    m_clients.clear();
    kiv_delete_mailbox(m_mailbox);
}

Client& ClientHub::addClient(ClientSettings settings)
{
    return *m_clients.emplace_back(std::make_unique<Client>(*this, std::move(settings)));
}

Client* ClientHub::findClient(const std::string& label)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(),
                                    [&](const auto& client) { return client->settings().label == label; });
    return found == m_clients.end() ? nullptr : found->get();
}

int ClientHub::fd() const
{
    return kiv_get_fd();
}

void ClientHub::hunt()
{
    kiv_hunt(serverName, kiv_alloc(sizeof(kiv_msg), serverFound));
}

void ClientHub::pump()
{
    for (int count = 0; count < messagesPerPump; ++count) {
        kiv_msg* msg = kiv_receive(nullptr, KIV_NO_WAIT, KIV_ANY_SENDER);
        if (msg == nullptr) {
            return;
        }
        const std::unique_ptr<kiv_msg, decltype(&kiv_free)> owner(msg, &kiv_free);
        dispatch(msg);
    }
}

WaitResult ClientHub::waitUntil(const Condition& condition, Clock::time_point deadline, const Tick& tick)
{
    const Clock::time_point start = Clock::now();
    Clock::time_point nextTick = tick ? start + tickPeriod : Clock::time_point::max();
    while (true) {
        pump();
        if (condition()) {
            return WaitResult::fulfilled;
        }
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            return WaitResult::timedOut;
        }
        if (now >= nextTick) {
            tick(now - start);
            nextTick = now + tickPeriod;
        }
        if (waitForArrival(std::min(deadline, nextTick) - now)) {
            return WaitResult::interrupted;
        }
    }
}

bool ClientHub::waitForArrival(Clock::duration atMost) const
{
    std::array<pollfd, 2> polled{{{fd(), POLLIN, 0}, {m_interruptFd, POLLIN, 0}}};
    constexpr std::chrono::milliseconds longest{60000};
    const auto timeout = std::min(std::chrono::ceil<std::chrono::milliseconds>(atMost), longest);
    ::poll(polled.data(), polled.size(), static_cast<int>(timeout.count()));
    return polled[1].revents != 0;
}

void ClientHub::dispatch(const kiv_msg* msg)
{
    const kiv_mbox_id_t sender = kiv_sender(msg);
    if (kiv_receiver(msg) == m_mailbox) {
        if (msg->number == serverFound) {
            onServerFound(sender);
        } else if (msg->number == serverLost) {
            onServerLost(sender);
        }
        return;
    }
    const auto client = std::find_if(m_clients.begin(), m_clients.end(),
                                     [&](const auto& each) { return each->mailbox() == kiv_receiver(msg); });
    if (client != m_clients.end()) {
        const auto* begin = reinterpret_cast<const std::byte*>(msg);
        (*client)->receive({{begin, begin + kiv_size(msg)},
                            sender,
                            sender == m_server && sender != KIV_NO_MBOX,
                            std::chrono::system_clock::now(),
                            0});
    }
}

void ClientHub::onServerFound(kiv_mbox_id_t server)
{
    if (m_server != KIV_NO_MBOX) {
        return;
    }
    if (server == KIV_NO_MBOX || server != kiv_locate(serverName)) {
        hunt();
        return;
    }
    m_server = server;
    kiv_monitor(server, kiv_alloc(sizeof(kiv_msg), serverLost));
    m_listener.onServerPublished(server);
}

void ClientHub::onServerLost(kiv_mbox_id_t server)
{
    if (server != m_server) {
        return;
    }
    m_server = KIV_NO_MBOX;
    ++m_serverLosses;
    for (const auto& client : m_clients) {
        client->m_isConnected = false;
    }
    m_listener.onServerGone(server);
    hunt();
}

} // namespace VornClient
