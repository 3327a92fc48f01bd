/// The debug commands, as the unit's command line runs them.

#include "unit.h"
#include "vornServerCmdHandler.h"
#include "vornServerUlmo.h"

#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

const std::string usage = "VORN Server debug commands\n"
                          "Usage: vornsrv all ready        list components that are not ready to publish\n"
                          "       vornsrv all sessions     list all sessions\n"
                          "       vornsrv fm list          list faults in VornServer::FaultManager\n"
                          "       vornsrv fault subscriber list clients that have subscribed for faults\n";

class VornServerDebugCommandTest : public UnitTest
{
protected:
    std::pair<int, std::string> run(const std::vector<std::string>& words)
    {
        int exitCode = -1;
        std::string text = unit.command(words, exitCode);
        return {exitCode, text};
    }
};

TEST_F(VornServerDebugCommandTest, when_a_line_is_wrong_then_it_is_told_how)
{
    unit.start();
    const std::pair invalidAll(2, std::string("invalid \"all\" command\n"));
    EXPECT_EQ(run({"vornsrv"}), std::pair(2, "invalid command\n" + usage));
    EXPECT_EQ(run({"vornsrv", "all"}), std::pair(2, "invalid command\n" + usage));
    EXPECT_EQ(run({"vornsrv", "x y", "ready"}), std::pair(2, "invalid component ID: x y\n" + usage));
    EXPECT_EQ(run({"vornsrv", "ALL", "ready", "z"}), std::pair(2, "invalid component ID: ALL\n" + usage));
    EXPECT_EQ(run({"vornsrv", "all", "ready", "z"}), invalidAll);
    EXPECT_EQ(run({"vornsrv", "all", "sessions", "z"}), invalidAll);
    EXPECT_EQ(run({"vornsrv", "all", "list"}), invalidAll);
    EXPECT_EQ(run({"vornsrv", "-h"}), std::pair(0, usage));
    EXPECT_EQ(run({"vornsrv", "--help"}), std::pair(0, usage));
}

TEST_F(VornServerDebugCommandTest, when_components_are_not_ready_then_they_are_listed_in_their_order)
{
    unit.start();
    const auto ready = [this] { return run({"vornsrv", "all", "ready"}); };
    const auto notReady = ready();
    EXPECT_EQ(notReady.first, 0);
    EXPECT_EQ(
        notReady.second.find("The following component(s) are not ready to publish\nVornServerDunl\nVornServerFesk\n"),
        0U);
    EXPECT_NE(notReady.second.find("\nVornServerGanti\n"), std::string::npos);
    EXPECT_NE(notReady.second.find("\nVornServerYarrowI\n\n"), std::string::npos);
    EXPECT_EQ(notReady.second.find("VornServerTime"), std::string::npos);
    unit.connectFesk();
    unit.connectGanti();
    unit.settle();
    EXPECT_EQ(ready().second.find("VornServerGanti"), std::string::npos);
    EXPECT_EQ(ready().second.find("VornServerFesk"), std::string::npos);
}

TEST_F(VornServerDebugCommandTest, when_all_components_are_ready_then_one_line_says_so)
{
    unit.bringUp();
    EXPECT_EQ(run({"vornsrv", "all", "ready"}), std::pair(0, std::string("All components are ready to publish\n\n")));
}

TEST_F(VornServerDebugCommandTest, when_sessions_are_listed_then_the_legacy_servers_comes_last)
{
    unit.start();
    const auto sessions = [this] { return run({"vornsrv", "all", "sessions"}); };
    EXPECT_EQ(sessions(), std::pair(0, std::string()));
    unit.connectGanti();
    unit.legacy.appear();
    unit.connectDunl();
    unit.connectFesk();
    unit.connectYarrowI();
    unit.settle();
    const std::string legacy = sessions().second;
    const std::string head = fmt::format("m_pLegacySession:\n-----------------\nm_mboxId = 0x{:x}\nm_clientRef = 0\n"
                                         "m_serverRef = 0\nm_protocolRev = 0\nm_mboxName = LegacyVornServer\n",
                                         unit.legacy.mbox());
    EXPECT_EQ(legacy.find(head), 0U);
    EXPECT_EQ(legacy.substr(legacy.size() - 23), "\nm_pFwdMbox = nullptr\n\n");
    Client& client = unit.connect();
    const std::string both = sessions().second;
    EXPECT_EQ(both.find(fmt::format("m_mboxId = 0x{:x}\nm_clientRef = {}\n", client.mbox(), client.clientRef)), 0U);
    EXPECT_NE(both.find(fmt::format("    m_mboxName = VornFwdMbox_0\n    m_mboxId = 0x{:x}\n}}\n\nm_pLegacySession:\n",
                                    client.fwdMbox)),
              std::string::npos);
}

TEST_F(VornServerDebugCommandTest, when_a_name_is_taken_then_the_first_handler_stays)
{
    unit.start();
    struct : VornServerCmdHandler {
        bool handleCommand(const std::vector<std::string>&, std::ostream&) override { return false; }
    } handler;
    EXPECT_FALSE(VornServerUlmo::getInstance().registerCmdHandler("all", &handler));
    EXPECT_TRUE(RecordedTraces::has("\"all\" is already registered"));
    EXPECT_EQ(run({"vornsrv", "all", "sessions"}).first, 0);
}

TEST_F(VornServerDebugCommandTest, when_temporary_data_is_handled_then_texts_and_codes_are_those_of_the_commands)
{
    unit.start();
    using Result = std::pair<int, std::string>;
    const auto begins = [](const Result& result, const std::string& text) {
        EXPECT_EQ(result.first, 0);
        EXPECT_EQ(result.second.substr(0, text.size()), text);
    };
    const std::string pidUsage = "Manipulate PID handling on RU\nUsage: pid_manipulation [options]\nOptions:\n";
    const std::string fdfUsage = "Manipulate FDF file handling on RU\nUsage: fdf_manipulation [options]\nOptions:\n";
    begins(run({"pid_manipulation"}), pidUsage);
    begins(run({"pid_manipulation", "--help"}), pidUsage);
    begins(run({"fdf_manipulation"}), fdfUsage);
    begins(run({"fdf_manipulation", "-h"}), fdfUsage);

    const std::string absent = "sarna_get_value_size error";
    EXPECT_EQ(run({"fdf_manipulation", "-r"}), Result(0, "FDF_ID: " + absent + "\nFDF_FILE: " + absent + "\n"));
    EXPECT_EQ(run({"fdf_manipulation", "-i"}), Result(2, ""));
    EXPECT_EQ(run({"fdf_manipulation", "--id", "KRC1"}), Result(0, ""));
    EXPECT_EQ(run({"fdf_manipulation", "--file", "<fru a=\"b\"/>"}), Result(0, ""));
    EXPECT_EQ(run({"fdf_manipulation", "-f", "too", "many"}), Result(2, ""));
    EXPECT_EQ(run({"fdf_manipulation", "--read"}), Result(0, "FDF_ID: KRC1\nFDF_FILE: <fru a=\"b\"/>\n"));
    EXPECT_EQ(run({"fdf_manipulation", "-d"}), Result(0, ""));
    EXPECT_EQ(run({"fdf_manipulation", "-r"}), Result(0, "FDF_ID: \nFDF_FILE: \n"));

    EXPECT_EQ(run({"sysconread"}), Result(2, "sysconread is not registered\n"));
    EXPECT_EQ(run({"sysconread", "name"}), Result(2, "sysconread is not registered\n"));
    begins(run({"sysconread", "-h"}), "Prints System Constants on AAS\nUsage: sysconread [options]\nOptions:\n");
}

TEST_F(VornServerDebugCommandTest, when_the_store_cannot_be_written_then_each_failure_is_told)
{
    const std::string store = std::string(std::getenv("RU_DIR")) + "/sarna";
    std::filesystem::remove_all(store);
    std::ofstream(store) << "in the place of the folder";
    unit.start();
    const auto [code, text] = run({"fdf_manipulation", "-d"});
    EXPECT_EQ(code, 2);
    const std::string line = text.substr(0, text.find('\n') + 1);
    EXPECT_TRUE(line.starts_with("sarna_set_value returned with ")) << text;
    EXPECT_EQ(text, line + line);
    EXPECT_EQ(run({"pid_manipulation", "-d"}), std::pair(2, line.substr(0, line.size() - 1)));
}

} // namespace
