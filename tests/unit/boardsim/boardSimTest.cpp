// The simulated board as its clients see it: a scripted client against the real servers, and the commands that drive
// them.

#include "boardSimFixture.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "vorni/access.h"
#include "vorni/connection.h"
#include "vorni/mmi.h"

namespace {

using namespace boardsim;
using tolme::dunl::MsgNo::SetUtcTimeReq;

TEST_F(BoardSimTest, when_a_client_connects_then_each_side_knows_the_others_reference)
{
    tolme::dunl::ConnEstablishReq request;
    request.add_protocol_revision(1);
    send("DunlServer", tolme::dunl::MsgNo::ConnEstablishReq, 100, 100, request);
    const auto confirm = expect<tolme::dunl::ConnEstablishCfm>(tolme::dunl::MsgNo::ConnEstablishCfm);
    EXPECT_EQ(confirm.procedureRef, 100U);
    EXPECT_NE(confirm.connectionRef, 0U);
    EXPECT_NE(confirm.connectionRef, 100U);
    EXPECT_EQ(confirm.body.selected_protocol_revision(), 1U);

    send("DunlServer", tolme::dunl::MsgNo::GetCapabilitiesReq, 7, confirm.connectionRef);
    const auto capabilities = expect<tolme::dunl::GetCapabilitiesCfm>(tolme::dunl::MsgNo::GetCapabilitiesCfm);
    EXPECT_EQ(capabilities.procedureRef, 7U);
    EXPECT_EQ(capabilities.connectionRef, 100U);
    EXPECT_EQ(capabilities.body.capabilities_size(), 20);
    EXPECT_TRUE(capabilities.body.has_alternative_lmc_tag());
    EXPECT_GT(capabilities.body.hotspot_params_size(), 0);
}

TEST_F(BoardSimTest, when_no_revision_agrees_then_the_connection_is_rejected_to_the_clients_reference)
{
    tolme::fesk::ConnEstablishReq request;
    request.add_protocol_revision(9);
    send("FeskServer", tolme::fesk::MsgNo::ConnEstablishReq, 101, 101, request);
    const auto reject = expect<tolme::fesk::ConnEstablishRej>(tolme::fesk::MsgNo::ConnEstablishRej);
    EXPECT_EQ(reject.procedureRef, 101U);
    EXPECT_EQ(reject.connectionRef, 101U);
    EXPECT_EQ(reject.body.reject_reason(), tolme::fesk::ConnEstablishRej::NO_SUPPORTED_PROTOCOL_REVISION);
}

TEST_F(BoardSimTest, time_is_taken_from_registered_sources_and_from_none_but_not_from_unknown_ones)
{
    const std::uint32_t connection = connectDunl();
    tolme::dunl::RegisterUtcTimeSourceReq request;
    request.set_accuracy(tolme::dunl::RegisterUtcTimeSourceReq::ACCURACY_GSM);
    send("DunlServer", tolme::dunl::MsgNo::RegisterUtcTimeSourceReq, 1, connection, request);
    const auto source = expect<tolme::dunl::RegisterUtcTimeSourceCfm>(tolme::dunl::MsgNo::RegisterUtcTimeSourceCfm);
    EXPECT_EQ(source.body.utc_time_source_ref(), 1U);

    setTime(2, connection, 1, 1000);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 2U);
    setTime(3, connection, 0, 2000);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 3U);
    setTime(4, connection, 5, 3000);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeRej>(tolme::dunl::MsgNo::SetUtcTimeRej).procedureRef, 4U);

    const Json time = show("dunl")["utcTime"];
    EXPECT_EQ(time["time"], 2000);
    EXPECT_EQ(time["sources"][0]["accuracy"], 2);
    EXPECT_EQ(show("dunl")["received"]["SetUtcTimeReq"], 3);
}

TEST_F(BoardSimTest, when_a_client_dies_then_its_connections_and_what_belongs_to_them_go)
{
    const std::uint32_t connection = connectDunl();
    tolme::dunl::RegisterUtcTimeSourceReq request;
    request.set_accuracy(tolme::dunl::RegisterUtcTimeSourceReq::ACCURACY_NORMAL);
    send("DunlServer", tolme::dunl::MsgNo::RegisterUtcTimeSourceReq, 1, connection, request);
    send("DunlServer", tolme::dunl::MsgNo::ConnectivityConnectedReq, 2, connection);
    expect<tolme::dunl::ConnectivityConnectedCfm>(tolme::dunl::MsgNo::ConnectivityConnectedCfm);
    EXPECT_EQ(show("dunl")["connectivity"]["connected"], true);

    kiv_delete_mailbox(m_mailbox);
    EXPECT_TRUE(eventually([&] { return show("dunl")["connections"].empty(); }));
    EXPECT_TRUE(show("dunl")["utcTime"]["sources"].empty());
    EXPECT_EQ(show("dunl")["connectivity"]["connected"], false);
}

TEST_F(BoardSimTest, mmi_users_get_ids_of_their_own_and_are_forgotten_once)
{
    tolme::fesk::ConnEstablishReq connect;
    connect.add_protocol_revision(1);
    send("FeskServer", tolme::fesk::MsgNo::ConnEstablishReq, 101, 101, connect);
    const auto connection = expect<tolme::fesk::ConnEstablishCfm>(tolme::fesk::MsgNo::ConnEstablishCfm).connectionRef;
    for (const auto priority :
         {tolme::fesk::RegisterMmiUserReq::PRIORITY_UNIT, tolme::fesk::RegisterMmiUserReq::PRIORITY_CLIENT}) {
        tolme::fesk::RegisterMmiUserReq request;
        request.set_priority(priority);
        send("FeskServer", tolme::fesk::MsgNo::RegisterMmiUserReq, 1, connection, request);
        expect<tolme::fesk::RegisterMmiUserCfm>(tolme::fesk::MsgNo::RegisterMmiUserCfm);
    }
    EXPECT_EQ(show("fesk")["mmiUsers"].dump(),
              R"([{"id":1,"connection":1001,"priority":3},{"id":2,"connection":1001,"priority":1}])");

    tolme::fesk::UnregisterMmiUserReq unregister;
    unregister.set_mmi_user_id(1);
    send("FeskServer", tolme::fesk::MsgNo::UnregisterMmiUserReq, 3, connection, unregister);
    send("FeskServer", tolme::fesk::MsgNo::UnregisterMmiUserReq, 4, connection, unregister);
    EXPECT_EQ(expect<tolme::fesk::UnregisterMmiUserCfm>(tolme::fesk::MsgNo::UnregisterMmiUserCfm).procedureRef, 3U);
    EXPECT_EQ(expect<tolme::fesk::UnregisterMmiUserRej>(tolme::fesk::MsgNo::UnregisterMmiUserRej).procedureRef, 4U);
}

TEST_F(BoardSimTest, an_activation_is_told_to_every_subscriber_step_by_step)
{
    run("yarrowi step 1");
    const std::uint32_t first = connectYarrowi(1, 11);
    const std::uint32_t second = connectYarrowi(2, 12);
    ASSERT_NE(first, second);
    for (const std::uint32_t connection : {first, second, second}) {
        send("YarrowIServer", yarrowi::MsgNo::SubscribeDeepSleepStatusReq, 20, connection);
    }
    expect<yarrowi::SubscribeDeepSleepStatusRej>(yarrowi::MsgNo::SubscribeDeepSleepStatusRej);

    send("YarrowIServer", yarrowi::MsgNo::ActivateDeepSleepReq, 30, first);
    send("YarrowIServer", yarrowi::MsgNo::ActivateDeepSleepReq, 31, second);
    const auto confirm = expect<yarrowi::ActivateDeepSleepCfm>(yarrowi::MsgNo::ActivateDeepSleepCfm);
    EXPECT_EQ(confirm.procedureRef, 30U);
    EXPECT_EQ(confirm.connectionRef, 1U);
    const auto reject = expect<yarrowi::ActivateDeepSleepRej>(yarrowi::MsgNo::ActivateDeepSleepRej);
    EXPECT_EQ(reject.connectionRef, 2U);
    EXPECT_NE(reject.body.deep_sleep_state(), yarrowi::INACTIVE);

    for (const auto state : {yarrowi::PRE_ACTIVE, yarrowi::ACTIVATING, yarrowi::ACTIVE}) {
        for (const std::uint32_t clientRef : {1U, 2U}) {
            const auto indication = expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd);
            EXPECT_EQ(indication.body.deep_sleep_status(), state);
            EXPECT_EQ(indication.connectionRef, clientRef);
            EXPECT_EQ(indication.procedureRef, 0U);
        }
    }

    send("YarrowIServer", yarrowi::MsgNo::ConnectionClosedownReq, 40, first);
    EXPECT_EQ(expect<yarrowi::ConnectionClosedownCfm>(yarrowi::MsgNo::ConnectionClosedownCfm).connectionRef, 1U);
    send("YarrowIServer", yarrowi::MsgNo::DeactivateDeepSleepReq, 50, second);
    expect<yarrowi::DeactivateDeepSleepCfm>(yarrowi::MsgNo::DeactivateDeepSleepCfm);
    const auto woken = expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd);
    EXPECT_EQ(woken.connectionRef, 2U);
    EXPECT_EQ(woken.body.deep_sleep_status(), yarrowi::INACTIVE);
}

TEST_F(BoardSimTest, deep_sleep_capability_is_as_set)
{
    run("yarrowi supported no");
    run("yarrowi wakeup absent");
    const std::uint32_t connection = connectYarrowi(1, 1);
    send("YarrowIServer", yarrowi::MsgNo::CapabilityExchangeReq, 2, connection);
    const auto confirm = expect<yarrowi::CapabilityExchangeCfm>(yarrowi::MsgNo::CapabilityExchangeCfm);
    EXPECT_TRUE(confirm.body.has_deep_sleep_supported());
    EXPECT_FALSE(confirm.body.deep_sleep_supported());
    EXPECT_FALSE(confirm.body.has_wake_up_time());
}

TEST_F(BoardSimTest, the_legacy_server_gives_references_and_echoes_what_else_comes)
{
    NewSignal<OmlaVornConnEstablishReqS> request(5, 0);
    request->protocolRev = 3;
    request.send(kiv_locate("LegacyVornServer"), KIV_CURRENT_MBOX);
    const auto confirm = take(OmlaVornConnEstablishCfmS::number);
    ASSERT_NE(confirm, nullptr);
    const auto* signal = viewSignal<OmlaVornConnEstablishReqS>(confirm); // the same fields
    ASSERT_NE(signal, nullptr);
    EXPECT_EQ(signal->header.clientRef, 5U);
    EXPECT_EQ(signal->header.serverRef, 1U);
    EXPECT_EQ(signal->protocolRev, 3U);
    EXPECT_EQ(kiv_size(confirm.get()), 14U);

    sendBytes("LegacyVornServer", 0x1660000, "ccccssss-payload-");
    const auto echo = take(0x1660001);
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(echo.get()) + 4, kiv_size(echo.get()) - 4),
              "ccccssss-payload-");

    EXPECT_EQ(run("legacy reject OMLA_VORN_CONN_ESTABLISH_REQ 1 no room"), 0);
    NewSignal<OmlaVornConnEstablishReqS> again(5, 0);
    again.send(kiv_locate("LegacyVornServer"), KIV_CURRENT_MBOX);
    const auto reject = take(OmlaVornConnEstablishRejS::number);
    ASSERT_NE(viewSignal<OmlaVornSelectMmiRejS>(reject), nullptr);
    EXPECT_EQ(fieldText(viewSignal<OmlaVornSelectMmiRejS>(reject)->errorText), "no room");
}

TEST_F(BoardSimTest, serverref_and_revision_of_the_legacy_server_are_as_set)
{
    run("legacy serverref 99");
    run("legacy revision absent");
    NewSignal<OmlaVornConnEstablishReqS> request(5, 0);
    request.send(kiv_locate("LegacyVornServer"), KIV_CURRENT_MBOX);
    const auto confirm = take(OmlaVornConnEstablishCfmS::number);
    ASSERT_NE(viewSignal<OmlaVornConnEstablishCfmS>(confirm), nullptr);
    EXPECT_EQ(viewSignal<OmlaVornConnEstablishCfmS>(confirm)->header.serverRef, 99U);
    EXPECT_EQ(kiv_size(confirm.get()), 12U);
    EXPECT_EQ(show("legacy")["nextServerRef"], 200); // those between mark GSM clients
}

TEST_F(BoardSimTest, a_rule_counts_down_and_the_next_message_is_normal_again)
{
    const std::uint32_t connection = connectDunl();
    run("dunl reject SetUtcTimeReq 1");
    setTime(1, connection, 0, 1);
    expect<tolme::dunl::SetUtcTimeRej>(tolme::dunl::MsgNo::SetUtcTimeRej);
    EXPECT_TRUE(show("dunl")["utcTime"]["time"].is_null());
    run("dunl silent tolme.dunl.SetUtcTimeReq 2");
    for (const std::uint32_t procedureRef : {2U, 3U, 4U}) {
        setTime(procedureRef, connection, 0, procedureRef);
    }
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 4U);
}

TEST_F(BoardSimTest, rejects_and_confirms_carry_the_fields_of_their_rule)
{
    EXPECT_EQ(run("dunl reject ConnEstablishReq 1 reject_reason: MAX_NUMBER_OF_CONNECTIONS_EXCEEDED"), 0);
    send("DunlServer", tolme::dunl::MsgNo::ConnEstablishReq, 100, 100);
    EXPECT_EQ(expect<tolme::dunl::ConnEstablishRej>(tolme::dunl::MsgNo::ConnEstablishRej).body.reject_reason(),
              tolme::dunl::ConnEstablishRej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);

    const std::uint32_t connection = connectDunl();
    EXPECT_EQ(run("dunl confirm GetCapabilitiesReq 1 capabilities: CLIMATE_CONTROL restart_rank_label: 5"), 0);
    send("DunlServer", tolme::dunl::MsgNo::GetCapabilitiesReq, 1, connection);
    const auto confirm = expect<tolme::dunl::GetCapabilitiesCfm>(tolme::dunl::MsgNo::GetCapabilitiesCfm);
    EXPECT_EQ(confirm.body.ShortDebugString(), "capabilities: CLIMATE_CONTROL restart_rank_label: 5");

    run("yarrowi reject ActivateDeepSleepReq");
    const std::uint32_t sleeper = connectYarrowi(1, 1);
    send("YarrowIServer", yarrowi::MsgNo::ActivateDeepSleepReq, 2, sleeper);
    EXPECT_TRUE(
        expect<yarrowi::ActivateDeepSleepRej>(yarrowi::MsgNo::ActivateDeepSleepRej).body.has_deep_sleep_state());
}

TEST_F(BoardSimTest, held_answers_come_when_they_are_released)
{
    const std::uint32_t connection = connectDunl();
    run("dunl hold SetUtcTimeReq");
    setTime(1, connection, 0, 10);
    setTime(2, connection, 0, 20);
    ASSERT_EQ(run("dunl wait SetUtcTimeReq 2"), 0);
    EXPECT_FALSE(anyOf(tolme::dunl::MsgNo::SetUtcTimeCfm));
    EXPECT_EQ(show("dunl")["utcTime"]["time"], 20);

    run("dunl release SetUtcTimeReq 1");
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 1U);
    EXPECT_EQ(show("dunl")["held"]["SetUtcTimeReq"], 1);
    run("dunl release");
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 2U);
    EXPECT_TRUE(show("dunl")["rules"].empty());
}

TEST_F(BoardSimTest, a_delayed_answer_is_overtaken_and_comes_nevertheless)
{
    const std::uint32_t connection = connectDunl();
    run("dunl delay SetUtcTimeReq 50 1");
    setTime(1, connection, 0, 10);
    setTime(2, connection, 0, 20);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 2U);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 1U);
}

TEST_F(BoardSimTest, a_stopped_server_is_gone_with_its_state_but_not_its_rules)
{
    const std::uint32_t connection = connectDunl();
    setTime(1, connection, 0, 10);
    expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm);
    const kiv_mbox_id_t server = kiv_locate("DunlServer");
    kiv_monitor(server, kiv_alloc(4, 0x42));

    EXPECT_EQ(run("dunl stop"), 0);
    EXPECT_NE(take(0x42), nullptr);
    EXPECT_EQ(kiv_locate("DunlServer"), KIV_NO_MBOX);
    EXPECT_EQ(run("dunl reject ConnEstablishReq 1"), 0);
    EXPECT_EQ(run("dunl start"), 0);

    send("DunlServer", tolme::dunl::MsgNo::ConnEstablishReq, 100, 100);
    expect<tolme::dunl::ConnEstablishRej>(tolme::dunl::MsgNo::ConnEstablishRej);
    const Json state = show("dunl");
    EXPECT_TRUE(state["utcTime"]["time"].is_null());
    EXPECT_TRUE(state["connections"].empty());
    EXPECT_EQ(state["received"].size(), 1U);

    const std::uint32_t newConnection = connectDunl();
    kiv_delete_mailbox(m_mailbox);
    EXPECT_NE(newConnection, 0U);
    EXPECT_TRUE(
        eventually([&] { return show("dunl")["connections"].empty(); })); // monitors work in the second life too
}

TEST_F(BoardSimTest, malformed_messages_are_dropped_and_counted)
{
    const std::uint32_t connection = connectDunl();
    sendBytes("DunlServer", SetUtcTimeReq, "short");
    sendBytes("DunlServer", 0x1700000, "ppppcccc");
    sendBytes("DunlServer", tolme::dunl::MsgNo::ConnEstablishReq, "ppppcccc\xff\xff\xff");
    setTime(1, connection + 1, 0, 10);
    sendBytes("LegacyVornServer", OmlaVornConnEstablishReqS::number, "");
    sendBytes("LegacyVornServer", OmlaVornConnEstablishReqS::number, "ccccssss");
    // A connection is that of the client which opened it.
    std::thread([&] {
        const kiv_mbox_id_t stranger = kiv_create_mailbox("Stranger");
        setTime(2, connection, 0, 10);
        EXPECT_EQ(run("dunl wait SetUtcTimeReq 2"), 0);
        kiv_delete_mailbox(stranger);
    }).join();

    setTime(3, connection, 0, 10);
    EXPECT_EQ(expect<tolme::dunl::SetUtcTimeCfm>(tolme::dunl::MsgNo::SetUtcTimeCfm).procedureRef, 3U);
    EXPECT_EQ(show("dunl")["dropped"].dump(), R"({"shorter than the header":1,"unknown connection":2,)"
                                              R"("unknown message number":1,"unparsable ConnEstablishReq":1})");
    EXPECT_EQ(run("legacy wait OMLA_VORN_CONN_ESTABLISH_REQ 1"), 0);
    EXPECT_EQ(show("legacy")["dropped"].size(), 2U);
}

TEST_F(BoardSimTest, a_command_that_cant_be_done_says_why_and_changes_nothing)
{
    for (const char* line : {"nobody stop",
                             "dunl",
                             "dunl dance",
                             "dunl reject NoSuchReq",
                             "dunl reject SetUtcTimeReq 1 bad: 1",
                             "dunl delay SetUtcTimeReq",
                             "dunl delay SetUtcTimeReq soon",
                             "dunl silent SetUtcTimeReq 1 2",
                             "dunl reject all error: 1",
                             "dunl capabilities",
                             "dunl capabilities NO_SUCH",
                             "dunl reject SetUtcTimeReq none at all",
                             "yarrowi reject DeepSleepStatusInd",
                             "yarrowi reject ConnectionClosedownReq",
                             "yarrowi state ASLEEP",
                             "yarrowi supported maybe",
                             "legacy revision 65536",
                             "legacy silent NO_SUCH_SIGNAL",
                             "legacy serverref -1",
                             "dunl wait SetUtcTimeReq 1 1"}) {
        std::string output;
        EXPECT_EQ(run(line, &output), 1) << line;
        EXPECT_NE(output, "") << line;
    }
    for (const std::string& server : BoardSim::serverNames()) {
        EXPECT_TRUE(show(server)["rules"].empty()) << server;
    }
    EXPECT_EQ(run("--help"), 0);
    EXPECT_EQ(run("show"), 0);
}

} // namespace
