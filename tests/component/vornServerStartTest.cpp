/// Start, the order of messages, and the exit message.

#include "ganti/ganti.pb.h"
#include "unit.h"
#include "vornServerCmdHandler.h"
#include "vornServerImpl.h"
#include "vornServerUlmo.h"
#include "vorni/connection.h"
#include "vorni/linkSupervision.h"
#include "vorni/mmi.h"

#include <fmt/format.h>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t exitThreadMsg = 0xDEADBEEF;

class VornServerStartTest : public UnitTest
{
protected:
    /// A message that comes when a mailbox has gone.
    static void expectGone(std::uint32_t mbox)
    {
        constexpr std::uint32_t goneMessage = 0x7E570002;
        kiv_monitor(mbox, kiv_alloc(sizeof(goneMessage), goneMessage));
        kiv_msg* msg = nullptr;
        const std::array<std::uint32_t, 2> filter{1, goneMessage};
        msg = kiv_receive(filter.data(), 10'000, KIV_ANY_SENDER);
        EXPECT_NE(msg, nullptr) << "mailbox " << mbox << " is still there";
        kiv_free(msg);
    }
    void sendExit() { unit.legacy.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&exitThreadMsg, 1))); }
};

TEST_F(VornServerStartTest, when_started_twice_then_the_second_start_is_refused)
{
    unit.start();
    const std::uint32_t mbox = unit.privateMbox();
    EXPECT_EQ(unit.server->start(), 7);
    unit.settle();
    EXPECT_EQ(unit.privateMbox(), mbox);
    EXPECT_EQ(RecordedTraces::count("Failed to create KIV mailbox!"), 0U);
}

TEST_F(VornServerStartTest, when_the_private_name_is_taken_then_the_server_stays_idle)
{
    Peer thief{unit.post, "private_VornServer"};
    thief.appear();
    EXPECT_EQ(unit.server->start(), 0);
    EXPECT_TRUE(RecordedTraces::waitFor("Failed to create KIV mailbox!", 0, deadline));
}

TEST_F(VornServerStartTest, when_the_fault_managers_command_is_taken_then_the_server_does_not_start)
{
    struct : VornServerCmdHandler {
        bool handleCommand(const std::vector<std::string>&, std::ostream&) override { return false; }
    } other;
    ASSERT_TRUE(VornServerUlmo::getInstance().registerCmdHandler("fm", &other));
    unit.ganti.appear();
    EXPECT_EQ(unit.server->start(), 0);
    EXPECT_TRUE(RecordedTraces::waitFor("Failed to register signal handlers!", 0, deadline));
    EXPECT_TRUE(RecordedTraces::has("\"fm\" is already registered"));
    EXPECT_TRUE(RecordedTraces::has("VornServer Fault Manager has failed to init"));
    VornServerUlmo::getInstance().unregisterCmdHandler("fm", &other);
}

TEST_F(VornServerStartTest, when_the_software_manager_comes_while_the_server_starts_then_it_is_connected)
{
    EXPECT_EQ(unit.server->start(), 0);
    EXPECT_TRUE(RecordedTraces::waitFor(
        "GANTClient::connEstablishReq() PLOE connection to GANTI Server was unsuccessful.", 0, deadline));
    unit.ganti.appear();
    unit.connectGanti();
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("GANTClient::handleGetCapabilitiesCfm() readyForPublicAccess()"));
    EXPECT_FALSE(RecordedTraces::has("Failed to register signal handlers!"));
}

TEST_F(VornServerStartTest, when_the_software_manager_sends_many_frames_then_the_unit_has_settled_behind_the_last)
{
    unit.start();
    unit.connectGanti();
    constexpr std::uint32_t count = 500;
    for (std::uint32_t i = 0; i < count; ++i) {
        unit.ganti.send(i, gant::ConnEstablishReq()); // which is the other side's to send
    }
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("GANTClient: receiveHandler() msgHandler unhandled msgNo(0x1), procRef(0x{:x})", count - 1)));
    unit.ganti.die();
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("PLOE connection closed by GANTI Server."));
}

TEST_F(VornServerStartTest, when_many_signals_come_at_once_then_they_are_answered_in_order)
{
    unit.start();
    Client& client = unit.addClient();
    constexpr std::uint32_t count = 2000;
    for (client.clientRef = 0; client.clientRef < count; ++client.clientRef) {
        client.sendTo<OmlaVornLinkSupervisionReqS>(unit.privateMbox(), [](auto&) {});
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        ASSERT_EQ(client.expect<OmlaVornLinkSupervisionRejS>().header.clientRef, i);
    }
    client.expectNothing();
}

TEST_F(VornServerStartTest, when_the_exit_message_comes_then_clients_learn_it_from_their_monitors_alone)
{
    unit.bringUp();
    Client& connected = unit.connect();
    Client& held = unit.addClient();
    unit.requestConnection(held);
    unit.settle();
    const std::uint32_t publicMbox = connected.publicMbox();
    for (auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        server->discardAll();
    }
    sendExit();
    for (const std::uint32_t mbox : {publicMbox, connected.fwdMbox, held.fwdMbox, unit.privateMbox()}) {
        if (mbox != KIV_NO_MBOX) {
            expectGone(mbox);
        }
    }
    EXPECT_TRUE(RecordedTraces::waitFor("VornSession::~VornSession", 0, deadline));
    for (const char* name : {"VornServer", "private_VornServer", "VornFwdMbox_0", "VornFwdMbox_1"}) {
        EXPECT_EQ(kiv_locate(name), KIV_NO_MBOX) << name;
    }
    for (Peer* peer :
         std::initializer_list<Peer*>{&connected, &held, &unit.legacy, &unit.dunl, &unit.fesk, &unit.yarrowi}) {
        peer->expectNothing();
    }
    EXPECT_TRUE(RecordedTraces::has("EXIT_THREAD_MSG"));
    EXPECT_FALSE(RecordedTraces::hasPart("VornServerImpl::deleteVornSession"));
}

TEST_F(VornServerStartTest, when_stopped_before_anything_is_published_then_the_thread_ends)
{
    unit.start();
    const std::uint32_t mbox = unit.privateMbox();
    EXPECT_EQ(unit.server->stop(false), 0);
    expectGone(mbox);
    EXPECT_TRUE(RecordedTraces::waitFor("EXIT_THREAD_MSG", 0, deadline));
}

TEST_F(VornServerStartTest, when_the_server_thread_has_ended_then_a_command_comes_back_with_an_error)
{
    unit.start();
    unit.server->stop(true);
    int exitCode = 0;
    unit.command({"vornsrv", "all", "ready"}, exitCode);
    EXPECT_NE(exitCode, 0);
}

} // namespace
