/// The server as a process of its unit: its start, its commands, its exit message, two units on one machine.

#include "system.h"
#include "vorni/deepSleep.h"
#include "vorni/linkSupervision.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace TestSystem;

namespace {

constexpr const char* usage = "VORN Server debug commands\n"
                              "Usage: vornsrv all ready        list components that are not ready to publish\n"
                              "       vornsrv all sessions     list all sessions\n"
                              "       vornsrv fm list          list faults in VornServer::FaultManager\n"
                              "       vornsrv fault subscriber list clients that have subscribed for faults\n";

class UnitOfProcessesTest : public SystemTest
{
protected:
    void expectCommand(const Words& words, int exitCode, const std::string& output)
    {
        const Finished command = unit.run(ulmo, words);
        EXPECT_EQ(command.exitCode, exitCode) << command.output;
        EXPECT_EQ(command.output, output);
    }
    /// Its commands are answered while it is there, and refused behind it; nobody waits for ever.
    void awaitServerThreadGone()
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (unit.run(ulmo, {"vornsrv", "all", "ready"}).exitCode != 1) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
        }
    }
};

TEST_F(UnitOfProcessesTest, when_the_server_is_initialised_then_the_service_manager_is_told)
{
    const std::string path = std::string(std::getenv("RU_DIR")) + "/notify";
    const int manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size());
    ASSERT_EQ(::bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    unit.startSoftwareManager();
    unit.startServer({{"NOTIFY_SOCKET", path}});
    pollfd entry{.fd = manager, .events = POLLIN, .revents = 0};
    ASSERT_EQ(::poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(patience).count())), 1);
    std::array<char, 256> text{};
    ASSERT_GT(::recv(manager, text.data(), text.size() - 1, 0), 0);
    ::close(manager);
    EXPECT_STREQ(text.data(), "READY=1");
    EXPECT_NE(kiv_locate("private_VornServer"), KIV_NO_MBOX);
    EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX) << "published without the rest of the board";
}

TEST_F(UnitOfProcessesTest, when_the_unit_boots_from_its_boot_environment_then_clients_are_served_too)
{
    unit.startBoard();
    unit.startServer({{"SYS_MODE", "AUBOOT"}});
    awaitPublished();
    connect().expectMmiServed();
}

TEST_F(UnitOfProcessesTest, when_commands_are_typed_then_texts_and_exit_codes_are_the_servers)
{
    unit.startSoftwareManager();
    unit.startServer();
    awaitMailbox(post, "private_VornServer");
    expectCommand({"vornsrv", "all", "sessions"}, 0, "");
    unit.startOtherServers();
    awaitPublished();
    expectCommand({"vornsrv", "all", "ready"}, 0, "All components are ready to publish\n\n");
    expectCommand({"vornsrv", "all"}, 2, std::string("invalid command\n") + usage);
    expectCommand({"vornsrv", "none", "ready"}, 2, std::string("invalid component ID: none\n") + usage);
    expectCommand({"vornsrv", "all", "ready", "now"}, 2, "invalid \"all\" command\n");
    expectCommand({"--list"}, 0,
                  "board\nboard1\ndeepsleep\nfdf_manipulation\npid_manipulation\nsysconread\nvornsrv\nwakeup\n");
    EXPECT_EQ(unit.run(ulmo, {"board", "nobody", "show"}).exitCode, 1);
    const Finished unknown = unit.run(ulmo, {"nonsense", "all"});
    EXPECT_EQ(unknown.exitCode, 127);
    EXPECT_NE(unknown.output.find("\"nonsense\""), std::string::npos) << unknown.output;
}

TEST_F(UnitOfProcessesTest, when_the_exit_message_comes_then_the_mailboxes_go_and_the_process_stays)
{
    unit.bringUp();
    DuClient& client = connect();
    DuClient& held = addClient();
    unit.board().command({"fesk", "hold", "RegisterMmiUserReq"});
    held.beginConnect();
    unit.board().await("fesk", "RegisterMmiUserReq", 3);

    const std::uint32_t privateMbox = kiv_locate("private_VornServer");
    const std::uint32_t fwdMbox = kiv_locate("VornFwdMbox_0");
    ASSERT_NE(fwdMbox, KIV_NO_MBOX);
    constexpr std::uint32_t exitMessage = 0xDEADBEEF;
    client.sendBytes(client.server, std::as_bytes(std::span(&exitMessage, 1)));
    for (const std::uint32_t mbox : {client.server, fwdMbox, privateMbox}) {
        awaitGone(mbox);
    }
    client.expectNothing();
    held.expectNothing();
    EXPECT_NE(kiv_locate("vornServerStartup"), KIV_NO_MBOX);
    awaitServerThreadGone();
    EXPECT_TRUE(unit.server().isRunning());
}

TEST_F(UnitOfProcessesTest, when_two_units_run_on_one_machine_then_they_know_nothing_of_each_other)
{
    RunningUnit other(std::string(std::getenv("RU_DIR")) + "/other");
    unit.bringUp();
    other.bringUp();
    connect();
    connect();
    EXPECT_EQ(count(unit.sessions(), "m_mboxName = DU_"), 2U);
    EXPECT_EQ(count(other.sessions(), "m_mboxName = DU_"), 0U);
    const Finished session = other.run(vornclient, {"--timeout", "15", "connect", "then", "mmi", "1"});
    EXPECT_EQ(session.exitCode, 0) << session.output;
    EXPECT_EQ(unit.board().show("legacy")["clients"].size(), 2U);
    EXPECT_EQ(other.board().show("fesk")["received"]["RegisterMmiUserReq"], 2);

    unit.board().command({"legacy", "stop"});
    awaitGone(kiv_locate("VornServer"));
    EXPECT_EQ(other.run(vornclient, {"--timeout", "15", "connect"}).exitCode, 0);
    other.expectAllWell();
}

} // namespace
