/// The connections to the yarrowi server.

#include "yarrowi/if/yarrowIClient.h"
#include "unit.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

using namespace TestUnit;

namespace {

class YarrowIClientTest : public ::testing::Test
{
protected:
    YarrowIClientTest()
    {
        server.appear();
        other.appear();
        client.setServerMbox(server.mbox());
    }

    Post post;
    BoardServer server{post, "YarrowIServer"};
    Peer other{post, "other"};
    YarrowIClient client;
};

TEST_F(YarrowIClientTest, when_connections_are_added_then_the_first_that_fits_is_found_and_removed)
{
    EXPECT_EQ(client.addClientInfo(7).clientConnectionRef, 1U);
    clientInfo& second = client.addClientInfo(8);
    second.serverConnectionRef = 90;
    EXPECT_EQ(client.addClientInfo(7).clientConnectionRef, 3U);
    EXPECT_EQ(client.findByMailbox(7)->clientConnectionRef, 1U);
    EXPECT_EQ(client.findByServerConnectionRef(90), &second);
    EXPECT_EQ(client.findByServerConnectionRef(0)->clientConnectionRef, 1U);
    EXPECT_EQ(client.findByConnectionRef(2), &second);
    EXPECT_EQ(client.findByConnectionRef(4), nullptr);
    EXPECT_EQ(client.findByProcedureRef(1), nullptr);
    client.removeClientInfo(4);
    client.removeClientInfo(1);
    EXPECT_EQ(client.findByMailbox(7)->clientConnectionRef, 3U);
    client.removeAllClientInfo();
    EXPECT_EQ(client.findByMailbox(8), nullptr);
    EXPECT_EQ(client.addClientInfo(8).clientConnectionRef, 4U);
}

TEST_F(YarrowIClientTest, when_requests_are_sent_then_only_the_first_carries_the_clients_connection_reference)
{
    clientInfo& info = client.addClientInfo(7);
    yarrowi::ConnectionEstablishReq request;
    request.add_protocol_revision(1);
    EXPECT_TRUE(client.send(yarrowi::MsgNo::ConnectionEstablishReq, request, &info, KIV_NO_MBOX));
    const auto establish = server.expect<yarrowi::ConnectionEstablishReq>(yarrowi::MsgNo::ConnectionEstablishReq);
    EXPECT_EQ(std::tuple(establish.procedureRef, establish.connectionRef, establish.sender),
              std::tuple(1U, 1U, kiv_current_mbox()));
    EXPECT_EQ(client.findByProcedureRef(1), &info);

    const auto next = [&](std::uint32_t sender) {
        EXPECT_TRUE(client.send(yarrowi::MsgNo::ActivateDeepSleepReq, yarrowi::ActivateDeepSleepReq(), &info, sender));
        const auto sent = server.expect<yarrowi::ActivateDeepSleepReq>(yarrowi::MsgNo::ActivateDeepSleepReq);
        return std::tuple(sent.procedureRef, sent.connectionRef, sent.sender);
    };
    EXPECT_EQ(next(0xFFFFFFFE), std::tuple(2U, 0U, kiv_current_mbox()));
    info.serverConnectionRef = 0x90;
    EXPECT_EQ(next(other.mbox()), std::tuple(3U, 0x90U, other.mbox()));
    EXPECT_EQ(info.procedureRef, 3U);
}

TEST_F(YarrowIClientTest, when_there_is_no_connection_or_no_server_then_nothing_arrives)
{
    EXPECT_FALSE(
        client.send(yarrowi::MsgNo::ActivateDeepSleepReq, yarrowi::ActivateDeepSleepReq(), nullptr, KIV_NO_MBOX));
    client.close();
    clientInfo& info = client.addClientInfo(7);
    EXPECT_TRUE(client.send(yarrowi::MsgNo::ActivateDeepSleepReq, yarrowi::ActivateDeepSleepReq(), &info, KIV_NO_MBOX));
    EXPECT_EQ(info.procedureRef, 1U);
    server.expectNothing();
}

TEST_F(YarrowIClientTest, when_there_is_no_wake_up_time_then_reading_it_ends_the_process)
{
    EXPECT_FALSE(client.hasWakeUpTime());
    EXPECT_DEATH(client.getWakeUpTime(), "");
    client.setWakeUpTime(0);
    EXPECT_TRUE(client.hasWakeUpTime());
    EXPECT_EQ(client.getWakeUpTime(), 0U);
}

} // namespace
