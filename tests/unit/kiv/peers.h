/// What the kiv tests share: messages with contents that can be checked, and other processes.
#pragma once

#include "kiv/frame.h"
#include "kiv/kiv.h"

#include "uniqueFd.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace kivtest {

/// Deadline of everything that is expected to happen, milliseconds.
inline constexpr std::uint32_t patience = 20'000;

struct Freer {
    void operator()(kiv_msg* msg) const { kiv_free(msg); }
};
using Msg = std::unique_ptr<kiv_msg, Freer>;

/// A message whose bytes behind the number follow from number and size, so that the receiver can tell a damaged one. In
/// a large one only some do; the others are 0.
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
    /// With `wanted` as its pid if that is not 0: pid() is -1 if the system doesn't allow that.
    explicit Peer(std::vector<std::string> arguments, pid_t wanted = 0);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return m_pid; }
    void kill();
    /// Waits for its end, a minute at most, and kills it then. Returns its exit code, or -1.
    int wait();

private:
    pid_t m_pid;
};

/// Returns whether a new process gets its message back from an echo, long before a wait of 30 seconds would be over.
bool isServed(const std::string& echo, std::uint32_t size = 8);

/// What a process may collect for others, KiB; the thread sanitizer multiplies all memory.
#if defined(__SANITIZE_THREAD__)
inline constexpr std::size_t maxCollected = 1'500 << 10;
#else
inline constexpr std::size_t maxCollected = 200 << 10;
#endif

/// Returns a value of a process's memory in KiB, as /proc/<pid>/status names it.
std::size_t memoryOf(pid_t process, const std::string& field);
std::size_t descriptorsOf(pid_t process);

/// A socket at the address of a process number; none if the number is taken. It listens unless `backlog` is negative.
UniqueFd bindNumber(std::uint32_t process, int backlog);
/// Connections to a process number, as many as `limit` or until its accept queue is full.
std::vector<UniqueFd> fillNumber(std::uint32_t process, std::size_t limit);

/// A connection to a process's socket, for what the library would never send.
class RawPeer
{
public:
    explicit RawPeer(kiv_mbox_id_t target);
    /// The connection is made by a child, which is dead now; `connector` receives its pid.
    RawPeer(kiv_mbox_id_t target, pid_t& connector);

    int socket() const { return m_socket.get(); }

    void tell(const std::string& bytes, const std::vector<int>& descriptors = {}) const;
    void hello(const kiv::Hello& hello, const std::vector<int>& descriptors = {}) const;
    /// A packet of frames, with descriptors.
    void packet(const std::vector<std::pair<kiv::FrameHeader, std::string>>& frames,
                const std::vector<int>& descriptors = {}) const;
    void packet(const kiv::FrameHeader& header, const std::string& payload,
                const std::vector<int>& descriptors = {}) const;
    /// Whether the other side ends the connection.
    bool isCutOff(int timeout = static_cast<int>(patience)) const;
    /// Whether the other side has proven who we are.
    bool isTaken() const;

private:
    UniqueFd m_socket;
};

/// Sends bytes and descriptors over any Unix socket.
void sendDescriptors(int socket, const std::string& bytes, const std::vector<int>& descriptors);

int memfd(std::size_t size, int seals);

} // namespace kivtest
