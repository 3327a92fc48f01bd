/// The list of software components as it is passed on, and the running load module.

#include "dunl/numbers.h"
#include "nonVolatile.h"
#include "softwareTest.h"

using namespace TestUnit;
using namespace tolme;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t ticket = 5;

class VornServerGantiSoftwareListTest : public SoftwareTest
{
protected:
    VornServerGantiSoftwareListTest() : client(connectWithTicket(ticket)) {}

    GantiRequest<gant::SwCompListReq> beginList()
    {
        client.send<OmlaVornSwCompListReqS>();
        auto request = unit.ganti.expect<gant::SwCompListReq>();
        EXPECT_EQ(request.body.ticket_number(), ticket);
        request.reply(ofTicket<gant::SwCompListCfm>(ticket));
        EXPECT_EQ(client.expect<OmlaVornSwCompListCfmS>().header.clientRef, client.clientRef);
        return request;
    }
    static gant::SwCompListData partOf(const std::string& text, bool end)
    {
        auto data = ofTicket<gant::SwCompListData>(ticket);
        data.set_data(text);
        data.set_end(end);
        return data;
    }
    /// The next signal is a part of the list with this flag; its text.
    std::string expectPart(std::uint32_t endFlag)
    {
        const Received received = client.expectNumber(OmlaVornSwCompListDataS::number);
        const auto& part = *viewSignal<OmlaVornSwCompListDataS>(received.get());
        EXPECT_EQ(part.endFlag, endFlag);
        EXPECT_EQ(part.header.clientRef, client.clientRef);
        EXPECT_EQ(part.header.serverRef, client.serverRef);
        EXPECT_EQ(received.size(), 23 + part.noOfBytes);
        const auto* text = reinterpret_cast<const char*>(&part) + sizeof(part);
        EXPECT_EQ(std::string(text + part.noOfBytes, 3), std::string(3, '\0'));
        return {text, part.noOfBytes};
    }
    void acknowledge(std::uint32_t abort = 0)
    {
        client.send<OmlaVornSwCompListAckS>([=](auto& ack) { ack.abort = abort; });
    }

    Client& client;
};

TEST_F(VornServerGantiSoftwareListTest, when_parts_come_then_each_is_passed_on_and_the_next_waits_for_the_client)
{
    using namespace std::string_literals;
    const auto list = beginList();
    list.reply(partOf("<LmcList>\n\0behind"s, false));
    EXPECT_EQ(expectPart(0), "<LmcList>\n\0behind"s);
    acknowledge();
    const auto ack = unit.ganti.expect<gant::SwCompListAck>();
    EXPECT_EQ(ack.procRef, list.procRef);
    EXPECT_EQ(ack.body.ticket_number(), ticket);
    EXPECT_FALSE(ack.body.abort());
    const std::string large(100'000, 'x');
    list.reply(partOf(large, true));
    EXPECT_EQ(expectPart(1), large);
    acknowledge();
    EXPECT_FALSE(unit.ganti.expect<gant::SwCompListAck>().body.abort());
    acknowledge(); // the list is over
    list.reply(partOf("late", true));
    expectSilence(client);
}

TEST_F(VornServerGantiSoftwareListTest, when_the_client_aborts_then_the_software_manager_is_told_and_nothing_more_comes)
{
    const auto list = beginList();
    list.reply(partOf("<LmcList>\n", false));
    expectPart(0);
    acknowledge(0x100);
    EXPECT_TRUE(unit.ganti.expect<gant::SwCompListAck>().body.abort());
    list.reply(partOf("late", false));
    expectSilence(client);
}

TEST_F(VornServerGantiSoftwareListTest, when_there_is_no_list_then_the_client_is_told_by_the_reason)
{
    using Rej = gant::SwCompListRej;
    const std::pair<Rej::Reason, const char*> reasons[] = {
        {Rej::INVALID_TICKET_NUMBER, "ABN: Resource not acquired"},
        {Rej::TICKET_IN_QUEUE, "ABN: Resource not acquired"},
        {Rej::READ_ERROR, "ABN: Read error"},
    };
    for (const auto& [reason, text] : reasons) {
        const auto list = beginList();
        list.reply(rejectOf<Rej>(ticket, reason));
        expectReject<OmlaVornSwCompListRejS>(client, text);
        list.reply(partOf("late", false));
        acknowledge();
        expectSilence(client);
    }
}

TEST_F(VornServerGantiSoftwareListTest, when_the_product_number_is_replaced_then_the_software_counts_as_preinstalled)
{
    ASSERT_EQ(sarnaStorePid("KRC 1/2"), 0U);
    const auto list = beginList();
    list.reply(partOf("<Rev>R1</Rev>\n<SwList>\n</SwList>\n<SwList>", false));
    EXPECT_EQ(expectPart(0), "<Rev>R1</Rev><Preinstalled />\n\n<SwList>\n</SwList><Preinstalled />\n\n<SwList>");
    EXPECT_TRUE(RecordedTraces::has("Updating SwCompList due to manipulated PID"));

    list.reply(partOf("<SwList> has nothing in front", false));
    expectSilence(client);
    list.reply(partOf("the next part", true));
    EXPECT_EQ(expectPart(1), "the next part");
    ASSERT_EQ(sarnaStorePid(""), 0U);
    list.reply(partOf("<SwList>", true));
    EXPECT_EQ(expectPart(1), "<SwList>");
}

using VornServerGantiRunningTest = SoftwareTest;

TEST_F(VornServerGantiRunningTest, when_clients_ask_for_the_running_module_then_each_gets_its_answer_without_a_ticket)
{
    Client& first = unit.connect();
    Client& second = unit.connect(150);
    first.send<OmlaVornGetRunningLmcReqS>();
    auto firstRequest = unit.ganti.expect<gant::GetRunningSwReq>();
    second.send<OmlaVornGetRunningLmcReqS>();
    const auto secondRequest = unit.ganti.expect<gant::GetRunningSwReq>();
    EXPECT_EQ(secondRequest.procRef, firstRequest.procRef + 1);

    gant::GetRunningSwCfm cfm;
    cfm.set_running_software("CXP%1_R1A");
    secondRequest.reply(cfm);
    const auto running = second.expect<OmlaVornGetRunningLmcCfmS>();
    EXPECT_EQ(fieldText(running.loadModule), "CXP%1_R1A");
    EXPECT_EQ(running.header.clientRef, second.clientRef);
    EXPECT_EQ(running.header.serverRef, second.serverRef);
    for (const std::size_t size : {35U, 36U}) {
        cfm.set_running_software(std::string(size, 'x'));
        firstRequest.reply(cfm);
        EXPECT_EQ(fieldText(first.expect<OmlaVornGetRunningLmcCfmS>().loadModule), std::string(35, 'x'));
        EXPECT_EQ(RecordedTraces::hasPart("copyErrorDescription: data lost"), size > 35);
        firstRequest.reply(cfm);
        expectSilence(first);
        first.send<OmlaVornGetRunningLmcReqS>();
        firstRequest = unit.ganti.expect<gant::GetRunningSwReq>();
    }
}

TEST_F(VornServerGantiRunningTest, when_the_running_module_is_not_known_then_the_client_is_told_why)
{
    Client& client = unit.connect();
    const auto reject = [&](auto&& fill) {
        client.send<OmlaVornGetRunningLmcReqS>();
        gant::GetRunningSwRej rej;
        fill(rej);
        unit.ganti.expect<gant::GetRunningSwReq>().reply(rej);
    };
    reject([](auto& rej) { rej.set_reason(gant::GetRunningSwRej::NOT_FOUND); });
    expectReject<OmlaVornGetRunningLmcRejS>(client, "Not found");
    reject([](auto&) {});
    expectReject<OmlaVornGetRunningLmcRejS>(client, "HW interaction failure in reading environment variable");
}

class VornServerGantiValidationTest : public SelectiveLoadingTest
{
protected:
    GantiRequest<gant::GetRunningSwReq> ask(const Client& client)
    {
        client.send<OmlaVornGetRunningLmcReqS>();
        auto running = unit.ganti.expect<gant::GetRunningSwReq>();
        gant::GetRunningSwCfm cfm;
        cfm.set_running_software("CXP%1_R1A");
        running.reply(cfm);
        return running;
    }
    auto expectValidation(const Client& client)
    {
        const auto running = ask(client);
        const auto request =
            unit.dunl.expect<dunl::ValidateHwSwCompatibilityReq>(dunl::MsgNo::ValidateHwSwCompatibilityReq);
        EXPECT_EQ(request.body.software(), "CXP%1_R1A");
        EXPECT_EQ(request.procedureRef, running.procRef);
        return request;
    }
};

TEST_F(VornServerGantiValidationTest, when_the_board_can_tell_then_it_is_asked_whether_the_software_fits_the_hardware)
{
    Client& client = unit.connect();
    dunl::ValidateHwSwCompatibilityCfm cfm;
    cfm.set_software("another name that is longer than its field");
    const auto request = expectValidation(client);
    request.reply(dunl::MsgNo::ValidateHwSwCompatibilityCfm, cfm);
    EXPECT_EQ(fieldText(client.expect<OmlaVornGetRunningLmcCfmS>().loadModule), cfm.software().substr(0, 35));
    request.reply(dunl::MsgNo::ValidateHwSwCompatibilityCfm, cfm);
    expectSilence(client);

    dunl::ValidateHwSwCompatibilityRej rej;
    const auto rejected = expectValidation(client);
    rejected.reply(dunl::MsgNo::ValidateHwSwCompatibilityRej, rej);
    expectSilence(client);
    EXPECT_TRUE(RecordedTraces::has("ValidateHwSwCompatibilityRej missing errorType! Ignoring signal!"));
    rej.set_error_type(1);
    unit.dunl.sendMessage(rejected.sender, dunl::MsgNo::ValidateHwSwCompatibilityRej, rejected.procedureRef + 1,
                          unit.dunl.clientRef, rej);
    expectSilence(client);
    rejected.reply(dunl::MsgNo::ValidateHwSwCompatibilityRej, rej);
    expectReject<OmlaVornGetRunningLmcRejS>(client, "ABN: Validating running software has failed");
    rej.set_error_type(0);
    expectValidation(client).reply(dunl::MsgNo::ValidateHwSwCompatibilityRej, rej);
    expectReject<OmlaVornGetRunningLmcRejS>(client, "ABN: Unknown ErrorCode!");

    unit.dunl.die();
    unit.settle();
    const auto mark = RecordedTraces::mark();
    const auto unanswered = ask(client);
    expectSilence(client);
    EXPECT_TRUE(RecordedTraces::has("ABN: Failed to send message -- not connected to TOLME server", mark));
    unanswered.reply(gant::GetRunningSwRej()); // its record is still there
    expectReject<OmlaVornGetRunningLmcRejS>(client, "HW interaction failure in reading environment variable");
}

} // namespace
