// The panel of the simulated board: indicators, maintenance state, Here-I-Am and the optical indicator.

#include "boardSimFixture.h"

#include <utility>

namespace {

using namespace boardsim;
using namespace tolme::fesk;

class BoardSimPanelTest : public BoardSimTest
{
protected:
    BoardSimPanelTest() : m_connection(connectFesk()), m_user(registerUser(m_connection)) {}

    std::uint32_t registerUser(std::uint32_t connection)
    {
        RegisterMmiUserReq request;
        request.set_priority(RegisterMmiUserReq::PRIORITY_UNIT);
        sendFesk(1, connection, request);
        return expect<RegisterMmiUserCfm>().body.mmi_user_id();
    }

    /// Sends a request of the user's, with the number in the field that it has beside the user's, if any.
    template <typename Req>
    void request(std::uint32_t procedureRef, std::uint32_t number = 0)
    {
        requestAs<Req>(m_connection, m_user, procedureRef, number);
    }

    template <typename Req>
    void requestAs(std::uint32_t connection, std::uint32_t user, std::uint32_t procedureRef, std::uint32_t number = 0)
    {
        Req request;
        request.set_mmi_user_id(user);
        if (Req::descriptor()->field_count() > 1) {
            const auto* field = Req::descriptor()->field(1);
            if (field->enum_type() != nullptr) {
                request.GetReflection()->SetEnumValue(&request, field, static_cast<int>(number));
            } else {
                request.GetReflection()->SetUInt32(&request, field, number);
            }
        }
        sendFesk(procedureRef, connection, request);
    }

    std::string shownIndicators()
    {
        request<GetVisualIndicationReq>(50);
        const auto confirm = expect<GetVisualIndicationCfm>();
        EXPECT_EQ(confirm.procedureRef, 50U);
        const auto digit = [](bool isThere, int value) { return isThere ? std::to_string(value) : "-"; };
        return digit(confirm.body.has_first_indication(), confirm.body.first_indication()) +
               digit(confirm.body.has_second_indication(), confirm.body.second_indication()) +
               digit(confirm.body.has_third_indication(), confirm.body.third_indication()) +
               digit(confirm.body.has_fourth_indication(), confirm.body.fourth_indication());
    }

    void expectMaintState(std::uint32_t procedureRef, std::uint32_t connectionRef, std::uint32_t state)
    {
        const auto indication = expect<MaintStateInd>();
        EXPECT_EQ(indication.procedureRef, procedureRef);
        EXPECT_EQ(indication.connectionRef, connectionRef);
        EXPECT_EQ(indication.body.maint_state(), state);
    }

    std::uint32_t refusal(std::uint32_t maintState)
    {
        request<SetMaintStateReq>(60, maintState);
        return expect<SetMaintStateRej>().body.error_code();
    }

    Json panel() { return show("fesk")["panel"]; }

    std::uint32_t m_connection;
    std::uint32_t m_user;
};

TEST_F(BoardSimPanelTest, an_order_changes_the_indicator_that_it_is_for_and_is_kept_in_any_case)
{
    EXPECT_EQ(shownIndicators(), "2521");
    const std::pair<std::uint32_t, const char*> orders[] = {
        {10, "1521"}, {9, "2521"},  {3, "2121"},  {4, "2221"},  {5, "2321"},  {7, "2421"}, {1, "2521"},
        {12, "2511"}, {15, "2531"}, {13, "2541"}, {11, "2521"}, {22, "2521"}, {2, "2521"}};
    for (const auto& [visualState, shown] : orders) {
        request<SetVisualIndicationReq>(40, visualState);
        EXPECT_EQ(expect<SetVisualIndicationCfm>().procedureRef, 40U);
        EXPECT_EQ(shownIndicators(), shown) << visualState;
        EXPECT_EQ(panel()["lastOrder"]["visualState"], visualState);
    }
    EXPECT_EQ(panel()["lastOrder"]["user"], m_user);
    for (int i = 0; i < 20; ++i) {
        request<SetVisualIndicationReq>(40, 10);
        expect<SetVisualIndicationCfm>();
    }
    EXPECT_EQ(show("fesk")["indicatorOrders"].size(), 16U);

    run("fesk indicator second 7");
    run("fesk indicator fourth 2");
    run("fesk indicator first absent");
    EXPECT_EQ(shownIndicators(), "-722");
    EXPECT_EQ(panel()["indicators"].dump(), R"({"first":"absent","second":7,"third":2,"fourth":2})");
    for (const char* line : {"indicator first 3", "indicator second 0", "indicator fifth 1", "indicator first",
                             "indicator third 4294967295"}) {
        EXPECT_EQ(run(std::string("fesk ") + line), 1) << line;
    }
    run("fesk restart");
    EXPECT_EQ(panel()["indicators"].dump(), R"({"first":2,"second":5,"third":2,"fourth":1})");
}

TEST_F(BoardSimPanelTest, what_isnt_from_a_user_of_the_connection_is_rejected_and_changes_nothing)
{
    const std::uint32_t other = connectFesk(200);
    const std::string before = panel().dump();
    for (const auto& [connection, user] : {std::pair(m_connection, 99U), {m_connection, 0U}, {other, m_user}}) {
        requestAs<SetVisualIndicationReq>(connection, user, 2, 10);
        expect<SetVisualIndicationRej>();
        requestAs<GetVisualIndicationReq>(connection, user, 2);
        expect<GetVisualIndicationRej>();
        requestAs<SetMaintStateReq>(connection, user, 2, 1);
        EXPECT_EQ(expect<SetMaintStateRej>().body.ShortDebugString(), "error_code: 0");
        requestAs<SubscribeMaintStateReq>(connection, user, 2);
        expect<SubscribeMaintStateRej>();
        requestAs<SubscribeHereIAmStateReq>(connection, user, 2);
        expect<SubscribeHereIAmStateRej>();
        requestAs<OrderHereIAmReq>(connection, user, 2, 1);
        expect<OrderHereIAmRej>();
        requestAs<OpticalIndicatorControlSubscribeStatusChangeReq>(connection, user, 2);
        expect<OpticalIndicatorControlSubscribeStatusChangeRej>();
        requestAs<OpticalIndicatorControlActivateReq>(connection, user, 2);
        expect<OpticalIndicatorControlActivateRej>();
        requestAs<OpticalIndicatorControlActivateWithDurationReq>(connection, user, 2, 1);
        expect<OpticalIndicatorControlActivateWithDurationRej>();
        requestAs<OpticalIndicatorControlDeactivateReq>(connection, user, 2);
        expect<OpticalIndicatorControlDeactivateRej>();
    }
    EXPECT_EQ(panel().dump(), before);
    const Json subscriptions = show("fesk")["subscriptions"];
    for (const Json& list : subscriptions) {
        EXPECT_TRUE(list.empty());
    }
}

TEST_F(BoardSimPanelTest, each_change_of_the_maintenance_state_is_told_to_each_subscription)
{
    const std::uint32_t other = connectFesk(200);
    const std::uint32_t otherUser = registerUser(other);
    request<SubscribeMaintStateReq>(11);
    EXPECT_EQ(expect<SubscribeMaintStateCfm>().procedureRef, 11U);
    requestAs<SubscribeMaintStateReq>(other, otherUser, 12);
    EXPECT_EQ(expect<SubscribeMaintStateCfm>().procedureRef, 12U);

    request<SetMaintStateReq>(30, 3);
    const std::uint32_t confirmOrChange[] = {2, MsgNo::SetMaintStateCfm, MsgNo::MaintStateInd};
    const std::shared_ptr<kiv_msg> first(kiv_receive(confirmOrChange, patience, KIV_ANY_SENDER), kiv_free);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->number, MsgNo::SetMaintStateCfm);
    expectMaintState(11, 100, 3);
    expectMaintState(12, 200, 3);
    EXPECT_EQ(panel()["maintenanceState"]["setBy"], "user " + std::to_string(m_user));

    requestAs<SetMaintStateReq>(other, otherUser, 31, 3); // as it is: nothing to tell
    expect<SetMaintStateCfm>();
    run("fesk maintenance-state 4");
    expectMaintState(11, 100, 4);
    expectMaintState(12, 200, 4);
    connectFesk(200); // anew: its subscription has gone
    run("fesk indicate MaintStateInd maint_state: 9");
    expectMaintState(11, 100, 9);
    EXPECT_EQ(panel()["maintenanceState"].dump(),
              R"({"state":4,"setBy":"button","handling":"on","serviceMan":"absent"})");
    EXPECT_FALSE(anyOf<MaintStateInd>());
}

TEST_F(BoardSimPanelTest, the_maintenance_state_is_refused_with_the_cause)
{
    run("fesk maintenance-state 4");
    EXPECT_EQ(refusal(1), 2U);
    run("fesk service-man present");
    EXPECT_EQ(refusal(0), 3U);
    run("fesk maintenance-handling off");
    EXPECT_EQ(refusal(0), 1U);
    run("fesk service-man absent");
    run("fesk maintenance-handling on");
    run("fesk reject SetMaintStateReq 1 error_code: 7");
    EXPECT_EQ(refusal(0), 7U);
    request<SetMaintStateReq>(30, 0);
    expect<SetMaintStateCfm>();
    request<SetMaintStateReq>(31, 2);
    expect<SetMaintStateCfm>();
    EXPECT_EQ(panel()["maintenanceState"]["state"], 2);
    for (const char* line : {"maintenance-state 5", "service-man here", "maintenance-handling", "here-i-am maybe",
                             "optical-indicator 1", "indicate SetMaintStateReq", "indicate MaintStateInd x: 1"}) {
        EXPECT_EQ(run(std::string("fesk ") + line), 1) << line;
    }
}

TEST_F(BoardSimPanelTest, here_i_am_is_ordered_and_told_in_the_procedure_of_the_subscription)
{
    request<OrderHereIAmReq>(11, 1);
    EXPECT_EQ(expect<OrderHereIAmRej>().procedureRef, 11U); // there is no subscription
    request<SubscribeHereIAmStateReq>(11);
    EXPECT_EQ(expect<SubscribeHereIAmStateCfm>().procedureRef, 11U);
    request<SubscribeHereIAmStateReq>(12);
    EXPECT_EQ(expect<SubscribeHereIAmStateCfm>().procedureRef, 12U);

    for (const auto& [order, text] : {std::pair(1U, "Here-I-Am is on"), {2U, "Here-I-Am is off"}}) {
        request<OrderHereIAmReq>(12, order);
        const auto confirm = expect<OrderHereIAmCfm>();
        EXPECT_EQ(confirm.procedureRef, 12U);
        EXPECT_EQ(confirm.body.state(), order);
        EXPECT_EQ(confirm.body.description(), text);
        for (const std::uint32_t procedureRef : {11U, 12U}) {
            const auto indication = expect<HereIAmStateInd>();
            EXPECT_EQ(indication.procedureRef, procedureRef);
            EXPECT_EQ(indication.body.state(), order);
        }
    }
    run("fesk here-i-am on");
    EXPECT_EQ(expect<HereIAmStateInd>().body.state(), 1U);
    EXPECT_EQ(panel()["hereIAm"], "on");
}

TEST_F(BoardSimPanelTest, the_last_request_for_the_optical_indicator_counts)
{
    request<OpticalIndicatorControlSubscribeStatusChangeReq>(11);
    expect<OpticalIndicatorControlSubscribeStatusChangeCfm>();
    const auto expectState = [&](std::uint32_t state) {
        const auto indication = expect<OpticalIndicatorControlStatusChangeInd>();
        EXPECT_EQ(indication.procedureRef, 11U);
        EXPECT_EQ(indication.body.state(), state);
    };
    request<OpticalIndicatorControlActivateWithDurationReq>(20, 0xFFFFFFFF);
    EXPECT_EQ(expect<OpticalIndicatorControlActivateWithDurationCfm>().procedureRef, 20U);
    expectState(1);
    EXPECT_EQ(panel()["opticalIndicator"]["secondsLeft"], 0xFFFFFFFFU);
    EXPECT_EQ(panel()["opticalIndicator"]["user"], m_user);

    request<OpticalIndicatorControlActivateReq>(21); // it is on: nothing to tell, but now without end
    expect<OpticalIndicatorControlActivateCfm>();
    EXPECT_TRUE(panel()["opticalIndicator"]["secondsLeft"].is_null());
    request<OpticalIndicatorControlDeactivateReq>(22);
    EXPECT_EQ(expect<OpticalIndicatorControlDeactivateCfm>().procedureRef, 22U);
    expectState(0);
    request<OpticalIndicatorControlActivateWithDurationReq>(23, 0);
    expect<OpticalIndicatorControlActivateWithDurationCfm>();
    expectState(1);
    EXPECT_TRUE(panel()["opticalIndicator"]["secondsLeft"].is_null());

    run("fesk optical-indicator off");
    expectState(0);
    EXPECT_FALSE(anyOf<OpticalIndicatorControlStatusChangeInd>());
    std::string text;
    run("show fesk", &text);
    EXPECT_NE(text.find("opticalIndicator:\n      state: off"), std::string::npos) << text;
}

} // namespace
