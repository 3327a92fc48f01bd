#include "system.h"

#include "vorni/connection.h"
#include "vorni/linkSupervision.h"
#include "vorni/mmi.h"
#include "vorni/utc.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSystem {

const char* const vornserver = VORNSERVER_PROGRAM;
const char* const boardsim = BOARDSIM_PROGRAM;
const char* const vornclient = VORNCLIENT_PROGRAM;
const char* const ulmo = ULMO_PROGRAM;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t foundMsg = 0x1001; // to the test's own first mailbox
constexpr std::uint32_t goneMsg = 0x1002;

/// What a sanitizer's report says in any case.
constexpr std::array<const char*, 4> reportMarks{"ERROR: AddressSanitizer", "runtime error:", "LeakSanitizer",
                                                 "ThreadSanitizer"};

int millisecondsUntil(Clock::time_point end)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

bool isReadable(int fd, Clock::time_point end)
{
    pollfd entry{.fd = fd, .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, millisecondsUntil(end)) > 0;
}

/// The test's own environment with these changes.
std::vector<std::string> environmentWith(const Environment& changes)
{
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        if (!changes.contains(text.substr(0, text.find('=')))) {
            entries.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        entries.push_back(fmt::format("{}={}", name, value));
    }
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    std::transform(texts.begin(), texts.end(), std::back_inserter(pointers), [](auto& text) { return text.data(); });
    pointers.push_back(nullptr);
    return pointers;
}

constexpr std::uint32_t foreignPayload = 0xCAFE0001;

/// A signal of no component.
struct Foreign {
    static constexpr std::uint32_t number = 0x1658777;
    VornSignalHeader header;
    VornU32 payload;
};

std::filesystem::path ownRunDir()
{
    const char* directory = std::getenv("RU_DIR");
    if (directory == nullptr) {
        throw StepFailed("the test has no run-time directory");
    }
    return directory;
}

} // namespace

Process::Process(const Words& argv, const Environment& environment, std::filesystem::path outputFile)
    : m_program(std::filesystem::path(argv.front()).filename()), m_outputFile(std::move(outputFile))
{
    std::vector<std::string> words = argv;
    std::vector<std::string> entries = environmentWith(environment);
    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, m_outputFile.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                       S_IRUSR | S_IWUSR);
    ::posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    const int error = ::posix_spawn(&m_pid, words.front().c_str(), &files, nullptr, pointersTo(words).data(),
                                    pointersTo(entries).data());
    ::posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw StepFailed(fmt::format("{} doesn't start: {}", m_program, std::strerror(error)));
    }
    m_pidFd = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
}

Process::~Process()
{
    if (!isWaitedFor()) {
        signal(SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        ::close(m_pidFd);
    }
}

bool Process::isRunning() const
{
    return !isWaitedFor() && !isReadable(m_pidFd, Clock::now());
}

void Process::signal(int number) const
{
    if (!isWaitedFor()) {
        ::kill(m_pid, number);
    }
}

int Process::wait()
{
    if (!isReadable(m_pidFd, Clock::now() + patience)) {
        throw StepFailed(fmt::format("{} doesn't end", m_program));
    }
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    ::close(m_pidFd);
    m_pidFd = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : diedOfSignal + WTERMSIG(status);
}

std::string Process::output() const
{
    std::ifstream file(m_outputFile);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Process::awaitOutput(const std::string& text) const
{
    const auto end = Clock::now() + patience;
    const int changes = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    ::inotify_add_watch(changes, m_outputFile.c_str(), IN_MODIFY);
    bool isWritten = output().find(text) != std::string::npos;
    while (!isWritten && isReadable(changes, end)) {
        std::array<char, 4096> events{};
        while (::read(changes, events.data(), events.size()) > 0) {
        }
        isWritten = output().find(text) != std::string::npos;
    }
    ::close(changes);
    if (!isWritten) {
        throw StepFailed(fmt::format("{} doesn't write \"{}\" but:\n{}", m_program, text, output()));
    }
}

Board::Board(Process& boardsimProcess, std::filesystem::path directory, std::string command)
    : process(boardsimProcess), m_directory(std::move(directory)), m_command(std::move(command))
{
    process.awaitOutput("boardsim ready");
}

std::string Board::command(const Words& words) const
{
    Words argv{ulmo, m_command};
    argv.insert(argv.end(), words.begin(), words.end());
    const auto output = m_directory / fmt::format("{}Command{}.out", m_command, m_commands++);
    Process client(argv, {{"RU_DIR", m_directory}}, output);
    const int exitCode = client.wait();
    std::string text = client.output();
    std::filesystem::remove(output);
    if (exitCode != 0) {
        throw StepFailed(fmt::format("{} ends with {}: {}", fmt::join(argv, " "), exitCode, text));
    }
    return text;
}

void Board::await(const std::string& server, const std::string& message, unsigned count) const
{
    const std::chrono::milliseconds wait = patience * 9 / 10; // ends before the command itself is given up
    command({server, "wait", message, std::to_string(count), std::to_string(wait.count())});
}

nlohmann::json Board::show(const std::string& server) const
{
    return nlohmann::json::parse(command({"show", server, "--json"}));
}

RunningUnit::RunningUnit() : RunningUnit(ownRunDir()) {}

RunningUnit::RunningUnit(std::filesystem::path directory) : m_directory(std::move(directory))
{
    std::filesystem::create_directories(m_directory);
}

Process& RunningUnit::start(const char* program, const Words& arguments, const Environment& environment)
{
    Words argv{program};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    Environment changes{{"RU_DIR", m_directory}};
    changes.insert(environment.begin(), environment.end());
    return m_processes.emplace_back(argv, changes, m_directory / fmt::format("program{}.out", m_processes.size()));
}

Process& RunningUnit::startServer(const Environment& environment)
{
    m_server = &start(vornserver, {}, environment);
    return *m_server;
}

Board& RunningUnit::startBoard(const Words& options)
{
    const std::string command = m_boards.empty() ? "board" : fmt::format("board{}", m_boards.size());
    Words arguments{"--command", command};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return m_boards.emplace_back(start(boardsim, arguments), m_directory, command);
}

Board& RunningUnit::startSoftwareManager()
{
    return startBoard({"--without", "legacy,dunl,fesk,yarrowi"});
}

Board& RunningUnit::startOtherServers()
{
    return startBoard({"--without", "ganti"});
}

Finished RunningUnit::run(const char* program, const Words& arguments)
{
    Process& process = start(program, arguments);
    const int exitCode = process.wait();
    return {exitCode, process.output()};
}

void RunningUnit::bringUp()
{
    startBoard();
    startServer();
    const Finished waiting = run(vornclient, {"wait-published", "within", std::to_string(patience.count() - 2)});
    if (waiting.exitCode != 0) {
        throw StepFailed("the server isn't published: " + waiting.output);
    }
}

std::string RunningUnit::sessions()
{
    const Finished listing = run(ulmo, {"vornsrv", "all", "sessions"});
    EXPECT_EQ(listing.exitCode, 0);
    return listing.output;
}

void RunningUnit::awaitSessions(const std::string& text)
{
    const auto end = Clock::now() + patience;
    std::string listing = sessions();
    while (count(listing, text) == 0) {
        if (Clock::now() > end) {
            throw StepFailed(fmt::format("the sessions don't come to have \"{}\":\n{}", text, listing));
        }
        listing = sessions();
    }
}

void RunningUnit::expectAllWell()
{
    for (auto process = m_processes.rbegin(); process != m_processes.rend(); ++process) {
        if (process->isWaitedFor()) {
            continue;
        }
        EXPECT_TRUE(process->isRunning()) << process->program() << " has ended by itself";
        process->signal(SIGTERM);
        const int exitCode = process->wait();
        if (process->program() == "boardsim") { // its normal end, at which leaks are looked for
            EXPECT_EQ(exitCode, 0) << "boardsim";
        }
    }
    for (const Process& process : m_processes) {
        const std::string output = process.output();
        for (const char* mark : reportMarks) {
            EXPECT_EQ(output.find(mark), std::string::npos) << process.program() << ":\n" << output;
        }
    }
}

void RunningUnit::printOutputs() const
{
    constexpr std::size_t longest = 4000;
    for (const Process& process : m_processes) {
        const std::string output = process.output();
        fmt::print(stderr, "--- {} ---\n{}\n", process.program(), output.substr(0, longest));
    }
}

std::uint32_t awaitMailbox(Post& post, const std::string& name)
{
    kiv_hunt(name.c_str(), kiv_alloc(sizeof(std::uint32_t), foundMsg));
    const auto found = post.next(kiv_current_mbox(), patience);
    if (!found || found->number() != foundMsg) {
        throw StepFailed("there is no mailbox " + name);
    }
    return found->sender();
}

void awaitGone(Post& post, std::uint32_t mbox)
{
    kiv_monitor(mbox, kiv_alloc(sizeof(std::uint32_t), goneMsg));
    const auto gone = post.next(kiv_current_mbox(), patience);
    if (!gone || gone->number() != goneMsg) {
        throw StepFailed(fmt::format("mailbox {:#x} doesn't go", mbox));
    }
}

unsigned count(const std::string& text, const std::string& part)
{
    unsigned found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

void DuClient::beginConnect()
{
    server = kiv_locate("VornServer");
    send<OmlaVornConnEstablishReqS>([](auto& request) { request.protocolRev = 3; });
}

void DuClient::expectConfirm()
{
    const auto confirm = expectNumber(OmlaVornConnEstablishCfmS::number);
    const auto* record = viewSignal<OmlaVornConnEstablishCfmS>(confirm.get());
    if (record == nullptr) {
        throw StepFailed("a confirm without references");
    }
    EXPECT_EQ(confirm.sender(), server);
    EXPECT_EQ(record->header.clientRef, clientRef);
    serverRef = record->header.serverRef;
}

void DuClient::expectSettled()
{
    const SignalCoverage::Pause pause; // any test's probe
    send<OmlaVornLinkSupervisionReqS>();
    expect<OmlaVornLinkSupervisionRejS>();
}

void DuClient::expectMmiServed()
{
    send<OmlaVornSelectMmiReqS>([](auto& request) { request.mode = 1; });
    expect<OmlaVornSelectMmiCfmS>();
}

void DuClient::expectProxied()
{
    send<Foreign>([](auto& signal) { signal.payload = foreignPayload; });
    const auto answer = expectNumber(Foreign::number + 1);
    EXPECT_EQ(answer.sender(), server);
    const auto* record = viewSignal<Foreign>(answer.get());
    EXPECT_TRUE(record != nullptr && record->payload == foreignPayload);
}

void ProcessTest::TearDown()
{
    unit.expectAllWell();
    if (HasFailure()) {
        unit.printOutputs();
    }
}

DuClient& SystemTest::addClient()
{
    DuClient& client = m_clients.emplace_back(post, fmt::format("client{}", m_clients.size()));
    client.clientRef = 1000 + static_cast<std::uint32_t>(m_clients.size());
    client.appear();
    return client;
}

DuClient& SystemTest::connect()
{
    const SignalCoverage::Pause pause;
    DuClient& client = addClient();
    client.beginConnect();
    client.expectConfirm();
    return client;
}

} // namespace TestSystem
