/// Faults and the O&M state across processes that are killed.

#include "system.h"
#include "vorni/faults.h"
#include "vorni/oamState.h"

#include <csignal>

using namespace TestSystem;

namespace {

class FaultTest : public SystemTest
{
protected:
    void subscribe(DuClient& client)
    {
        client.send<OmlaVornSubscribeFaultsReqS>();
        client.expect<OmlaVornSubscribeFaultsCfmS>();
    }
    void expectFault(DuClient& client, int faultId, int faultCase)
    {
        const auto ind = client.expect<OmlaVornFaultIndS>();
        EXPECT_EQ(ind.faultId, faultId);
        EXPECT_EQ(ind.faultCase, faultCase);
    }
};

TEST_F(FaultTest, when_the_server_is_killed_and_back_then_the_board_tells_it_the_faults_that_are_active)
{
    unit.bringUp();
    Board& board = unit.board();
    board.command({"dunl", "raise", "HW_FAULT", "case=5"});
    DuClient& client = connect();
    subscribe(client);
    expectFault(client, 0x0101, 5);
    const std::uint32_t before = client.server;
    unit.server().signal(SIGKILL);
    EXPECT_EQ(unit.server().wait(), 128 + SIGKILL);
    awaitGone(before);
    board.command({"dunl", "raise", "EXCEPTIONAL_TEMPERATURE_TOO_LOW"});

    unit.startServer();
    awaitPublished();
    DuClient& fresh = connect();
    subscribe(fresh);
    expectFault(fresh, 0x0104, 0); // it hides the other
    board.command({"dunl", "cease", "EXCEPTIONAL_TEMPERATURE_TOO_LOW"});
    EXPECT_EQ(fresh.expect<OmlaVornFaultceaseIndS>().faultId, 0x0104);
    expectFault(fresh, 0x0101, 5);
    fresh.expectSettled();
}

TEST_F(FaultTest, when_the_client_that_keeps_the_board_disabled_is_killed_then_the_others_state_holds_again)
{
    unit.bringUp();
    Board& board = unit.board();
    DuClient& client = connect();
    client.send<OmlaVornEnableOperationReqS>();
    client.expect<OmlaVornEnableOperationCfmS>();
    board.await("dunl", "SetOamStateReq", 1);
    Process& other = unit.start(vornclient, {"--timeout", "15", "disable", "then", "watch"});
    board.await("dunl", "SetOamStateReq", 2);
    EXPECT_EQ(board.command({"dunl", "oam-state"}), "DISABLED\n");
    other.signal(SIGKILL);
    EXPECT_EQ(other.wait(), 128 + SIGKILL);
    board.await("dunl", "SetOamStateReq", 3);
    EXPECT_EQ(board.show("dunl")["oamState"]["history"], nlohmann::json({"OPERATIONAL", "DISABLED", "OPERATIONAL"}));
    client.expectSettled();
}

} // namespace
