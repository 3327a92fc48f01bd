#include "peer.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

Peer::Peer(const std::string& ruDir)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    m_socket = UniqueFd(ends[0]);
    const UniqueFd farEnd(ends[1]);
    const timeval patience{20, 0};
    EXPECT_EQ(::setsockopt(m_socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)), 0);

    std::string program = TAP_PEER;
    std::string directory = ruDir;
    std::vector<char*> argv{program.data()};
    if (!ruDir.empty()) {
        argv.push_back(directory.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, farEnd.get(), STDIN_FILENO);
    EXPECT_EQ(::posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environ), 0);
    ::posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(answer(), "started");
}

Peer::~Peer()
{
    const UniqueFd closed = std::move(m_socket);
    if (m_pid > 0) {
        ::shutdown(closed.get(), SHUT_RDWR);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        EXPECT_EQ(status, 0);
    }
}

void Peer::kill()
{
    ::kill(m_pid, SIGKILL);
    ::waitpid(std::exchange(m_pid, -1), nullptr, 0);
}

void Peer::ask(const std::string& command) const
{
    EXPECT_EQ(::send(m_socket.get(), command.data(), command.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(command.size()));
}

bool Peer::hasAnswered() const
{
    pollfd state{m_socket.get(), POLLIN, 0};
    return ::poll(&state, 1, 0) == 1;
}

std::string Peer::answer() const
{
    std::array<char, 100> text{};
    const ssize_t size = ::recv(m_socket.get(), text.data(), text.size(), 0);
    return size > 0 ? std::string(text.data(), static_cast<std::size_t>(size)) : "no answer";
}

std::string Peer::call(const std::string& command) const
{
    ask(command);
    return answer();
}
