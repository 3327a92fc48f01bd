#include "kiv/flow.h"

#include "kiv/id.h"

#include <new>
#include <sys/mman.h>
#include <utility>

namespace kiv {
namespace {

constexpr std::size_t muchRelayed = Flow::maxWaiting / 2;
/// What has been read already, and one large message more, still fit below maxWaiting.
constexpr std::size_t veryMuchRelayed = Flow::maxWaiting * 5 / 8;
constexpr std::size_t accountsSize = (lastProcess + 1) * 24;

/// The accounts are never constant, though whoever reads them may be.
template <typename Value>
std::atomic_ref<Value> shared(const Value& value)
{
    return std::atomic_ref<Value>(const_cast<Value&>(value));
}

} // namespace

Flow::Flow(std::function<void()> resume)
    : m_resume(std::move(resume)),
      m_accounts(static_cast<Account*>(
          ::mmap(nullptr, accountsSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
{
    static_assert(sizeof(Account) * (lastProcess + 1) <= accountsSize);
    if (static_cast<void*>(m_accounts) == MAP_FAILED) {
        throw std::bad_alloc();
    }
}

Flow::~Flow()
{
    ::munmap(m_accounts, accountsSize);
}

void Flow::meet(std::uint32_t process, Relation relation)
{
    Relation before = Relation::none;
    shared(m_accounts[process].relation).compare_exchange_strong(before, relation);
}

void Flow::sought(std::uint32_t process)
{
    meet(process, Relation::server);
}

void Flow::came(std::uint32_t process)
{
    meet(process, Relation::client);
}

void Flow::forget(std::uint32_t process)
{
    shared(m_accounts[process].relation).store(Relation::none);
}

bool Flow::isServer(std::uint32_t process) const
{
    return shared(m_accounts[process].relation).load() == Relation::server;
}

void Flow::add(const Waiting& waiting)
{
    shared(m_accounts[waiting.destination].waiting) += waiting.bytes;
    m_inAll += waiting.bytes;
    if (waiting.isRelayed()) {
        shared(m_accounts[waiting.cause].relayed) += waiting.bytes;
        m_relayed += waiting.bytes;
    }
}

void Flow::remove(const Waiting& waiting)
{
    shared(m_accounts[waiting.destination].waiting) -= waiting.bytes;
    m_inAll -= waiting.bytes;
    if (waiting.isRelayed()) {
        shared(m_accounts[waiting.cause].relayed) -= waiting.bytes;
        m_relayed -= waiting.bytes;
    }
}

std::size_t Flow::waitingFor(std::uint32_t destination) const
{
    return shared(m_accounts[destination].waiting).load();
}

bool Flow::mayRead(std::uint32_t process, bool isHeld) const
{
    const Account& account = m_accounts[process];
    if (shared(account.relation).load() != Relation::client) {
        return true;
    }
    const std::size_t share = isHeld ? 2 : 1;
    const std::size_t relayed = shared(account.relayed).load();
    const std::size_t relayedInAll = m_relayed;
    return shared(account.waiting).load() <= maxUnread / share && relayed <= maxRelayed / share &&
           (relayed == 0 || relayedInAll <= muchRelayed / share) && relayedInAll <= veryMuchRelayed / share;
}

void Flow::relieved()
{
    if (m_held > 0) {
        m_resume();
    }
}

} // namespace kiv
