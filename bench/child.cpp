#include "child.h"

#include "measure.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Bench {
namespace {

constexpr const char* readyLine = "ready";

void makePipe(int (&ends)[2])
{
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw Failed(std::string("pipe: ") + std::strerror(errno));
    }
}

std::string ownProgram()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) {
        throw Failed("the program doesn't find itself");
    }
    return {path, static_cast<std::size_t>(length)};
}

} // namespace

Child::Child(const std::string& program, std::vector<std::string> arguments, Io io)
{
    int in[2];
    int out[2];
    makePipe(in);
    makePipe(out);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();
    m_pid = ::fork();
    if (m_pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(io == Io::pipes ? out[1] : ::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        if (::getppid() == parent) {
            ::execv(program.c_str(), argv.data());
        }
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    m_in = in[1];
    m_out = out[0];
    if (io == Io::none) {
        ::close(std::exchange(m_in, -1));
        ::close(std::exchange(m_out, -1));
    }
    if (m_pid < 0) {
        throw Failed("no process for " + program);
    }
}

Child::Child(Child&& other) noexcept
    : m_pid(std::exchange(other.m_pid, -1)), m_in(std::exchange(other.m_in, -1)), m_out(std::exchange(other.m_out, -1)),
      m_buffer(std::move(other.m_buffer))
{
}

Child::~Child()
{
    if (m_in >= 0) {
        ::close(m_in);
    }
    if (m_out >= 0) {
        ::close(m_out);
    }
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

std::chrono::nanoseconds Child::processorTime() const
{
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(m_pid, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        throw Failed("a partner process has ended");
    }
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void Child::writeLine(const std::string& line) const
{
    const std::string text = line + '\n';
    if (::write(m_in, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw Failed("a partner process doesn't listen");
    }
}

std::string Child::readLine()
{
    // A step of a partner is many exchanges, each of them with this patience.
    constexpr int timeout = static_cast<int>(std::chrono::milliseconds(patience).count()) * 6;
    for (;;) {
        if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
            std::string line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            return line;
        }
        pollfd readable{m_out, POLLIN, 0};
        char text[256];
        const ssize_t got = ::poll(&readable, 1, timeout) == 1 ? ::read(m_out, text, sizeof text) : -1;
        if (got <= 0) {
            throw Failed(got == 0 ? "a partner process has ended" : "a partner process says nothing");
        }
        m_buffer.append(text, static_cast<std::size_t>(got));
    }
}

Child startRole(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "--role");
    Child child(ownProgram(), std::move(arguments), Child::Io::pipes);
    if (child.readLine() != readyLine) {
        throw Failed("a partner process doesn't start");
    }
    return child;
}

void sayReady()
{
    std::cout << readyLine << std::endl;
}

void runOn(Processors processors)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    if (processors == Processors::one) {
        CPU_SET(0, &set);
    } else {
        for (unsigned i = 0; i < CPU_SETSIZE; ++i) {
            CPU_SET(i, &set); // those that there aren't are left out
        }
    }
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        ::sched_setaffinity(static_cast<pid_t>(std::stol(thread.path().filename())), sizeof set, &set);
    }
}

std::string programFolder()
{
    const std::string program = ownProgram();
    return program.substr(0, program.rfind('/'));
}

} // namespace Bench
