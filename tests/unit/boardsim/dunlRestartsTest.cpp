// Restarts of the simulated board: who is told, what is remembered, and what the board does.

#include "boardSimFixture.h"

#include "runDir.h"

#include <fstream>

namespace {

using namespace boardsim;
using namespace tolme::dunl;

class BoardSimRestartsTest : public BoardSimTest
{
protected:
    BoardSimRestartsTest() { run("dunl restart-history clear"); }

    void order(std::uint32_t connection, const std::string& traceInformation, std::int32_t code = 401)
    {
        RestartBoardFwd order;
        order.set_load_module("CXP1_R2");
        order.set_trace_information(traceInformation);
        order.set_label("lab\x01");
        order.set_restart_code(code);
        order.set_restart_rank_v2(PowerCycle);
        sendDunl(7, connection, order);
    }

    void subscribe(std::uint32_t procedureRef, std::uint32_t connection)
    {
        sendDunl(procedureRef, connection, SubscribeRestartBoardNotificationReq());
        EXPECT_EQ(expect<SubscribeRestartBoardNotificationCfm>().procedureRef, procedureRef);
    }

    /// The trace informations, each with a blank behind it.
    std::string history(std::uint32_t connection, std::uint32_t number)
    {
        GetRestartHistoryReq request;
        request.set_number_of_events(number);
        sendDunl(9, connection, request);
        std::string texts;
        const auto confirm = expect<GetRestartHistoryCfm>();
        for (const auto& item : confirm.body.history_item()) {
            texts += item.trace_information() + ' ';
        }
        return texts;
    }
};

TEST_F(BoardSimRestartsTest, an_order_is_told_to_each_connection_once_in_its_first_subscription)
{
    const std::uint32_t connection = connectDunl();
    const std::uint32_t other = connectDunl(200);
    subscribe(11, connection);
    subscribe(12, connection);
    subscribe(13, other);
    order(other, "why");
    for (const auto& [procedureRef, connectionRef] : {std::pair(11U, 100U), {13U, 200U}}) {
        const auto indication = expect<RestartBoardNotificationInd>();
        EXPECT_EQ(indication.procedureRef, procedureRef);
        EXPECT_EQ(indication.connectionRef, connectionRef);
        EXPECT_EQ(indication.body.ShortDebugString(), R"(trace_information: "why" label: "lab\001" restart_code: 401 )"
                                                      "restart_rank: 5 restart_type: 0 originator: 0");
    }
    connectDunl(); // anew: its two subscriptions have gone
    run("dunl board-restart code=17 rank=1 by itself");
    const auto indication = expect<RestartBoardNotificationInd>();
    EXPECT_EQ(indication.procedureRef, 13U);
    EXPECT_EQ(indication.body.ShortDebugString(), R"(trace_information: "by itself" restart_code: 17 restart_rank: 1 )"
                                                  "restart_type: 1 originator: 1");
    EXPECT_FALSE(anyOf<RestartBoardNotificationInd>());
    std::string text;
    run("dunl restart-history", &text);
    EXPECT_EQ(text, "code=17 rank=1 label=\"\" by itself\ncode=401 rank=5 label=\"lab\\x01\" why\n");
}

TEST_F(BoardSimRestartsTest, the_history_is_the_latest_first_outlives_the_server_and_is_bounded)
{
    std::uint32_t connection = connectDunl();
    EXPECT_EQ(history(connection, 10), "");
    for (const char* text : {"a", "b", "\xff"}) {
        order(connection, text);
    }
    EXPECT_EQ(history(connection, 2), "\xff b ");
    EXPECT_EQ(history(connection, 0), "\xff b a ");
    run("dunl restart");
    connection = connectDunl();
    EXPECT_EQ(history(connection, 0xFFFFFFFF), "\xff b a ");

    for (int i = 0; i < 60; ++i) {
        order(connection, std::string(2000, 'x'));
    }
    EXPECT_EQ(history(connection, 100).size(), 50U * 1025U);

    run("dunl confirm GetRestartHistoryReq 1 history_item { restart_code: 65536 }");
    sendDunl(9, connection, GetRestartHistoryReq());
    EXPECT_EQ(expect<GetRestartHistoryCfm>().body.ShortDebugString(), "history_item { restart_code: 65536 }");
}

TEST_F(BoardSimRestartsTest, a_damaged_history_is_rejected_and_begins_anew_with_the_next_restart)
{
    const std::uint32_t connection = connectDunl();
    order(connection, "a");
    EXPECT_EQ(history(connection, 1), "a ");
    std::ofstream(ruDir("boardsim/dunl") + "/restarts") << "\x0a\xff";
    sendDunl(9, connection, GetRestartHistoryReq());
    expect<GetRestartHistoryRej>();
    EXPECT_EQ(show("dunl")["restarts"]["history"], "unreadable");
    order(connection, "b");
    EXPECT_EQ(history(connection, 10), "b ");
}

TEST_F(BoardSimRestartsTest, where_a_restart_means_one_the_servers_that_run_go_and_come_back)
{
    run("dunl restart-means restart 1000");
    run("ganti stop");
    const std::uint32_t connection = connectDunl();
    subscribe(11, connection);
    const kiv_mbox_id_t before[] = {kiv_locate("DunlServer"), kiv_locate("FeskServer"), kiv_locate("YarrowIServer"),
                                    kiv_locate("LegacyVornServer")};
    for (const kiv_mbox_id_t server : before) {
        kiv_monitor(server, kiv_alloc(4, 0x42));
    }
    order(connection, "down");
    run("dunl board-restart and again");
    for (std::size_t i = 0; i < std::size(before); ++i) {
        EXPECT_NE(take(0x42), nullptr);
    }
    EXPECT_TRUE(anyOf<RestartBoardNotificationInd>());                                  // it came before
    EXPECT_TRUE(eventually([] { return kiv_locate("YarrowIServer") != KIV_NO_MBOX; })); // the last
    for (const char* name : {"DunlServer", "FeskServer", "LegacyVornServer"}) {
        EXPECT_NE(kiv_locate(name), KIV_NO_MBOX) << name;
    }
    EXPECT_FALSE(show("ganti")["running"]);
    EXPECT_EQ(history(connectDunl(), 10), "and again down ");
}

TEST_F(BoardSimRestartsTest, a_board_that_is_down_takes_further_orders_and_ends_with_the_simulator)
{
    run("dunl restart-means restart 3600000");
    const kiv_mbox_id_t yarrowi = kiv_locate("YarrowIServer");
    kiv_monitor(yarrowi, kiv_alloc(4, 0x42));
    run("dunl board-restart");
    EXPECT_NE(take(0x42), nullptr);
    EXPECT_EQ(run("dunl board-restart code=204"), 0);
    EXPECT_EQ(kiv_locate("YarrowIServer"), KIV_NO_MBOX);
}

TEST_F(BoardSimRestartsTest, the_order_to_wake_up_ends_the_deep_sleep)
{
    const std::uint32_t sleeper = connectYarrowi(1, 11);
    send("YarrowIServer", yarrowi::MsgNo::SubscribeDeepSleepStatusReq, 20, sleeper);
    run("yarrowi state ACTIVE");
    EXPECT_EQ(expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd).body.deep_sleep_status(),
              yarrowi::ACTIVE);
    const std::uint32_t connection = connectDunl();
    order(connection, "no wake-up", 203);
    order(connection, "Deep Sleep Wakeup", 204);
    EXPECT_EQ(expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd).body.deep_sleep_status(),
              yarrowi::INACTIVE);
    run("yarrowi wake"); // it is awake: nothing is told
    run("yarrowi indicate DeepSleepStatusInd none");
    EXPECT_FALSE(expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd).body.has_deep_sleep_status());
    EXPECT_FALSE(anyOf(yarrowi::MsgNo::DeepSleepStatusInd));
}

TEST_F(BoardSimRestartsTest, an_activation_takes_each_step_in_its_own_time_and_its_confirm_can_be_held)
{
    EXPECT_EQ(run("yarrowi step 1 3600000"), 0);
    EXPECT_EQ(run("yarrowi step 1 soon"), 1);
    EXPECT_EQ(show("yarrowi")["deepSleep"]["steps"].dump(), "[1,3600000]");
    const std::uint32_t connection = connectYarrowi(1, 11);
    send("YarrowIServer", yarrowi::MsgNo::SubscribeDeepSleepStatusReq, 20, connection);
    run("yarrowi hold ActivateDeepSleepReq");
    send("YarrowIServer", yarrowi::MsgNo::ActivateDeepSleepReq, 30, connection);
    for (const auto state : {yarrowi::PRE_ACTIVE, yarrowi::ACTIVATING}) {
        EXPECT_EQ(expect<yarrowi::DeepSleepStatusInd>(yarrowi::MsgNo::DeepSleepStatusInd).body.deep_sleep_status(),
                  state);
    }
    EXPECT_FALSE(anyOf(yarrowi::MsgNo::ActivateDeepSleepCfm));
    run("yarrowi release");
    EXPECT_EQ(expect<yarrowi::ActivateDeepSleepCfm>(yarrowi::MsgNo::ActivateDeepSleepCfm).procedureRef, 30U);
}

TEST_F(BoardSimRestartsTest, a_command_with_bad_words_restarts_nothing)
{
    for (const char* line :
         {"restart-means", "restart-means restart soon", "restart-means nothing 1", "restart-means 1",
          "restart-history all", "board-restart code=x", "reject RestartBoardFwd"}) {
        EXPECT_EQ(run(std::string("dunl ") + line), 1) << line;
    }
    const Json restarts = show("dunl")["restarts"];
    EXPECT_EQ(restarts["mean"], "nothing");
    EXPECT_EQ(restarts["history"], 0);
}

} // namespace
