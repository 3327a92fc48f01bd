#include "vornclient/clientHub.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <poll.h>
#include <system_error>
#include <utility>

namespace VornClient {

namespace {

// News for the hub's own mailbox, the server's mailbox in the lowest bit. Neither is believed: the name is looked up,
// the id compared.
constexpr std::uint32_t serverFound = 0x7FFF0010;
constexpr std::uint32_t serverLost = 0x7FFF0020;

constexpr std::size_t indexOf(Vorni::Protocol protocol)
{
    return protocol == Vorni::Protocol::rhune ? 1 : 0;
}

// A flood must not keep a wait from its deadline.
constexpr int messagesPerPump = 1000;

constexpr std::chrono::milliseconds tickPeriod{200};

} // namespace

ClientHub::ClientHub(const std::string& mailboxName, ClientListener& listener)
    : m_listener(listener),
      m_mailbox(kiv_create_mailbox(mailboxName.c_str())), m_servers{{{.name = serverName}, {.name = privateServerName}}}
{
    if (m_mailbox == KIV_NO_MBOX) {
        throw std::system_error(errno, std::generic_category(), "mailbox \"" + mailboxName + "\" can't be made");
    }
    // Asked here, so that a server that is there is known from the start.
    for (std::size_t index = 0; index < m_servers.size(); ++index) {
        onServerFound(index, kiv_locate(m_servers[index].name));
    }
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

const ServerMailbox& ClientHub::serverFor(Vorni::Protocol protocol) const
{
    return m_servers[indexOf(protocol)];
}

void ClientHub::hunt(std::size_t index)
{
    kiv_hunt(m_servers[index].name, kiv_alloc(sizeof(kiv_msg), serverFound + static_cast<std::uint32_t>(index)));
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
    if (kiv_receiver(msg) == m_mailbox) {
        onNews(msg->number, kiv_sender(msg));
        return;
    }
    const auto client = std::find_if(m_clients.begin(), m_clients.end(),
                                     [&](const auto& each) { return each->mailbox() == kiv_receiver(msg); });
    if (client != m_clients.end()) {
        deliver(**client, msg);
    }
}

void ClientHub::deliver(Client& client, const kiv_msg* msg)
{
    const auto* begin = reinterpret_cast<const std::byte*>(msg);
    Signal signal;
    signal.bytes.assign(begin, begin + kiv_size(msg));
    signal.peer = kiv_sender(msg);
    signal.time = std::chrono::system_clock::now();
    const auto server = std::find_if(m_servers.begin(), m_servers.end(), [&](const ServerMailbox& each) {
        return each.id == signal.peer && each.id != KIV_NO_MBOX;
    });
    if (server != m_servers.end()) {
        signal.peerName = server->name;
        signal.peerIsServer = &*server == &serverFor(client.settings().protocol);
    }
    client.receive(std::move(signal));
}

void ClientHub::onNews(std::uint32_t number, kiv_mbox_id_t server)
{
    for (std::size_t index = 0; index < m_servers.size(); ++index) {
        if (number == serverFound + index) {
            onServerFound(index, server);
        } else if (number == serverLost + index) {
            onServerLost(index, server);
        }
    }
}

void ClientHub::onServerFound(std::size_t index, kiv_mbox_id_t server)
{
    ServerMailbox& mailbox = m_servers[index];
    if (mailbox.id != KIV_NO_MBOX) {
        return;
    }
    if (server == KIV_NO_MBOX || server != kiv_locate(mailbox.name)) {
        hunt(index);
        return;
    }
    mailbox.id = server;
    kiv_monitor(server, kiv_alloc(sizeof(kiv_msg), serverLost + static_cast<std::uint32_t>(index)));
    if (index == indexOf(Vorni::Protocol::vorni)) {
        m_listener.onServerPublished(server);
    }
}

void ClientHub::onServerLost(std::size_t index, kiv_mbox_id_t server)
{
    ServerMailbox& mailbox = m_servers[index];
    if (server != mailbox.id) {
        return;
    }
    mailbox.id = KIV_NO_MBOX;
    ++mailbox.losses;
    for (const auto& client : m_clients) {
        if (indexOf(client->settings().protocol) == index) {
            client->loseConnection();
        }
    }
    if (index == indexOf(Vorni::Protocol::vorni)) {
        m_listener.onServerGone(server);
    }
    hunt(index);
}

} // namespace VornClient
