/// Link supervision: what the DUNL server is told of the clients, and what the clients wait for.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vornServerComponent.h"
#include "vornSession.h"
#include "vorni/connection.h"
#include "vorni/linkSupervision.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornServerLinkSupervisionTest : public UnitTest
{
protected:
    VornServerLinkSupervisionTest() { unit.bringUp(); }

    auto expectConnected()
    {
        return unit.dunl.expect<dunl::ConnectivityConnectedReq>(dunl::MsgNo::ConnectivityConnectedReq);
    }
    auto expectNotConnected()
    {
        return unit.dunl.expect<dunl::ConnectivityNotConnectedReq>(dunl::MsgNo::ConnectivityNotConnectedReq);
    }
    void waitUntilGone(Client& client)
    {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
    }
};

TEST_F(VornServerLinkSupervisionTest, when_anyone_asks_for_supervision_then_it_is_rejected)
{
    Client& stranger = unit.addClient(0xFFFFFFFF);
    stranger.send<OmlaVornLinkSupervisionReqS>();
    const auto rej = stranger.expect<OmlaVornLinkSupervisionRejS>();
    EXPECT_EQ(stranger.lastSender, stranger.publicMbox());
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.errorText), "Capability prerequisite not fulfilled");
    EXPECT_EQ(rej.header.clientRef, stranger.clientRef);
    EXPECT_EQ(rej.header.serverRef, 0xFFFFFFFFU);
    const std::array<std::uint32_t, 2> tooShort{OmlaVornLinkSupervisionReqS::number, 1};
    stranger.sendBytes(stranger.publicMbox(), std::as_bytes(std::span(tooShort)));
    unit.settle();
    stranger.expectNothing();
}

TEST_F(VornServerLinkSupervisionTest, when_clients_come_and_go_then_dunl_is_told_of_the_first_and_the_last)
{
    Client& first = unit.connect();
    Client& second = unit.connect(); // expects no second ConnectivityConnectedReq
    waitUntilGone(first);
    unit.dunl.expectNumber(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    unit.dunl.expectNothing();
    waitUntilGone(second);
    const auto request = expectNotConnected();
    request.reply(dunl::MsgNo::ConnectivityNotConnectedCfm, dunl::ConnectivityNotConnectedCfm());
    request.reply(dunl::MsgNo::ConnectivityNotConnectedRej, dunl::ConnectivityNotConnectedRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::hasPart("handleConnectivityNotConnectedResp(kiv_msg{"));
    for (auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        server->discardAll();
    }

    Client& third = unit.addClient();
    unit.requestConnection(third);
    const auto again = expectConnected();
    unit.registerTimeSource(1);
    unit.registerMmiUser(1);
    unit.connectDeepSleep(70);
    unit.settle();
    third.expectNothing(); // the common state is empty again
    again.reply(dunl::MsgNo::ConnectivityConnectedCfm, dunl::ConnectivityConnectedCfm());
    third.expect<OmlaVornConnEstablishCfmS>();
}

TEST_F(VornServerLinkSupervisionTest, when_connectivity_is_rejected_then_the_client_is_confirmed_all_the_same)
{
    Client& client = unit.addClient();
    unit.requestConnection(client);
    const auto request = expectConnected();
    request.reply(dunl::MsgNo::ConnectivityConnectedRej, dunl::ConnectivityConnectedRej());
    unit.registerTimeSource(1);
    unit.registerMmiUser(1);
    unit.connectDeepSleep(70);
    client.expect<OmlaVornConnEstablishCfmS>();
    // The transaction stays: no request for the next client, and a later answer still counts.
    Client& next = unit.addClient();
    unit.requestConnection(next);
    unit.registerTimeSource(2);
    request.reply(dunl::MsgNo::ConnectivityConnectedCfm, dunl::ConnectivityConnectedCfm());
    unit.settle();
    EXPECT_FALSE(RecordedTraces::hasPart("Ignoring ConnectivityConnected"));
}

TEST_F(VornServerLinkSupervisionTest, when_a_second_client_waits_too_then_the_answer_opens_only_the_first_gate)
{
    Client& first = unit.addClient();
    Client& second = unit.addClient();
    unit.requestConnection(first);
    const auto request = expectConnected();
    unit.registerTimeSource(1);
    unit.registerMmiUser(1);
    unit.connectDeepSleep(70);
    unit.requestConnection(second);
    const auto source = unit.dunl.expect<dunl::RegisterUtcTimeSourceReq>(dunl::MsgNo::RegisterUtcTimeSourceReq);
    dunl::RegisterUtcTimeSourceCfm sourceCfm;
    sourceCfm.set_utc_time_source_ref(2);
    source.reply(dunl::MsgNo::RegisterUtcTimeSourceCfm, sourceCfm);
    unit.registerMmiUser(2);
    const auto deepSleep = unit.yarrowi.expectNumber(0x1707A80);
    unit.settle();
    first.expectNothing();
    request.reply(dunl::MsgNo::ConnectivityConnectedCfm, dunl::ConnectivityConnectedCfm());
    first.expect<OmlaVornConnEstablishCfmS>();
    unit.settle();
    second.expectNothing(); // its own next answer opens it
    unit.yarrowi.sendBytes(unit.privateMbox(), [&] {
        std::vector<std::byte> bytes(deepSleep.bytes().begin(), deepSleep.bytes().end());
        auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
        header->msgNo = 0x1707A81;
        header->connectionRef = 71; // the revision's field is the request's: 1
        return bytes;
    }());
    second.expect<OmlaVornConnEstablishCfmS>();
}

TEST_F(VornServerLinkSupervisionTest, when_a_restart_is_announced_then_the_components_are_told_and_dunl_is_asked)
{
    Client& client = unit.connect();
    unit.settle(); // the server thread is idle: the callback may run here
    const VornSession session(client.mbox(), client.clientRef, client.serverRef, 3, "DU_0", 0);
    VornServerComponent::notifyRestartReqReceived(session, 90);
    const auto request =
        unit.dunl.expect<dunl::ConnectivitySetSupervisionTimeoutReq>(dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq);
    EXPECT_EQ(request.body.supervision_timeout(), 90U);
    request.reply(dunl::MsgNo::ConnectivitySetSupervisionTimeoutRej, dunl::ConnectivitySetSupervisionTimeoutRej());
    request.reply(dunl::MsgNo::ConnectivitySetSupervisionTimeoutRej, dunl::ConnectivitySetSupervisionTimeoutRej());
    unit.settle();
    EXPECT_EQ(RecordedTraces::count(
                  "No DUNL transaction was found for procedureRef: " + std::to_string(request.procedureRef) +
                  ". Ignoring ConnectivitySetSupervisionTimeoutRej"),
              1U);
}

TEST_F(VornServerLinkSupervisionTest, when_an_answer_fits_no_request_or_no_client_then_it_is_dropped)
{
    Client& first = unit.addClient();
    Client& second = unit.addClient();
    unit.requestConnection(first);
    const auto request = expectConnected();
    unit.requestConnection(second);
    unit.settle();
    const std::uint32_t mbox = first.mbox();
    waitUntilGone(first);
    request.reply(dunl::MsgNo::ConnectivityConnectedCfm, dunl::ConnectivityConnectedCfm());
    auto wrong = request;
    wrong.procedureRef = 9999;
    wrong.reply(dunl::MsgNo::ConnectivityConnectedRej, dunl::ConnectivityConnectedRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: No VORN session found for mailbox ID: " + std::to_string(mbox) +
                                    ". Ignoring ConnectivityConnectedCfm"));
    EXPECT_TRUE(
        RecordedTraces::has("No DUNL transaction was found for procedureRef: 9999. Ignoring ConnectivityConnectedRej"));
}

} // namespace
