#include "programs.h"

#include "kiv/kiv.h"
#include "ostinel/commandClient.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace Endurance {

namespace {

using TestSystem::StepFailed;

/// What a sanitizer, or a program that gives up, says.
constexpr const char* complaintMarks[] = {"ERROR: AddressSanitizer", "runtime error:",   "LeakSanitizer",
                                          "ThreadSanitizer",         "terminate called", "enduranceclient: "};

std::string allBut(BackEnd backEnd)
{
    std::vector<std::string> others(backEndNames.begin(), backEndNames.end());
    std::erase(others, backEndNames[backEnd]);
    return fmt::format("{}", fmt::join(others, ","));
}

/// Each server's simulator has a command of its own.
std::string commandOf(BackEnd backEnd)
{
    return fmt::format("board-{}", backEndNames[backEnd]);
}

} // namespace

Programs::Programs(fs::path directory) : m_directory(std::move(directory))
{
    ::setenv("RU_DIR", m_directory.c_str(), 1);
    fs::create_directories(m_directory);
}

std::unique_ptr<Process> Programs::start(const char* program, const Words& arguments, const std::string& output) const
{
    Words argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return std::make_unique<Process>(argv, TestSystem::Environment{{"RU_DIR", m_directory}}, m_directory / output);
}

void Programs::bringUp()
{
    for (unsigned i = 0; i < backEndCount; ++i) {
        bringBack(static_cast<BackEnd>(i));
    }
    m_server = start(ENDURANCESERVER_PROGRAM, {}, "server.out");
    const std::int64_t end = now() + std::chrono::nanoseconds(TestSystem::patience).count();
    while (kiv_locate("VornServer") == KIV_NO_MBOX) {
        if (now() > end || !m_server->isRunning()) {
            throw StepFailed("the server isn't published:\n" + m_server->output());
        }
        kiv_free(kiv_receive(nullptr, 10, KIV_ANY_SENDER));
    }
}

void Programs::kill(BackEnd backEnd)
{
    m_board[backEnd]->signal(SIGKILL);
    m_board[backEnd]->wait();
}

/// The legacy server numbers its clients from the start of its process on. As clients outlive it, and software is
/// theirs by these numbers, each of its processes has numbers of its own.
void Programs::bringBack(BackEnd backEnd)
{
    constexpr unsigned numbersOfOne = 1'000'000;
    const fs::path output = m_directory / fmt::format("{}.out", backEndNames[backEnd]);
    fs::remove(output); // it is waited for what the new process says
    const bool isLegacy = backEnd == legacy;
    const std::string without = isLegacy ? fmt::format("{}", fmt::join(backEndNames, ",")) : allBut(backEnd);
    m_board[backEnd] =
        start(TestSystem::boardsim, {"--without", without, "--command", commandOf(backEnd)}, output.filename());
    m_board[backEnd]->awaitOutput("boardsim ready");
    if (isLegacy) {
        tellBoard(legacy, {"legacy", "serverref", std::to_string(++m_legacyStarts * numbersOfOne)});
        tellBoard(legacy, {"legacy", "start"});
    }
}

bool Programs::isRunning(BackEnd backEnd) const
{
    return m_board[backEnd]->isRunning();
}

void Programs::tellBoard(BackEnd backEnd, const Words& words)
{
    Words argv{commandOf(backEnd)};
    argv.insert(argv.end(), words.begin(), words.end());
    start(TestSystem::ulmo, argv, "command.out")->wait();
}

std::unique_ptr<Process> Programs::startClient(const Words& arguments, const std::string& output)
{
    return start(ENDURANCECLIENT_PROGRAM, arguments, output);
}

std::string Programs::runCommand(const Words& words) const
{
    std::ostringstream out;
    const Ostinel::CommandClient::RunLimits limits{.deadline = std::chrono::steady_clock::now() + TestSystem::patience};
    const auto result = Ostinel::CommandClient::run(words, out, limits);
    if (result.error || result.exitCode != 0) {
        throw StepFailed(fmt::format("the server doesn't answer \"{}\": {}", fmt::join(words, " "), out.str()));
    }
    return out.str();
}

Json Programs::counts(std::uint64_t highestConnection) const
{
    return Json::parse(runCommand({"vornsrv", "counts", std::to_string(highestConnection)}));
}

std::size_t Programs::faultSubscribers() const
{
    return TestSystem::count(runCommand({"vornsrv", "fault", "subscriber"}), "\n0x");
}

std::string Programs::complaints() const
{
    std::string found;
    for (const auto& entry : fs::directory_iterator(m_directory)) {
        if (entry.path().extension() != ".out") {
            continue;
        }
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        for (const char* mark : complaintMarks) {
            if (const auto at = text.find(mark); at != std::string::npos) {
                constexpr std::size_t longest = 3000;
                found += fmt::format("{}:\n{}\n", entry.path().filename().string(), text.substr(at, longest));
                break;
            }
        }
    }
    return found;
}

KernelView kernelViewOf(pid_t process)
{
    const fs::path folder = fmt::format("/proc/{}", process);
    KernelView view;
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator(folder / "fd", gone)) {
        ++view.descriptors;
        view.sockets += fs::read_symlink(entry.path(), gone).string().starts_with("socket:") ? 1 : 0;
    }
    const fs::directory_iterator threads(folder / "task", gone);
    view.threads = static_cast<std::size_t>(std::distance(threads, fs::directory_iterator()));
    return view;
}

std::vector<std::string> livingMailboxes(const fs::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory / "kiv" / "name")) {
        const std::string name = entry.path().filename();
        if (kiv_locate(name.c_str()) != KIV_NO_MBOX) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace Endurance
