/// tap: lets tools look at the messages of a unit. This header is the side of the processes that send messages.
///
/// A listener (tap/listener.h) in the folder "$RU_DIR/tap" receives a copy of every message that a process of the unit
/// sends while the listener is there. The library that carries a message (kiv, ploe) hands it to the tap:
///
///     tap::start();                                        // when the library is first used
///     ...
///     if (tap::isOpen()) {                                 // for each message
///         tap::copy({.carrier = tap::Carrier::kiv, .sender = sender, .receiver = receiver,
///                    .size = size, .bytes = message});
///     }
///
/// What holds
///   cost       while nobody listens, isOpen() is all that a message costs: one relaxed load
///   delay      copy() never waits for a listener and allocates nothing: what a listener's socket doesn't take is lost
///   loss       lost copies are counted for each listener. The next copy that gets through carries the count; if no
///              further message is sent, the count alone is sent as soon as there is room. If the process ends before,
///              its last count is not reported.
///   memory     a listener that doesn't read costs each sending process the buffer that it asked for, at most
///              maxBuffer, and one copy more
///   order      copies of one thread arrive in the order of its calls; copies of different processes are ordered by
///              their times only
///   listeners  maxListeners at once; they must have the effective user of the sending process
///   start      a listener that is open when start() begins receives all that the process sends after start() has
///              returned; a later one receives all that is sent after tap::Listener::open() has returned
///   fork       a child begins without the tap, until it calls start() itself
///   failure    if the folder, a socket or the thread can't be created, the tap stays closed
///
/// Each process has a socket "process-PID-N" in the folder, and a thread "ru-tap" that accepts there. A new listener
/// binds a socket "listener-PID-N-VERSION-MAXBYTES-BUFFER" and connects to every process's socket. The process then
/// looks for listeners that it doesn't know yet, connects to them, and closes the connection that made it look. It also
/// looks for them when it starts. The name of the file holds all that a process has to know of a listener, so it never
/// waits for one.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tap {

/// How many listeners a process serves at once.
inline constexpr std::size_t maxListeners = 4;

/// Most bytes of a message that a copy holds. With the usual limits of the system (net.core.wmem_max) a packet takes
/// them, also without privileges; with lower limits copies hold less.
inline constexpr std::size_t maxCopiedBytes = std::size_t{256} * 1024;

/// Most bytes that a listener may ask a process to keep for it.
inline constexpr std::size_t maxBuffer = std::size_t{16} * 1024 * 1024;

/// Longest name that a copy holds, bytes; longer ones are cut.
inline constexpr std::size_t maxName = 255;

/// What a message was sent over.
enum class Carrier : std::uint8_t { kiv = 1, ploe = 2 };

/// Which end of its connection sent a message.
enum class Direction : std::uint8_t {
    toReceiver = 0,  ///< neither: the ends are alike (kiv)
    toListener = 1,  ///< the end that had connected (ploe)
    toConnector = 2, ///< the end that had listened (ploe)
};

/// A message, as its sender hands it to the tap. Nothing of it is kept after the call.
struct Copy {
    Carrier carrier;
    Direction direction = Direction::toReceiver;
    std::uint32_t sender = 0;         ///< a mailbox id; 0 for ploe
    std::uint32_t receiver = 0;       ///< the same
    std::string_view senderName = {}; ///< empty if unknown. With ploe the listening end has the name of its address.
    std::string_view receiverName = {};
    std::size_t size = 0;        ///< of the message, bytes
    const void* bytes = nullptr; ///< all of them
    std::uint64_t time = 0;      ///< nanoseconds as now() returns them; 0: the time of the call
};

namespace detail {
inline std::atomic<bool> open = false;
}

/// Makes the process known to listeners and connects to those that are open. Returns at once if it was called before,
/// also if that failed. It must not be called with a lock held that a handler of fork takes.
void start() noexcept;

/// Whether anybody listens.
inline bool isOpen()
{
    return detail::open.load(std::memory_order_relaxed);
}

/// The time for a copy: nanoseconds since 1970 (CLOCK_REALTIME). Taken before a message is sent, it places the message
/// before its answer.
std::uint64_t now() noexcept;

/// Sends a copy to every listener. For all threads; it leaves errno alone.
void copy(const Copy& what) noexcept;

} // namespace tap
