/// The client end of a board server: two instances on one thread and the servers that the test plays.

#include "tolmeClient.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "ostinel/kivMessageSubscription.h"
#include "serverThread.h"

using namespace TestUnit;
using namespace tolme;
using dunl::MsgNo::ConnEstablishCfm;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t msgNo = dunl::MsgNo::SetUtcTimeCfm;

class TolmeClientTest : public ::testing::Test
{
protected:
    void find(TolmeClient& client, BoardServer& server)
    {
        client.start<dunl::ConnEstablishCfm>(ConnEstablishCfm, server.name());
        client.registerHandler(ConnEstablishCfm, [this](const auto&) { ++handled; });
        client.registerHandler(TolmeClient::serverFound, [this](const auto& m) {
            ++found;
            EXPECT_EQ(kiv_size(m.get()), 4U);
        });
        server.appear();
        thread.handleUntil([&] { return client.isServerFound(); });
    }
    void confirm(const TolmeClient& client, const BoardServer& server, std::optional<std::uint32_t> revision = 1)
    {
        dunl::ConnEstablishCfm cfm;
        if (revision) {
            cfm.set_selected_protocol_revision(*revision);
        }
        server.sendMessage(kiv_current_mbox(), ConnEstablishCfm, client.getClientId(), 0x500, cfm);
        thread.settle();
    }
    void send(std::uint32_t number, std::uint32_t procedureRef, std::uint32_t connectionRef)
    {
        dunlServer.sendMessage(kiv_current_mbox(), number, procedureRef, connectionRef, dunl::SetUtcTimeCfm());
        thread.settle();
    }

    ServerThread thread;
    TolmeClient& first{thread.commonData.getDunlClient()};
    TolmeClient& second{thread.commonData.getFeskClient()};
    BoardServer dunlServer{thread.post, "DunlServer"};
    int handled = 0;
    int found = 0;
};

TEST_F(TolmeClientTest, when_instances_are_made_then_each_gets_the_lowest_free_id)
{
    EXPECT_EQ(first.getClientId(), 100U);
    EXPECT_EQ(second.getClientId(), 101U);
    auto third = std::make_unique<TolmeClient>(100);
    EXPECT_EQ(third->getClientId(), 102U);
    EXPECT_EQ(TolmeClient(200).getClientId(), 200U);
    third.reset();
    EXPECT_EQ(TolmeClient(101).getClientId(), 102U);
}

TEST_F(TolmeClientTest, when_two_instances_share_a_number_then_the_connection_tells_them_apart_until_both_are_gone)
{
    int forFirst = 0;
    int forSecond = 0;
    find(first, dunlServer);
    first.registerHandler(msgNo, [&](const auto&) { ++forFirst; });
    second.registerHandler(msgNo, [&](const auto&) { ++forSecond; });
    send(msgNo, 0, 100);
    send(msgNo, 0, 101);
    send(msgNo, 0, 101);
    EXPECT_EQ(std::pair(forFirst, forSecond), std::pair(1, 2));

    first.disconnect();
    send(msgNo, 0, 100);
    send(msgNo, 0, 101);
    EXPECT_EQ(std::pair(forFirst, forSecond), std::pair(1, 3));
    EXPECT_TRUE(RecordedTraces::has("ABN: Unroutable message (0x170773a) meant for TOLME client 100"));
    second.disconnect();
    Ostinel::KivMessageSubscription::V1::Handler handler;
    EXPECT_NE(Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf::getInstance().lookUp(msgNo, handler), 0);
}

TEST_F(TolmeClientTest, when_a_message_has_no_instance_or_no_handler_then_it_is_dropped)
{
    find(first, dunlServer);
    first.registerHandler(msgNo, [&](const auto&) { FAIL(); });
    send(msgNo, 0, 99);
    send(msgNo, 0, 101);
    send(ConnEstablishCfm, 77, 100);
    dunlServer.sendBytes(kiv_current_mbox(), std::as_bytes(std::span(&msgNo, 1)));
    thread.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: Unroutable message (0x170773a) meant for TOLME client 99"));
    EXPECT_TRUE(RecordedTraces::has(
        "ABN: The TOLME Client 101 received a message (0x170773a) but has no registered handler for it."));
    EXPECT_TRUE(RecordedTraces::has(
        "ABN: Unroutable connection establish confirm message (0x170772e) meant for TOLME client 77"));
    EXPECT_EQ(handled, 0);
}

TEST_F(TolmeClientTest, when_a_confirm_has_no_revision_then_the_handler_runs_but_nothing_is_connected)
{
    find(first, dunlServer);
    confirm(first, dunlServer);
    EXPECT_TRUE(first.isConnected());
    EXPECT_EQ(first.getSelectedProtocolRev(), 1U);

    confirm(first, dunlServer, std::nullopt);
    EXPECT_FALSE(first.isConnected());
    EXPECT_TRUE(
        RecordedTraces::has("ABN: ConnEstablishCfm message invalid: selected protocol revision field is missing"));
    confirm(first, dunlServer);
    confirm(first, dunlServer, 0);
    EXPECT_FALSE(first.isConnected());
    EXPECT_TRUE(RecordedTraces::has("ABN: ConnEstablishCfm message invalid: selected protocol revision is zero"));
    EXPECT_EQ(handled, 4);
}

TEST_F(TolmeClientTest, when_a_confirm_does_not_parse_then_the_state_stays_and_the_handler_runs)
{
    find(first, dunlServer);
    confirm(first, dunlServer);
    const std::array<std::uint8_t, 13> bytes{0x2E, 0x77, 0x70, 0x01, 0, 0, 0, 100, 0, 0, 0, 9, 0xFF};
    dunlServer.sendBytes(kiv_current_mbox(), std::as_bytes(std::span(bytes)));
    thread.settle();
    EXPECT_TRUE(RecordedTraces::has("Unable to parse GPB message tolme.dunl.ConnEstablishCfm of size 13 bytes"));
    EXPECT_TRUE(first.isConnected());
    EXPECT_EQ(handled, 2);
}

TEST_F(TolmeClientTest, when_messages_are_sent_then_the_header_tells_procedure_and_connection)
{
    EXPECT_EQ(first.send(msgNo, dunl::SetUtcTimeCfm()), 0U);
    EXPECT_TRUE(RecordedTraces::has("ABN: Failed to send message -- not connected to TOLME server"));
    find(first, dunlServer);
    EXPECT_EQ(first.send(msgNo, dunl::SetUtcTimeCfm()), 0U);
    confirm(first, dunlServer);

    dunl::SetUtcTimeReq request;
    request.set_utc_time(300);
    EXPECT_EQ(first.send(dunl::MsgNo::SetUtcTimeReq, request), 1U);
    const Received received = dunlServer.expectNumber(dunl::MsgNo::SetUtcTimeReq);
    const std::array<std::uint8_t, 11> behind{0, 0, 0, 1, 0, 0, 5, 0, 0x10, 0xAC, 0x02};
    ASSERT_EQ(received.size(), 4 + behind.size());
    EXPECT_EQ(std::memcmp(received.bytes().data() + 4, behind.data(), behind.size()), 0);
    EXPECT_EQ(received.sender(), kiv_current_mbox());
    EXPECT_TRUE(RecordedTraces::has(
        "msgNo:0x1707739 procedureRef:1 connectionRef:1280 tolme.dunl.SetUtcTimeReq:{utc_time: 300}"));

    EXPECT_EQ(first.send(msgNo, dunl::SetUtcTimeCfm(), 9), 9U);
    const Received empty = dunlServer.expectNumber(msgNo);
    EXPECT_EQ(empty.size(), 12U);
    EXPECT_EQ(viewSignal<BoardMessageHeader>(empty.get())->procedureRef, 9U);
    EXPECT_EQ(first.send(msgNo, dunl::SetUtcTimeCfm()), 2U);
}

TEST_F(TolmeClientTest, when_procedure_references_are_in_use_then_they_are_skipped_and_not_added_twice)
{
    EXPECT_EQ(first.nextProcedureRef(), 1U);
    EXPECT_TRUE(first.addTransaction({3, 30, 0, 0, 7}));
    EXPECT_TRUE(first.addTransaction({2, 20, 0, 0, 7}));
    EXPECT_FALSE(first.addTransaction({2, 40, 0, 0, 7}));
    EXPECT_EQ(first.findTransaction(2)->mboxId, 20U);
    EXPECT_EQ(first.nextProcedureRef(), 4U);
    EXPECT_EQ(first.findTransactionIf([](const auto& t) { return t.requestMsgNo == 7; })->procedureRef, 2U);
    EXPECT_EQ(first.findTransactionIf([](const auto& t) { return t.requestMsgNo == 8; }), nullptr);
    EXPECT_TRUE(first.removeTransaction(2));
    EXPECT_FALSE(first.removeTransaction(2));
    EXPECT_EQ(first.findTransaction(2), nullptr);
    EXPECT_EQ(first.nextProcedureRef(), 5U);
}

TEST_F(TolmeClientTest, when_12_bytes_are_decoded_then_the_message_is_empty_and_11_are_refused)
{
    const auto decode = [](std::uint32_t size) {
        const TolmeMessagePtr message(kiv_alloc(size, msgNo), kiv_free);
        TolmeEnvelope envelope;
        dunl::SetUtcTimeReq body;
        return TolmeClient::decode(message, envelope, body) && !body.has_utc_time() && envelope.msgNo == msgNo;
    };
    EXPECT_TRUE(decode(12));
    EXPECT_FALSE(decode(11));
    EXPECT_FALSE(decode(4));
    EXPECT_TRUE(RecordedTraces::has("Unable to parse GPB message tolme.dunl.SetUtcTimeReq of size 11 bytes"));
}

TEST_F(TolmeClientTest, when_the_server_is_lost_and_comes_back_then_transactions_and_capabilities_are_still_there)
{
    int lost = 0;
    first.registerHandler(TolmeClient::serverLost, [&](const auto&) {
        ++lost;
        EXPECT_FALSE(first.isConnected());
    });
    find(first, dunlServer);
    confirm(first, dunlServer);
    first.addTransaction({5, 1, 2, 3, 4});
    first.addCapability(std::make_shared<TolmeCapability>(std::uint16_t{14}));
    first.setCapabilitiesReceived();

    dunlServer.die();
    thread.handleUntil([&] { return !first.isServerFound(); });
    EXPECT_EQ(lost, 1);
    dunlServer.appear();
    thread.handleUntil([&] { return first.isServerFound(); });
    EXPECT_EQ(found, 2);
    EXPECT_FALSE(first.isConnected());
    EXPECT_NE(first.findTransaction(5), nullptr);
    EXPECT_TRUE(first.areCapabilitiesReceived());
    EXPECT_TRUE(first.hasCapability(14));
    EXPECT_FALSE(first.hasCapability(15));
}

} // namespace
