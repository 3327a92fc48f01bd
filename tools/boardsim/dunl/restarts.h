/// Restarts of the board: orders, who is told of them, and their history.
#pragma once

#include "tools/boardsim/core/board.h"
#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/core/subscriptions.h"

#include "dunl/numbers.h"

#include <chrono>
#include <optional>

namespace boardsim {

/// A restart, ordered by a client or made by the board, enters the history and is told to each connection that has
/// subscribed, once. Whether the board then really goes down is a setting. The order to wake up is a restart by its
/// code, and ends the deep sleep.
class Restarts : public ProtobufProcedures
{
public:
    /// `indicate`: of messages that belong to a request.
    Restarts(Indicate indicate, Board& board) : m_board(board), m_subscriptions(std::move(indicate)) {}

    void order(const Connection&, const tolme::dunl::RestartBoardFwd& order);
    Verdict subscribe(const Connection& connection, const tolme::dunl::SubscribeRestartBoardNotificationReq&,
                      tolme::dunl::SubscribeRestartBoardNotificationCfm&,
                      tolme::dunl::SubscribeRestartBoardNotificationRej&);
    Verdict getHistory(const Connection&, const tolme::dunl::GetRestartHistoryReq& request,
                       tolme::dunl::GetRestartHistoryCfm& confirm, tolme::dunl::GetRestartHistoryRej&);

    std::vector<Connection> audience(const Message&) const override { return m_subscriptions.firstOfConnections(); }
    void connectionLost(const Connection& connection) override { m_subscriptions.drop(connection); }
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct State {
        std::uint64_t orders = 0;
        std::string loadModule; ///< of the last order
    };

    void happen(const tolme::dunl::RestartBoardNotificationInd& restart);
    void restartByBoard(const Words& args);
    void setMeaning(const Words& args);

    Board& m_board;
    std::optional<std::chrono::milliseconds> m_downTime; ///< a setting; nothing: a restart isn't done
    Subscriptions m_subscriptions;
    State m_state;
};

} // namespace boardsim
