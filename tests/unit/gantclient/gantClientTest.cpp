/// The connection to the software manager, which the test plays at the other end of the message socket.

#include "gantclient/gantClient.h"

#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"
#include "ploe/ploe.h"
#include "trace/recordedTraces.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <utility>

using namespace std::chrono_literals;
using Ostinel::EventLoop::V1::EventLoopIf;
using VornTrace::RecordedTraces;

namespace {

constexpr const char* address = "ux:GANTServer";
constexpr std::uint32_t procRef = 0x01020304;

std::string hex(const std::string& bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        digits += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return digits;
}

std::string frame(std::uint32_t msgNo, const std::string& body)
{
    std::string bytes;
    for (const std::uint32_t word : {msgNo, procRef}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(word >> shift & 0xFF);
        }
    }
    return bytes + body;
}

class GantClientTest : public ::testing::Test
{
protected:
    ~GantClientTest() override
    {
        ploe_close(m_connection);
        ploe_close(m_listener);
    }

    void connect()
    {
        m_listener = ploe_listen(address, 1);
        ASSERT_NE(m_listener, nullptr);
        ASSERT_EQ(client.connEstablishReq([this] { ++ready; }, procRef, address, {1}), 0U);
        m_connection = ploe_accept(m_listener);
        ASSERT_NE(m_connection, nullptr);
        ploe_set_blocking(m_connection, false);
        EXPECT_EQ(hex(received()), "0000000101020304"
                                   "0801");
    }
    void establish()
    {
        connect();
        answer(2, new gant::ConnEstablishCfm, [](auto& cfm) { cfm.set_selected_protocol_revision(1); });
        EXPECT_EQ(hex(received()), "0000000401020304");
    }
    /// What the client has sent; "-" for nothing, "closed" for the end.
    std::string received()
    {
        std::string buffer(PLOE_MAX_MSG_SIZE, '\0');
        const ssize_t size = ploe_receive(m_connection, buffer.data(), buffer.size());
        return size < 0 ? "-" : size == 0 ? "closed" : buffer.substr(0, static_cast<std::size_t>(size));
    }
    void send(const std::string& bytes)
    {
        ASSERT_EQ(ploe_send(m_connection, bytes.data(), bytes.size()), 0);
        loop.runOnce(5s);
    }
    template <typename Message, typename Fill>
    void answer(std::uint32_t msgNo, Message* message, Fill&& fill)
    {
        const std::unique_ptr<Message> owned(message);
        fill(*owned);
        send(frame(msgNo, owned->SerializeAsString()));
    }
    void closeServer()
    {
        ploe_close(std::exchange(m_connection, nullptr));
        loop.runOnce(5s);
    }
    std::vector<std::uint16_t> capabilityTypes() const
    {
        std::vector<std::shared_ptr<const PLOECapability>> records;
        client.getCapabilities(records);
        std::vector<std::uint16_t> types;
        for (const auto& record : records) {
            types.push_back(record->type);
        }
        return types;
    }

    EventLoopIf& loop = EventLoopIf::getInstance(); // made first: a descriptor that is closed is the next one opened
    GANTClient client;
    int ready = 0;
    ploe_socket* m_listener = nullptr;
    ploe_socket* m_connection = nullptr;
};

TEST_F(GantClientTest, when_the_server_confirms_then_its_capabilities_are_fetched_and_kept_in_order)
{
    establish();
    EXPECT_TRUE(client.isConnected());
    EXPECT_EQ(client.getSelectedProtocolRevision(), 1U);
    EXPECT_EQ(ready, 0);
    answer(5, new gant::GetCapabilitiesCfm, [](auto& cfm) {
        cfm.mutable_set_slot_working_support();
        cfm.mutable_loading_block_size_support()->set_block_size(-5);
        cfm.mutable_pull_load_support();
        auto* entry = cfm.mutable_boot_sw_inventory_support()->add_boot_sw_inventory();
        entry->set_product_number("CXP 1");
        entry->set_product_revision("R1A");
        cfm.mutable_lockable_resource_sw_store_support();
        cfm.mutable_sw_comp_list_support();
        cfm.mutable_preinstalled_support()->set_running(true);
    });
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(capabilityTypes(), (std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5, 6}));
    std::vector<std::shared_ptr<const PLOECapability>> records;
    client.getCapabilities(records);
    EXPECT_TRUE(static_cast<const PLOECapPreinstalled&>(*records[0]).running);
    EXPECT_EQ(static_cast<const PLOECapBootSwInventory&>(*records[4]).entries,
              (PLOECapBootSwInventory::Entries{{"CXP 1", "R1A"}}));
    EXPECT_EQ(static_cast<const PLOECapLoadingBlockSize&>(*records[5]).blockSize, -5);

    closeServer();
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(capabilityTypes().size(), 7U);
    EXPECT_EQ(client.getRunningSwReq(1), 1U);
    const auto traces = RecordedTraces::since();
    EXPECT_TRUE(std::any_of(traces.begin(), traces.end(), [](const auto& trace) {
        return trace.event == VornTrace::Event::error && trace.text == "PLOE connection closed by GANTI Server.";
    }));
    EXPECT_TRUE(RecordedTraces::has(
        "Cannot send an PLOE message because there is no socket! Please try to establish connecting again."));
}

TEST_F(GantClientTest, when_there_is_no_server_then_that_is_told_and_nothing_is_left)
{
    EXPECT_EQ(client.connEstablishReq({}, procRef, address, {1}), 1U);
    EXPECT_TRUE(
        RecordedTraces::has("GANTClient::connEstablishReq() PLOE connection to GANTI Server was unsuccessful."));
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.getCapabilitiesReq(1), 1U);
}

TEST_F(GantClientTest, when_frames_are_short_broken_or_unknown_then_the_connection_stays)
{
    connect();
    send(frame(2, "").substr(0, 7));
    EXPECT_TRUE(RecordedTraces::has("GANTClient: receiveHandler() msgHandler size(7) < expected size(8)"));
    send(frame(44, "x")); // known to the protocol, and handled by nobody
    EXPECT_TRUE(
        RecordedTraces::has("GANTClient: receiveHandler() msgHandler unhandled msgNo(0x2c), procRef(0x1020304)"));
    EXPECT_EQ(received(), "-");
    send(frame(2, "")); // no revision: not connected, and asked for its capabilities all the same
    EXPECT_EQ(hex(received()), "0000000401020304");
    EXPECT_FALSE(client.isConnected());
    send(frame(2, "\x08\x01\xff")); // what comes before the fault counts
    EXPECT_TRUE(client.isConnected());
    send(frame(5, "")); // no capability at all
    EXPECT_EQ(ready, 1);
    EXPECT_TRUE(capabilityTypes().empty());
}

TEST_F(GantClientTest, when_the_server_rejects_the_connection_then_only_the_socket_goes_and_a_new_one_serves)
{
    establish();
    answer(5, new gant::GetCapabilitiesCfm, [](auto& cfm) { cfm.mutable_sw_comp_list_support(); });
    send(frame(3, "\x08\x02")); // no such reason: the first one declared
    EXPECT_TRUE(RecordedTraces::has("GANTClient::handleConnEstablishRej() reason(1)"));
    EXPECT_EQ(received(), "closed");
    EXPECT_TRUE(client.isConnected());
    EXPECT_EQ(client.getCapabilitiesReq(1), 1U);
    EXPECT_EQ(capabilityTypes(), std::vector<std::uint16_t>{1});

    ploe_close(std::exchange(m_connection, nullptr));
    ASSERT_EQ(client.connEstablishReq({}, procRef, address, {3, 1}), 0U);
    m_connection = ploe_accept(m_listener);
    ploe_set_blocking(m_connection, false);
    EXPECT_EQ(hex(received()), "000000010102030408030801");
    send(frame(2, "\x08\x03"));
    EXPECT_EQ(hex(received()), "0000000401020304");
    EXPECT_EQ(client.getSelectedProtocolRevision(), 3U);
    send(frame(5, "")); // no one to call
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(RecordedTraces::count("GANTClient::handleGetCapabilitiesCfm() readyForPublicAccess()"), 1U);
}

TEST_F(GantClientTest, when_the_first_request_cannot_be_sent_then_the_socket_is_closed)
{
    m_listener = ploe_listen(address, 1);
    const std::vector<std::uint32_t> tooMany(PLOE_MAX_MSG_SIZE, 1);
    EXPECT_EQ(client.connEstablishReq({}, procRef, address, tooMany), 1U);
    EXPECT_TRUE(RecordedTraces::has(
        "GANTClient::sendMsg(msgNo=0x1, procRef=0x1020304) failed ploe_send() error='Message too long'"));
    EXPECT_TRUE(RecordedTraces::has("GANTClient::connEstablishReq() failed to send ConnEstablishReq errCode(0x2)"));
    m_connection = ploe_accept(m_listener);
    EXPECT_EQ(received(), "closed");
}

TEST_F(GantClientTest, when_the_capabilities_cannot_be_asked_for_then_there_are_none)
{
    establish();
    answer(5, new gant::GetCapabilitiesCfm, [](auto& cfm) { cfm.mutable_sw_comp_list_support(); });
    answer(5, new gant::GetCapabilitiesCfm, [](auto& cfm) { cfm.mutable_set_slot_working_support(); });
    EXPECT_EQ(capabilityTypes(), (std::vector<std::uint16_t>{1, 6})); // appended
    const std::string cfm = frame(2, "\x08\x01");
    ASSERT_EQ(ploe_send(m_connection, cfm.data(), cfm.size()), 0);
    closeServer();
    EXPECT_TRUE(RecordedTraces::has("GANTClient::handleConnEstablishCfm() GetCapabilitiesReq failed to sendMsg"));
    EXPECT_TRUE(capabilityTypes().empty());
}

TEST_F(GantClientTest, when_the_server_rejects_the_capabilities_then_it_stays_connected_without_any)
{
    establish();
    answer(5, new gant::GetCapabilitiesCfm, [](auto& cfm) { cfm.mutable_sw_comp_list_support(); });
    answer(6, new gant::GetCapabilitiesRej, [](auto&) {});
    EXPECT_TRUE(capabilityTypes().empty());
    EXPECT_TRUE(client.isConnected());
    EXPECT_EQ(ready, 1);
    EXPECT_TRUE(RecordedTraces::has("GANTClient::handleGetCapabilitiesRej() reason(0)"));
}

TEST_F(GantClientTest, when_handlers_are_entered_and_removed_then_the_first_one_holds)
{
    connect();
    std::string heard;
    const auto handler = [&heard](const char* name) {
        return [&heard, name](std::uint32_t ref, GANTClient::Body body) {
            heard += fmt::format("{}:{:x}:{} ", name, ref, body.size());
        };
    };
    EXPECT_EQ(client.addMsgHandler(18, handler("first")), 0U);
    EXPECT_EQ(client.addMsgHandler(18, handler("second")), 3U);
    EXPECT_TRUE(RecordedTraces::has("GANTClient::addMsgHandler(msgNo=0x12) ALREADY_EXISTS"));
    send(frame(18, ""));
    send(frame(18, "abc"));
    EXPECT_EQ(heard, "first:1020304:0 first:1020304:3 ");
    EXPECT_EQ(client.addMsgHandler(20, [](auto, auto) { throw std::length_error("too long"); }), 0U);
    send(frame(20, ""));
    EXPECT_TRUE(RecordedTraces::has("ABN: a message of GANTI Server is dropped: too long"));
    EXPECT_EQ(client.removeMsgHandler(18), 0U);
    EXPECT_EQ(client.removeMsgHandler(18), 4U);
    EXPECT_TRUE(RecordedTraces::has("GANTClient::removeMsgHandler(msgNo=0x12) NOT_FOUND"));
}

TEST_F(GantClientTest, when_requests_are_made_then_each_goes_out_with_its_number_and_fields)
{
    connect();
    const auto expectSent = [this](std::uint32_t result, std::uint32_t msgNo, google::protobuf::Message&& body,
                                   const std::string& fields) {
        EXPECT_EQ(result, 0U);
        const std::string sent = received();
        EXPECT_EQ(hex(sent.substr(0, 8)), hex(frame(msgNo, "")));
        EXPECT_TRUE(body.ParseFromString(sent.substr(8)));
        EXPECT_EQ(body.ShortDebugString(), fields);
    };
    expectSent(client.acquireResourceReq(procRef, 7, 0), 7, gant::AcquireResourceReq(),
               "ticket_request_reference: 7 resource: SW_STORE");
    expectSent(client.releaseResourceReq(procRef, 8), 11, gant::ReleaseResourceReq(), "ticket_number: 8");
    expectSent(client.pushLoadInitReq(procRef, 8, "CXP_R1"), 14, gant::PushLoadInitReq(),
               "ticket_number: 8 software: \"CXP_R1\"");
    expectSent(client.pushLoadData(procRef, 8, 3, "\0b", 2), 17, gant::PushLoadData(),
               "ticket_number: 8 data: \"\\000b\" sequence_number: 3");
    expectSent(client.pushLoadEndReq(procRef, 8), 19, gant::PushLoadEndReq(), "ticket_number: 8");
    expectSent(client.deleteReq(procRef, 8, "CXP_R1"), 29, gant::DeleteReq(), "ticket_number: 8 software: \"CXP_R1\"");
    expectSent(client.getSwProductInvReq(procRef, 8), 32, gant::GetSwProductInvReq(), "ticket_number: 8");
    expectSent(client.swCompListReq(procRef, 8), 35, gant::SwCompListReq(), "ticket_number: 8");
    expectSent(client.swCompListAck(procRef, 8, true), 39, gant::SwCompListAck(), "ticket_number: 8 abort: true");
    expectSent(client.swCompListAck(procRef, 8, false), 39, gant::SwCompListAck(), "ticket_number: 8 abort: false");
    expectSent(client.getRunningSwReq(procRef), 40, gant::GetRunningSwReq(), "");
    expectSent(client.setCurrentSlotWorkingReq(procRef), 43, gant::SetCurrentSlotWorkingReq(), "");
}

TEST_F(GantClientTest, when_the_socket_is_full_or_a_message_too_large_then_it_is_not_sent)
{
    establish();
    const std::string tooLarge(PLOE_MAX_MSG_SIZE, 'x');
    EXPECT_EQ(client.pushLoadData(9, 1, 1, tooLarge.data(), tooLarge.size()), 2U);
    std::uint32_t sent = 0;
    while (client.pushLoadData(9, 1, sent, tooLarge.data(), 100'000) == 0) {
        ASSERT_LT(++sent, 10'000U);
    }
    EXPECT_TRUE(RecordedTraces::hasPart("GANTClient::sendMsg(msgNo=0x11, procRef=0x9) failed ploe_send() error='"));
    EXPECT_NE(received(), "-");
    EXPECT_EQ(client.pushLoadData(9, 1, sent, tooLarge.data(), 100'000), 0U);
}

} // namespace
