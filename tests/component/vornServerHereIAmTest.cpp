/// Here-I-Am: subscribed, then ordered within the subscription.

#include "mmiUserTest.h"
#include "vorni/hereIAm.h"

#include <cstdlib>
#include <fstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr const char* seeLogs = "See logs to reveal why the FESK server rejected the request.";

using Subscription = Asked<fesk::SubscribeHereIAmStateReq>;

class VornServerHereIAmTest : public MmiUserTest
{
protected:
    Subscription askSubscription(const Client& client)
    {
        client.send<OmlaVornSubscribeHereIAmStateReqS>();
        return expectAsked<fesk::SubscribeHereIAmStateReq>(fesk::MsgNo::SubscribeHereIAmStateReq);
    }
    Subscription subscribe(Client& client)
    {
        const auto asked = askSubscription(client);
        asked.confirm();
        expectAt<OmlaVornSubscribeHereIAmStateCfmS>(client);
        return asked;
    }
    static void indicate(const Subscription& subscription, std::uint32_t state = 1)
    {
        fesk::HereIAmStateInd ind;
        ind.set_state(state);
        subscription.reply(fesk::MsgNo::HereIAmStateInd, ind);
    }
    static void order(const Client& client, int value)
    {
        client.send<OmlaVornOrderHereIAmReqS>(
            [value](auto& request) { request.order = static_cast<std::int16_t>(value); });
    }
    /// The board gets the order under the reference of the subscription.
    auto askOrder(const Client& client, const Subscription& subscription, int value)
    {
        order(client, value);
        const auto asked = expectAsked<fesk::OrderHereIAmReq>(fesk::MsgNo::OrderHereIAmReq);
        EXPECT_EQ(asked.procedureRef, subscription.procedureRef);
        EXPECT_EQ(asked.body.order_here_i_am(), value);
        return asked;
    }
    void expectRefused(Client& client, int value, const std::string& trace, const char* text)
    {
        expectTraced({"ABN: " + trace}, [&] { order(client, value); });
        expectReject<OmlaVornOrderHereIAmRejS>(client, text);
    }
    /// The unit's event log without its times.
    static std::string events()
    {
        std::ifstream file(std::string(std::getenv("RU_DIR")) + "/log/tyvra.log");
        std::string all;
        for (std::string line; std::getline(file, line);) {
            all += line.substr(line.find(' ') + 1) + '\n';
        }
        return all;
    }
};

TEST_F(VornServerHereIAmTest, when_a_subscriber_orders_then_all_goes_on_within_its_subscription)
{
    Client& client = unit.connect();
    const auto subscription = subscribe(client);
    for (const int value : {1, 2}) {
        fesk::OrderHereIAmCfm cfm;
        cfm.set_state(0x1FFFF);
        cfm.set_description("it blinks");
        askOrder(client, subscription, value).confirm(cfm);
        const auto taken = expectAt<OmlaVornOrderHereIAmCfmS>(client);
        EXPECT_EQ(taken.state, 0xFFFF);
        EXPECT_EQ(fieldText(taken.description), "it blinks");
        askOrder(client, subscription, value).confirm();
        const auto untold = expectAt<OmlaVornOrderHereIAmCfmS>(client);
        EXPECT_EQ(untold.state, 0);
        EXPECT_EQ(fieldText(untold.description), "");
        askOrder(client, subscription, value).reject();
        expectReject<OmlaVornOrderHereIAmRejS>(client, seeLogs);
        indicate(subscription, 0x1000A);
        EXPECT_EQ(expectAt<OmlaVornHereIAmStateIndS>(client).state, 0xA);
    }
    expectTraced({"ABN: HereIAmStateInd does not have a state."},
                 [&] { subscription.reply(fesk::MsgNo::HereIAmStateInd, fesk::HereIAmStateInd()); });
    for (const int value : {0, 3, -1, 0x100}) {
        expectRefused(client, value, fmt::format("OMLA_VORN_ORDER_HERE_I_AM_REQ has an invalid state: {}", value),
                      "OMLA_VORN_ORDER_HERE_I_AM_REQ has an invalid state.");
    }
    expectSilence({&client});
    EXPECT_EQ(events(), "");
}

TEST_F(VornServerHereIAmTest, when_there_is_no_user_or_no_confirmed_subscription_then_orders_are_refused_and_logged)
{
    Client& client = unit.connect();
    Client& userless = connectWithoutUser();
    constexpr const char* noUser = "MMI user has not been registered yet.";
    expectTraced({"ABN: MMI user has not been registered yet. Rejecting the OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ!"},
                 [&] { userless.send<OmlaVornSubscribeHereIAmStateReqS>(); });
    expectReject<OmlaVornSubscribeHereIAmStateRejS>(userless, noUser);
    for (const int value : {1, 2, 0}) {
        expectRefused(userless, value, "MMI user has not been registered yet. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!",
                      noUser);
    }
    const auto expectNotSubscribed = [&](int value) {
        expectRefused(client, value, "Here I Am client has not subscribed yet. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!",
                      "Here I Am client has not subscribed yet.");
    };
    expectNotSubscribed(7);
    const auto refused = askSubscription(client);
    expectNotSubscribed(1);
    refused.reject();
    expectReject<OmlaVornSubscribeHereIAmStateRejS>(client, seeLogs);
    expectNotSubscribed(1);
    expectTraced({noTransaction(refused.procedureRef, "SubscribeHereIAmStateCfm")}, [&] { refused.confirm(); });
    expectTraced({noTransaction(refused.procedureRef, "HereIAmStateInd")}, [&] { indicate(refused); });
    const std::string event = "7 The client is not subscribed to hereIam state change\n";
    EXPECT_EQ(events(),
              "180 mmiUserId not valid\n181 mmiUserId not valid\n181 mmiUserId not valid\n" + event + event + event);
    expectSilence({&client, &userless});
}

TEST_F(VornServerHereIAmTest, when_a_client_has_two_subscriptions_then_it_orders_in_the_first_and_loses_only_that)
{
    Client& client = unit.connect();
    const auto first = subscribe(client);
    const auto second = subscribe(client);
    const auto confirmed = askSubscription(client);
    const auto rejected = askSubscription(client);
    auto order = askOrder(client, first, 2);
    order.procedureRef = second.procedureRef;
    indicate(second, 3);
    EXPECT_EQ(expectAt<OmlaVornHereIAmStateIndS>(client).state, 3);

    const std::uint32_t gone = lose(client);
    EXPECT_TRUE(
        RecordedTraces::has(fmt::format("remove procedureRef: ({}) from transaction map.", first.procedureRef)));
    expectTraced({noTransaction(first.procedureRef, "HereIAmStateInd")}, [&] { indicate(first); });
    for (int i = 0; i < 2; ++i) { // these erase nothing
        expectTraced({noSession(gone, "HereIAmStateInd")}, [&] { indicate(second); });
        expectTraced({noSession(gone, "OrderHereIAmCfm")}, [&] { order.confirm(); });
        expectTraced({noSession(gone, "OrderHereIAmRej")}, [&] { order.reject(); });
        expectTraced({noSession(gone, "SubscribeHereIAmStateCfm")}, [&] { confirmed.confirm(); });
    }
    expectTraced(
        {noSession(gone, "SubscribeHereIAmStateRej"), noTransaction(rejected.procedureRef, "SubscribeHereIAmStateRej")},
        [&] { rejected.reject(); });
}

TEST_F(VornServerHereIAmTest, when_there_is_no_session_or_no_board_then_only_a_subscription_without_board_is_answered)
{
    Client& stranger = unit.addClient();
    expectTraced({"ABN: No session for this client exists. Ignoring OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ!"},
                 [&] { stranger.send<OmlaVornSubscribeHereIAmStateReqS>(); });
    expectTraced({"ABN: No session for this client exists. Ignoring OMLA_VORN_ORDER_HERE_I_AM_REQ!"},
                 [&] { order(stranger, 1); });
    expectSilence({&stranger});

    Client& client = unit.connect();
    subscribe(client);
    loseBoard();
    client.send<OmlaVornSubscribeHereIAmStateReqS>();
    expectReject<OmlaVornSubscribeHereIAmStateRejS>(client, "Could not subscribe HereIAmState.");
    expectTraced({"ABN: Failed to send message -- not connected to TOLME server"}, [&] { order(client, 1); });
    client.expectNothing();
}

} // namespace
