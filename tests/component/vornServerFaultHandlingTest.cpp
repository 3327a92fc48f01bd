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

constexpr std::uint16_t swError = OMLA_CONST_FH_FAULT_ID_SW_ERROR;

using LabelIndS = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;

class VornServerFaultHandlingTest : public UnitTest
{
protected:
    VornServerFaultHandlingTest()
    {
        unit.bringUp();
        rhune.appear();
        const struct {
            RhuneVornConnEstablishReqS request{{RhuneVornConnEstablishReqS::number, {}, {}}, VornU32(1)};
            VornU32 revision{1};
        } establish;
        rhune.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&establish, 1)));
        connectionRef = rhune.expect<RhuneVornConnEstablishCfmS>().header.connectionRef;
    }

    /// A fault of the unit with all that a fault has.
    void raise(std::uint16_t faultId, std::uint32_t recoveryTime = 0, const std::string& label = "",
               const std::string& description = "from the unit")
    {
        NewSignal<RhuneVornFaultFwdS> signal(0, connectionRef);
        signal->faultId = faultId;
        signal->recoveryTime = recoveryTime;
        std::copy(label.begin(), label.end(), signal->hwFaultLabel);
        std::copy(description.begin(), description.end(), signal->faultDescription);
        rhune.sendSignal(unit.privateMbox(), signal);
    }
    void cease(std::uint16_t faultId)
    {
        NewSignal<RhuneVornFaultceaseFwdS> signal(0, connectionRef);
        signal->faultId = faultId;
        rhune.sendSignal(unit.privateMbox(), signal);
    }
    static void subscribe(const Client& client) { client.send<OmlaVornSubscribeFaultsReqS>(); }
    static void subscribeWithLabel(const Client& client) { client.send<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>(); }

    /// All that the client has got: "+301/0 " for a fault and its case, "*301/0 " for one with label, "-301/0 " for a
    /// cease, "cfm " and "labelCfm " for confirms. Its references are in all of them.
    std::string told(const Client& client)
    {
        unit.settle();
        std::string all;
        while (const auto signal = client.take()) {
            const auto* header = viewSignal<VornSignalHeader>(signal->get());
            EXPECT_EQ(header->clientRef, client.clientRef);
            EXPECT_EQ(header->serverRef, client.serverRef);
            const std::string text = textOf<OmlaVornFaultIndS>(*signal, "+") + textOf<LabelIndS>(*signal, "*") +
                                     textOf<OmlaVornFaultceaseIndS>(*signal, "-");
            EXPECT_EQ(signal->sender(), text.empty() ? client.publicMbox() : unit.privateMbox());
            all += text;
            if (text.empty()) {
                all += signal->number() == OmlaVornSubscribeFaultsCfmS::number                   ? "cfm "
                       : signal->number() == OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number ? "labelCfm "
                                                                                                 : "? ";
            }
        }
        return all;
    }
    template <typename Record>
    static std::string textOf(const Received& signal, const char* kind)
    {
        const auto* record = viewSignal<Record>(signal.get());
        const bool isRecord = signal.number() == Record::number && signal.size() == sizeof(Record);
        return isRecord ? fmt::format("{}{:x}/{} ", kind, record->faultId.value(), record->faultCase.value()) : "";
    }
    std::string faultCommand(const std::string& word, bool isValid = true)
    {
        int exitCode = -1;
        std::string text = unit.command({"vornsrv", "fault", word}, exitCode);
        EXPECT_EQ(exitCode == 0, isValid);
        return text;
    }
    std::string subscribers() { return faultCommand("subscriber"); }

    const std::string title = "OMLA_VORN_FAULT_SUBSCRIBERS\n-------------------------\n";
    const std::string labelTitle =
        "OMLA_VORN_FAULTS_WITH_HW_FAULT_LABEL_SUBSCRIBERS\n----------------------------------------------\n";
    VorniPeer rhune{unit.post, "rhuneClient"};
    std::uint32_t connectionRef = 0;
};

TEST_F(VornServerFaultHandlingTest, when_a_fault_comes_and_goes_then_each_subscriber_is_told_in_its_form)
{
    Client& brief = unit.connect();
    Client& labelled = unit.connect();
    Client& none = unit.connect();
    subscribeWithLabel(labelled);
    subscribe(brief);
    EXPECT_EQ(told(labelled) + told(brief), "labelCfm cfm ");

    raise(swError, 301, "LABEL", "a description");
    EXPECT_EQ(fieldText(brief.expect<OmlaVornFaultIndS>().faultDescription), "a description");
    const auto labelInd = labelled.expect<LabelIndS>();
    EXPECT_EQ(fieldText(labelInd.faultDescription), "a description");
    EXPECT_EQ(labelInd.recoveryTime, 301U);
    EXPECT_EQ(fieldText(labelInd.hwFaultLabel), "LABEL");
    cease(swError);
    EXPECT_EQ(told(brief) + told(labelled) + told(none), "-301/0 -301/0 ");

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

TEST_F(VornServerFaultHandlingTest, when_a_recovery_time_is_short_or_a_text_long_then_it_is_lengthened_or_cut)
{
    Client& brief = unit.connect();
    Client& labelled = unit.connect();
    subscribe(brief);
    subscribeWithLabel(labelled);
    EXPECT_EQ(told(labelled) + told(brief), "labelCfm cfm ");
    for (const auto& [time, shown] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {0, 300}, {299, 300}, {300, 300}, {0xFFFFFFFF, 0xFFFFFFFF}}) {
        const auto mark = RecordedTraces::mark();
        raise(swError, time, std::string(20, 'l'), std::string(111, 'd'));
        EXPECT_EQ(fieldText(brief.expect<OmlaVornFaultIndS>().faultDescription), std::string(109, 'd'));
        const auto ind = labelled.expect<LabelIndS>();
        EXPECT_EQ(fieldText(ind.faultDescription), std::string(109, 'd'));
        EXPECT_EQ(fieldText(ind.hwFaultLabel), std::string(19, 'l'));
        EXPECT_EQ(ind.recoveryTime, shown);
        EXPECT_EQ(RecordedTraces::has(fmt::format("adjusting recovery time from {} to 300 seconds", time), mark),
                  time < 300);
        cease(swError);
        EXPECT_EQ(told(labelled) + told(brief), "-301/0 -301/0 ");
    }
}

TEST_F(VornServerFaultHandlingTest, when_a_client_subscribes_late_then_what_is_shown_follows_its_confirm_to_it_alone)
{
    Client& early = unit.connect();
    subscribe(early);
    raise(OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW);
    raise(swError);
    raise(OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION);
    raise(OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL); // hidden
    EXPECT_EQ(told(early), "cfm +710/0 +301/0 +300/0 ");

    Client& late = unit.connect();
    subscribeWithLabel(late);
    EXPECT_EQ(told(late), "labelCfm *300/0 *301/0 ") << "a power disturbance isn't told again";
    EXPECT_EQ(told(early), "");
    subscribe(early);
    EXPECT_EQ(told(early), "cfm +300/0 +301/0 ");
    subscribeWithLabel(late);
    EXPECT_EQ(told(late), "labelCfm *300/0 *301/0 ");
}

TEST_F(VornServerFaultHandlingTest, when_a_client_asks_for_both_forms_then_it_has_the_one_with_label_in_either_order)
{
    Client& client = unit.connect(21);
    const std::uint32_t firstRef = client.clientRef;
    subscribe(client);
    subscribeWithLabel(client);
    EXPECT_EQ(told(client), "cfm labelCfm ");
    const std::string mbox = fmt::format("0x{:x}", client.mbox());
    EXPECT_TRUE(
        RecordedTraces::has("Removing client subscription for default faults, serverRef = 21, mboxId = " + mbox));

    client.clientRef = 4711;
    subscribe(client);
    EXPECT_EQ(told(client), "");
    EXPECT_TRUE(RecordedTraces::has("ABN: Signal ignored, signal: OMLA_VORN_SUBSCRIBE_FAULTS_REQ; additional info: "
                                    "received after OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ; "
                                    "serverRef: 21, clientRef: 4711, sender: " +
                                    mbox));
    subscribeWithLabel(client);
    EXPECT_EQ(told(client), "labelCfm ");
    client.clientRef = firstRef; // the references stay those of the first request
    raise(swError);
    EXPECT_EQ(told(client), "*301/0 ");
}

TEST_F(VornServerFaultHandlingTest, when_who_subscribes_has_no_session_then_there_is_no_answer)
{
    Client& stranger = unit.addClient(33);
    subscribe(stranger);
    subscribeWithLabel(stranger);
    EXPECT_EQ(told(stranger), "");
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_SUBSCRIBE_FAULTS_REQ ignored, serverRef 33 is not connected"));
    EXPECT_TRUE(RecordedTraces::has(
        "ABN: OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ ignored, serverRef 33 is not connected"));
    EXPECT_EQ(subscribers(), title + "none\n\n" + labelTitle + "none\n\n");
    EXPECT_EQ(faultCommand("list", false), "invalid fault command\n");
}

TEST_F(VornServerFaultHandlingTest, when_a_subscriber_goes_then_it_leaves_the_list_and_the_others_are_told)
{
    Client& first = unit.connect(1);
    Client& second = unit.connect(12345678);
    Client& third = unit.connect(3);
    subscribe(first);
    subscribe(second);
    subscribeWithLabel(third);
    EXPECT_EQ(told(second), "cfm ");
    const auto line = [](const Client& client) {
        return fmt::format("0x{:08x}    {:>8}    {:>8}\n", client.mbox(), client.clientRef, client.serverRef);
    };
    const std::string heading = "mailbox         clientRef   serverRef\n";
    EXPECT_EQ(subscribers(),
              title + heading + line(first) + line(second) + "\n" + labelTitle + heading + line(third) + "\n");

    const auto gone = std::to_string(first.mbox());
    first.die();
    third.die();
    ASSERT_TRUE(RecordedTraces::waitFor("Deleting hwFaultLabel subscriber using mbox = "));
    EXPECT_TRUE(RecordedTraces::has("Deleting fault subscriber using mbox = " + gone));
    EXPECT_EQ(subscribers(), title + heading + line(second) + "\n" + labelTitle + "none\n\n");
    raise(swError);
    EXPECT_EQ(told(second), "+301/0 ");
}

TEST_F(VornServerFaultHandlingTest, when_nobody_listens_then_faults_are_kept_for_who_comes)
{
    dunl::FaultInd ind;
    ind.set_fault_id(7); // EXTERNAL_FAN_FAILED
    ind.set_fault_case(0x12345);
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::FaultInd, 0, unit.dunl.clientRef, ind);
    unit.settle();
    Client& client = unit.connect();
    subscribeWithLabel(client);
    EXPECT_EQ(told(client), fmt::format("labelCfm *705/{} ", 0x2345)) << "16 bits of the case";
}

} // namespace
