/// The clients' O&M states, and the coordinated one that the DUNL server is told.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vorni/oamState.h"

#include <cstdlib>
#include <fstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr int tooHigh = 5; // the DUNL server's numbers
constexpr int tooLow = 4;

class VornServerStateTest : public UnitTest
{
protected:
    void bringUp(bool isCapable = true)
    {
        if (isCapable) {
            unit.dunlCapabilities = {dunl::VORN_OAM_STATE};
        }
        unit.bringUp();
    }
    /// The answer to a request, which comes from the public mailbox with the request's references.
    template <typename Req, typename Answer>
    Answer ask(Client& client)
    {
        client.send<Req>();
        const auto answer = client.expect<Answer>();
        EXPECT_EQ(answer.header.clientRef, client.clientRef);
        EXPECT_EQ(answer.header.serverRef, client.serverRef);
        EXPECT_EQ(client.lastSender, client.publicMbox());
        return answer;
    }
    void enable(Client& client) { ask<OmlaVornEnableOperationReqS, OmlaVornEnableOperationCfmS>(client); }
    void disable(Client& client) { ask<OmlaVornDisableOperationReqS, OmlaVornDisableOperationCfmS>(client); }
    int audit(Client& client) { return ask<OmlaVornAuditReqS, OmlaVornAuditCfmS>(client).state; }
    void raise(int faultId)
    {
        dunl::FaultInd ind;
        ind.set_fault_id(faultId);
        ind.set_fault_case(1);
        unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::FaultInd, 0, unit.dunl.clientRef, ind);
    }
    void cease(int faultId)
    {
        dunl::FaultCeaseInd ind;
        ind.set_fault_id(faultId);
        unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::FaultCeaseInd, 0, unit.dunl.clientRef, ind);
    }

    /// The states that the board is told next; the last request.
    Request<dunl::SetOamStateReq> expectStates(std::initializer_list<dunl::OamState> states)
    {
        Request<dunl::SetOamStateReq> request;
        for (const dunl::OamState state : states) {
            request = unit.dunl.expect<dunl::SetOamStateReq>(dunl::MsgNo::SetOamStateReq);
            EXPECT_TRUE(request.body.has_state());
            EXPECT_EQ(dunl::OamState_Name(request.body.state()), dunl::OamState_Name(state));
        }
        return request;
    }
    void expectNoState()
    {
        unit.settle();
        unit.dunl.expectNothing();
    }
    /// The restart log's lines of enables and disables, without their times.
    static std::string restartLog()
    {
        std::ifstream file(std::string(std::getenv("RU_DIR")) + "/log/miravi.log");
        std::string log;
        for (std::string line; std::getline(file, line);) {
            log += line.find("able Op") != std::string::npos ? line.substr(line.find("Radio")) + '\n' : "";
        }
        return log;
    }
};

TEST_F(VornServerStateTest, when_a_client_enables_and_disables_then_it_is_answered_from_its_session)
{
    bringUp(false);
    Client& client = unit.connect();
    Client& other = unit.connect();
    EXPECT_EQ(audit(client), 0);
    enable(client);
    EXPECT_EQ(audit(client), 1);
    enable(client);
    disable(client);
    EXPECT_EQ(audit(client), 2);
    disable(client);

    const auto rej = ask<OmlaVornEnableOperationReqS, OmlaVornEnableOperationRejS>(client);
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.errorText),
              "signal expected in VornState: STARTING OPERATIONAL, received in VornState: DISABLED");
    EXPECT_EQ(audit(client), 2);
    EXPECT_EQ(audit(other), 0);
    EXPECT_EQ(RecordedTraces::count("set VORN state to Operational: "), 2U);
    EXPECT_EQ(RecordedTraces::count("set VORN state to Disabled: "), 2U);
    raise(tooHigh);
    cease(tooHigh);
    expectNoState(); // the board can't take it
    EXPECT_EQ(RecordedTraces::count("OAM state capability is NOT supported"), 1U);

    unit.dunl.die();
    unit.dunlCapabilities = {dunl::VORN_OAM_STATE}; // too late, the first answer holds
    unit.connectDunl();
    disable(other);
    expectNoState();
}

TEST_F(VornServerStateTest, when_there_is_no_session_then_there_is_no_answer_but_each_enable_stands_in_the_restart_log)
{
    bringUp();
    Client& stranger = unit.addClient();
    stranger.send<OmlaVornAuditReqS>();
    stranger.send<OmlaVornEnableOperationReqS>();
    stranger.send<OmlaVornDisableOperationReqS>();
    expectNoState();
    stranger.expectNothing();
    EXPECT_EQ(RecordedTraces::count("ABN: VORN session for mailboxID " + std::to_string(stranger.mbox()) +
                                    "not found, ignore signal"),
              3U);
    const auto steps = restartLog();
    Client& client = unit.connect(150);
    enable(client);
    disable(client);
    const std::string mode = "RadioApplication,RadioBoardCtrl Enable Operational Mode ";
    const std::string references = fmt::format(" clientRef={}, serverRef=150\n", client.clientRef);
    EXPECT_EQ(steps, mode + fmt::format("Start clientRef={}, serverRef={}\n", stranger.clientRef, stranger.serverRef));
    EXPECT_EQ(restartLog(), steps + mode + "Start" + references + mode + "End" + references);
}

TEST_F(VornServerStateTest, when_clients_enable_disable_and_go_then_the_board_is_told_their_coordinated_state)
{
    bringUp();
    Client& first = unit.connect();
    Client& second = unit.connect();
    Client& silent = unit.connect();
    enable(first);
    expectStates({dunl::OAM_OPERATIONAL});
    enable(first);
    enable(second);
    expectNoState();
    disable(second);
    expectStates({dunl::OAM_DISABLED});
    disable(second);
    enable(first);
    expectNoState();

    second.die();
    expectStates({dunl::OAM_OPERATIONAL}); // ahead of the other components' farewell
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    const auto mark = RecordedTraces::mark();
    silent.die();
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: client with mailboxID ", mark));
    first.die();
    expectStates({dunl::OAM_STARTING});
}

TEST_F(VornServerStateTest, when_the_temperature_is_exceptional_then_the_board_is_disabled_until_it_is_not)
{
    bringUp();
    raise(tooHigh); // before any client
    expectStates({dunl::OAM_DISABLED});
    Client& client = unit.connect();
    enable(client);
    expectNoState(); // confirmed all the same
    cease(tooHigh);
    expectStates({dunl::OAM_OPERATIONAL});
    EXPECT_TRUE(RecordedTraces::has("VornServerState::handleExceptionalTempFault, isFaultRaised = false"));

    raise(tooLow);
    expectStates({dunl::OAM_DISABLED});
    raise(tooHigh); // takes the other's place: a cease and a raise
    expectStates({dunl::OAM_OPERATIONAL, dunl::OAM_DISABLED});
    cease(tooHigh);
    expectStates({dunl::OAM_OPERATIONAL, dunl::OAM_DISABLED});
    cease(tooLow);
    expectStates({dunl::OAM_OPERATIONAL});
}

TEST_F(VornServerStateTest, when_the_board_answers_or_not_then_nothing_changes)
{
    bringUp();
    Client& client = unit.connect();
    enable(client);
    expectStates({dunl::OAM_OPERATIONAL}).reply(dunl::MsgNo::SetOamStateRej, dunl::SetOamStateRej());
    disable(client);
    const auto request = expectStates({dunl::OAM_DISABLED});
    request.reply(dunl::MsgNo::SetOamStateCfm, dunl::SetOamStateCfm());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::hasPart("msgNo:0x170778c procedureRef:"));
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: msgNo:0x170775c"));
    EXPECT_TRUE(RecordedTraces::hasPart("msgNo:0x170775b procedureRef:" + std::to_string(request.procedureRef)));
    EXPECT_EQ(audit(client), 2);
}

TEST_F(VornServerStateTest, when_the_server_is_gone_then_the_state_is_lost_and_the_next_one_is_sent_when_it_is_back)
{
    bringUp();
    Client& client = unit.connect();
    enable(client);
    expectStates({dunl::OAM_OPERATIONAL});
    unit.dunl.die();
    disable(client);
    unit.settle();
    EXPECT_TRUE(
        RecordedTraces::has("ABN: The procedure of sending setOamStateReq to Board Handler was not successful!"));
    EXPECT_TRUE(RecordedTraces::has("SetOamStateReq: procedureRef: 0"));
    unit.connectDunl();
    client.die();
    expectStates({dunl::OAM_STARTING});
}

} // namespace
