/// A unit of real programs, each a process of its own, in a run-time directory of the test.
///
///     unit.bringUp();                                   // board simulator and server, published
///     DuClient& client = connect();                     // a client that the test plays, confirmed
///     unit.board().command({"legacy", "stop"});         // what a user would type behind "ulmo board"
///     awaitGone(client.server);
///
/// Nothing sleeps: a step waits for its event with a deadline. At the end of a test every program that the test hasn't
/// ended must still live, and none may have left a sanitizer's report.
#pragma once

#include "unit.h"
#include "vorni/utc.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/types.h>
#include <vector>

namespace TestSystem {

/// How long anything may take, on a machine that has other things to do.
constexpr std::chrono::seconds patience{20};

using TestUnit::Post;
using TestUnit::StepFailed;
using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// The programs under test.
extern const char* const vornserver;
extern const char* const boardsim;
extern const char* const vornclient;
extern const char* const ulmo;

/// A running program; its output goes to a file. It is killed at the latest when this object goes.
class Process
{
public:
    Process(const Words& argv, const Environment& environment, std::filesystem::path outputFile);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    const std::string& program() const { return m_program; }
    pid_t pid() const { return m_pid; }
    bool isRunning() const;
    void signal(int number) const;
    static constexpr int diedOfSignal = 128; ///< in an exit code: the number of the signal is added
    /// Waits for its end: the exit code, or 128 and the signal that ended it.
    int wait();
    bool isWaitedFor() const { return m_pidFd == -1; }
    /// All that it has written so far, standard error included.
    std::string output() const;
    /// Waits until it has written this.
    void awaitOutput(const std::string& text) const;

private:
    std::string m_program;
    std::filesystem::path m_outputFile;
    pid_t m_pid = -1;
    int m_pidFd = -1;
};

/// A program that has ended.
struct Finished {
    int exitCode;
    std::string output;
};

/// A board simulator and its command line.
class Board
{
public:
    Board(Process& boardsim, std::filesystem::path directory, std::string command);

    /// "ulmo board WORD...", with the name of its command, which must succeed; its output.
    std::string command(const Words& words) const;
    /// Waits until a server has received a message so often since its start.
    void await(const std::string& server, const std::string& message, unsigned count = 1) const;
    /// A server's settings and state.
    nlohmann::json show(const std::string& server) const;

    Process& process;

private:
    std::filesystem::path m_directory;
    std::string m_command;
    mutable unsigned m_commands = 0; ///< names their outputs
};

/// The programs of one unit.
class RunningUnit
{
public:
    /// In the test's own run-time directory, so that the test can have mailboxes in the unit.
    RunningUnit();
    explicit RunningUnit(std::filesystem::path directory);

    /// The software manager must be there.
    Process& startServer(const Environment& environment = {});
    /// The first has the unit's command "board". Each further one, for servers that the others leave out, has a command
    /// of its own: "board1", ...
    Board& startBoard(const Words& options = {});
    /// The one server of the board without which the server doesn't start, and the ones without which it isn't
    /// published.
    Board& startSoftwareManager();
    Board& startOtherServers();
    Process& start(const char* program, const Words& arguments, const Environment& environment = {});
    /// Runs a program to its end.
    Finished run(const char* program, const Words& arguments);
    /// A board and a server that is published.
    void bringUp();

    Process& server() { return *m_server; }
    Board& board() { return m_boards.front(); }
    /// "ulmo vornsrv all sessions".
    std::string sessions();
    /// Asks for them until this is part of it.
    void awaitSessions(const std::string& text);

    /// The end of the test, see above. Ends all programs.
    void expectAllWell();
    void printOutputs() const;

private:
    std::filesystem::path m_directory;
    std::list<Process> m_processes;
    std::list<Board> m_boards;
    Process* m_server = nullptr;
};

/// The mailbox of this name, as soon as there is one. `post` is the calling thread's.
std::uint32_t awaitMailbox(Post& post, const std::string& name);
/// Returns when the mailbox is gone.
void awaitGone(Post& post, std::uint32_t mbox);

/// How often a text stands in another.
unsigned count(const std::string& text, const std::string& part);

/// A client that the test plays.
class DuClient : public TestUnit::VorniPeer
{
public:
    using VorniPeer::VorniPeer;

    template <typename Record, typename Fill>
    void send(Fill&& fill) const
    {
        sendTo<Record>(server, std::forward<Fill>(fill));
    }
    template <typename Record>
    void send() const
    {
        send<Record>([](Record&) {});
    }

    /// Sends the connection request to the published server.
    void beginConnect();
    /// The next signal is the confirm, sent by the published mailbox.
    void expectConfirm();
    /// The server has handled what this client sent, and has sent it nothing that wasn't expected.
    void expectSettled();
    /// The server answers by itself.
    void expectMmiServed();
    /// A signal of no component goes to the legacy server, and its answer comes back; it is the next to come.
    void expectProxied();
    /// The board sets the time, or refuses.
    template <typename Answer>
    void setTimeAndExpect()
    {
        send<OmlaVornSetUtcTimeReqS>([](auto& request) { request.utcTime = 1700000000; });
        expect<Answer>();
    }

    std::uint32_t server = KIV_NO_MBOX; ///< where it sends to
};

/// Programs that are looked after at the end of the test.
class ProcessTest : public ::testing::Test
{
protected:
    void TearDown() override;

    RunningUnit unit;
};

/// The same with mailboxes of the test in the unit.
class SystemTest : public ProcessTest
{
protected:
    std::uint32_t awaitPublished() { return awaitMailbox(post, "VornServer"); }
    void awaitGone(std::uint32_t mbox) { TestSystem::awaitGone(post, mbox); }
    DuClient& addClient();
    DuClient& connect();

    Post post;

private:
    std::list<DuClient> m_clients;
};

} // namespace TestSystem
