/// UTC time: time sources of the sessions, setting the time.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vorni/connection.h"
#include "vorni/utc.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornServerTimeTest : public UnitTest
{
protected:
    VornServerTimeTest() { unit.bringUp(); }

    void setTime(const Client& client, std::uint32_t time)
    {
        client.send<OmlaVornSetUtcTimeReqS>([time](auto& request) { request.utcTime = time; });
    }
    auto expectSetTime() { return unit.dunl.expect<dunl::SetUtcTimeReq>(dunl::MsgNo::SetUtcTimeReq); }
};

TEST_F(VornServerTimeTest, when_a_client_sets_the_time_then_it_goes_out_with_its_source_and_is_confirmed)
{
    Client& client = unit.connect();
    setTime(client, 0xFFFFFFFE);

    const auto request = expectSetTime();
    EXPECT_EQ(request.body.utc_time(), 0xFFFFFFFE);
    EXPECT_EQ(request.body.utc_time_source_ref(), 40U);
    EXPECT_EQ(request.connectionRef, unit.dunl.serverRef);
    request.reply(dunl::MsgNo::SetUtcTimeCfm, dunl::SetUtcTimeCfm());

    const auto cfm = client.expect<OmlaVornSetUtcTimeCfmS>();
    EXPECT_EQ(cfm.header.clientRef, client.clientRef);
    EXPECT_EQ(cfm.header.serverRef, client.serverRef);
    EXPECT_EQ(client.lastSender, client.publicMbox());
}

TEST_F(VornServerTimeTest, when_the_server_rejects_the_time_then_the_client_is_told_why)
{
    Client& client = unit.connect();
    setTime(client, 5);
    expectSetTime().reply(dunl::MsgNo::SetUtcTimeRej, dunl::SetUtcTimeRej());

    const auto rej = client.expect<OmlaVornSetUtcTimeRejS>();
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.description), "Failed to set UTC time");
    EXPECT_EQ(rej.header.clientRef, client.clientRef);
}

TEST_F(VornServerTimeTest, when_an_answer_comes_twice_or_after_the_client_has_gone_then_it_is_ignored)
{
    Client& client = unit.connect();
    setTime(client, 5);
    const auto request = expectSetTime();
    request.reply(dunl::MsgNo::SetUtcTimeCfm, dunl::SetUtcTimeCfm());
    client.expect<OmlaVornSetUtcTimeCfmS>();
    request.reply(dunl::MsgNo::SetUtcTimeCfm, dunl::SetUtcTimeCfm());
    unit.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("No DUNL transaction was found for procedureRef: " +
                                    std::to_string(request.procedureRef) + ". Ignoring SetUtcTimeCfm."));

    setTime(client, 6);
    const auto late = expectSetTime();
    const std::uint32_t gone = client.mbox();
    client.die();
    late.reply(dunl::MsgNo::SetUtcTimeRej, dunl::SetUtcTimeRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: No VORN session found for mailbox ID: " + std::to_string(gone) +
                                    ". Ignoring SetUtcTimeRej."));
}

TEST_F(VornServerTimeTest, when_a_source_is_refused_then_the_session_goes_on_with_reference_0_and_is_not_unregistered)
{
    Client& client = unit.addClient();
    unit.requestConnection(client);
    unit.confirmConnectivity();
    unit.dunl.expect<dunl::RegisterUtcTimeSourceReq>(dunl::MsgNo::RegisterUtcTimeSourceReq)
        .reply(dunl::MsgNo::RegisterUtcTimeSourceRej, dunl::RegisterUtcTimeSourceRej());
    unit.registerMmiUser(9);
    unit.connectDeepSleep(61);
    client.expect<OmlaVornConnEstablishCfmS>();

    setTime(client, 5);
    EXPECT_EQ(expectSetTime().body.utc_time_source_ref(), 0U);
    client.die();
    unit.dunl.expect<dunl::ConnectivityNotConnectedReq>(dunl::MsgNo::ConnectivityNotConnectedReq);
    unit.settle();
    unit.dunl.expectNothing();
}

TEST_F(VornServerTimeTest, when_a_client_goes_then_its_source_is_unregistered)
{
    Client& client = unit.connect();
    client.die();
    unit.dunl.expect<dunl::ConnectivityNotConnectedReq>(dunl::MsgNo::ConnectivityNotConnectedReq);
    const auto request = unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    EXPECT_EQ(request.body.utc_time_source_ref(), 40U);
}

TEST_F(VornServerTimeTest, when_a_confirm_has_no_reference_then_the_client_stays_unconfirmed)
{
    Client& client = unit.addClient();
    unit.requestConnection(client);
    unit.confirmConnectivity();
    unit.registerTimeSource(std::nullopt);
    unit.registerMmiUser(9);
    unit.connectDeepSleep(61);
    unit.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: RegisterUtcTimeSourceCfm did not have a time source reference"));
}

TEST_F(VornServerTimeTest, when_a_client_is_a_gsm_client_then_its_source_is_registered_as_one)
{
    const auto accuracyOf = [this](std::uint32_t serverRef) {
        unit.requestConnection(unit.addClient(serverRef));
        unit.settle();
        unit.fesk.discardAll();
        unit.yarrowi.discardAll();
        if (serverRef == 99) {
            unit.confirmConnectivity();
        }
        return unit.dunl.expect<dunl::RegisterUtcTimeSourceReq>(dunl::MsgNo::RegisterUtcTimeSourceReq).body.accuracy();
    };
    EXPECT_EQ(accuracyOf(99), 1);
    EXPECT_EQ(accuracyOf(100), 2);
    EXPECT_EQ(accuracyOf(199), 2);
    EXPECT_EQ(accuracyOf(200), 1);
}

TEST_F(VornServerTimeTest, when_the_sender_has_no_session_or_the_signal_is_too_short_then_it_is_dropped)
{
    Client& stranger = unit.addClient();
    setTime(stranger, 5);
    Client& client = unit.connect();
    const OmlaVornSetUtcTimeReqS request{{OmlaVornSetUtcTimeReqS::number, 1, 2}, 3};
    client.sendBytes(client.publicMbox(), std::as_bytes(std::span(&request, 1)).first(15));
    unit.settle();
    unit.dunl.expectNothing();
    stranger.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: No session for this client exists. Ignoring REQ!"));
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_SET_UTC_TIME_REQ of 15 bytes is too short. Ignoring it."));
}

} // namespace
