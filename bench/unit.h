/// A running vornserver with its board, and clients of it.
#pragma once

#include "child.h"
#include "kiv/kiv.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace Bench {

/// Makes `folder` the run-time directory of this process and of those that it starts. Before the first kiv call.
void useRunDir(const std::string& folder);
std::string runDir();

/// The server that runs in this process's run-time directory, published. The calling thread has a mailbox.
class Unit
{
public:
    explicit Unit(const std::string& serverProgram);

    kiv_mbox_id_t publicMbox() const { return m_publicMbox; }
    const Child& board() const { return m_board; }
    const Child& server() const { return m_server; }
    /// Of the server.
    std::chrono::nanoseconds processorTime() const { return m_server.processorTime(); }
    /// Bytes of memory that the server occupies, what it shares with others included.
    std::uint64_t residentMemory() const;

private:
    Child m_board;
    Child m_server;
    kiv_mbox_id_t m_publicMbox;
};

/// What a client asks for while its cost is measured.
enum class Ask : std::uint32_t {
    relay, ///< a message of 128 bytes to the legacy server and back
    utc,   ///< the setting of the unit's time
};

/// The references of all clients.
constexpr std::uint32_t clientRef = 1;
constexpr std::uint32_t serverRef = 7;

/// Connects a mailbox of the calling thread as a client. Its confirmation is the next message that arrives.
void connectClient(kiv_mbox_id_t client, kiv_mbox_id_t publicMbox);
/// One request of a connected client and its answer. Nothing else may be on its way to the calling thread.
void ask(Ask what, kiv_mbox_id_t client, kiv_mbox_id_t publicMbox);

} // namespace Bench
