/// Control connections: small packets beside the data.
///
/// Who wants something of a queue connects to its slot and says hello. Over this connection it asks for a data
/// connection, claims the slots in whose name it will send, and registers monitors; the owner answers over it. The end
/// of the connection is the death of the slot for the one side and of the peer for the other.
///
///   asking side                       owner of the slot
///   hello(version)
///   open(slot or 0)                   data + the sending end of a data connection: the slot is proven
///   claim(slot)                       claimed(slot)
///   monitor(ref, id, slot)            dead(ref, id, count): once, when the mailbox is gone
///   unmonitor(ref)
///
/// `slot` of a monitor names the queue that waits for it, and `count` how many messages the dead one's process had sent
/// to that queue by then: the receiver delivers the monitor's message behind these.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/ioThread.h"
#include "kiv/kiv.h"

#include <deque>

struct msghdr;

namespace kiv {

inline constexpr std::uint32_t protocolVersion = 0x4B495601;

/// More frames wait until the I/O thread has served the others.
inline constexpr int framesAtOnce = 256;

enum class ControlKind : std::uint32_t { hello = 1, open, claim, monitor, unmonitor, data, claimed, dead };

struct ControlFrame {
    ControlKind kind{};
    std::uint32_t id = 0; ///< mailbox; of hello the version
    std::uint32_t slot = 0;
    std::uint32_t ref = 0;
    std::uint64_t count = 0;
};

/// One end of a control connection with what is still to be sent on it. Whoever owns it guards it.
class Channel
{
public:
    explicit Channel(IoThread& io) : m_io(io) {}

    /// Frames sent before wait until then. False where the system can't watch the socket.
    bool open(Descriptor socket, std::shared_ptr<Handler> handler);
    void close();
    /// Nothing more goes either way; what the peer had sent is still received, then the end.
    void finish();
    int socket() const { return m_socket.get(); }
    bool idle() const { return m_waiting.empty(); }

    /// False where the peer does not read its answers or the connection is broken.
    bool send(const ControlFrame& frame, Descriptor passed = {});
    bool flush();

    enum class Received { frame, none, closed, malformed };
    Received receive(ControlFrame& frame, Descriptor& passed);

private:
    struct Waiting {
        ControlFrame frame;
        Descriptor passed;
    };
    void watch();

    IoThread& m_io;
    Descriptor m_socket;
    std::uint64_t m_token = 0;
    bool m_watchesOut = false;
    std::deque<Waiting> m_waiting;
};

/// What a malformed or foreign packet brought along is closed when this goes.
class Passed
{
public:
    /// Takes the descriptors out of a received header.
    explicit Passed(const msghdr& header);

    std::size_t size() const { return m_count; }
    Descriptor* begin() { return m_descriptors; }

private:
    static constexpr std::size_t most = 4;
    Descriptor m_descriptors[most];
    std::size_t m_count = 0;
};

} // namespace kiv
