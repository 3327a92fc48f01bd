/// The client end of the yarrowi server (deep sleep).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace google::protobuf {
class Message;
}

/// One connection to the yarrowi server.
struct clientInfo {
    std::uint32_t clientConnectionRef; ///< the key; the server echoes it in the header of every answer
    std::uint32_t procedureRef;        ///< of the last request sent; 0 before the first
    std::uint32_t serverConnectionRef; ///< given by the server; 0: not connected
    std::uint32_t mboxId;              ///< the client that the connection serves, the private mailbox for the debug
                                       ///< commands, or 1 for the start-up connection
};

static_assert(sizeof(clientInfo) == 16);

/// The connections to the yarrowi server and what it has said of itself; the sequence of messages is driven by the
/// component and the debug commands. A message is its number, procedureRef and connectionRef big-endian, and the
/// protobuf encoding.
class YarrowIClient
{
public:
    YarrowIClient();
    virtual ~YarrowIClient();
    YarrowIClient(const YarrowIClient&) = delete;
    YarrowIClient& operator=(const YarrowIClient&) = delete;

    /// A new connection for a mailbox, with the next connection reference.
    clientInfo& addClientInfo(std::uint32_t mboxId);
    /// Erases the first connection with that reference, if there is one.
    void removeClientInfo(std::uint32_t clientConnectionRef);
    void removeAllClientInfo();

    // The first connection, in order of creation, or null.
    clientInfo* findByConnectionRef(std::uint32_t clientConnectionRef) const;
    clientInfo* findByProcedureRef(std::uint32_t procedureRef) const;
    clientInfo* findByServerConnectionRef(std::uint32_t serverConnectionRef) const;
    clientInfo* findByMailbox(std::uint32_t mboxId) const;

    void setServerMbox(std::uint32_t mboxId) { m_serverMbox = mboxId; }
    bool isDeepSleepSupported() const { return m_deepSleepSupported; }
    void setDeepSleepSupported(bool supported) { m_deepSleepSupported = supported; }
    bool hasWakeUpTime() const { return m_wakeUpTime.has_value(); }
    /// Seconds. Aborts the process where it isn't set.
    std::uint32_t getWakeUpTime() const;
    void setWakeUpTime(std::uint32_t seconds) { m_wakeUpTime = seconds; }

    /// Sends a request on a connection, in a new procedure that the connection keeps the reference of. `sender` is the
    /// mailbox that the answer comes to; 0xFFFFFFFE and 0xFFFFFFFF stand for the calling thread's. False where there is
    /// no connection or the message can't be encoded.
    bool send(std::uint32_t msgNo, const google::protobuf::Message& message, clientInfo* client, std::uint32_t sender);

    /// Forgets connections and server, at exit.
    void close();

private:
    template <typename Predicate>
    clientInfo* find(Predicate&& predicate) const;

    std::vector<std::unique_ptr<clientInfo>> m_clients; ///< in order of creation
    std::uint32_t m_connectionCounter = 0;
    std::uint32_t m_procedureCounter = 0;
    std::uint32_t m_serverMbox;
    bool m_deepSleepSupported = false;
    std::optional<std::uint32_t> m_wakeUpTime;
};
