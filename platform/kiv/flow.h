/// Flow control: what waits in the links, for whom, and on whose behalf.
///
/// A process that relays more than its destination takes must not collect it all. So every message that waits in a link
/// is counted for the process that it goes to and for the process whose message caused it: the one that its sending
/// thread received last. From these a receive queue sees whether it goes on reading a peer.
///
/// Only those are held up that came here: a process that this one sought out first is a server that it uses, and to
/// stop reading a server's answers would let one slow client stop everybody. So of two processes only one holds up the
/// other. (Three that relay to each other in a circle can hold each other up; nothing in a unit does.) A peer that came
/// isn't read while
///
///   - more than maxUnread waits for it: it doesn't read its answers
///   - more than maxRelayed waits for servers on its behalf
///   - much waits for servers on behalf of others, and some of that is its own
///   - very much does: then nobody's is read, before a server would be cut off
///
/// Threads: usable from all, without locks.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace kiv {

class Flow
{
public:
    /// More than this waiting for one process, or in all, and the link that holds the most of it is cut off.
    static constexpr std::size_t maxWaiting = 64U << 20;
    static constexpr std::size_t maxWaitingInAll = 128U << 20;
    static constexpr std::size_t maxUnread = 8U << 20;
    static constexpr std::size_t maxRelayed = 8U << 20;

    /// `resume` is called, on any thread, when peers that are held up may be read again.
    explicit Flow(std::function<void()> resume);
    ~Flow();
    Flow(const Flow&) = delete;
    Flow& operator=(const Flow&) = delete;

    /// The first contact was made by this process, or by the other one. Later ones change nothing.
    void sought(std::uint32_t process);
    void came(std::uint32_t process);
    /// The process is dead: its number may be another's.
    void forget(std::uint32_t process);

    /// What waits in one link, for whoever was sought first if `toServer`.
    struct Waiting {
        std::uint32_t destination;
        bool toServer;
        std::uint32_t cause; ///< on whose behalf, 0 for nobody's
        std::size_t bytes;
        bool isRelayed() const { return toServer && cause != 0 && cause != destination; }
    };
    void add(const Waiting& waiting);
    void remove(const Waiting& waiting);
    std::size_t waitingFor(std::uint32_t destination) const;
    std::size_t waitingInAll() const { return m_inAll; }

    bool isServer(std::uint32_t process) const;
    /// Whether a peer is to be read; of one that is held up, whether it is to be read again, which takes some more.
    bool mayRead(std::uint32_t process, bool isHeld) const;
    /// A peer is held up: mayRead has to be asked once more after this.
    void hold() { ++m_held; }
    void release() { --m_held; }
    /// To be called after remove, once for many.
    void relieved();

private:
    enum class Relation : std::uint32_t { none, server, client };
    /// Accessed through atomic_ref only.
    struct Account {
        std::size_t waiting;
        std::size_t relayed; ///< to servers
        Relation relation;
    };
    void meet(std::uint32_t process, Relation relation);

    std::function<void()> m_resume;
    Account* m_accounts; ///< by process number; what is never used is never touched
    std::atomic<std::size_t> m_inAll = 0;
    std::atomic<std::size_t> m_relayed = 0; ///< to servers
    std::atomic<int> m_held = 0;
};

/// The process whose message the calling thread received last; 0 for none.
inline thread_local std::uint16_t currentCause = 0;

} // namespace kiv
