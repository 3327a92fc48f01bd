#include "tools/boardsim/dunl/restarts.h"

#include "tools/boardsim/core/console.h"
#include "tools/boardsim/dunl/restartHistory.h"

#include "dunl/dunl.pb.h"

#include <algorithm>
#include <fmt/format.h>

namespace boardsim {

namespace {

using tolme::dunl::GetRestartHistoryCfm;
using tolme::dunl::RestartBoardFwd;
using tolme::dunl::RestartBoardNotificationInd;

// What a restart is told with.
constexpr std::uint32_t ordered = 0; // restart_type
constexpr std::uint32_t unordered = 1;
constexpr std::uint32_t aClient = 0; // originator
constexpr std::uint32_t theBoard = 1;

constexpr std::uint32_t wakeUpCode = 204;
constexpr std::uint32_t defaultDownTime = 1000; // milliseconds
constexpr std::uint32_t maxDownTime = 3600000;
constexpr std::size_t maxLoadModule = 255;

RestartBoardNotificationInd notificationOf(const RestartBoardFwd& order)
{
    RestartBoardNotificationInd restart;
    if (order.has_trace_information()) {
        restart.set_trace_information(order.trace_information());
    }
    if (order.has_label()) {
        restart.set_label(order.label());
    }
    if (order.has_restart_code()) {
        restart.set_restart_code(static_cast<std::uint32_t>(order.restart_code()));
    }
    if (order.has_restart_rank_v2()) {
        restart.set_restart_rank(static_cast<std::uint32_t>(order.restart_rank_v2()));
    }
    restart.set_restart_type(ordered);
    restart.set_originator(aClient);
    return restart;
}

void printOrClear(const Words& args, std::ostream& out)
{
    expectWords(args, 0, 1);
    if (args.empty()) {
        GetRestartHistoryCfm history;
        RestartHistory::read(history);
        for (const auto& item : history.history_item()) {
            out << fmt::format("code={} rank={} label=\"{}\" {}\n", item.restart_code(), item.restart_rank(),
                               printable(item.label()), printable(item.trace_information()));
        }
    } else if (args[0] == "clear") {
        RestartHistory::clear();
    } else {
        throw CommandError(fmt::format("what does \"{}\" mean? clear, or nothing", args[0]));
    }
}

Json historyLength()
{
    try {
        GetRestartHistoryCfm history;
        RestartHistory::read(history);
        return history.history_item_size();
    } catch (const std::exception&) {
        return "unreadable";
    }
}

} // namespace

void Restarts::order(const Connection&, const RestartBoardFwd& order)
{
    ++m_state.orders;
    m_state.loadModule = order.load_module().substr(0, maxLoadModule);
    happen(notificationOf(order));
}

void Restarts::happen(const RestartBoardNotificationInd& restart)
{
    try {
        RestartHistory::add(restart);
    } catch (const std::exception& error) {
        console::traffic("dunl", fmt::format("restart history: {}", error.what()));
    }
    m_subscriptions.tellFirstOfConnections(restart); // who has the connection tells its own subscribers
    if (restart.restart_code() == wakeUpCode) {
        m_board.wakeUp();
    }
    if (m_downTime) {
        m_board.restart(*m_downTime);
    }
}

Verdict Restarts::subscribe(const Connection& connection, const tolme::dunl::SubscribeRestartBoardNotificationReq&,
                            tolme::dunl::SubscribeRestartBoardNotificationCfm&,
                            tolme::dunl::SubscribeRestartBoardNotificationRej&)
{
    return m_subscriptions.add(connection) ? Verdict::confirm : Verdict::reject;
}

Verdict Restarts::getHistory(const Connection&, const tolme::dunl::GetRestartHistoryReq& request,
                             GetRestartHistoryCfm& confirm, tolme::dunl::GetRestartHistoryRej&)
{
    try {
        RestartHistory::read(confirm);
    } catch (const std::exception& error) {
        console::traffic("dunl", fmt::format("restart history: {}", error.what()));
        return Verdict::reject;
    }
    const auto wanted = static_cast<int>(std::min<std::uint32_t>(request.number_of_events(), RestartHistory::max));
    auto& items = *confirm.mutable_history_item();
    if (wanted != 0 && wanted < items.size()) { // who wants none in particular gets all
        items.DeleteSubrange(wanted, items.size() - wanted);
    }
    return Verdict::confirm;
}

std::vector<CommandRow> Restarts::commands()
{
    return {
        {"board-restart [code=<n>] [rank=<n>] [<trace information>]",
         "a restart by the board itself, told and entered like an ordered one",
         [this](const Words& args, std::ostream&) { restartByBoard(args); }},
        {"restart-means { nothing | restart [<ms>] }",
         "whether a restart takes all servers that run down, for 1000 ms unless told; nothing at first",
         [this](const Words& args, std::ostream&) { setMeaning(args); }},
        {"restart-history [clear]", "the restarts, the latest first", printOrClear},
    };
}

void Restarts::restartByBoard(const Words& args)
{
    RestartBoardNotificationInd restart;
    restart.set_restart_code(0);
    restart.set_restart_rank(tolme::dunl::Cold);
    restart.set_restart_type(unordered);
    restart.set_originator(theBoard);
    std::size_t next = 0;
    for (; next < args.size(); ++next) {
        if (args[next].rfind("code=", 0) == 0) {
            restart.set_restart_code(parseNumber(args[next].substr(5), "the code"));
        } else if (args[next].rfind("rank=", 0) == 0) {
            restart.set_restart_rank(parseNumber(args[next].substr(5), "the rank"));
        } else {
            break;
        }
    }
    restart.set_trace_information(joinWords(args, next));
    happen(restart);
}

void Restarts::setMeaning(const Words& args)
{
    expectWords(args, 1, 2);
    if (args == Words{"nothing"}) {
        m_downTime.reset();
    } else if (args[0] == "restart") {
        m_downTime = std::chrono::milliseconds(args.size() > 1 ? parseNumber(args[1], "the time", maxDownTime)
                                                               : defaultDownTime);
    } else {
        throw CommandError("nothing, or restart with the time");
    }
}

void Restarts::reset()
{
    m_subscriptions.clear();
    m_state = {};
}

void Restarts::show(Json& server) const
{
    Json& restarts = server["restarts"];
    restarts["mean"] = m_downTime ? fmt::format("restart, {} ms down", m_downTime->count()) : "nothing";
    restarts["orders"] = m_state.orders;
    restarts["loadModule"] = m_state.loadModule.empty() ? Json() : Json(printable(m_state.loadModule));
    restarts["history"] = historyLength();
    restarts["subscriptions"] = m_subscriptions.shown();
}

} // namespace boardsim
