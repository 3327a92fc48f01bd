/// The other processes of the tap's tests.
#pragma once

#include "uniqueFd.h"

#include <string>
#include <sys/types.h>

/// A process that has started its tap and does what it is asked to: see peerMain.cpp. It is ended with its object.
class Peer
{
public:
    explicit Peer(const std::string& ruDir = "");
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return m_pid; }
    /// Asks for something. Its answer is to be taken.
    void ask(const std::string& command) const;
    bool hasAnswered() const;
    std::string answer() const;
    std::string call(const std::string& command) const;
    void kill();

private:
    UniqueFd m_socket;
    pid_t m_pid = -1;
};
