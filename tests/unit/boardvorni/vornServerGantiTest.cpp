/// What no client can bring about or see: the list of a GSM client on an IRU, whose product name the test gives, and
/// the selection that is kept for the next start.

#include "vornServerGanti.h"

#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"
#include "serverThread.h"
#include "vornServerDunl.h"
#include "vorni/software.h"

using namespace TestUnit;
using namespace std::chrono_literals;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t ticket = 5;

class VornServerGantiTest : public ::testing::Test
{
protected:
    VornServerGantiTest()
    {
        VornServerComponent::areComponentsReadyToPublish = [] { return true; };
        thread.commonData.setPublicMbox(thread.post.addMailbox("public"));
        client.serverRef = 199; // the last of a GSM client
        client.appear();
        ganti.appear();
        EXPECT_TRUE(component.init());
        ganti.expect<gant::ConnEstablishReq>();
        setProductName("IRU 8846");
    }
    ~VornServerGantiTest() override { VornServerComponent::areComponentsReadyToPublish = nullptr; }

    void setProductName(const char* name, bool isValid = true)
    {
        HwPid pid;
        pid.productName = name;
        pid.allPidData = isValid ? 1 : 0;
        thread.commonData.setHwPid(pid);
    }
    template <typename Record, typename Fill>
    void send(Fill&& fill)
    {
        client.sendTo<Record>(thread.commonData.getPrivateMbox(), fill);
        thread.settle();
    }
    template <typename Record>
    void send()
    {
        send<Record>([](Record&) {});
    }
    template <typename Message>
    void answer(std::uint32_t procRef, Message message)
    {
        ganti.send(procRef, message);
        Ostinel::EventLoop::V1::EventLoopIf::getInstance().runOnce(5s);
    }
    template <typename Message>
    void answerUnderTicket(std::uint32_t procRef, Message message = {})
    {
        message.set_ticket_number(ticket);
        answer(procRef, message);
    }
    /// Gives a ticket, which can't be used yet. The procRef of the grant.
    std::uint32_t giveTicket()
    {
        send<OmlaVornAcquireResourceReqS>();
        const auto request = ganti.expect<gant::AcquireResourceReq>();
        gant::AcquireResourceCfm cfm;
        cfm.set_ticket_request_reference(client.serverRef);
        answerUnderTicket(request.procRef, cfm);
        return request.procRef;
    }
    void acquire()
    {
        answerUnderTicket<gant::AcquireResourceInd>(giveTicket());
        client.expect<OmlaVornAcquireResourceCfmS>();
    }
    /// The procRef of the list.
    std::uint32_t beginList()
    {
        acquire();
        send<OmlaVornSwCompListReqS>();
        const std::uint32_t procRef = ganti.expect<gant::SwCompListReq>().procRef;
        answerUnderTicket<gant::SwCompListCfm>(procRef);
        client.expect<OmlaVornSwCompListCfmS>();
        return procRef;
    }
    void sendPart(std::uint32_t procRef, const std::string& text, bool end)
    {
        gant::SwCompListData data;
        data.set_data(text);
        data.set_end(end);
        answerUnderTicket(procRef, data);
    }
    void collect(std::uint32_t procRef, const std::string& text, bool end)
    {
        sendPart(procRef, text, end);
        const auto ack = ganti.expect<gant::SwCompListAck>();
        EXPECT_EQ(ack.body.abort(), end);
        EXPECT_EQ(ack.procRef, procRef);
        EXPECT_EQ(ack.body.ticket_number(), ticket);
        client.expectNothing();
    }
    std::string expectPart(bool isLast)
    {
        const Received received = client.expectNumber(OmlaVornSwCompListDataS::number);
        const auto& part = *viewSignal<OmlaVornSwCompListDataS>(received.get());
        EXPECT_EQ(part.endFlag, isLast ? 1U : 0U);
        EXPECT_EQ(part.header.clientRef, client.clientRef);
        EXPECT_EQ(part.header.serverRef, client.serverRef);
        EXPECT_EQ(received.size(), 23 + part.noOfBytes);
        const auto* text = reinterpret_cast<const char*>(&part) + sizeof(part);
        EXPECT_EQ(std::string(text + part.noOfBytes, 3), std::string(3, '\0'));
        return {text, part.noOfBytes};
    }
    void acknowledge(std::uint32_t abort = 0)
    {
        send<OmlaVornSwCompListAckS>([=](auto& ack) { ack.abort = abort; });
    }
    void expectSilence()
    {
        client.expectNothing();
        ganti.expectNothing();
    }

    ServerThread thread;
    VorniPeer client{thread.post, "client"};
    GantiServer ganti;
    VornServerGanti component{thread.commonData};
};

std::string listOf(const std::string& productNumber, const std::string& revision)
{
    return "<LmcList>\n<ProdNbr>" + productNumber + "</ProdNbr>\n<Rev>" + revision +
           "</Rev>\n<Preinstalled/>\n<SwList>\n<ProdNbr>" + productNumber + "</ProdNbr>\n</SwList>\n" +
           std::string(500, 'x');
}

TEST_F(VornServerGantiTest, when_a_gsm_client_lists_on_an_iru_then_the_list_names_the_running_software_in_small_parts)
{
    thread.commonData.getDunlClient().addCapability(
        std::make_shared<TolmeCapability>(DunlCapability::SelectiveLoadingSupport)); // needs no validation here
    const std::uint32_t procRef = beginList();
    const std::string original = listOf("other", "R9");
    acknowledge();
    expectSilence(); // the client is early
    using namespace std::string_literals;
    collect(procRef, original.substr(0, 30) + "\0dropped"s, false);
    collect(procRef, original.substr(30), true);
    EXPECT_EQ(ganti.expect<gant::GetRunningSwReq>().procRef, procRef);
    gant::GetRunningSwCfm running;
    running.set_running_software("ABC%1%2_R1A_x");
    answer(procRef, running);

    const std::string expected = listOf("ABC/1%2", "R1A_x");
    std::string list = expectPart(false);
    while (list.size() < expected.size()) {
        EXPECT_EQ(list.size() % 255, 0U);
        acknowledge();
        list += expectPart(expected.size() - list.size() <= 255);
    }
    EXPECT_EQ(list, expected);
    EXPECT_TRUE(
        RecordedTraces::has("VornServer:parseSwCompListForGsmIru with misc=" + original + " and misc_1=ABC%1%2_R1A_x"));
    acknowledge(); // the record went with the last part
    expectSilence();
    EXPECT_FALSE(RecordedTraces::hasPart("ABN: Failed to send message"));
}

TEST_F(VornServerGantiTest, when_the_client_does_not_wait_for_the_rewritten_list_then_it_gets_what_there_is_as_it_came)
{
    const std::uint32_t procRef = beginList();
    collect(procRef, listOf("other", "R9").substr(0, 300), false);
    acknowledge();
    EXPECT_EQ(expectPart(false), listOf("other", "R9").substr(0, 255));
    acknowledge();
    EXPECT_EQ(expectPart(true), listOf("other", "R9").substr(255, 45));
    sendPart(procRef, "late", true); // the list is over
    expectSilence();
}

TEST_F(VornServerGantiTest, when_the_running_software_is_not_known_then_the_list_has_empty_numbers)
{
    const std::uint32_t procRef = beginList();
    collect(procRef, "<LmcList><ProdNbr>a</ProdNbr><Rev>b</Rev><ProdNbr>c</ProdNbr><Preinstalled/>", true);
    ganti.expect<gant::GetRunningSwReq>();
    answer(procRef, gant::GetRunningSwRej());
    EXPECT_EQ(expectPart(true), "<LmcList><ProdNbr></ProdNbr><Rev></Rev><ProdNbr></ProdNbr><Preinstalled/>");
    acknowledge(); // what fits in one part keeps its record until now, which ends it
    sendPart(procRef, "late", true);
    expectSilence();
}

TEST_F(VornServerGantiTest, when_the_client_aborts_a_rewritten_list_then_the_software_manager_is_not_told)
{
    const std::uint32_t procRef = beginList();
    collect(procRef, "<LmcList>", false);
    acknowledge(1);
    sendPart(procRef, "late", true);
    expectSilence();
}

TEST_F(VornServerGantiTest, when_a_list_has_no_place_for_the_fixed_block_then_it_is_dropped_and_the_server_goes_on)
{
    const std::uint32_t procRef = beginList();
    collect(procRef, "no list at all", true);
    ganti.expect<gant::GetRunningSwReq>();
    answer(procRef, gant::GetRunningSwCfm());
    expectSilence();
    const auto traces = RecordedTraces::since();
    EXPECT_TRUE(std::any_of(traces.begin(), traces.end(), [](const auto& trace) {
        return trace.text.starts_with("ABN: a message of GANTI Server is dropped: ");
    }));
    send<OmlaVornGetRunningLmcReqS>();
    ganti.expect<gant::GetRunningSwReq>();
}

TEST_F(VornServerGantiTest, when_the_unit_is_no_iru_or_the_client_no_gsm_client_then_the_list_is_passed_on_as_it_is)
{
    std::uint32_t procRef = beginList();
    const auto expectPlain = [&] {
        sendPart(procRef, "<ProdNbr>a</ProdNbr>", false);
        EXPECT_EQ(expectPart(false), "<ProdNbr>a</ProdNbr>");
    };
    setProductName("IRU 8846", false);
    expectPlain();
    setProductName("RRUS IRU");
    expectPlain();
    acknowledge();
    EXPECT_FALSE(ganti.expect<gant::SwCompListAck>().body.abort());
    setProductName("IRU 8846");
    for (const std::uint32_t serverRef : {99U, 200U}) {
        client.serverRef = serverRef;
        procRef = beginList();
        expectPlain();
    }
}

TEST_F(VornServerGantiTest, when_a_module_is_selected_then_it_is_kept_until_a_new_grant_or_an_unread_inventory)
{
    acquire();
    const auto select = [&](auto answerOf) {
        send<OmlaVornSelectLmcReqS>();
        answerUnderTicket(ganti.expect<gant::GetSwProductInvReq>().procRef, answerOf);
    };
    VornServerCommonData& commonData = thread.commonData;
    commonData.setSelectLoadModule("CXP_R1A");
    select(gant::GetSwProductInvCfm());
    client.expect<OmlaVornSelectLmcRejS>();
    EXPECT_EQ(commonData.getSelectLoadModule(), "CXP_R1A");
    select(gant::GetSwProductInvRej());
    client.expect<OmlaVornSelectLmcRejS>();
    EXPECT_EQ(commonData.getSelectLoadModule(), "");

    NewSignal<OmlaVornSelectLmcReqS> request(client.clientRef, client.serverRef, 3);
    std::memcpy(reinterpret_cast<char*>(&*request) + sizeof(OmlaVornSelectLmcReqS), "CXP", 3);
    client.sendSignal(commonData.getPrivateMbox(), request);
    thread.settle();
    gant::GetSwProductInvCfm inventory;
    inventory.add_product_inventory()->set_product_number("CXP");
    answerUnderTicket(ganti.expect<gant::GetSwProductInvReq>().procRef, inventory);
    client.expect<OmlaVornSelectLmcCfmS>();
    EXPECT_EQ(commonData.getSelectLoadModule(), "CXP");

    client.serverRef = 7;
    const std::uint32_t procRef = giveTicket();
    EXPECT_EQ(commonData.getSelectLoadModule(), "CXP");
    answerUnderTicket<gant::AcquireResourceInd>(procRef);
    EXPECT_EQ(commonData.getSelectLoadModule(), "");
}

TEST(VornServerGantiInitTest, when_nobody_tells_whether_all_are_ready_then_no_connection_is_attempted)
{
    ServerThread thread;
    EXPECT_FALSE(VornServerGanti(thread.commonData).init());
    EXPECT_TRUE(RecordedTraces::has("GANTI component: missing callback function to areComponentsReadyToPublish()."));
    EXPECT_FALSE(RecordedTraces::hasPart("GANTClient::connEstablishReq()"));
}

} // namespace
