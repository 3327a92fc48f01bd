/// What the kiv tests share: messages with contents that can be checked, and other processes.
#pragma once

#include "kiv/kiv.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kivtest {

/// Deadline of everything that is expected to happen, milliseconds.
inline constexpr std::uint32_t patience = 20'000;

struct Freer {
    void operator()(kiv_msg* msg) const { kiv_free(msg); }
};
using Msg = std::unique_ptr<kiv_msg, Freer>;

/// A message whose bytes behind the number follow from number and size, so that the receiver can tell a damaged one.
Msg makeMsg(std::uint32_t number, std::uint32_t size = 8);
bool isIntact(const kiv_msg& msg);

void send(kiv_mbox_id_t receiver, std::uint32_t number, std::uint32_t size = 8,
          kiv_mbox_id_t sender = KIV_CURRENT_MBOX);
Msg receive(std::uint32_t timeout = patience, kiv_mbox_id_t sender = KIV_ANY_SENDER);
/// Waits for the mailbox of this name.
kiv_mbox_id_t find(const std::string& name);

/// Whether the calling thread's descriptor is readable, now or within the time.
bool readable(int timeout = 0);

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit = std::chrono::seconds(20));

/// A process that runs a role of peerMain.cpp; killed at the end.
class Peer
{
public:
    explicit Peer(std::vector<std::string> arguments);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return m_pid; }
    void kill();
    /// Waits for its end. Returns its exit code, or -1.
    int wait();

private:
    pid_t m_pid;
};

} // namespace kivtest
