/// The sending side of the tap in one process: its socket in the folder, its thread and its connections to listeners.
///
/// Two locks. The lock of the descriptors is held by whoever makes or closes descriptors: start() and the thread. fork
/// waits for it, so that the child finds every descriptor that it must not keep. The lock of the connections is held
/// for the non-blocking sends and where a connection is entered or taken out; nothing but the kernel is called with it
/// held, and fork doesn't wait for it: the child leaves the whole object behind.
#pragma once

#include "tap/folder.h"
#include "tap/packet.h"
#include "tap/tap.h"
#include "uniqueFd.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace tap {

class Sender
{
public:
    Sender() = default;
    ~Sender();
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    /// Listens for visitors and starts the thread. Returns 0 or an errno value. The thread uses the object for good.
    int start();
    /// Connects to the listeners that it doesn't know yet.
    void findListeners();

    void copy(const Copy& what);

    /// Closes every descriptor, in a forked child. Nothing else may be called then.
    void abandon();
    /// Takes the process out of the folder.
    void removeFile() const;

    static std::mutex& descriptorMutex();

    Sender* next = nullptr; ///< of those that were abandoned, so that none counts as leaked

private:
    using Clock = std::chrono::steady_clock;

    /// A listener.
    struct Connection {
        UniqueFd socket;
        std::string name;
        std::size_t maxBytes = 0; ///< of a message
        std::uint64_t lost = 0;   ///< copies since the last packet
        bool awaitsRoom = false;  ///< the thread is woken when there is room for a packet
        bool gone = false;        ///< the listener; the thread is about to forget it

        bool isLive() const { return socket && !gone; }
    };

    static void* threadMain(void* self);
    int waitTime() const;
    void serve();
    std::size_t acceptVisitors();
    bool forgetGone();
    void reportLosses();
    bool isKnown(const std::string& name) const;
    void connectTo(const SocketFile& listener);
    void setOpen() const;
    void retryLater();

    void send(Connection& connection, PacketHeader& header, const Copy& what) const;
    void awaitRoom(Connection& connection, bool awaits) const;
    bool watch(int operation, int descriptor, std::uint32_t events) const;

    // Under the lock of the descriptors:
    Folder m_folder;
    std::string m_name; ///< of the own socket
    UniqueFd m_epoll;
    UniqueFd m_listening;
    std::array<UniqueFd, 32> m_visitors; ///< closed when the process has looked for listeners
    bool m_retries = false;              ///< something failed that may succeed later
    std::chrono::milliseconds m_retryDelay{0};
    Clock::time_point m_retryAt;

    std::mutex m_sending;
    std::array<Connection, maxListeners> m_connections; ///< under both locks to change a socket or a name
};

} // namespace tap
