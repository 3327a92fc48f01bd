#include "ostinel/activeObject.h"
#include "ostinel/commandClient.h"
#include "ostinel/commandRegistry.h"

#include "runDir.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sstream>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

bool isForkedChild = false;

} // namespace

/// Asked by the leak checker, if there is one. In a child of several threads it would wait for ever for a lock that one
/// of them held.
extern "C" int __lsan_is_turned_off()
{
    return isForkedChild ? 1 : 0;
}

namespace {

using namespace std::chrono_literals;
using Ostinel::ActiveObject::V1::ActiveObjectIf;
namespace Client = Ostinel::CommandClient;
using Ostinel::CommandRegistry::V1::CommandRegistryIf;
using Ostinel::CommandRegistry::V1::onLoop;
using Ostinel::CommandRegistry::V1::onOwnThread;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto deadline = 10s;

CommandRegistryIf& registry()
{
    return CommandRegistryIf::getInstance();
}

std::string folder()
{
    return ruDir("cmd");
}

/// Prints its words in brackets; the exit code is their number.
int show(const std::vector<std::string>& args, std::ostream& out)
{
    for (const std::string& arg : args) {
        out << '[' << arg << ']';
    }
    return static_cast<int>(args.size());
}

struct Ran {
    std::string output;
    int exitCode = -1;
    std::optional<Client::RunError> error;
};

Ran run(const std::vector<std::string>& words)
{
    std::ostringstream out;
    const Client::RunResult result = Client::run(words, out);
    return {out.str(), result.exitCode, result.error};
}

/// A thread with an event loop that registers commands of its own.
class LoopThread
{
public:
    int registerCommand(const std::string& name, Ostinel::CommandRegistry::V1::Command command)
    {
        std::promise<int> result;
        m_thread->post([&] { result.set_value(registry().registerCommand(name, std::move(command), onLoop)); });
        return result.get_future().get();
    }
    void post(std::function<void()> function) { m_thread->post(std::move(function)); }
    void end() { m_thread.reset(); }

private:
    std::shared_ptr<ActiveObjectIf> m_thread = ActiveObjectIf::create("loop", [] {}, {});
};

/// A gate that commands wait at.
class Gate
{
public:
    void open()
    {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    void wait()
    {
        std::unique_lock lock(m_mutex);
        ++m_waiting;
        m_changed.notify_all();
        m_changed.wait_for(lock, deadline, [this] { return m_open; });
    }
    bool waitFor(int waiting)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, deadline, [&] { return m_waiting == waiting; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    int m_waiting = 0;
};

/// A client that says what it likes to the process with a command.
class RawClient
{
public:
    explicit RawClient(const std::string& command)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (folder() + '/' + command).c_str(), sizeof(address.sun_path) - 1);
        EXPECT_EQ(::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        const timeval limit = {10, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }
    ~RawClient() { ::close(m_fd); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool send(std::string_view bytes) const { return ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0; }

    /// All that comes until the connection is closed; nothing where it isn't.
    std::optional<std::string> readToEnd() const
    {
        std::string all;
        char buffer[4096];
        for (;;) {
            const ssize_t got = ::recv(m_fd, buffer, sizeof(buffer), 0);
            if (got == 0 || (got < 0 && errno == ECONNRESET)) {
                return all;
            }
            if (got < 0) {
                return std::nullopt;
            }
            all.append(buffer, static_cast<std::size_t>(got));
        }
    }

private:
    int m_fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
};

TEST(CommandClient, SplitsALineAsAShellDoes)
{
    using Client::splitLine;
    EXPECT_THAT(*splitLine("  vornsrv\tall  ready \n"), ElementsAre("vornsrv", "all", "ready"));
    EXPECT_THAT(*splitLine(" "), IsEmpty());
    EXPECT_THAT(*splitLine(R"(a"b c"'d e'f "" '')"), ElementsAre("ab cd ef", "", ""));
    EXPECT_THAT(*splitLine(R"(\"x\ y \\ '\' "\"\\\n")"), ElementsAre("\"x y", "\\", "\\", "\"\\\\n"));
    EXPECT_THAT(*splitLine("end\\"), ElementsAre("end\\"));
    EXPECT_FALSE(splitLine("a 'b"));
    EXPECT_FALSE(splitLine("a \"b\\\""));
}

TEST(Command, RunsOnTheLoopOrOnAThreadOfItsOwn)
{
    LoopThread loop;
    std::thread::id loopId;
    loop.post([&] { loopId = std::this_thread::get_id(); });
    std::thread::id ranOnLoop;
    std::thread::id ranAlone;
    ASSERT_EQ(loop.registerCommand("looped",
                                   [&](const auto& args, std::ostream& out) {
                                       ranOnLoop = std::this_thread::get_id();
                                       return show(args, out);
                                   }),
              0);
    ASSERT_EQ(registry().registerCommand(
                  "alone",
                  [&](const auto& args, std::ostream& out) {
                      ranAlone = std::this_thread::get_id();
                      return show(args, out);
                  },
                  onOwnThread),
              0);

    const Ran looped = run({"looped", "a b", "c"});
    EXPECT_EQ(looped.output, "[looped][a b][c]");
    EXPECT_EQ(looped.exitCode, 3);
    EXPECT_FALSE(looped.error);
    EXPECT_EQ(run({"alone"}).output, "[alone]");
    EXPECT_EQ(ranOnLoop, loopId);
    EXPECT_NE(ranAlone, loopId);
    EXPECT_NE(ranAlone, std::this_thread::get_id());
    EXPECT_THAT(Client::listCommands(), ElementsAre("alone", "looped"));
}

TEST(Command, OutputOfAnySizeAndCodeComesBack)
{
    LoopThread loop;
    std::string big;
    for (int i = 0; big.size() < 3000000; ++i) {
        big += std::to_string(i);
    }
    const auto command = [&](const auto&, std::ostream& out) {
        out << big;
        return -2;
    };
    ASSERT_EQ(loop.registerCommand("looped", command), 0);
    ASSERT_EQ(registry().registerCommand("alone", command, onOwnThread), 0);
    for (const char* name : {"looped", "alone"}) {
        const Ran ran = run({name});
        EXPECT_EQ(ran.exitCode, -2) << name;
        EXPECT_TRUE(ran.output == big) << name;
    }
}

TEST(Command, OwnThreadStreamsWhatItFlushes)
{
    Gate gate;
    ASSERT_EQ(registry().registerCommand(
                  "stream",
                  [&](const auto&, std::ostream& out) {
                      out << "first" << std::flush;
                      gate.wait();
                      out << "second";
                      return 0;
                  },
                  onOwnThread),
              0);

    /// Opens the gate when the first output has come.
    class Opener : public std::stringbuf
    {
    public:
        explicit Opener(Gate& opened) : m_gate(opened) {}

    protected:
        int sync() override
        {
            firstCame = firstCame || str() == "first";
            m_gate.open();
            return 0;
        }

    public:
        bool firstCame = false;

    private:
        Gate& m_gate;
    } buffer(gate);
    std::ostream out(&buffer);
    EXPECT_EQ(Client::run({"stream"}, out).exitCode, 0);
    EXPECT_TRUE(buffer.firstCame);
    EXPECT_EQ(buffer.str(), "firstsecond");
}

TEST(Command, ExceptionBecomesOutputAndCode70)
{
    LoopThread loop;
    const auto command = [](const auto&, std::ostream& out) -> int {
        out << "begun ";
        throw std::runtime_error("it broke");
    };
    ASSERT_EQ(loop.registerCommand("looped", command), 0);
    ASSERT_EQ(registry().registerCommand("alone", command, onOwnThread), 0);
    for (const char* name : {"looped", "alone"}) {
        const Ran ran = run({name});
        EXPECT_EQ(ran.exitCode, 70);
        EXPECT_EQ(ran.output, "begun it broke\n");
    }
}

TEST(Command, NamesAreCheckedAndTakenOnce)
{
    EXPECT_EQ(registry().registerCommand("once", show, onOwnThread), 0);
    EXPECT_EQ(registry().registerCommand("once", show, onOwnThread), EEXIST);
    for (const char* bad : {"", ".", "..", ".hidden", "a/b", "1234"}) {
        EXPECT_EQ(registry().registerCommand(bad, show, onOwnThread), EINVAL) << bad;
    }
    EXPECT_EQ(registry().registerCommand("f", nullptr, onOwnThread), EINVAL);
    EXPECT_EQ(registry().registerCommand("f", show, 2), EINVAL);
    EXPECT_EQ(registry().registerCommand(std::string(300, 'x'), show, onOwnThread), ENAMETOOLONG);
    const std::string longName(255, 'y');
    EXPECT_EQ(registry().registerCommand(longName, show, onOwnThread), 0);
    EXPECT_EQ(run({longName}).exitCode, 1);

    EXPECT_EQ(run({}).error, Client::RunError::notFound);
    for (const char* bad : {"unknown", "", "../cmd/once", "."}) {
        EXPECT_EQ(run({bad}).error, Client::RunError::notFound) << bad;
    }
    EXPECT_EQ(run({std::to_string(::getpid())}).error, Client::RunError::notFound);
}

TEST(Command, UnregisteredIsNotFoundAndDoesNotStart)
{
    LoopThread loop;
    Gate gate;
    std::atomic<int> started = 0;
    ASSERT_EQ(loop.registerCommand("gone", [&](const auto&, std::ostream&) { return ++started; }), 0);
    loop.post([&] { gate.wait(); });
    ASSERT_TRUE(gate.waitFor(1));
    const RawClient waiting("gone"); // comes to the loop while it is held up
    ASSERT_TRUE(waiting.send(std::string_view("gone\0\0", 6)));
    registry().unregisterCommand("gone");
    registry().unregisterCommand("never");
    gate.open();
    EXPECT_EQ(waiting.readToEnd(), "");
    EXPECT_EQ(started, 0);
    EXPECT_EQ(run({"gone"}).error, Client::RunError::notFound);
    EXPECT_THAT(Client::listCommands(), IsEmpty());
    EXPECT_EQ(loop.registerCommand("gone", show), 0) << "the name is free again";
    EXPECT_EQ(run({"gone"}).exitCode, 1);
}

TEST(Command, LoopThatEndedClosesTheConnection)
{
    LoopThread loop;
    ASSERT_EQ(loop.registerCommand("late", show), 0);
    loop.end();
    EXPECT_EQ(run({"late"}).error, Client::RunError::brokenOff);
}

TEST(Command, SlowAndGarbageClientsHurtNobody)
{
    LoopThread loop;
    ASSERT_EQ(loop.registerCommand("looped", show), 0);
    ASSERT_EQ(registry().registerCommand(
                  "big",
                  [](const auto&, std::ostream& out) {
                      out << std::string(5000000, 'x');
                      return 0;
                  },
                  onOwnThread),
              0);

    const RawClient slow("looped");
    slow.send("loop");
    const RawClient noWords("looped");
    noWords.send(std::string_view("\0", 1));
    EXPECT_EQ(noWords.readToEnd(), "");
    const RawClient unknown("looped");
    unknown.send(std::string_view("other\0\0", 7));
    EXPECT_EQ(unknown.readToEnd(), "");
    const RawClient endless("looped");
    while (endless.send(std::string(1000, 'x'))) {
    }
    EXPECT_TRUE(endless.readToEnd());
    for (const char* name : {"looped", "big"}) { // goes before the answer, or without reading it
        const RawClient leaving(name);
        leaving.send(name + std::string("\0\0rest", 6));
    }
    const RawClient deaf("big"); // stays without reading
    deaf.send(std::string_view("big\0\0", 5));
    EXPECT_EQ(run({"looped"}).exitCode, 1);

    slow.send(std::string_view("ed\0x\0\0", 6));
    EXPECT_EQ(slow.readToEnd(), std::string("\0\0\0\x0b[looped][x]\xff\xff\xff\xff\0\0\0\2", 23));
    EXPECT_EQ(run({"looped", std::string(70000, 'x')}).error, Client::RunError::brokenOff) << "a line too long";
    EXPECT_EQ(run({"looped", std::string(65000, 'x')}).exitCode, 2);
}

TEST(Command, OwnThreadsAndConnectionsAreBounded)
{
    Gate gate;
    constexpr int most = 16;
    ASSERT_EQ(registry().registerCommand(
                  "block",
                  [&](const auto&, std::ostream&) {
                      gate.wait();
                      return 0;
                  },
                  onOwnThread),
              0);
    std::vector<std::future<Ran>> clients;
    for (int i = 0; i < most; ++i) {
        clients.push_back(std::async(std::launch::async, [] { return run({"block"}); }));
    }
    ASSERT_TRUE(gate.waitFor(most));
    EXPECT_EQ(run({"block"}).exitCode, 75);
    gate.open();
    for (auto& client : clients) {
        EXPECT_EQ(client.get().exitCode, 0);
    }
    EXPECT_EQ(run({"block"}).exitCode, 0);

    std::vector<std::unique_ptr<RawClient>> idle;
    for (int i = 0; i < 64; ++i) {
        idle.push_back(std::make_unique<RawClient>("block"));
    }
    EXPECT_EQ(run({"block"}).error, Client::RunError::brokenOff);
    idle.clear();
    Ran ran;
    for (const auto end = std::chrono::steady_clock::now() + deadline;
         ran.exitCode != 0 && std::chrono::steady_clock::now() < end;) {
        ran = run({"block"}); // as soon as the registry has seen that they left
    }
    EXPECT_EQ(ran.exitCode, 0);
}

/// A child process that runs a function when told to and lives on until it is ended.
class Child
{
public:
    explicit Child(const std::function<int()>& function)
    {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            isForkedChild = true;
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            ::close(m_ends[0]);
            int word = 0;
            ::recv(m_ends[1], &word, sizeof(word), 0);
            word = function();
            ::send(m_ends[1], &word, sizeof(word), MSG_NOSIGNAL);
            ::recv(m_ends[1], &word, sizeof(word), 0);
            std::exit(0);
        }
        ::close(m_ends[1]);
    }
    ~Child()
    {
        kill();
        ::close(m_ends[0]);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void go() const
    {
        const int word = 0;
        EXPECT_GT(::send(m_ends[0], &word, sizeof(word), 0), 0);
    }
    /// What the function returned.
    int result() const
    {
        int word = -1;
        EXPECT_GT(::recv(m_ends[0], &word, sizeof(word), 0), 0);
        return word;
    }
    int run() const
    {
        go();
        return result();
    }

    /// Lets it leave main in order.
    int exit()
    {
        go();
        return wait();
    }
    void kill()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            wait();
        }
    }

private:
    int wait()
    {
        int status = -1;
        EXPECT_EQ(::waitpid(m_pid, &status, 0), m_pid);
        m_pid = -1;
        return status;
    }

    int m_ends[2] = {-1, -1};
    pid_t m_pid = -1;
};

TEST(Command, NamesOfOtherProcesses)
{
    const auto offer = [] { return registry().registerCommand("shared", show, onOwnThread); };
    Child first(offer);
    ASSERT_EQ(first.run(), 0);
    EXPECT_EQ(run({"shared", "x"}).output, "[shared][x]");
    EXPECT_EQ(Child(offer).run(), EEXIST);

    first.kill();
    EXPECT_TRUE(std::filesystem::is_symlink(folder() + "/shared")) << "left behind";
    EXPECT_THAT(Client::listCommands(), IsEmpty());
    EXPECT_EQ(run({"shared"}).error, Client::RunError::notFound);

    Child second(offer);
    EXPECT_EQ(second.run(), 0) << "replaces what was left behind";
    EXPECT_THAT(Client::listCommands(), ElementsAre("shared"));
    EXPECT_EQ(second.exit(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(folder())) << "neither an orderly end nor the dead leave anything";
}

TEST(Command, ForkedChildLeavesTheParentsCommandsAlone)
{
    ASSERT_EQ(registry().registerCommand("mine", show, onOwnThread), 0);
    Child child([] {
        registry().unregisterCommand("mine");
        return registry().registerCommand("childs", show, onOwnThread);
    });
    EXPECT_EQ(child.run(), ECHILD);
    child.exit(); // its code may be the leak checker's, which misses the threads that weren't forked
    EXPECT_EQ(run({"mine"}).exitCode, 1);
}

TEST(Command, RaceForAName)
{
    const auto offer = [] { return registry().registerCommand("wanted", show, onOwnThread); };
    Child dead(offer);
    std::vector<std::unique_ptr<Child>> rivals;
    for (int i = 0; i < 4; ++i) {
        rivals.push_back(std::make_unique<Child>(offer));
    }
    EXPECT_EQ(dead.run(), 0);
    dead.kill();
    for (const auto& rival : rivals) {
        rival->go();
    }
    int winners = 0;
    for (const auto& rival : rivals) {
        winners += rival->result() == 0 ? 1 : 0;
    }
    EXPECT_EQ(winners, 1);
    EXPECT_EQ(run({"wanted"}).exitCode, 1);
}

TEST(Command, LockThatSomebodyHoldsOnTheFolderStopsNobody)
{
    const auto offer = [] { return registry().registerCommand("wanted", show, onOwnThread); };
    Child dead(offer);
    ASSERT_EQ(dead.run(), 0);
    dead.kill();
    const UniqueFd locked(::open(folder().c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(locked.get(), LOCK_EX), 0);
    auto registered = std::async(std::launch::async, offer);
    EXPECT_EQ(registered.wait_for(deadline), std::future_status::ready);
    ASSERT_EQ(::flock(locked.get(), LOCK_UN), 0);
    EXPECT_EQ(registered.get(), 0);
    EXPECT_EQ(run({"wanted"}).exitCode, 1);
}

TEST(Command, FolderWithALongPath)
{
    // RU_DIR is read on first use, which in this process is here.
    const std::string root = std::string(std::getenv("RU_DIR")) + '/' + std::string(150, 'd');
    ::setenv("RU_DIR", root.c_str(), 1);
    ASSERT_EQ(registry().registerCommand("far", show, onOwnThread), 0);
    EXPECT_THAT(Client::listCommands(), ElementsAre("far"));
    EXPECT_EQ(run({"far"}).exitCode, 1);
    EXPECT_TRUE(std::filesystem::exists(root + "/cmd/far"));
}

TEST(Command, FolderThatCannotBe)
{
    const std::string root = std::string(std::getenv("RU_DIR")) + "/file";
    ::setenv("RU_DIR", root.c_str(), 1);
    std::fclose(std::fopen(root.c_str(), "w"));
    EXPECT_EQ(registry().registerCommand("none", show, onOwnThread), ENOTDIR);
    EXPECT_EQ(run({"none"}).error, Client::RunError::notFound);
    EXPECT_THAT(Client::listCommands(), IsEmpty());
}

} // namespace
