/// Deep sleep of the board: capability, subscribers, and the way there and back.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "yarrowi/numbers.h"

#include <chrono>
#include <map>
#include <optional>

namespace boardsim {

/// An activation goes from INACTIVE by PRE_ACTIVE and ACTIVATING to ACTIVE, one step at a time; a deactivation leads
/// from ACTIVE or FAILURE to INACTIVE at once. In any other state a request is rejected with that state. Each state is
/// told to the subscribers, behind the confirm of the request that led there.
class DeepSleep : public ProtobufProcedures
{
public:
    explicit DeepSleep(Indicate indicate);

    Verdict exchangeCapability(const Connection&, const yarrowi::CapabilityExchangeReq&,
                               yarrowi::CapabilityExchangeCfm& confirm, yarrowi::CapabilityExchangeRej&);
    Verdict subscribe(const Connection& connection, const yarrowi::SubscribeDeepSleepStatusReq&,
                      yarrowi::SubscribeDeepSleepStatusCfm&, yarrowi::SubscribeDeepSleepStatusRej&);
    Verdict activate(const Connection&, const yarrowi::ActivateDeepSleepReq&, yarrowi::ActivateDeepSleepCfm&,
                     yarrowi::ActivateDeepSleepRej&);
    Verdict deactivate(const Connection&, const yarrowi::DeactivateDeepSleepReq&, yarrowi::DeactivateDeepSleepCfm&,
                       yarrowi::DeactivateDeepSleepRej&);

    std::vector<Connection> audience(const Message&) const override;
    void prepareIndication(Message& indication) const override;
    void connectionLost(const Connection& connection) override;
    void prepareReject(Message& reject) const override;
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct Settings {
        std::optional<bool> isSupported = true;
        std::optional<std::uint32_t> wakeUpTime = 30; ///< seconds
        std::chrono::milliseconds preActive{200};     ///< how long an activation is in this state
        std::chrono::milliseconds activating{200};
    };
    struct State {
        int state = 0;                                   ///< yarrowi::DeepSleepState
        std::map<std::uint32_t, Connection> subscribers; ///< by the server's reference
        std::uint32_t timer = 0;                         ///< of the next step; 0: none
    };

    void enter(int state);
    void tell();
    void after(std::chrono::milliseconds delay, void (DeepSleep::*step)());
    void cancelStep();
    void nextStep();
    void wake();
    void setSteps(const Words& args);
    void setSupported(const Words& args);
    void forceState(const Words& args);

    Indicate m_indicate;
    Settings m_settings;
    State m_state;
};

} // namespace boardsim
