/// The clients' O&M states, and the coordinated one that the DUNL server is told.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vorni/oamState.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

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
    template <typename Message>
    void sendFault(std::uint32_t msgNo, int faultId, int faultCase)
    {
        Message message;
        message.set_fault_id(faultId);
        if constexpr (std::is_same_v<Message, dunl::FaultInd>) {
            message.set_fault_case(static_cast<std::uint32_t>(faultCase));
        }
        unit.dunl.sendMessage(unit.privateMbox(), msgNo, 0, unit.dunl.clientRef, message);
    }
    void raise(int faultId) { sendFault<dunl::FaultInd>(dunl::MsgNo::FaultInd, faultId, 1); }
    void cease(int faultId) { sendFault<dunl::FaultCeaseInd>(dunl::MsgNo::FaultCeaseInd, faultId, 0); }

    auto expectState(dunl::OamState state)
    {
        auto request = unit.dunl.expect<dunl::SetOamStateReq>(dunl::MsgNo::SetOamStateReq);
        EXPECT_TRUE(request.body.has_state());
        EXPECT_EQ(dunl::OamState_Name(request.body.state()), dunl::OamState_Name(state));
        return request;
    }
    void expectNoState()
    {
        unit.settle();
        unit.dunl.expectNothing();
    }
    static std::string restartLog()
    {
        std::ifstream file(std::string(std::getenv("RU_DIR")) + "/log/miravi.log");
        return {std::istreambuf_iterator<char>(file), {}};
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
}

TEST_F(VornServerStateTest, when_a_client_enables_then_both_steps_stand_in_the_restart_log_and_a_disable_does_not)
{
    bringUp();
    Client& client = unit.connect(150);
    enable(client);
    disable(client);
    const std::string references = "clientRef=" + std::to_string(client.clientRef) + ", serverRef=150";
    const std::string log = restartLog();
    const auto begin = log.find("RadioApplication,RadioBoardCtrl Enable Operational Mode Start " + references);
    const auto end = log.find("RadioApplication,RadioBoardCtrl Enable Operational Mode End " + references);
    EXPECT_LT(begin, end);
    EXPECT_NE(end, std::string::npos) << log;
    EXPECT_EQ(log.find("isable"), std::string::npos) << log;
}

TEST_F(VornServerStateTest, when_a_mailbox_has_no_session_then_it_gets_no_answer)
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
    EXPECT_NE(restartLog().find("Enable Operational Mode Start"), std::string::npos);
    EXPECT_EQ(restartLog().find("Enable Operational Mode End"), std::string::npos);
}

TEST_F(VornServerStateTest, when_clients_enable_disable_and_go_then_the_board_is_told_their_coordinated_state)
{
    bringUp();
    Client& first = unit.connect();
    Client& second = unit.connect();
    Client& silent = unit.connect();
    enable(first);
    expectState(dunl::OAM_OPERATIONAL);
    enable(first);
    enable(second);
    expectNoState();
    disable(second);
    expectState(dunl::OAM_DISABLED);
    disable(second);
    enable(first);
    expectNoState();

    second.die();
    expectState(dunl::OAM_OPERATIONAL); // ahead of the other components' farewell
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    const auto mark = RecordedTraces::mark();
    silent.die();
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: client with mailboxID ", mark));
    first.die();
    expectState(dunl::OAM_STARTING);
}

TEST_F(VornServerStateTest, when_the_temperature_is_exceptional_then_the_board_is_disabled_until_it_is_not)
{
    bringUp();
    raise(tooHigh); // before any client
    expectState(dunl::OAM_DISABLED);
    Client& client = unit.connect();
    enable(client);
    expectNoState(); // confirmed all the same
    cease(tooHigh);
    expectState(dunl::OAM_OPERATIONAL);
    EXPECT_TRUE(RecordedTraces::has("VornServerState::handleExceptionalTempFault, isFaultRaised = false"));

    raise(tooLow);
    expectState(dunl::OAM_DISABLED);
    raise(tooHigh); // takes the other's place: a cease and a raise
    expectState(dunl::OAM_OPERATIONAL);
    expectState(dunl::OAM_DISABLED);
    cease(tooHigh);
    expectState(dunl::OAM_OPERATIONAL);
    expectState(dunl::OAM_DISABLED);
    cease(tooLow);
    expectState(dunl::OAM_OPERATIONAL);
}

TEST_F(VornServerStateTest, when_the_board_answers_or_not_then_nothing_changes)
{
    bringUp();
    Client& client = unit.connect();
    enable(client);
    expectState(dunl::OAM_OPERATIONAL).reply(dunl::MsgNo::SetOamStateRej, dunl::SetOamStateRej());
    disable(client);
    const auto request = expectState(dunl::OAM_DISABLED);
    request.reply(dunl::MsgNo::SetOamStateCfm, dunl::SetOamStateCfm());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::hasPart("msgNo:0x170778c procedureRef:"));
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: msgNo:0x170775c"));
    EXPECT_TRUE(RecordedTraces::hasPart("msgNo:0x170775b procedureRef:" + std::to_string(request.procedureRef)));
    EXPECT_EQ(audit(client), 2);

    struct {
        BoardMessageHeader header;
        std::uint8_t body[1];
    } const broken{{dunl::MsgNo::SetOamStateCfm, request.procedureRef, unit.dunl.clientRef}, {0x08}};
    unit.dunl.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&broken, 1)));
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("Unable to parse GPB message tolme.dunl.SetOamStateCfm of size 13 bytes"));
}

TEST_F(VornServerStateTest, when_the_server_comes_back_able_then_the_first_answer_about_its_capability_still_holds)
{
    bringUp(false);
    Client& client = unit.connect();
    enable(client);
    unit.settle();
    unit.dunl.die();
    unit.dunlCapabilities = {dunl::VORN_OAM_STATE};
    unit.connectDunl();
    disable(client);
    expectNoState();
}

TEST_F(VornServerStateTest, when_the_server_is_gone_then_the_state_is_lost_and_the_next_one_is_sent_when_it_is_back)
{
    bringUp();
    Client& client = unit.connect();
    enable(client);
    expectState(dunl::OAM_OPERATIONAL);
    unit.dunl.die();
    disable(client);
    unit.settle();
    EXPECT_TRUE(
        RecordedTraces::has("ABN: The procedure of sending setOamStateReq to Board Handler was not successful!"));
    EXPECT_TRUE(RecordedTraces::has("SetOamStateReq: procedureRef: 0"));
    unit.connectDunl();
    client.die();
    expectState(dunl::OAM_STARTING);
}

} // namespace
