/// Clients of the real server: sessions of the client program, the gate of a connection, clients that are killed.

#include "system.h"
#include "vorni/connection.h"
#include "vorni/linkSupervision.h"

#include <csignal>
#include <fstream>

using namespace TestSystem;

namespace {

class SessionTest : public SystemTest
{
protected:
    /// A session file in the unit's run-time directory.
    static std::string sessionFile(const std::string& lines)
    {
        const std::string path = std::string(std::getenv("RU_DIR")) + "/test.session";
        std::ofstream(path) << lines;
        return path;
    }
    static void dieAndBeMissed(DuClient& client, const Board& board, unsigned disconnects)
    {
        client.die();
        board.await("yarrowi", "ConnectionClosedownReq", disconnects);
    }
};

TEST_F(SessionTest, when_the_sample_session_is_played_then_it_passes)
{
    unit.bringUp();
    const std::string directory = std::getenv("RU_DIR"); // what the session loads
    std::ofstream(directory + "/load.bin") << std::string(1'000'000, 'l');
    std::ofstream(directory + "/small.bin") << std::string(5000, 's');
    const Finished session = unit.run(vornclient, {"--timeout", "15", "play", SAMPLE_SESSION});
    EXPECT_EQ(session.exitCode, 0) << session.output;
}

TEST_F(SessionTest, when_a_session_expects_something_else_then_it_fails_and_says_where)
{
    unit.bringUp();
    const std::string path = sessionFile("connect\nmmi 1\nexpect-reject mmi 2 with \"Unknown mode\"\nmmi 1\n");
    const Finished session = unit.run(vornclient, {"play", path});
    EXPECT_EQ(session.exitCode, 1) << session.output;
    EXPECT_EQ(count(session.output, "test.session:3: expect-reject mmi 2"), 2U) << session.output;
    EXPECT_EQ(count(session.output, "Unsupported MMI mode"), 2U) << session.output;
    EXPECT_EQ(count(session.output, "test.session:4"), 0U) << "went on:\n" << session.output;
}

TEST_F(SessionTest, when_a_client_is_killed_while_its_confirm_is_held_then_only_what_it_was_given_is_taken_back)
{
    unit.bringUp();
    Board& board = unit.board();
    board.command({"fesk", "hold", "RegisterMmiUserReq"});
    Process& client = unit.start(vornclient, {"--timeout", "600", "connect"});
    board.await("fesk", "RegisterMmiUserReq", 2); // the first is the unit's own
    board.await("dunl", "RegisterUtcTimeSourceReq");
    unit.awaitSessions("m_utcTimeSourceRef = 1\n");

    client.signal(SIGKILL);
    EXPECT_EQ(client.wait(), 128 + SIGKILL);
    board.await("dunl", "UnregisterUtcTimeSourceReq");
    board.await("dunl", "ConnectivityNotConnectedReq");
    board.await("yarrowi", "ConnectionClosedownReq", 2); // the first is the unit's own
    EXPECT_EQ(count(client.output(), "OMLA_VORN_CONN_ESTABLISH_CFM{"), 0U) << client.output();

    board.command({"fesk", "release"});
    const std::string sessions = unit.sessions();
    EXPECT_EQ(count(sessions, "m_mboxName = DU_"), 0U) << sessions;
    EXPECT_EQ(count(sessions, "m_pLegacySession:"), 1U) << sessions;
    const auto dunl = board.show("dunl");
    EXPECT_TRUE(dunl["utcTime"]["sources"].empty()) << dunl;
    EXPECT_FALSE(dunl["connectivity"]["connected"].get<bool>()) << dunl;
    const auto fesk = board.show("fesk");
    EXPECT_FALSE(fesk["received"].contains("UnregisterMmiUserReq")) << fesk;
    connect().expectMmiServed();
}

TEST_F(SessionTest, when_a_connected_client_is_killed_then_all_it_had_is_taken_back)
{
    unit.bringUp();
    Board& board = unit.board();
    DuClient& other = connect();
    Process& client = unit.start(vornclient, {"--timeout", "15", "connect", "then", "watch"});
    client.awaitOutput("<- OMLA_VORN_CONN_ESTABLISH_CFM{");
    EXPECT_EQ(board.show("fesk")["mmiUsers"].size(), 3U);

    client.signal(SIGKILL);
    EXPECT_EQ(client.wait(), 128 + SIGKILL);
    board.await("dunl", "UnregisterUtcTimeSourceReq");
    board.await("fesk", "UnregisterMmiUserReq");
    board.await("yarrowi", "ConnectionClosedownReq", 2);
    other.expectSettled();
    const std::string sessions = unit.sessions();
    EXPECT_EQ(count(sessions, "m_mboxName = DU_0\n"), 1U) << sessions;
    EXPECT_EQ(count(sessions, "m_mboxName = DU_1\n"), 0U) << sessions;
    auto dunl = board.show("dunl");
    EXPECT_EQ(dunl["utcTime"]["sources"].size(), 1U) << dunl;
    EXPECT_FALSE(dunl["received"].contains("ConnectivityNotConnectedReq")) << "a client is left: " << dunl;
    EXPECT_EQ(board.show("fesk")["mmiUsers"].size(), 2U);

    other.die();
    board.await("dunl", "ConnectivityNotConnectedReq");
    board.await("fesk", "UnregisterMmiUserReq", 2);
    EXPECT_EQ(board.show("fesk")["mmiUsers"].size(), 1U);
}

TEST_F(SessionTest, when_the_supervision_of_links_is_known_then_a_second_client_is_not_held_for_it)
{
    unit.bringUp();
    Board& board = unit.board();
    DuClient& first = connect();
    board.command({"dunl", "hold", "ConnectivityConnectedReq"});
    DuClient& second = connect();
    EXPECT_EQ(board.show("dunl")["received"]["ConnectivityConnectedReq"], 1);

    dieAndBeMissed(first, board, 2);
    EXPECT_FALSE(board.show("dunl")["received"].contains("ConnectivityNotConnectedReq"));
    dieAndBeMissed(second, board, 3);
    board.await("dunl", "ConnectivityNotConnectedReq");

    DuClient& third = addClient();
    third.beginConnect();
    board.await("dunl", "ConnectivityConnectedReq", 2);
    third.expectSettled(); // held: no confirm stands before this answer
    board.command({"dunl", "release"});
    third.expectConfirm();
}

TEST_F(SessionTest, when_the_supervision_of_links_answers_late_then_it_opens_the_gate_of_the_client_that_asked_alone)
{
    unit.bringUp();
    Board& board = unit.board();
    board.command({"dunl", "hold", "ConnectivityConnectedReq"});
    DuClient& first = addClient();
    first.beginConnect();
    DuClient& second = addClient();
    second.beginConnect();
    board.await("yarrowi", "ConnectionEstablishReq", 3); // the last that the second needs; the first is the unit's own
    unit.awaitSessions("m_mmiUserId = 3\n");
    second.expectProxied();

    board.command({"dunl", "release"});
    first.expectConfirm();
    second.expectProxied(); // still held
    connect();
}

} // namespace
