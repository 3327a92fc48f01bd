/// The optical indicator of the board, which users take control of.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/core/subscriptions.h"
#include "tools/boardsim/fesk/mmiUsers.h"

#include "fesk/numbers.h"

#include <chrono>
#include <optional>

namespace boardsim {

/// The last request counts, whoever it is from: it replaces an earlier one with its duration. A duration of 0 is one
/// without end, as an activation has none. Every change is told to the subscriptions; the states are 1 on, 0 off.
class OpticalIndicator : public ProtobufProcedures
{
public:
    /// `indicate`: of messages that belong to a request.
    OpticalIndicator(Indicate indicate, const MmiUsers& users) : m_users(users), m_subscriptions(std::move(indicate)) {}

    Verdict subscribe(const Connection& connection,
                      const tolme::fesk::OpticalIndicatorControlSubscribeStatusChangeReq& request,
                      tolme::fesk::OpticalIndicatorControlSubscribeStatusChangeCfm&,
                      tolme::fesk::OpticalIndicatorControlSubscribeStatusChangeRej&);
    Verdict activate(const Connection& connection, const tolme::fesk::OpticalIndicatorControlActivateReq& request,
                     tolme::fesk::OpticalIndicatorControlActivateCfm&,
                     tolme::fesk::OpticalIndicatorControlActivateRej&);
    Verdict activateWithDuration(const Connection& connection,
                                 const tolme::fesk::OpticalIndicatorControlActivateWithDurationReq& request,
                                 tolme::fesk::OpticalIndicatorControlActivateWithDurationCfm&,
                                 tolme::fesk::OpticalIndicatorControlActivateWithDurationRej&);
    Verdict deactivate(const Connection& connection, const tolme::fesk::OpticalIndicatorControlDeactivateReq& request,
                       tolme::fesk::OpticalIndicatorControlDeactivateCfm&,
                       tolme::fesk::OpticalIndicatorControlDeactivateRej&);

    std::vector<Connection> audience(const Message&) const override { return m_subscriptions.all(); }
    void prepareIndication(Message& indication) const override;
    void connectionLost(const Connection& connection) override { m_subscriptions.drop(connection); }
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct State {
        bool isOn = false;
        std::optional<std::uint32_t> user; ///< who switched it on; nothing: a command did
        std::uint32_t timer = 0;           ///< to switch it off; 0: none
        std::chrono::steady_clock::time_point end;
    };

    Verdict switchOn(const Connection& connection, std::uint32_t user, std::chrono::seconds duration);
    void enter(bool isOn, std::optional<std::uint32_t> user);
    void cancelTimer();

    const MmiUsers& m_users;
    Subscriptions m_subscriptions;
    State m_state;
};

} // namespace boardsim
