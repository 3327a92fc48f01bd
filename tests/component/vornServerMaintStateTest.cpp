/// Maintenance state: set by a client, told to its subscribers.

#include "mmiUserTest.h"
#include "vorni/maintenanceState.h"

#include <array>
#include <optional>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornServerMaintStateTest : public MmiUserTest
{
protected:
    static void set(const Client& client, std::uint32_t state)
    {
        client.send<OmlaVornSetMaintStateReqS>([state](auto& request) { request.maintState = state; });
    }
    auto askSet(const Client& client)
    {
        set(client, 0);
        return expectAsked<fesk::SetMaintStateReq>(fesk::MsgNo::SetMaintStateReq);
    }
    auto askSubscription(const Client& client)
    {
        client.send<OmlaVornSubscribeMaintStateReqS>();
        return expectAsked<fesk::SubscribeMaintStateReq>(fesk::MsgNo::SubscribeMaintStateReq);
    }
    auto subscribe(Client& client)
    {
        const auto asked = askSubscription(client);
        asked.confirm();
        expectAt<OmlaVornSubscribeMaintStateCfmS>(client);
        return asked;
    }
    template <typename Subscription>
    static void indicate(const Subscription& subscription, std::optional<std::uint32_t> state = 0)
    {
        fesk::MaintStateInd ind;
        if (state) {
            ind.set_maint_state(*state);
        }
        subscription.reply(fesk::MsgNo::MaintStateInd, ind);
    }
    static std::string noSession(std::uint32_t mbox, std::string_view signal)
    {
        return fmt::format("ABN: VornServer has no session for mailbox {}. Ignoring OMLA_VORN_{}.", mbox, signal);
    }
};

TEST_F(VornServerMaintStateTest, when_a_state_is_set_then_the_board_gets_its_own_number_of_it)
{
    Client& client = unit.connect();
    for (const auto& [state, boardState] : {std::pair{0U, 0}, {2U, 1}, {3U, 2}, {4U, 3}}) {
        set(client, state);
        const auto asked = expectAsked<fesk::SetMaintStateReq>(fesk::MsgNo::SetMaintStateReq);
        EXPECT_TRUE(asked.body.has_maint_state());
        EXPECT_EQ(asked.body.maint_state(), boardState);
        asked.confirm();
        expectAt<OmlaVornSetMaintStateCfmS>(client);
        expectTraced({noTransaction(asked.procedureRef, "SetMaintStateCfm")}, [&] { asked.confirm(); });
        EXPECT_TRUE(RecordedTraces::has(fmt::format("SetMaintStateReq: procedureRef: {}", asked.procedureRef)));
    }
    for (const std::uint32_t state : {1U, 5U, 0x01000000U, 0xFFFFFFFFU}) { // 1 can be told, but not asked for
        set(client, state);
        expectReject<OmlaVornSetMaintStateRejS>(client, "");
        EXPECT_TRUE(RecordedTraces::has(
            fmt::format("ABN: OMLA_VORN_SET_MAINT_STATE_REQ contains an invalid maintState field: {}", state)));
    }
    const std::tuple<std::optional<std::uint32_t>, std::uint16_t, const char*> causes[]{
        {std::nullopt, 1, " "},
        {0, 1, " "},
        {1, 1, "Maintenance State handling not activated"},
        {2, 2, "Illegal state transition requested"},
        {3, 2, "Prohibited due to service man present"},
        {4, 1, ""}};
    for (const auto& [cause, errorCode, text] : causes) {
        fesk::SetMaintStateRej rej;
        if (cause) {
            rej.set_error_code(*cause);
        }
        const auto asked = askSet(client);
        asked.reject(rej);
        expectReject<OmlaVornSetMaintStateRejS>(client, text, errorCode);
        expectTraced({noTransaction(asked.procedureRef, "SetMaintStateRej")}, [&] { asked.reject(); });
    }
    EXPECT_EQ(RecordedTraces::count("ABN: SetMaintStateRej missing errorCode! sending default errorCode and "
                                    "errorDescription to client."),
              1U);
    EXPECT_EQ(RecordedTraces::count("ABN: Unknown errorCode or errorDescription!"), 1U);
    expectSilence({&client});
}

TEST_F(VornServerMaintStateTest, when_the_state_changes_then_subscribers_are_told_also_after_a_wrong_indication)
{
    Client& other = unit.connect();
    other.send<OmlaVornSubscribeMaintStateReqS>();
    const auto refused = expectAsked<fesk::SubscribeMaintStateReq>(fesk::MsgNo::SubscribeMaintStateReq);
    refused.reject();
    expectReject<OmlaVornSubscribeMaintStateRejS>(other, "subscribing to maintenance state was unsuccessful");
    expectTraced({noTransaction(refused.procedureRef, "MaintStateInd")}, [&] { indicate(refused); });

    const auto subscription = subscribe(other);
    expectTraced({"ABN: missing maintState in the MaintStateInd! Ignoring signal!"},
                 [&] { indicate(subscription, std::nullopt); });
    expectTraced({"ABN: VORN server:: Unknown Maintenance state!"}, [&] { indicate(subscription, 5); });
    constexpr std::array clientStates{0U, 2U, 3U, 4U, 1U};
    for (std::uint32_t state = 0; state < clientStates.size(); ++state) {
        indicate(subscription, state);
        EXPECT_EQ(expectAt<OmlaVornSetMaintStateIndS>(other).maintState, clientStates[state]);
    }
    expectSilence({&other});
}

TEST_F(VornServerMaintStateTest, when_a_client_goes_then_only_the_subscription_that_its_session_has_kept_goes_with_it)
{
    Client& client = unit.connect();
    const auto first = subscribe(client);
    const auto second = subscribe(client); // the session keeps the first
    const auto confirmed = askSubscription(client);
    const auto rejected = askSubscription(client);
    const auto setConfirmed = askSet(client);
    const auto setRejected = askSet(client);
    const std::uint32_t gone = lose(client);
    EXPECT_TRUE(
        RecordedTraces::has(fmt::format("remove procedureRef: ({}) from transaction map.", first.procedureRef)));
    expectTraced({noTransaction(first.procedureRef, "MaintStateInd")}, [&] { indicate(first); });
    const auto expectErased = [&](const auto& asked, const char* signal, const char* message, const auto& step) {
        expectTraced({noSession(gone, signal), noTransaction(asked.procedureRef, message)}, step);
    };
    expectErased(second, "SET_MAINT_STATE_IND", "MaintStateInd", [&] { indicate(second); });
    expectErased(confirmed, "SUBSCRIBE_MAINT_STATE_CFM", "SubscribeMaintStateCfm", [&] { confirmed.confirm(); });
    expectErased(rejected, "SUBSCRIBE_MAINT_STATE_REJ", "SubscribeMaintStateRej", [&] { rejected.reject(); });
    expectErased(setConfirmed, "SET_MAINT_STATE_CFM", "SetMaintStateCfm", [&] { setConfirmed.confirm(); });
    expectErased(setRejected, "SET_MAINT_STATE_REJ", "SetMaintStateRej", [&] { setRejected.reject(); });
}

TEST_F(VornServerMaintStateTest, when_there_is_no_session_no_user_or_no_board_then_the_client_gets_no_answer)
{
    Client& stranger = unit.addClient();
    expectTraced({noSession(stranger.mbox(), "SET_MAINT_STATE_REQ")}, [&] { set(stranger, 1); });
    expectTraced({noSession(stranger.mbox(), "SUBSCRIBE_MAINT_STATE_REQ")},
                 [&] { stranger.send<OmlaVornSubscribeMaintStateReqS>(); });
    Client& client = unit.connect();
    Client& userless = connectWithoutUser();
    set(userless, 1);
    userless.send<OmlaVornSubscribeMaintStateReqS>();
    expectSilence({&stranger, &userless});
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: The session has not subscribed as an MMI User: ID="));

    loseBoard();
    expectTraced({"SetMaintStateReq: procedureRef: 0"}, [&] { set(client, 0); });
    client.send<OmlaVornSubscribeMaintStateReqS>();
    unit.settle();
    client.expectNothing();
}

} // namespace
