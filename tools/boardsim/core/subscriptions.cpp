#include "tools/boardsim/core/subscriptions.h"

#include "ostinel/eventLoop.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <set>
#include <utility>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

constexpr std::size_t maxSubscriptions = 4096;
constexpr std::size_t maxNews = 1000;

} // namespace

bool Subscriptions::has(const Connection& connection) const
{
    return std::any_of(m_all.begin(), m_all.end(), [&](const Connection& other) {
        return other.ref == connection.ref && other.procedureRef == connection.procedureRef;
    });
}

bool Subscriptions::add(const Connection& connection)
{
    if (has(connection)) {
        return true;
    }
    if (m_all.size() >= maxSubscriptions) {
        return false;
    }
    m_all.push_back(connection);
    return true;
}

void Subscriptions::drop(const Connection& lost)
{
    std::erase_if(m_all, [&](const Connection& connection) { return connection.ref == lost.ref; });
}

void Subscriptions::clear()
{
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = 0;
    m_news.clear();
    m_all.clear();
}

void Subscriptions::tellSoon(const Message& indication)
{
    if (m_news.size() >= maxNews) {
        tellNews();
    }
    m_news.emplace_back(indication.New())->CopyFrom(indication);
    if (m_timer == 0) {
        m_timer = EventLoopIf::getInstance().addTimer(std::chrono::microseconds(0), [this] {
            m_timer = 0;
            tellNews();
        });
    }
}

std::vector<Connection> Subscriptions::firstOfConnections() const
{
    std::vector<Connection> first;
    std::set<std::uint32_t> seen;
    std::copy_if(m_all.begin(), m_all.end(), std::back_inserter(first),
                 [&](const Connection& connection) { return seen.insert(connection.ref).second; });
    return first;
}

void Subscriptions::tellFirstOfConnections(const Message& indication)
{
    tellNews();
    for (const Connection& connection : firstOfConnections()) {
        m_indicate(connection, indication);
    }
}

void Subscriptions::tellNews()
{
    for (const auto& indication : std::exchange(m_news, {})) {
        for (const Connection& connection : m_all) {
            m_indicate(connection, *indication);
        }
    }
}

Json Subscriptions::shown() const
{
    Json subscriptions = Json::array();
    for (const Connection& connection : m_all) {
        subscriptions.push_back({{"connection", connection.ref}, {"procedureRef", connection.procedureRef}});
    }
    return subscriptions;
}

} // namespace boardsim
