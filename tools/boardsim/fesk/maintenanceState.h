/// The maintenance state of the board.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/core/subscriptions.h"
#include "tools/boardsim/fesk/mmiUsers.h"

#include "fesk/numbers.h"

#include <string>

namespace boardsim {

/// Users set it to 0, 1, 2 or 3, the board's button to 4. Out of 4 a user gets it to 0 alone, out of the others to any.
/// Every change is told to the subscriptions, also to that of the user who made it; a request for what is so already is
/// confirmed, and nothing is told.
class MaintenanceState : public ProtobufProcedures
{
public:
    /// `indicate`: of messages that belong to a request.
    MaintenanceState(Indicate indicate, const MmiUsers& users) : m_users(users), m_subscriptions(std::move(indicate)) {}

    Verdict set(const Connection& connection, const tolme::fesk::SetMaintStateReq& request,
                tolme::fesk::SetMaintStateCfm&, tolme::fesk::SetMaintStateRej& reject);
    Verdict subscribe(const Connection& connection, const tolme::fesk::SubscribeMaintStateReq& request,
                      tolme::fesk::SubscribeMaintStateCfm&, tolme::fesk::SubscribeMaintStateRej&);

    std::vector<Connection> audience(const Message&) const override { return m_subscriptions.all(); }
    void prepareIndication(Message& indication) const override;
    void connectionLost(const Connection& connection) override { m_subscriptions.drop(connection); }
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct Settings {
        bool isHandled = true;
        bool isServiceManPresent = false;
    };
    struct State {
        std::uint32_t state = 0;
        std::string setBy = "start";
    };

    std::uint32_t refusalOf(const Connection& connection, const tolme::fesk::SetMaintStateReq& request) const;
    void enter(std::uint32_t state, std::string setBy);

    const MmiUsers& m_users;
    Settings m_settings;
    Subscriptions m_subscriptions;
    State m_state;
};

} // namespace boardsim
