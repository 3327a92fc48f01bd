/// Clients that have subscribed to faults: what they get, in which form and order, and who gets nothing.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "rhune/rhuneSignals.h"
#include "unit.h"
#include "vorni/faultIds.h"
#include "vorni/faults.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

using LabelIndS = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;

constexpr int externalFanFailed = 7; // the DUNL server's number

class VornServerFaultHandlingTest : public UnitTest
{
protected:
    VornServerFaultHandlingTest()
    {
        unit.bringUp();
        rhune.appear();
        struct {
            RhuneVornConnEstablishReqS request;
            VornU32 revision;
        } establish{};
        establish.request.header.sigNo = RhuneVornConnEstablishReqS::number;
        establish.request.nbrOfSupportedProtocolRev = 1;
        establish.revision = 1;
        rhune.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&establish, 1)));
        const auto cfm = rhune.expectNumber(RhuneVornConnEstablishCfmS::number);
        connectionRef = viewSignal<RhuneVornConnEstablishCfmS>(cfm.get())->header.connectionRef;
    }

    /// A fault of the unit with all that a fault has.
    void raise(std::uint16_t faultId, std::uint32_t recoveryTime = 0, const std::string& label = "",
               const std::string& description = "from the unit")
    {
        NewSignal<RhuneVornFaultFwdS> signal(0, connectionRef);
        signal->faultId = faultId;
        signal->recoveryTime = recoveryTime;
        std::copy_n(label.begin(), std::min<std::size_t>(label.size(), 20), signal->hwFaultLabel);
        std::copy_n(description.begin(), std::min<std::size_t>(description.size(), 112), signal->faultDescription);
        signal.send(unit.privateMbox(), rhune.mbox());
    }
    void cease(std::uint16_t faultId)
    {
        NewSignal<RhuneVornFaultceaseFwdS> signal(0, connectionRef);
        signal->faultId = faultId;
        signal.send(unit.privateMbox(), rhune.mbox());
    }
    void subscribe(Client& client)
    {
        client.send<OmlaVornSubscribeFaultsReqS>();
        const auto cfm = client.expect<OmlaVornSubscribeFaultsCfmS>();
        EXPECT_EQ(client.lastSender, client.publicMbox());
        EXPECT_EQ(cfm.header.clientRef, client.clientRef);
        EXPECT_EQ(cfm.header.serverRef, client.serverRef);
    }
    void subscribeWithLabel(Client& client)
    {
        client.send<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>();
        client.expect<OmlaVornSubscribeFaultsWithHwFaultLabelCfmS>();
        EXPECT_EQ(client.lastSender, client.publicMbox());
    }
    void expectNothing(std::initializer_list<Client*> clients)
    {
        unit.settle();
        for (Client* client : clients) {
            client->expectNothing();
        }
    }
    std::string subscribers()
    {
        int exitCode = -1;
        std::string text = unit.command({"vornsrv", "fault", "subscriber"}, exitCode);
        EXPECT_EQ(exitCode, 0);
        return text;
    }

    Peer rhune{unit.post, "rhuneClient"};
    std::uint32_t connectionRef = 0;
};

TEST_F(VornServerFaultHandlingTest, when_a_fault_comes_and_goes_then_each_subscriber_is_told_in_its_form)
{
    Client& brief = unit.connect();
    Client& labelled = unit.connect();
    Client& none = unit.connect();
    subscribeWithLabel(labelled);
    subscribe(brief);

    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR, 301, "LABEL", "a description");
    const auto ind = brief.expect<OmlaVornFaultIndS>();
    EXPECT_EQ(brief.lastSender, unit.privateMbox());
    EXPECT_EQ(ind.header.clientRef, brief.clientRef);
    EXPECT_EQ(ind.header.serverRef, brief.serverRef);
    EXPECT_EQ(ind.faultId, 0x0301);
    EXPECT_EQ(fieldText(ind.faultDescription), "a description");
    EXPECT_EQ(ind.faultCase, 0);
    const auto labelInd = labelled.expect<LabelIndS>();
    EXPECT_EQ(labelInd.faultId, 0x0301);
    EXPECT_EQ(fieldText(labelInd.faultDescription), "a description");
    EXPECT_EQ(labelInd.recoveryTime, 301U);
    EXPECT_EQ(fieldText(labelInd.hwFaultLabel), "LABEL");

    cease(OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    for (Client* client : {&brief, &labelled}) {
        const auto ceased = client->expect<OmlaVornFaultceaseIndS>();
        EXPECT_EQ(ceased.header.clientRef, client->clientRef);
        EXPECT_EQ(ceased.faultId, 0x0301);
    }
    expectNothing({&brief, &labelled, &none});

    const std::string references =
        ",client ref:" + std::to_string(brief.clientRef) + ",server ref:" + std::to_string(brief.serverRef);
    EXPECT_TRUE(RecordedTraces::has("ABN:Equipment fault,signal:OMLA_VORN_FAULT_IND" + references +
                                    ",fault id:OMLA_CONST_FH_FAULT_ID_SW_ERROR,fault description:a description,"
                                    "fault case:0"));
    EXPECT_TRUE(RecordedTraces::has("ABN:Equipment fault cease,signal:OMLA_VORN_FAULTCEASE_IND" + references +
                                    ",fault id:OMLA_CONST_FH_FAULT_ID_SW_ERROR,fault case:0"));
    EXPECT_TRUE(RecordedTraces::hasPart("fault description:'a description',fault case:0,recovery time:301,"
                                        "HW fault label:'LABEL'"));
    EXPECT_TRUE(RecordedTraces::has("sending OMLA_VORN_FAULTCEASE_IND, serverRef = 7"));
}

TEST_F(VornServerFaultHandlingTest, when_a_recovery_time_is_below_five_minutes_then_it_shows_as_five_minutes)
{
    Client& client = unit.connect();
    subscribeWithLabel(client);
    const auto shown = [&](std::uint32_t recoveryTime) {
        raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR, recoveryTime);
        const std::uint32_t time = client.expect<LabelIndS>().recoveryTime;
        cease(OMLA_CONST_FH_FAULT_ID_SW_ERROR);
        client.expect<OmlaVornFaultceaseIndS>();
        return time;
    };
    EXPECT_EQ(shown(0), 300U);
    EXPECT_EQ(shown(299), 300U);
    EXPECT_TRUE(RecordedTraces::has("adjusting recovery time from 299 to 300 seconds"));
    const auto mark = RecordedTraces::mark();
    EXPECT_EQ(shown(300), 300U);
    EXPECT_EQ(shown(0xFFFFFFFF), 0xFFFFFFFF);
    EXPECT_FALSE(RecordedTraces::hasPart("adjusting recovery time", mark));
}

TEST_F(VornServerFaultHandlingTest, when_texts_are_too_long_then_they_are_cut_and_terminated)
{
    Client& brief = unit.connect();
    Client& labelled = unit.connect();
    subscribe(brief);
    subscribeWithLabel(labelled);
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR, 0, std::string(20, 'l'), std::string(111, 'd'));
    EXPECT_EQ(fieldText(brief.expect<OmlaVornFaultIndS>().faultDescription), std::string(109, 'd'));
    const auto ind = labelled.expect<LabelIndS>();
    EXPECT_EQ(fieldText(ind.faultDescription), std::string(109, 'd'));
    EXPECT_EQ(fieldText(ind.hwFaultLabel), std::string(19, 'l'));
}

TEST_F(VornServerFaultHandlingTest, when_a_client_subscribes_late_then_what_is_shown_follows_its_confirm_to_it_alone)
{
    Client& early = unit.connect();
    subscribe(early);
    raise(OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW);
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    raise(OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION);
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL); // hidden
    for (const int faultId : {0x0710, 0x0301, 0x0300}) {
        EXPECT_EQ(early.expect<OmlaVornFaultIndS>().faultId, faultId);
    }

    Client& late = unit.connect();
    subscribeWithLabel(late);
    EXPECT_EQ(late.expect<LabelIndS>().faultId, 0x0300);
    EXPECT_EQ(late.lastSender, unit.privateMbox());
    EXPECT_EQ(late.expect<LabelIndS>().faultId, 0x0301);
    expectNothing({&early, &late}); // a power disturbance isn't told again

    subscribe(early); // once more: confirmed and told once more
    EXPECT_EQ(early.expect<OmlaVornFaultIndS>().faultId, 0x0300);
    EXPECT_EQ(early.expect<OmlaVornFaultIndS>().faultId, 0x0301);
    subscribeWithLabel(late);
    EXPECT_EQ(late.expect<LabelIndS>().faultId, 0x0300);
    EXPECT_EQ(late.expect<LabelIndS>().faultId, 0x0301);
    expectNothing({&early, &late});
}

TEST_F(VornServerFaultHandlingTest, when_a_client_asks_for_both_forms_then_it_has_the_one_with_label_in_either_order)
{
    Client& client = unit.connect(21);
    const std::uint32_t firstRef = client.clientRef;
    subscribe(client);
    subscribeWithLabel(client);
    const std::string mbox = fmt::format("0x{:x}", client.mbox());
    EXPECT_TRUE(
        RecordedTraces::has("Removing client subscription for default faults, serverRef = 21, mboxId = " + mbox));

    client.clientRef = 4711;
    client.send<OmlaVornSubscribeFaultsReqS>();
    expectNothing({&client});
    EXPECT_TRUE(RecordedTraces::has("ABN: Signal ignored, signal: OMLA_VORN_SUBSCRIBE_FAULTS_REQ; additional info: "
                                    "received after OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ; "
                                    "serverRef: 21, clientRef: 4711, sender: " +
                                    mbox));
    subscribeWithLabel(client); // the references stay those of the first request
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_EQ(client.expect<LabelIndS>().header.clientRef, firstRef);
    expectNothing({&client});
}

TEST_F(VornServerFaultHandlingTest, when_who_subscribes_has_no_session_then_there_is_no_answer)
{
    Client& stranger = unit.addClient(33);
    stranger.send<OmlaVornSubscribeFaultsReqS>();
    stranger.send<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>();
    expectNothing({&stranger});
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_SUBSCRIBE_FAULTS_REQ ignored, serverRef 33 is not connected"));
    EXPECT_TRUE(RecordedTraces::has(
        "ABN: OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ ignored, serverRef 33 is not connected"));
    EXPECT_EQ(subscribers(), "OMLA_VORN_FAULT_SUBSCRIBERS\n"
                             "-------------------------\n"
                             "none\n\n"
                             "OMLA_VORN_FAULTS_WITH_HW_FAULT_LABEL_SUBSCRIBERS\n"
                             "----------------------------------------------\n"
                             "none\n\n");
}

TEST_F(VornServerFaultHandlingTest, when_a_subscriber_goes_then_it_leaves_the_list_and_the_others_are_told)
{
    Client& first = unit.connect(1);
    Client& second = unit.connect(12345678);
    Client& third = unit.connect(3);
    subscribe(first);
    subscribe(second);
    subscribeWithLabel(third);
    const auto line = [](const Client& client) {
        return fmt::format("0x{:08x}    {:>8}    {:>8}\n", client.mbox(), client.clientRef, client.serverRef);
    };
    const std::string title = "OMLA_VORN_FAULT_SUBSCRIBERS\n-------------------------\n";
    const std::string labelTitle =
        "OMLA_VORN_FAULTS_WITH_HW_FAULT_LABEL_SUBSCRIBERS\n----------------------------------------------\n";
    const std::string heading = "mailbox         clientRef   serverRef\n";
    EXPECT_EQ(subscribers(),
              title + heading + line(first) + line(second) + "\n" + labelTitle + heading + line(third) + "\n");

    const auto gone = std::to_string(first.mbox());
    first.die();
    third.die();
    ASSERT_TRUE(RecordedTraces::waitFor("Deleting hwFaultLabel subscriber using mbox = "));
    EXPECT_TRUE(RecordedTraces::has("Deleting fault subscriber using mbox = " + gone));
    EXPECT_EQ(subscribers(), title + heading + line(second) + "\n" + labelTitle + "none\n\n");
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_EQ(second.expect<OmlaVornFaultIndS>().faultId, 0x0301);

    int exitCode = 0;
    EXPECT_EQ(unit.command({"vornsrv", "fault", "subscriber", "x"}, exitCode), "invalid fault command\n");
    EXPECT_NE(exitCode, 0);
    EXPECT_EQ(unit.command({"vornsrv", "fault", "list"}, exitCode), "invalid fault command\n");
}

TEST_F(VornServerFaultHandlingTest, when_nobody_listens_then_faults_are_kept_for_who_comes)
{
    dunl::FaultInd ind;
    ind.set_fault_id(externalFanFailed);
    ind.set_fault_case(0x12345);
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::FaultInd, 0, unit.dunl.clientRef, ind);
    unit.settle();
    Client& client = unit.connect();
    subscribeWithLabel(client);
    const auto shown = client.expect<LabelIndS>();
    EXPECT_EQ(shown.faultId, OMLA_CONST_FH_FAULT_ID_FAN_FAILED);
    EXPECT_EQ(shown.faultCase, 0x2345); // 16 bits of it
    EXPECT_EQ(fieldText(shown.faultDescription), "RU External Fan Failed");
    EXPECT_EQ(shown.recoveryTime, 300U);
    EXPECT_EQ(fieldText(shown.hwFaultLabel), "");
}

} // namespace
