/// The side of the tap (tap/tap.h) that tools use: copies of all messages that the processes of the unit send.
///
///     tap::Listener listener;
///     if (const int error = listener.open({.maxBytes = 1024})) { ... }
///     while (running) {
///         if (const auto record = listener.next(std::chrono::seconds(1))) {
///             print(*record);
///         }
///     }
///
/// Each process sends over a connection of its own, in which records keep the order of its threads; a record of one
/// process may come before an earlier one of another process. A tool that needs one order sorts them by time.
///
/// A program that listens and sends messages itself gets copies of its own messages too.
///
/// Threads: a listener belongs to one thread at a time. fork: a child that goes on without exec has to destroy its copy
/// of the object; until then the processes don't notice that the parent's listener has gone.
#pragma once

#include "tap/folder.h"
#include "tap/tap.h"
#include "uniqueFd.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/epoll.h>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace tap {

struct Options {
    /// Bytes of a message that a copy holds, at most maxCopiedBytes.
    std::size_t maxBytes = std::size_t{64} * 1024;
    /// Bytes that each process keeps for the listener, the kernel's own share included, at most maxBuffer. Without
    /// privileges a process keeps no more than the system's limit (net.core.wmem_max) allows.
    std::size_t buffer = std::size_t{1024} * 1024;
};

/// What a process has sent to the listener.
struct Record {
    /// If false, only the process, the time and `lost` are set.
    bool isCopy = true;
    std::uint64_t time = 0; ///< nanoseconds since 1970
    pid_t process = 0;
    std::uint64_t lost = 0; ///< copies that the process couldn't send between its previous record and this one
    Carrier carrier = Carrier::kiv;
    Direction direction = Direction::toReceiver;
    std::uint32_t sender = 0;   ///< a mailbox id; 0 for ploe
    std::uint32_t receiver = 0; ///< the same
    /// If the process knew only the id of a mailbox, the name that an earlier copy of any process had for it. Empty if
    /// unknown.
    std::string senderName;
    std::string receiverName;
    std::uint64_t size = 0;       ///< of the message, bytes
    std::vector<std::byte> bytes; ///< the message, or its beginning
};

class Listener
{
public:
    Listener() = default;
    ~Listener() { close(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Begins to listen. Waits until the processes that run have connected: what they send afterwards is copied. It
    /// waits at most a second for processes that are stopped or overloaded; they connect later.
    /// Returns 0 or an errno value: EBUSY (maxListeners listen already), EALREADY (it is open), or what the system
    /// said.
    int open(const Options& options = {});

    /// Ends it: the processes stop copying. Records that haven't been read are lost.
    void close();

    /// For poll, epoll or an event loop: readable while next() has something to do. It may be readable when next()
    /// returns nothing. -1 if the listener isn't open.
    int fd() const { return m_epoll.get(); }

    /// Waits for the next record, at most this long. Each process that has sent something is read in turn.
    std::optional<Record> next(std::chrono::milliseconds timeout);

    /// The name of a mailbox, if a copy held it; empty otherwise.
    std::string nameOf(std::uint32_t mailbox) const;

    /// How many processes are connected.
    std::size_t processes() const { return m_connections.size(); }

private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        UniqueFd socket;
        pid_t process = 0;
    };
    using Connections = std::unordered_map<int, Connection>;

    int openSockets(const Options& options);
    int visit(const std::vector<SocketFile>& files);
    void awaitAnswers(std::vector<UniqueFd>& visits, Clock::time_point deadline);
    void acceptAll();
    void watchNewcomers(bool watch);
    std::optional<Record> read(int socket);
    std::optional<Record> parse(std::size_t size, pid_t process);
    void learn(std::uint32_t mailbox, std::string& name);

    Folder m_folder;
    std::string m_name;
    pid_t m_owner = 0; ///< a forked child leaves the file alone
    std::size_t m_maxBytes = 0;
    UniqueFd m_epoll;
    UniqueFd m_listening;
    bool m_watchesNewcomers = false;
    Clock::time_point m_retryAt;
    Connections m_connections;
    std::vector<std::byte> m_buffer;
    std::array<epoll_event, 64> m_events = {}; ///< one round: each connection in it is read once
    std::size_t m_count = 0;
    std::size_t m_at = 0;
    std::unordered_map<std::uint32_t, std::string> m_names;
};

} // namespace tap
