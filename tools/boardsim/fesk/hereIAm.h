/// Here-I-Am of the board, which shows a technician which unit is meant.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/core/subscriptions.h"
#include "tools/boardsim/fesk/mmiUsers.h"

#include "fesk/numbers.h"

namespace boardsim {

/// A user orders it on or off in the procedure of a subscription of the connection; in another one the order is
/// rejected. The states have the orders' numbers: 1 on, 2 off. Every change is told to the subscriptions.
class HereIAm : public ProtobufProcedures
{
public:
    /// `indicate`: of messages that belong to a request.
    HereIAm(Indicate indicate, const MmiUsers& users) : m_users(users), m_subscriptions(std::move(indicate)) {}

    Verdict order(const Connection& connection, const tolme::fesk::OrderHereIAmReq& request,
                  tolme::fesk::OrderHereIAmCfm& confirm, tolme::fesk::OrderHereIAmRej&);
    Verdict subscribe(const Connection& connection, const tolme::fesk::SubscribeHereIAmStateReq& request,
                      tolme::fesk::SubscribeHereIAmStateCfm&, tolme::fesk::SubscribeHereIAmStateRej&);

    std::vector<Connection> audience(const Message&) const override { return m_subscriptions.all(); }
    void prepareIndication(Message& indication) const override;
    void connectionLost(const Connection& connection) override { m_subscriptions.drop(connection); }
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    std::uint32_t state() const;
    void enter(bool isOn);

    const MmiUsers& m_users;
    Subscriptions m_subscriptions;
    bool m_isOn = false;
};

} // namespace boardsim
