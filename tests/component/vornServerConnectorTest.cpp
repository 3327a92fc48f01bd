/// The connections to the DUNL and the FESK server, seen from those servers.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "unit.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornServerConnectorTest : public UnitTest
{
protected:
    VornServerConnectorTest() { unit.start(); }

    /// Appears and takes the connection request.
    template <typename ConnEstablishReq>
    void appear(BoardServer& server, std::uint32_t msgNo)
    {
        server.appear();
        const auto request = server.expect<ConnEstablishReq>(msgNo);
        EXPECT_EQ(request.procedureRef, request.connectionRef);
        EXPECT_EQ(request.sender, unit.privateMbox());
        EXPECT_EQ(std::vector<std::uint32_t>(request.body.protocol_revision().begin(),
                                             request.body.protocol_revision().end()),
                  std::vector<std::uint32_t>{1});
        server.clientRef = request.procedureRef;
        server.serverRef = 0x700;
    }
    void appearDunl() { appear<dunl::ConnEstablishReq>(unit.dunl, dunl::MsgNo::ConnEstablishReq); }
    void appearFesk() { appear<fesk::ConnEstablishReq>(unit.fesk, fesk::MsgNo::ConnEstablishReq); }
    void send(const BoardServer& server, std::uint32_t msgNo, const google::protobuf::Message& body)
    {
        server.sendMessage(unit.privateMbox(), msgNo, server.clientRef, server.clientRef, body);
        unit.settle();
    }
    /// Header and two bytes that no protobuf message begins with.
    void sendGarbage(const BoardServer& server, std::uint32_t msgNo)
    {
        std::array<std::byte, 14> bytes{};
        auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
        header->msgNo = msgNo;
        header->procedureRef = server.clientRef;
        header->connectionRef = server.clientRef;
        bytes[12] = bytes[13] = std::byte{0xFF};
        server.sendBytes(unit.privateMbox(), bytes);
        unit.settle();
    }
    std::string ready()
    {
        int exitCode = -1;
        return unit.command({"vornsrv", "all", "ready"}, exitCode);
    }
};

TEST_F(VornServerConnectorTest, when_dunl_confirms_then_it_gets_four_requests_of_their_own_procedures)
{
    appearDunl();
    EXPECT_EQ(unit.dunl.clientRef, 100U);
    dunl::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::ConnEstablishCfm, 100, unit.dunl.serverRef, cfm);
    std::uint32_t procedureRef = 1;
    for (const std::uint32_t msgNo : {dunl::MsgNo::GetProductInfoReq, dunl::MsgNo::GetContainerPidReq,
                                      dunl::MsgNo::GetCapabilitiesReq, dunl::MsgNo::SubscribeFaultsReq}) {
        const Received request = unit.dunl.expectNumber(msgNo);
        const auto* header = viewSignal<BoardMessageHeader>(request.get());
        EXPECT_EQ(request.size(), 12U);
        EXPECT_EQ(header->procedureRef, procedureRef++);
        EXPECT_EQ(header->connectionRef, 0x700U);
    }
    EXPECT_TRUE(RecordedTraces::has("dunl::ConnEstablishCfm from DUNL server has selected protocol revision #1"));
    unit.settle();
    const auto mark = RecordedTraces::mark();
    EXPECT_EQ(ready().find("VornServerDunl"), 52U);
    EXPECT_TRUE(
        RecordedTraces::has("VornServerDunl is not ready to publish. Capabilities have not been received.", mark));
    sendGarbage(unit.dunl, dunl::MsgNo::GetCapabilitiesCfm);
    EXPECT_TRUE(RecordedTraces::has("Unable to parse GPB message tolme.dunl.GetCapabilitiesCfm of size 14 bytes"));
    send(unit.dunl, dunl::MsgNo::GetCapabilitiesRej, dunl::GetCapabilitiesRej());
    EXPECT_TRUE(
        RecordedTraces::has("VornServerDunl::handleDunlGetCapabilitiesRej(), Unable to get DunlServer Capabilities"));
    EXPECT_NE(ready().find("VornServerDunl"), std::string::npos);
    send(unit.dunl, dunl::MsgNo::GetCapabilitiesCfm, dunl::GetCapabilitiesCfm());
    EXPECT_EQ(ready().find("VornServerDunl"), std::string::npos);
}

TEST_F(VornServerConnectorTest, when_a_confirm_selects_no_revision_then_every_request_fails_with_a_trace)
{
    appearDunl();
    const auto mark = RecordedTraces::mark();
    send(unit.dunl, dunl::MsgNo::ConnEstablishCfm, dunl::ConnEstablishCfm());
    EXPECT_EQ(RecordedTraces::count("ABN: Failed to send message -- not connected to TOLME server", mark), 4U);
    appearFesk();
    send(unit.fesk, fesk::MsgNo::ConnEstablishCfm, fesk::ConnEstablishCfm());
    EXPECT_EQ(RecordedTraces::count("ABN: Failed to send message -- not connected to TOLME server", mark), 6U);
    unit.dunl.expectNothing();
    unit.fesk.expectNothing();
}

TEST_F(VornServerConnectorTest, when_a_connection_is_rejected_then_the_reason_is_traced_and_nothing_tries_again)
{
    appearDunl();
    appearFesk();
    EXPECT_EQ(unit.fesk.clientRef, 101U);
    send(unit.dunl, dunl::MsgNo::ConnEstablishRej, dunl::ConnEstablishRej());
    send(unit.fesk, fesk::MsgNo::ConnEstablishRej, fesk::ConnEstablishRej());
    dunl::ConnEstablishRej dunlRej;
    dunlRej.set_reject_reason(dunl::ConnEstablishRej::SERVER_INSTANCE_NOT_RECOGNIZED);
    send(unit.dunl, dunl::MsgNo::ConnEstablishRej, dunlRej);
    fesk::ConnEstablishRej feskRej;
    feskRej.set_reject_reason(fesk::ConnEstablishRej::NO_SUPPORTED_PROTOCOL_REVISION);
    send(unit.fesk, fesk::MsgNo::ConnEstablishRej, feskRej);
    sendGarbage(unit.fesk, fesk::MsgNo::ConnEstablishRej);
    for (const char* text :
         {"ABN: dunl::ConnEstablishRej provided no reason",
          "ABN: VornServer connection to the DUNL Server has been rejected: SERVER_INSTANCE_NOT_RECOGNIZED",
          "ABN: VornServer connection to the FESK Server has been rejected: reason not set by server",
          "ABN: VornServer connection to the FESK Server has been rejected: NO_SUPPORTED_PROTOCOL_REVISION",
          "Unable to parse GPB message tolme.fesk.ConnEstablishRej of size 14 bytes"}) {
        EXPECT_TRUE(RecordedTraces::has(text)) << text;
    }
    unit.dunl.expectNothing();
    unit.fesk.expectNothing();
}

TEST_F(VornServerConnectorTest, when_fesk_comes_back_then_the_units_own_mmi_user_is_registered_again)
{
    for (std::uint32_t userId = 8; userId < 10; ++userId) {
        appearFesk();
        fesk::ConnEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        unit.fesk.sendMessage(unit.privateMbox(), fesk::MsgNo::ConnEstablishCfm, 101, 0x700, cfm);
        unit.fesk.expect<fesk::GetCapabilitiesReq>(fesk::MsgNo::GetCapabilitiesReq);
        EXPECT_EQ(unit.registerMmiUser(userId), 3U);
        unit.settle();
        EXPECT_TRUE(RecordedTraces::has("Internal mmiUserId = " + std::to_string(userId)));
        send(unit.fesk, fesk::MsgNo::GetCapabilitiesRej, fesk::GetCapabilitiesRej());
        EXPECT_TRUE(RecordedTraces::has("The FESK Server failed to get the capabilities"));
        unit.fesk.die();
    }
}

} // namespace
