#include "peers.h"

#include <csignal>
#include <cstdlib>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kivtest {

Peer::Peer(std::vector<std::string> arguments) : m_pid(-1)
{
    std::string program = KIV_PEER;
    std::vector<char*> argv{program.data()};
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    if (::posix_spawn(&m_pid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) {
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
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace kivtest
