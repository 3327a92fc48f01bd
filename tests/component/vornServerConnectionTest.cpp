/// Publication, the proxy to the legacy server, clients that come and go.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "unit.h"
#include "vorni/connection.h"
#include "vorni/mmi.h"
#include "vorni/utc.h"
#include "yarrowi/numbers.h"

#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <sstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t legacysOwn = 0x1658777; // a number that nobody here knows
constexpr std::uint32_t foundMessage = 0x7E570003;

class VornServerConnectionTest : public UnitTest
{
protected:
    /// A signal of 16 bytes that only the legacy server understands.
    static std::array<std::uint32_t, 4> legacySignal(std::uint32_t number = legacysOwn)
    {
        return {number, 0x11223344, 0x55667788, 0x99AABBCC};
    }
    template <typename Words>
    static void send(const Peer& from, std::uint32_t to, const Words& words)
    {
        from.sendBytes(to, std::as_bytes(std::span(words)));
    }
    template <typename Words>
    static std::uint32_t expectSame(Peer& peer, const Words& words)
    {
        const Received received = peer.expectNumber(words[0]);
        const auto bytes = std::as_bytes(std::span(words));
        EXPECT_TRUE(std::equal(received.bytes().begin(), received.bytes().end(), bytes.begin(), bytes.end()));
        return received.sender();
    }
    /// The mailbox of a name, once there is one.
    static std::uint32_t hunt(const char* name)
    {
        const std::array<std::uint32_t, 2> filter{1, foundMessage};
        kiv_hunt(name, kiv_alloc(sizeof(foundMessage), foundMessage));
        kiv_msg* msg = kiv_receive(filter.data(), 10'000, KIV_ANY_SENDER);
        const std::uint32_t found = msg != nullptr ? kiv_sender(msg) : KIV_NO_MBOX;
        kiv_free(msg);
        return found;
    }
    std::string sessions()
    {
        int exitCode = -1;
        const std::string text = unit.command({"vornsrv", "all", "sessions"}, exitCode);
        EXPECT_EQ(exitCode, 0);
        return text;
    }
    static std::string restartLog()
    {
        std::ifstream file(std::string(std::getenv("RU_DIR")) + "/log/miravi.log");
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    void discardBoard()
    {
        for (auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
            server->discardAll();
        }
    }
    void loseLegacyServer()
    {
        const auto mark = RecordedTraces::mark();
        unit.legacy.die();
        EXPECT_TRUE(RecordedTraces::waitFor("ABN: Backend disconnected: erasing LegacyVornServer", mark, deadline));
        unit.settle();
        EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
    }
    void regainLegacyServer()
    {
        const auto mark = RecordedTraces::mark();
        unit.legacy.appear();
        EXPECT_TRUE(RecordedTraces::waitFor("Publishing cloned mailbox: VornServer (0x", mark, deadline));
        unit.settle();
    }
    void waitUntilGone(Client& client)
    {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
    }
};

class PublicationTest : public ::testing::TestWithParam<std::array<int, 5>>
{
protected:
    void bring(int which)
    {
        switch (which) {
        case 0:
            return unit.connectDunl();
        case 1:
            return unit.connectFesk();
        case 2:
            return unit.connectYarrowI(false);
        case 3:
            return unit.connectGanti();
        default:
            unit.legacy.appear();
            EXPECT_TRUE(RecordedTraces::waitFor("Legacy VORN server was found at mailbox 0x", 0, deadline));
        }
    }
    Unit unit;
};

TEST_P(PublicationTest, when_the_last_of_five_servers_is_there_in_any_order_then_the_server_is_published)
{
    unit.start();
    for (const int which : GetParam()) {
        EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
        bring(which);
        unit.settle();
    }
    const std::uint32_t mbox = kiv_locate("VornServer");
    EXPECT_NE(mbox, KIV_NO_MBOX);
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("Publishing cloned mailbox: VornServer (0x{:x}) and highestProtocolRev(3)", mbox)));
}

INSTANTIATE_TEST_SUITE_P(orders, PublicationTest,
                         ::testing::Values(std::array{0, 1, 2, 3, 4}, std::array{4, 3, 2, 1, 0},
                                           std::array{2, 3, 4, 0, 1}, std::array{1, 0, 3, 4, 2},
                                           std::array{4, 1, 2, 0, 3}));

TEST_F(VornServerConnectionTest, when_signals_come_before_publication_then_they_are_dropped)
{
    unit.start();
    unit.legacy.appear();
    Client& client = unit.addClient();
    client.sendTo<OmlaVornConnEstablishReqS>(unit.privateMbox(), [](auto&) {});
    send(client, unit.privateMbox(), legacySignal());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_CONN_ESTABLISH_REQ received before going public"));
    EXPECT_TRUE(RecordedTraces::has("ABN: DU message received before going public"));
    client.expectNothing();
    unit.legacy.expectNothing();
}

TEST_F(VornServerConnectionTest, when_the_public_name_is_taken_then_readiness_and_the_holders_end_try_again)
{
    constexpr const char* taken = "Cannot add clone \"VornServer\" to mailbox 0x";
    Peer thief{unit.post, "VornServer"};
    thief.appear();
    unit.start();
    unit.connectGanti();
    unit.connectDunl();
    unit.connectFesk();
    unit.connectYarrowI();
    unit.legacy.appear();
    EXPECT_TRUE(RecordedTraces::waitFor(taken, 0, deadline));
    auto mark = RecordedTraces::mark();
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::GetCapabilitiesCfm, 0, unit.dunl.clientRef,
                          dunl::GetCapabilitiesCfm());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::hasPart(taken, mark));
    EXPECT_EQ(kiv_locate("VornServer"), thief.mbox());

    mark = RecordedTraces::mark();
    thief.die();
    const std::uint32_t publicMbox = hunt("VornServer");
    ASSERT_NE(publicMbox, KIV_NO_MBOX);
    EXPECT_TRUE(RecordedTraces::waitFor(fmt::format("Publishing cloned mailbox: VornServer (0x{:x})", publicMbox), mark,
                                        deadline));
    EXPECT_FALSE(RecordedTraces::hasPart(taken, mark));
    EXPECT_EQ(unit.connect().lastSender, publicMbox);
}

TEST_F(VornServerConnectionTest, when_a_client_connects_then_its_confirmation_passes_unchanged_after_the_boards_answers)
{
    unit.bringUp();
    Client& client = unit.addClient();
    const std::array<std::uint8_t, 17> request{0, 0x80, 0x65, 0x01, 0, 0, 0, 1, 0, 0, 0, 7, 0xFF, 0xFE, 'r', 's', 't'};
    send(client, client.publicMbox(), request);
    const Received forwarded = unit.legacy.expectNumber(OmlaVornConnEstablishReqS::number);
    EXPECT_EQ(std::memcmp(forwarded.bytes().data(), request.data(), request.size()), 0);
    EXPECT_EQ(forwarded.size(), request.size());
    EXPECT_EQ(forwarded.sender(), kiv_locate("VornFwdMbox_0"));
    unit.settle();
    unit.dunl.expectNothing();

    std::array<std::uint8_t, 15> cfm{1, 0x80, 0x65, 0x01, 0, 0, 0, 2, 0, 0, 0, 99, 'x', 'y', 'z'};
    send(unit.legacy, forwarded.sender(), cfm);
    unit.confirmConnectivity(); // before the time source: the order of the components
    unit.registerTimeSource(1);
    EXPECT_EQ(unit.registerMmiUser(1), 1U);
    unit.settle();
    client.expectNothing();
    EXPECT_NE(sessions().find("m_clientRef = 1\nm_serverRef = 99\nm_protocolRev = 65534\nm_mboxName = DU_0\n"),
              std::string::npos);
    unit.connectDeepSleep(60);
    const Received received = client.expectNumber(OmlaVornConnEstablishCfmS::number);
    EXPECT_EQ(received.sender(), client.publicMbox());
    ASSERT_EQ(received.size(), cfm.size());
    EXPECT_EQ(std::memcmp(received.bytes().data(), cfm.data(), cfm.size()), 0);
    EXPECT_NE(restartLog().find("Radio VORNServer Connection Established, Start clientRef=1, serverRef=7"),
              std::string::npos);
    EXPECT_NE(restartLog().find("Radio VORNServer Connection Established, End clientRef=2, serverRef=99"),
              std::string::npos);
}

TEST_F(VornServerConnectionTest, when_the_legacy_server_rejects_then_the_session_goes_without_a_word_to_the_components)
{
    unit.bringUp();
    Client& client = unit.addClient();
    for (const char* fwdMbox : {"VornFwdMbox_0", "VornFwdMbox_1"}) { // no number comes twice
        client.send<OmlaVornConnEstablishReqS>();
        unit.legacy.expect<OmlaVornConnEstablishReqS>();
        EXPECT_EQ(unit.legacy.lastSender, kiv_locate(fwdMbox));
        const auto rej = legacySignal(OmlaVornConnEstablishRejS::number);
        send(unit.legacy, unit.legacy.lastSender, rej);
        EXPECT_EQ(expectSame(client, rej), client.publicMbox());
        unit.settle();
        EXPECT_EQ(kiv_locate(fwdMbox), KIV_NO_MBOX);
    }
    unit.dunl.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("Connection Request was rejected for DU_1"));
    const auto mark = RecordedTraces::mark();
    client.die();
    unit.settle();
    EXPECT_FALSE(RecordedTraces::hasPart("Client disconnected", mark));
    EXPECT_EQ(sessions().find("DU_"), std::string::npos);
}

TEST_F(VornServerConnectionTest, when_a_connected_client_requests_again_then_it_goes_through_the_same_mailbox)
{
    unit.bringUp();
    Client& client = unit.connect();
    const std::string before = sessions();
    client.clientRef = 4444;
    client.serverRef = 5555;
    client.send<OmlaVornConnEstablishReqS>([](auto& request) { request.protocolRev = 9; });
    EXPECT_EQ(unit.legacy.expect<OmlaVornConnEstablishReqS>().header.clientRef, 4444U);
    EXPECT_EQ(unit.legacy.lastSender, client.fwdMbox);
    unit.settle();
    EXPECT_EQ(sessions(), before);
    EXPECT_TRUE(RecordedTraces::has(
        "A session for this client already exists, forwarding to LegacyVornServer from VornFwdMbox_0"));
}

TEST_F(VornServerConnectionTest, when_a_stranger_begins_with_another_signal_then_its_references_are_one_word_early)
{
    unit.bringUp();
    Client& client = unit.addClient();
    const std::array<std::uint8_t, 12> signal{0x77, 0x87, 0x65, 0x01, 0, 0, 0x02, 0x09, 0, 0, 0, 7};
    send(client, client.publicMbox(), signal);
    const Received forwarded = unit.legacy.expectNumber(legacysOwn);
    EXPECT_EQ(forwarded.sender(), kiv_locate("VornFwdMbox_0"));
    unit.settle();
    EXPECT_NE(sessions().find(fmt::format("m_clientRef = {}\nm_serverRef = 521\nm_protocolRev = 0\n", 0x77876501)),
              std::string::npos);
    EXPECT_TRUE(RecordedTraces::has("default from DU_0 creating new session list entry"));

    Client& brief = unit.addClient(); // four bytes: there is no word at offset 4
    send(brief, brief.publicMbox(), std::array{legacysOwn});
    EXPECT_EQ(unit.legacy.expectNumber(legacysOwn).size(), 4U);
    EXPECT_NE(sessions().find("m_serverRef = 0\nm_protocolRev = 0\nm_mboxName = DU_1\n"), std::string::npos);
    client.die();
    brief.die();
}

TEST_F(VornServerConnectionTest, when_signals_are_unknown_then_they_pass_unchanged_both_ways)
{
    unit.bringUp();
    Client& client = unit.connect();
    send(client, client.publicMbox(), legacySignal());
    EXPECT_EQ(expectSame(unit.legacy, legacySignal()), client.fwdMbox);
    send(unit.legacy, client.fwdMbox, legacySignal());
    EXPECT_EQ(expectSame(client, legacySignal()), client.publicMbox());

    Client& other = unit.connect(); // a signal to its mailbox goes to it alone, whoever sends it
    send(client, other.fwdMbox, legacySignal());
    EXPECT_EQ(expectSame(other, legacySignal()), client.publicMbox());
    unit.settle();
    client.expectNothing();
    unit.legacy.expectNothing();

    std::vector<std::uint32_t> large(1'000'000, 0xA5A5A5A5);
    large[0] = legacysOwn;
    send(client, client.publicMbox(), large);
    expectSame(unit.legacy, large);
}

TEST_F(VornServerConnectionTest, when_the_legacy_server_speaks_to_the_public_mailbox_then_it_is_taken_for_a_client)
{
    unit.bringUp();
    send(unit.legacy, kiv_locate("VornServer"), legacySignal());
    const std::uint32_t sender = expectSame(unit.legacy, legacySignal());
    EXPECT_EQ(sender, kiv_locate("VornFwdMbox_0"));
    EXPECT_NE(sessions().find("m_mboxName = DU_0\n"), std::string::npos);
    loseLegacyServer(); // both of its sessions end
    EXPECT_EQ(sessions(), "");
    regainLegacyServer();
    discardBoard();
    unit.connect();
}

TEST_F(VornServerConnectionTest, when_the_legacy_server_goes_and_comes_back_then_its_clients_are_still_there)
{
    unit.bringUp();
    Client& client = unit.connect();
    const std::uint32_t publicMbox = client.publicMbox();
    loseLegacyServer();
    EXPECT_EQ(kiv_locate("VornFwdMbox_0"), client.fwdMbox);
    EXPECT_EQ(sessions().find("m_pLegacySession"), std::string::npos);
    send(client, unit.privateMbox(), legacySignal());
    client.sendTo<OmlaVornSelectMmiReqS>(unit.privateMbox(), [](auto& request) { request.mode = 1; });
    client.expect<OmlaVornSelectMmiCfmS>(); // a component answers all the same

    regainLegacyServer();
    EXPECT_NE(client.publicMbox(), publicMbox);
    unit.legacy.expectNothing();
    send(client, client.publicMbox(), legacySignal());
    EXPECT_EQ(expectSame(unit.legacy, legacySignal()), client.fwdMbox);
    send(unit.legacy, client.fwdMbox, legacySignal());
    EXPECT_EQ(expectSame(client, legacySignal()), client.publicMbox());
    discardBoard();
    unit.connect();
    EXPECT_NE(kiv_locate("VornFwdMbox_1"), KIV_NO_MBOX);
}

TEST_F(VornServerConnectionTest,
       when_a_confirmation_is_held_while_the_legacy_server_restarts_then_it_goes_out_all_the_same)
{
    unit.bringUp();
    Client& client = unit.addClient();
    unit.requestConnection(client);
    const std::uint32_t publicMbox = client.publicMbox();
    unit.confirmConnectivity();
    unit.registerTimeSource(5);
    unit.registerMmiUser(6);
    loseLegacyServer();
    regainLegacyServer();
    unit.connectDeepSleep(61);
    client.expect<OmlaVornConnEstablishCfmS>();
    EXPECT_EQ(client.lastSender, publicMbox); // the one that it was held for
    send(client, client.publicMbox(), legacySignal());
    EXPECT_EQ(expectSame(unit.legacy, legacySignal()), client.fwdMbox);
}

TEST_F(VornServerConnectionTest, when_the_board_servers_go_then_the_server_stays_published)
{
    unit.bringUp();
    for (auto* server : {&unit.dunl, &unit.fesk}) {
        server->die();
    }
    const auto mark = RecordedTraces::mark();
    unit.yarrowi.die();
    EXPECT_TRUE(RecordedTraces::waitFor("DeepSleepServer mailbox went down, 0x", mark, deadline));
    unit.settle();
    EXPECT_NE(kiv_locate("VornServer"), KIV_NO_MBOX);
    loseLegacyServer();
    unit.legacy.appear();
    EXPECT_TRUE(RecordedTraces::waitFor("VornServerDunl component is not ready to publish.", mark, deadline));
    EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
    unit.connectDunl();
    unit.connectFesk();
    unit.settle();
    EXPECT_NE(kiv_locate("VornServer"), KIV_NO_MBOX); // the yarrowi server's capabilities stay
}

TEST_F(VornServerConnectionTest, when_a_client_goes_while_its_confirmation_is_held_then_the_components_are_told)
{
    unit.bringUp();
    Client& client = unit.addClient();
    unit.requestConnection(client);
    unit.confirmConnectivity();
    unit.settle();
    discardBoard();
    waitUntilGone(client);
    unit.dunl.expectNumber(dunl::MsgNo::ConnectivityNotConnectedReq);
    unit.yarrowi.expectNumber(yarrowi::MsgNo::ConnectionClosedownReq);
    unit.fesk.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("Client disconnected: DU_0"));
    EXPECT_EQ(kiv_locate("VornFwdMbox_0"), KIV_NO_MBOX);
    EXPECT_EQ(sessions().find("DU_0"), std::string::npos);
}

TEST_F(VornServerConnectionTest, when_clients_go_then_the_others_stay_and_no_number_comes_twice)
{
    unit.bringUp();
    Client& first = unit.connect();
    Client& second = unit.connect();
    waitUntilGone(first);
    const std::string text = sessions();
    EXPECT_EQ(text.find("DU_0"), std::string::npos);
    EXPECT_NE(text.find("DU_1"), std::string::npos);
    send(second, second.publicMbox(), legacySignal());
    EXPECT_EQ(expectSame(unit.legacy, legacySignal()), second.fwdMbox);
    discardBoard();
    unit.connect();
    EXPECT_NE(kiv_locate("VornFwdMbox_2"), KIV_NO_MBOX);
}

TEST_F(VornServerConnectionTest, when_connection_signals_are_too_short_then_they_are_dropped)
{
    unit.bringUp();
    Client& client = unit.addClient();
    const std::array<std::uint8_t, 13> request{0, 0x80, 0x65, 0x01};
    send(client, client.publicMbox(), request);
    unit.settle();
    unit.legacy.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: OMLA_VORN_CONN_ESTABLISH_REQ of 13 bytes is too short. Ignoring it."));
    client.send<OmlaVornConnEstablishReqS>();
    unit.legacy.expect<OmlaVornConnEstablishReqS>();
    const std::array<std::uint8_t, 11> cfm{1, 0x80, 0x65, 0x01};
    send(unit.legacy, unit.legacy.lastSender, cfm);
    unit.settle();
    unit.dunl.expectNothing();
    client.expectNothing();
}

TEST_F(VornServerConnectionTest, when_the_forward_mailbox_cannot_be_made_then_later_signals_have_no_sender)
{
    Peer thief{unit.post, "VornFwdMbox_0"};
    thief.appear();
    unit.bringUp();
    Client& client = unit.addClient();
    client.send<OmlaVornConnEstablishReqS>();
    unit.settle();
    unit.legacy.expectNothing();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::hasPart("ABN: failed to create cloned mailbox VornFwdMbox_0 for parent 0x"));
    send(client, client.publicMbox(), legacySignal());
    EXPECT_EQ(expectSame(unit.legacy, legacySignal()), KIV_NO_MBOX);
    waitUntilGone(client);
    EXPECT_EQ(kiv_locate("VornFwdMbox_0"), thief.mbox());
}

} // namespace
