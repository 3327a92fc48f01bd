#include "peers.h"

#include "kiv/id.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <linux/sched.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kivtest {
namespace {

constexpr auto longBefore30Seconds = std::chrono::seconds(10);
constexpr std::size_t maxPassed = 253;

sockaddr_un addressOf(std::uint32_t process)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = std::string(std::getenv("RU_DIR")) + "/kiv/process/" + std::to_string(process);
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

UniqueFd newSocket(int flags = 0)
{
    return UniqueFd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

bool connectTo(int socket, std::uint32_t process)
{
    const sockaddr_un address = addressOf(process);
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool reports(int socket, short asked, int wanted, int timeout = static_cast<int>(patience))
{
    pollfd state{socket, asked, 0};
    return ::poll(&state, 1, timeout) == 1 && (state.revents & wanted) != 0;
}

pid_t spawn(const char* program, char* const* argv, pid_t wanted)
{
    pid_t pid = -1;
    if (wanted == 0) {
        return ::posix_spawn(&pid, program, nullptr, nullptr, argv, environ) == 0 ? pid : -1;
    }
    clone_args how{};
    how.exit_signal = SIGCHLD;
    how.set_tid = reinterpret_cast<std::uintptr_t>(&wanted);
    how.set_tid_size = 1;
    pid = static_cast<pid_t>(::syscall(SYS_clone3, &how, sizeof how));
    if (pid == 0) {
        ::execv(program, argv);
        ::_exit(EXIT_FAILURE);
    }
    return pid;
}

} // namespace

Peer::Peer(std::vector<std::string> arguments, pid_t wanted) : m_pid(-1)
{
    std::string program = KIV_PEER;
    std::vector<char*> argv{program.data()};
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    m_pid = spawn(program.c_str(), argv.data(), wanted);
    if (m_pid < 0 && wanted == 0) {
        std::abort();
    }
}

Peer::~Peer()
{
    if (m_pid > 0) {
        kill();
    }
}

void Peer::kill()
{
    ::kill(m_pid, SIGKILL);
    wait();
}

int Peer::wait()
{
    const UniqueFd process(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
    pollfd ended{process.get(), POLLIN, 0};
    if (::poll(&ended, 1, 3 * static_cast<int>(patience)) != 1) {
        ::kill(m_pid, SIGKILL);
    }
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool isServed(const std::string& echo, std::uint32_t size)
{
    const auto start = std::chrono::steady_clock::now();
    Peer asker({"ask", "asker", echo, "1", std::to_string(size)});
    return asker.wait() == EXIT_SUCCESS && std::chrono::steady_clock::now() - start < longBefore30Seconds;
}

std::size_t memoryOf(pid_t process, const std::string& field)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (status >> word && word != field + ':') {
    }
    std::size_t kibibytes = 0;
    status >> kibibytes;
    return kibibytes;
}

std::size_t descriptorsOf(pid_t process)
{
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + "/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

UniqueFd bindNumber(std::uint32_t process, int backlog)
{
    UniqueFd socket = newSocket();
    const sockaddr_un address = addressOf(process);
    if (!connectTo(newSocket(SOCK_NONBLOCK).get(), process) && errno == ECONNREFUSED) {
        ::unlink(address.sun_path); // nobody's any more
    }
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (backlog >= 0 && ::listen(socket.get(), backlog) != 0)) {
        EXPECT_EQ(errno, EADDRINUSE);
        socket.reset();
    }
    return socket;
}

std::vector<UniqueFd> fillNumber(std::uint32_t process, std::size_t limit)
{
    std::vector<UniqueFd> connections;
    UniqueFd socket;
    while (connections.size() < limit && connectTo((socket = newSocket(SOCK_NONBLOCK)).get(), process)) {
        connections.push_back(std::move(socket));
    }
    return connections;
}

RawPeer::RawPeer(kiv_mbox_id_t target) : m_socket(newSocket())
{
    EXPECT_TRUE(connectTo(m_socket.get(), kiv::processOf(target)));
}

RawPeer::RawPeer(kiv_mbox_id_t target, pid_t& connector) : m_socket(newSocket())
{
    connector = ::fork();
    if (connector == 0) {
        ::_exit(connectTo(m_socket.get(), kiv::processOf(target)) ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    ::waitpid(connector, &status, 0);
    EXPECT_EQ(status, 0);
}

void RawPeer::tell(const std::string& bytes, const std::vector<int>& descriptors) const
{
    sendDescriptors(m_socket.get(), bytes, descriptors);
}

void RawPeer::hello(const kiv::Hello& hello, const std::vector<int>& descriptors) const
{
    tell({reinterpret_cast<const char*>(&hello), sizeof hello}, descriptors);
}

void RawPeer::packet(const std::vector<std::pair<kiv::FrameHeader, std::string>>& frames,
                     const std::vector<int>& descriptors) const
{
    std::string bytes;
    for (const auto& [header, payload] : frames) {
        bytes.append(reinterpret_cast<const char*>(&header), sizeof header).append(payload);
    }
    tell(bytes, descriptors);
}

void RawPeer::packet(const kiv::FrameHeader& header, const std::string& payload,
                     const std::vector<int>& descriptors) const
{
    packet({{header, payload}}, descriptors);
}

bool RawPeer::isCutOff(int timeout) const
{
    return reports(m_socket.get(), 0, POLLHUP, timeout);
}

bool RawPeer::isTaken() const
{
    return reports(m_socket.get(), POLLRDHUP, POLLRDHUP);
}

void sendDescriptors(int socket, const std::string& bytes, const std::vector<int>& descriptors)
{
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(maxPassed * sizeof(int))] = {};
    msghdr packed{};
    packed.msg_iov = &part;
    packed.msg_iovlen = 1;
    if (!descriptors.empty()) {
        const std::size_t size = descriptors.size() * sizeof(int);
        packed.msg_control = control;
        packed.msg_controllen = CMSG_SPACE(size);
        cmsghdr* rights = CMSG_FIRSTHDR(&packed);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(rights), descriptors.data(), size);
    }
    ::sendmsg(socket, &packed, MSG_NOSIGNAL);
}

int memfd(std::size_t size, int seals)
{
    const int file = ::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (::ftruncate(file, static_cast<off_t>(size)) != 0 || ::fcntl(file, F_ADD_SEALS, seals) != 0) {
        ADD_FAILURE();
    }
    return file;
}

} // namespace kivtest
