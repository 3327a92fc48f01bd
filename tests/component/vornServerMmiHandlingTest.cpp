/// MMI users of the sessions, selection of the MMI mode.

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "unit.h"
#include "vorni/connection.h"
#include "vorni/mmi.h"

#include <fmt/format.h>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornServerMmiHandlingTest : public UnitTest
{
protected:
    VornServerMmiHandlingTest() { unit.bringUp(); }

    /// A client whose gate waits for its MMI user alone, and the registration.
    Request<fesk::RegisterMmiUserReq> connectUpToMmiUser(Client& client)
    {
        unit.requestConnection(client);
        unit.confirmConnectivity();
        unit.registerTimeSource(1);
        unit.connectDeepSleep(61);
        unit.settle();
        client.expectNothing();
        return unit.fesk.expect<fesk::RegisterMmiUserReq>(fesk::MsgNo::RegisterMmiUserReq);
    }
    void waitUntilGone(Client& client)
    {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
    }
    void select(const Client& client, std::uint32_t mode)
    {
        client.send<OmlaVornSelectMmiReqS>([mode](auto& request) { request.mode = mode; });
    }
};

TEST_F(VornServerMmiHandlingTest, when_a_mode_is_selected_then_only_mode_1_is_confirmed)
{
    Client& client = unit.connect();
    client.serverRef = 0xABCD; // the request's references are echoed, not the session's
    select(client, 1);
    EXPECT_EQ(client.expect<OmlaVornSelectMmiCfmS>().header.serverRef, 0xABCDU);
    for (const std::uint32_t mode : {0U, 2U, 0x01000000U}) {
        select(client, mode);
        const auto rej = client.expect<OmlaVornSelectMmiRejS>();
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(fieldText(rej.errorText), "Unsupported MMI mode");
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(rej.header.serverRef, 0xABCDU);
    }
}

TEST_F(VornServerMmiHandlingTest, when_the_sender_has_no_session_or_sends_too_little_then_it_gets_no_answer)
{
    Client& stranger = unit.addClient();
    select(stranger, 1);
    const std::array<std::uint32_t, 3> tooShort{OmlaVornSelectMmiReqS::number, 1, 2};
    Client& client = unit.connect();
    client.sendBytes(client.publicMbox(), std::as_bytes(std::span(tooShort)));
    unit.settle();
    stranger.expectNothing();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has(fmt::format(
        "ABN: No VORN session found for mailbox ID: {}. Ignoring OmlaVornSelectMmiReqS.", stranger.mbox())));
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_SELECT_MMI_REQ of 12 bytes is too short. Ignoring it."));
}

TEST_F(VornServerMmiHandlingTest, when_a_client_goes_then_its_user_is_unregistered)
{
    Client& client = unit.addClient();
    const auto request = connectUpToMmiUser(client);
    EXPECT_EQ(request.body.priority(), fesk::RegisterMmiUserReq::PRIORITY_CLIENT);
    fesk::RegisterMmiUserCfm cfm;
    cfm.set_mmi_user_id(33);
    request.reply(fesk::MsgNo::RegisterMmiUserCfm, cfm);
    client.expect<OmlaVornConnEstablishCfmS>();
    request.reply(fesk::MsgNo::RegisterMmiUserCfm, cfm);
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(fmt::format("ABN: No FESK transaction was found for procedureRef: {}. Ignoring "
                                                "RegisterMmiUserCfm.",
                                                request.procedureRef)));
    waitUntilGone(client);
    const auto gone = unit.fesk.expect<fesk::UnregisterMmiUserReq>(fesk::MsgNo::UnregisterMmiUserReq);
    EXPECT_EQ(gone.body.mmi_user_id(), 33U);
    gone.reply(fesk::MsgNo::UnregisterMmiUserCfm, fesk::UnregisterMmiUserCfm());
    gone.reply(fesk::MsgNo::UnregisterMmiUserRej, fesk::UnregisterMmiUserRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("handleUnregisterMmiUserCfm"));
    EXPECT_TRUE(RecordedTraces::has("handleUnregisterMmiUserRej"));
}

TEST_F(VornServerMmiHandlingTest, when_a_user_is_rejected_then_the_client_is_connected_and_has_none_to_unregister)
{
    Client& client = unit.addClient();
    connectUpToMmiUser(client).reply(fesk::MsgNo::RegisterMmiUserRej, fesk::RegisterMmiUserRej());
    client.expect<OmlaVornConnEstablishCfmS>();
    waitUntilGone(client);
    unit.fesk.expectNothing();
}

TEST_F(VornServerMmiHandlingTest, when_a_confirm_has_no_user_id_then_the_client_is_connected_with_0)
{
    Client& client = unit.addClient();
    connectUpToMmiUser(client).reply(fesk::MsgNo::RegisterMmiUserCfm, fesk::RegisterMmiUserCfm());
    client.expect<OmlaVornConnEstablishCfmS>();
    EXPECT_TRUE(RecordedTraces::has("ABN: RegisterMmiUserCfm did not have a user ID"));
}

TEST_F(VornServerMmiHandlingTest, when_the_client_has_gone_before_the_answer_then_its_user_stays_registered)
{
    Client& client = unit.addClient();
    const auto request = connectUpToMmiUser(client);
    const std::uint32_t mbox = client.mbox();
    waitUntilGone(client);
    fesk::RegisterMmiUserCfm cfm;
    cfm.set_mmi_user_id(33);
    request.reply(fesk::MsgNo::RegisterMmiUserCfm, cfm);
    unit.settle();
    unit.fesk.expectNothing();
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("ABN: No VORN session found for mailbox ID: {}. Ignoring RegisterMmiUserCfm.", mbox)));
    request.reply(fesk::MsgNo::RegisterMmiUserRej, fesk::RegisterMmiUserRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(fmt::format("ABN: No FESK transaction was found for procedureRef: {}. Ignoring "
                                                "RegisterMmiUserRej.",
                                                request.procedureRef)));
}

TEST_F(VornServerMmiHandlingTest, when_fesk_is_gone_then_a_client_stays_unconfirmed)
{
    unit.fesk.die();
    unit.settle();
    Client& client = unit.addClient();
    unit.requestConnection(client);
    unit.confirmConnectivity();
    unit.registerTimeSource(1);
    unit.connectDeepSleep(61);
    unit.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("Initializing DU_0: MMI UID is not set"));
}

} // namespace
