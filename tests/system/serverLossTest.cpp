/// The servers behind the real server, killed and back: the legacy server, and each board server.

#include "system.h"
#include "vorni/deepSleep.h"
#include "vorni/linkSupervision.h"
#include "vorni/software.h"
#include "vorni/utc.h"

#include <csignal>

using namespace TestSystem;

namespace {

constexpr const char* allServers[] = {"legacy", "dunl", "fesk", "yarrowi", "ganti"};

/// One of the servers is a process of its own, so that it can be killed.
class ServerLossTest : public SystemTest
{
protected:
    void bringUpWithSeparate(const std::string& name)
    {
        m_name = name;
        unit.startBoard({"--without", name});
        bringBack();
        unit.startServer();
        m_published = awaitPublished();
    }
    void kill()
    {
        const auto show = m_separate->show(m_name);
        const auto mbox = static_cast<std::uint32_t>(std::stoul(show["mailbox"].get<std::string>(), nullptr, 16));
        kill(*m_separate);
        awaitGone(mbox);
    }
    static void kill(Board& board)
    {
        board.process.signal(SIGKILL);
        EXPECT_EQ(board.process.wait(), 128 + SIGKILL);
    }
    /// Returns when this is the one component that isn't ready.
    void awaitNotReady(const std::string& component)
    {
        const std::string listing = "The following component(s) are not ready to publish\n" + component + "\n\n";
        const auto end = std::chrono::steady_clock::now() + patience;
        while (unit.run(ulmo, {"vornsrv", "all", "ready"}).output != listing) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
        }
    }
    void bringBack()
    {
        std::string others;
        for (const char* other : allServers) {
            others += other == m_name ? "" : std::string(others.empty() ? "" : ",") + other;
        }
        m_separate = &unit.startBoard({"--without", others});
    }
    Board& separate() { return *m_separate; }
    void expectStillPublished() { EXPECT_EQ(kiv_locate("VornServer"), m_published); }

    std::uint32_t m_published = KIV_NO_MBOX;

private:
    std::string m_name;
    Board* m_separate = nullptr;
};

TEST_F(ServerLossTest, when_the_legacy_server_stops_and_starts_then_the_server_is_published_anew_and_clients_go_on)
{
    unit.bringUp();
    DuClient& client = connect();
    client.expectProxied();
    const std::uint32_t before = client.server;

    unit.board().command({"legacy", "stop"});
    awaitGone(before);
    EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
    const std::string sessions = unit.sessions();
    EXPECT_EQ(count(sessions, "m_mboxName = DU_0\n"), 1U) << sessions;
    EXPECT_EQ(count(sessions, "    m_mboxName = VornFwdMbox_0\n"), 1U) << sessions;
    EXPECT_EQ(count(sessions, "m_pLegacySession:"), 0U) << sessions;

    unit.board().command({"legacy", "start"});
    client.server = awaitPublished();
    EXPECT_NE(client.server, before);
    client.expectProxied();
    client.expectMmiServed();
    client.setTimeAndExpect<OmlaVornSetUtcTimeCfmS>();
    connect();
    EXPECT_EQ(count(unit.sessions(), "m_mboxName = DU_1\n"), 1U);
}

TEST_F(ServerLossTest, when_the_legacy_server_is_killed_and_back_then_the_server_is_published_anew_and_clients_go_on)
{
    bringUpWithSeparate("legacy");
    DuClient& client = connect();
    kill();
    awaitGone(m_published);
    bringBack();
    client.server = awaitPublished();
    EXPECT_NE(client.server, m_published);
    client.expectProxied();
    client.expectMmiServed();
    connect();
}

TEST_F(ServerLossTest, when_the_dunl_server_is_killed_and_back_then_the_server_stays_published_and_connects_again)
{
    bringUpWithSeparate("dunl");
    DuClient& client = connect();
    client.setTimeAndExpect<OmlaVornSetUtcTimeCfmS>();
    kill();
    client.expectMmiServed();
    client.send<OmlaVornSetUtcTimeReqS>();
    client.expectSettled(); // a request that can't be passed on isn't answered
    expectStillPublished();
    const Finished ready = unit.run(ulmo, {"vornsrv", "all", "ready"});
    EXPECT_EQ(ready.output, "The following component(s) are not ready to publish\nVornServerDunl\n\n");

    bringBack();
    separate().await("dunl", "SubscribeFaultsReq"); // the last that a new connection asks for
    const auto dunl = separate().show("dunl");
    EXPECT_EQ(dunl["connections"].size(), 1U) << dunl;
    EXPECT_EQ(dunl["received"]["GetCapabilitiesReq"], 1) << dunl;
    client.expectSettled();
    client.setTimeAndExpect<OmlaVornSetUtcTimeRejS>(); // the new server doesn't know its time source
    connect().setTimeAndExpect<OmlaVornSetUtcTimeCfmS>();
    expectStillPublished();
}

TEST_F(ServerLossTest, when_the_fesk_server_is_killed_and_back_then_the_unit_is_an_mmi_user_again)
{
    bringUpWithSeparate("fesk");
    DuClient& client = connect();
    kill();
    client.expectMmiServed();
    bringBack();
    separate().await("fesk", "RegisterMmiUserReq");
    const auto fesk = separate().show("fesk");
    EXPECT_EQ(fesk["connections"].size(), 1U) << fesk;
    ASSERT_EQ(fesk["mmiUsers"].size(), 1U) << fesk;
    EXPECT_EQ(fesk["mmiUsers"][0]["priority"], 3) << fesk;
    expectStillPublished();
    client.expectMmiServed();
    connect();
    EXPECT_EQ(separate().show("fesk")["mmiUsers"].size(), 2U);
}

TEST_F(ServerLossTest, when_the_deep_sleep_server_is_killed_then_requests_are_dropped_and_it_is_not_found_again)
{
    bringUpWithSeparate("yarrowi");
    DuClient& client = connect();
    client.send<OmlaVornSubscribeDeepSleepStatusReqS>();
    client.expect<OmlaVornSubscribeDeepSleepStatusCfmS>();
    kill();
    bringBack();
    client.send<OmlaVornActivateDeepSleepReqS>();
    client.expectSettled();
    client.expectMmiServed();
    client.setTimeAndExpect<OmlaVornSetUtcTimeCfmS>();
    expectStillPublished();

    DuClient& late = addClient();
    late.beginConnect();
    unit.board().await("fesk", "RegisterMmiUserReq", 3);
    late.expectProxied(); // held for ever: nobody answers for deep sleep
    EXPECT_TRUE(separate().show("yarrowi")["received"].empty());
}

TEST_F(ServerLossTest,
       when_the_software_manager_is_killed_then_it_is_not_connected_again_and_the_server_not_published_again)
{
    bringUpWithSeparate("ganti");
    DuClient& client = connect();
    client.send<OmlaVornAcquireResourceReqS>([](auto& request) { request.resource = 1; });
    client.expect<OmlaVornAcquireResourceCfmS>();
    kill(separate());
    awaitNotReady("VornServerGanti");
    client.send<OmlaVornReleaseResourceReqS>([](auto& request) { request.resource = 1; });
    client.expectSettled();
    bringBack();
    connect().expectMmiServed();
    expectStillPublished();
    EXPECT_TRUE(separate().show("ganti")["received"].empty());

    unit.board().command({"legacy", "stop"}); // what has it published again otherwise
    awaitGone(m_published);
    unit.board().command({"legacy", "start"});
    unit.awaitSessions("m_pLegacySession:"); // found, and readiness asked for
    EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
}

TEST_F(ServerLossTest, when_the_whole_board_is_killed_and_back_then_the_server_connects_to_all_that_it_finds_again)
{
    unit.startSoftwareManager(); // it isn't looked for again
    Board& killed = unit.startOtherServers();
    unit.startServer();
    DuClient& client = addClient();
    const std::uint32_t before = awaitPublished();
    client.server = before;
    kill(killed);
    awaitGone(before);
    Board& board = unit.startOtherServers();
    client.server = awaitPublished();
    board.await("dunl", "GetCapabilitiesReq");
    board.await("fesk", "RegisterMmiUserReq");
    client.expectSettled();
}

} // namespace
