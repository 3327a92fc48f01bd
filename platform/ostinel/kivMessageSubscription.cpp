#include "ostinel/kivMessageSubscription.h"

#include <cerrno>
#include <unordered_map>
#include <utility>

namespace Ostinel::KivMessageSubscription::V1 {
namespace {

class Table final : public KivMessageSubscriptionIf
{
public:
    Table() = default;
    ~Table() override
    {
        while (!m_handlers.empty()) { // one by one: what a handler holds may unsubscribe others when it goes
            unsubscribe(m_handlers.begin()->first);
        }
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    int subscribe(std::uint32_t number, Handler handler) override
    {
        return m_handlers.try_emplace(number, std::move(handler)).second ? 0 : EEXIST;
    }

    int unsubscribe(std::uint32_t number) override { return m_handlers.extract(number).empty() ? ENOENT : 0; }

    int lookUp(std::uint32_t number, Handler& handler) const override
    {
        const auto found = m_handlers.find(number);
        if (found == m_handlers.end()) {
            return ENOENT;
        }
        handler = found->second;
        return 0;
    }

private:
    std::unordered_map<std::uint32_t, Handler> m_handlers;
};

} // namespace

KivMessageSubscriptionIf& KivMessageSubscriptionIf::getInstance()
{
    static thread_local Table table;
    return table;
}

std::shared_ptr<kiv_msg> makeShared(kiv_msg* msg)
{
    return {msg, kiv_free};
}

} // namespace Ostinel::KivMessageSubscription::V1
