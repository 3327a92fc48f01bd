#include "swarm.h"

#include "mailbox.h"

#include <fmt/format.h>
#include <iostream>
#include <sstream>
#include <vector>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr const char* connectedLine = "connected";
constexpr const char* memoryWord = "memory";
constexpr unsigned warmUp = 50;

/// From a swarm to a client process, and back with the time that it took.
struct Order {
    static constexpr std::uint32_t number = 2;
    std::uint32_t msgNo;
    Ask what;
    std::uint32_t client; ///< of the process's own; the next one connects first
    std::int64_t nanoseconds;
};

class ClientGroup
{
public:
    ClientGroup() = default;
    virtual ~ClientGroup() = default;
    ClientGroup(const ClientGroup&) = delete;
    ClientGroup& operator=(const ClientGroup&) = delete;

    /// Connects clients until there are `count` of them.
    virtual void grow(unsigned count) = 0;
    /// How long a client's request takes.
    virtual nanoseconds request(unsigned client, Ask what) = 0;
};

class ClientMailboxes final : public ClientGroup
{
public:
    ClientMailboxes(kiv_mbox_id_t parent, kiv_mbox_id_t publicMbox) : m_parent(parent), m_publicMbox(publicMbox) {}

    void grow(unsigned count) override
    {
        while (m_mailboxes.size() < count) {
            m_mailboxes.push_back(cloneMailbox(m_parent, fmt::format("client{}", m_mailboxes.size())));
            connectClient(m_mailboxes.back(), m_publicMbox);
        }
    }

    nanoseconds request(unsigned client, Ask what) override
    {
        const auto begin = Clock::now();
        ask(what, m_mailboxes[client], m_publicMbox);
        return Clock::now() - begin;
    }

private:
    kiv_mbox_id_t m_parent;
    kiv_mbox_id_t m_publicMbox;
    std::vector<kiv_mbox_id_t> m_mailboxes;
};

/// Deals the clients out to its processes in turn, so that clients one after another are of different processes.
class ClientProcesses final : public ClientGroup
{
public:
    explicit ClientProcesses(unsigned processes) : m_processCount(processes) {}

    void grow(unsigned count) override
    {
        for (; m_clients < count; ++m_clients) {
            if (m_processes.size() < m_processCount) {
                const std::string name = fmt::format("clients{}", m_processes.size());
                m_processes.push_back(startRole({"clients", name}));
                m_mailboxes.push_back(awaitMailbox(name));
            }
            request(m_clients, Ask::relay);
        }
    }

    nanoseconds request(unsigned client, Ask what) override
    {
        kiv_msg* msg = kiv_alloc(sizeof(Order), Order::number);
        auto* order = reinterpret_cast<Order*>(msg);
        order->what = what;
        order->client = client / m_processCount;
        kiv_send(&msg, m_mailboxes[client % m_processCount], KIV_CURRENT_MBOX);
        const MessagePtr done = receiveMessage();
        if (done->number != Order::number || kiv_size(done.get()) != sizeof(Order)) {
            throw Failed("a client process gives up");
        }
        return nanoseconds(reinterpret_cast<const Order*>(done.get())->nanoseconds);
    }

private:
    unsigned m_processCount;
    unsigned m_clients = 0;
    std::vector<Child> m_processes;
    std::vector<kiv_mbox_id_t> m_mailboxes;
};

std::unique_ptr<ClientGroup> makeGroup(Clients kind, unsigned count, kiv_mbox_id_t own, kiv_mbox_id_t publicMbox)
{
    if (kind == Clients::mailboxes) {
        return std::make_unique<ClientMailboxes>(own, publicMbox);
    }
    return std::make_unique<ClientProcesses>(kind == Clients::groups ? (count + groupSize - 1) / groupSize : count);
}

struct Total {
    nanoseconds processor{};
    nanoseconds roundTrips{};
};

/// Begins where the last call ended.
class Turns
{
public:
    Turns(const Unit& unit, ClientGroup& group) : m_unit(unit), m_group(group) {}

    Total run(Ask what, unsigned requests, unsigned count)
    {
        Total total;
        const auto before = m_unit.processorTime();
        for (unsigned i = 0; i < requests; ++i) {
            m_next = (m_next + 1) % count;
            total.roundTrips += m_group.request(m_next, what);
        }
        total.processor = m_unit.processorTime() - before;
        return total;
    }

private:
    const Unit& m_unit;
    ClientGroup& m_group;
    unsigned m_next = 0;
};

} // namespace

Swarm::Swarm(const std::string& runDir, const std::string& serverProgram, Clients kind, unsigned count)
    : m_child(startRole(
          {"swarm", runDir, serverProgram, std::to_string(static_cast<unsigned>(kind)), std::to_string(count)})),
      m_count(count)
{
}

void Swarm::awaitConnected()
{
    if (m_child.readLine() != connectedLine) {
        throw Failed("a client isn't connected");
    }
}

Cost Swarm::measure(Ask what, unsigned requests)
{
    m_child.writeLine(fmt::format("{} {}", static_cast<unsigned>(what), requests));
    std::istringstream answer(m_child.readLine());
    double processor = 0;
    double roundTrips = 0;
    if (!(answer >> processor >> roundTrips)) {
        throw Failed("a swarm doesn't measure");
    }
    return {processor / requests / 1000, roundTrips / requests / 1000};
}

double Swarm::memoryPerClient()
{
    m_child.writeLine(memoryWord);
    return std::stod(m_child.readLine()) / (m_count - 1);
}

void runSwarm(const std::string& serverProgram, Clients kind, unsigned count, const Ready& ready)
{
    runOn(Processors::one);
    const kiv_mbox_id_t own = createMailbox("swarm");
    ready();
    const Unit unit(serverProgram);
    const auto group = makeGroup(kind, count, own, unit.publicMbox());
    Turns turns(unit, *group);
    // The first client pays for what the server sets up once.
    group->grow(1);
    turns.run(Ask::relay, warmUp, 1);
    turns.run(Ask::utc, warmUp, 1);
    const auto memoryOfOne = static_cast<double>(unit.residentMemory());
    group->grow(count);
    turns.run(Ask::relay, count, count);
    turns.run(Ask::utc, count, count);
    const auto memoryOfAll = static_cast<double>(unit.residentMemory());
    std::cout << connectedLine << std::endl;

    std::string word;
    while (std::cin >> word) {
        if (word == memoryWord) {
            std::cout << fmt::format("{}", memoryOfAll - memoryOfOne) << std::endl;
            continue;
        }
        unsigned requests = 0;
        std::cin >> requests;
        const Total total = turns.run(static_cast<Ask>(std::stoul(word)), requests, count);
        std::cout << total.processor.count() << ' ' << total.roundTrips.count() << std::endl;
    }
}

void runClients(const std::string& name)
{
    const kiv_mbox_id_t publicMbox = kiv_locate("VornServer");
    std::vector<kiv_mbox_id_t> clients{createMailbox(name)};
    connectClient(clients.front(), publicMbox);
    sayReady(); // from here on only orders arrive unasked
    for (;;) {
        MessagePtr message(kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER));
        auto* order = reinterpret_cast<Order*>(message.get());
        if (order->client == clients.size()) {
            clients.push_back(cloneMailbox(clients.front(), fmt::format("{}_{}", name, order->client)));
            connectClient(clients.back(), publicMbox);
        }
        const auto begin = Clock::now();
        ask(order->what, clients.at(order->client), publicMbox);
        order->nanoseconds = nanoseconds(Clock::now() - begin).count();
        const kiv_mbox_id_t swarm = kiv_sender(message.get());
        kiv_msg* msg = message.release();
        kiv_send(&msg, swarm, clients.front());
    }
}

} // namespace Bench
