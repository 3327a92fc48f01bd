/// The software manager that tests play: what it says of a client must be true, or tests would prove nothing.

#include "gantiServer.h"

#include "gantclient/gantClient.h"
#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using namespace TestUnit;
using Ostinel::EventLoop::V1::EventLoopIf;

namespace {

constexpr std::uint32_t procRef = 0x01020304;

/// The client is on the test's own thread: it takes what it was sent when the test lets its loop run.
class GantiServerTest : public ::testing::Test
{
protected:
    std::uint32_t connect()
    {
        return client.connEstablishReq([] {}, procRef, gant::ServerMetadata().name(), {1});
    }

    EventLoopIf& loop = EventLoopIf::getInstance(); // made first: a descriptor that is closed is the next one opened
    GANTClient client;
    GantiServer ganti;
};

TEST_F(GantiServerTest, when_a_client_connects_then_its_requests_are_told_and_answered)
{
    EXPECT_NE(connect(), 0U);
    ganti.appear();
    ASSERT_EQ(connect(), 0U);
    const auto request = ganti.expect<gant::ConnEstablishReq>();
    EXPECT_EQ(request.procRef, procRef);
    EXPECT_EQ(request.body.supported_protocol_revisions_size(), 1);
    gant::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    request.reply(cfm);
    EXPECT_FALSE(client.isConnected());
    loop.runOnce(5s);
    EXPECT_TRUE(client.isConnected());
    EXPECT_EQ(ganti.expectNumber(gant::GetCapabilitiesReq::MESSAGE_NUMBER).body, "");
    ganti.expectNothing();
}

TEST_F(GantiServerTest, when_something_else_comes_than_expected_then_the_step_fails)
{
    EXPECT_THROW(ganti.expectNothing(), StepFailed); // it isn't even there
    ganti.appear();
    ASSERT_EQ(connect(), 0U);
    EXPECT_THROW(ganti.expectNothing(), StepFailed);
    client.getCapabilitiesReq(1);
    EXPECT_THROW(ganti.expect<gant::ConnEstablishReq>(), StepFailed);
    client.getCapabilitiesReq(1);
    EXPECT_THROW(ganti.expectClosed(), StepFailed);
    client.getCapabilitiesReq(1);
    ganti.discardAll();
    ganti.expectNothing();
    client.disconnect();
    EXPECT_THROW(ganti.expectNothing(), StepFailed);
    ASSERT_EQ(connect(), 0U);
    ganti.expectClosed(); // of the first connection
    ganti.expect<gant::ConnEstablishReq>();
}

TEST_F(GantiServerTest, when_the_client_has_not_handled_all_then_that_is_known)
{
    ganti.appear();
    ASSERT_EQ(connect(), 0U);
    ganti.expect<gant::ConnEstablishReq>();
    EXPECT_TRUE(ganti.isAllTaken());
    ganti.sendFrame("short");
    ganti.sendFrame("shorter");
    EXPECT_FALSE(ganti.isAllTaken());
    while (!ganti.isAllTaken()) {
        loop.runOnce(5s);
    }
    ganti.die();
    EXPECT_FALSE(ganti.isThere());
    EXPECT_FALSE(ganti.isAllTaken());
    loop.runOnce(5s);
    EXPECT_TRUE(ganti.isAllTaken());
    EXPECT_EQ(client.getCapabilitiesReq(1), 1U);

    ganti.appear();
    ASSERT_EQ(connect(), 0U);
    ganti.die(); // before it has taken the connection
    EXPECT_FALSE(ganti.isAllTaken());
    loop.runOnce(5s);
    EXPECT_TRUE(ganti.isAllTaken());
    EXPECT_NE(connect(), 0U);
}

} // namespace
