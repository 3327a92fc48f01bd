/// boardsim: the board that the board control server runs against, as one process.

#include "tools/boardsim/boardSim.h"
#include "tools/boardsim/core/console.h"

#include "kiv/kiv.h"
#include "ostinel/commandRegistry.h"
#include "ostinel/eventLoop.h"

#include <CLI/CLI.hpp>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace {

using boardsim::BoardSim;
using Ostinel::CommandRegistry::V1::CommandRegistryIf;
using Ostinel::EventLoop::V1::EventLoopIf;

/// The way from the registry's threads to the simulator: shut before the simulator goes, when the last command is out.
class CommandGate
{
public:
    explicit CommandGate(BoardSim& board) : m_board(&board) {}

    int run(const std::vector<std::string>& words, std::ostream& out)
    {
        {
            const std::lock_guard lock(m_mutex);
            if (m_board == nullptr) {
                return 1;
            }
            ++m_running;
        }
        const int exitCode = m_board->command(words, out);
        const std::lock_guard lock(m_mutex);
        --m_running;
        m_left.notify_all();
        return exitCode;
    }

    /// Lets nobody in any more; servers that stop end the commands that wait for something.
    void shut()
    {
        m_board->stopAll();
        std::unique_lock lock(m_mutex);
        m_left.wait(lock, [this] { return m_running == 0; });
        m_board = nullptr;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_left;
    BoardSim* m_board;
    unsigned m_running = 0;
};

/// Signals that end the program come by the loop. All threads inherit the mask.
int blockEndingSignals()
{
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

int serve(const std::set<std::string>& leftOut, const std::string& command)
{
    const int signals = blockEndingSignals();
    kiv_init(static_cast<std::uint32_t>(BoardSim::serverNames().size()), 0, 0);
    BoardSim board(leftOut);
    const auto gate = std::make_shared<CommandGate>(board);
    const int error = CommandRegistryIf::getInstance().registerCommand(
        command, [gate](const auto& words, std::ostream& out) { return gate->run(words, out); },
        Ostinel::CommandRegistry::V1::onOwnThread);
    if (error != 0) {
        fmt::print(stderr, "boardsim: no command \"{}\": {}\n", command, std::strerror(error));
    } else {
        fmt::print("boardsim ready\n");
        std::fflush(stdout);
        EventLoopIf& loop = EventLoopIf::getInstance();
        loop.addFd(signals, EPOLLIN, [&loop](int) { loop.stop(); });
        loop.run();
        loop.removeFd(signals);
        CommandRegistryIf::getInstance().unregisterCommand(command);
    }
    gate->shut();
    ::close(signals);
    return error == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Plays the board: the legacy server and the board servers, each with a mailbox and a state of its own. "
        "Driven at run time by the command \"board\"; see \"board --help\".",
        "boardsim");
    std::vector<std::string> without;
    std::string command = "board";
    bool verbose = false;
    app.add_option("--without", without, "servers not to start, separated by commas")
        ->delimiter(',')
        ->check(CLI::IsMember(BoardSim::serverNames()));
    app.add_option("--command", command, "name of its command; a second simulator in the unit needs another one")
        ->capture_default_str();
    app.add_flag("-v,--verbose", verbose, "print each message received and sent");
    CLI11_PARSE(app, argc, argv);

    try {
        boardsim::console::setVerbose(verbose);
        return serve({without.begin(), without.end()}, command);
    } catch (const std::exception& error) {
        fmt::print(stderr, "boardsim: {}\n", error.what());
        return 1;
    }
}
