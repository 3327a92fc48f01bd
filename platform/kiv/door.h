/// The process's listening socket: who comes in, and what others watch here.
///
/// Door accepts connections and reads the Hello of each. It proves once that who connects is the process whose number
/// it gives: the kernel tells who made the connection and who listens on that number, and both must be one process, the
/// same from its start on. That done, it ends its own sending side, by which the other learns of it, and hands the
/// connection to the receive queue, or keeps it as a Visitor: a connection to the process itself, which brings
/// monitors.
///
/// A connection that says nothing is ended after five seconds. A process has few that aren't proven at a time.
///
/// Threads: all of it lives on the I/O thread, without locks; made and closed anywhere.
#pragma once

#include "kiv/frame.h"
#include "kiv/ioThread.h"
#include "kiv/registry.h"

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace kiv {

class Process;

class Door : public Handler, public std::enable_shared_from_this<Door>
{
public:
    explicit Door(Process& process) : m_process(process) {}

    /// Starts to listen. False where the system can't watch it.
    bool open(Descriptor listening);
    /// On the I/O thread: takes in who has come by now.
    void takeIn();
    /// On the I/O thread: the process is dead, its number may be another's.
    void forget(std::uint32_t process) { m_known.erase(process); }

    void onEvents(std::uint32_t events) override;

private:
    class Arrival;
    class Visitor;
    using Clock = std::chrono::steady_clock;

    bool acceptOne();
    void pause();
    void receiveHello(Arrival& arrival);
    void prove(Arrival& arrival);
    void admit(Arrival& arrival);
    void drop(Arrival& arrival, const char* reason);
    void sweep();
    void sweepLater(Clock::duration delay);

    Process& m_process;
    Descriptor m_listening;
    std::uint64_t m_token = 0;
    std::map<std::uint64_t, std::shared_ptr<Arrival>> m_arrivals; ///< not proven yet, in the order in which they came
    std::uint64_t m_lastArrival = 0;
    std::unordered_map<pid_t, unsigned> m_arrivalsOf;
    std::unordered_map<std::uint32_t, Identity> m_known;                 ///< the owners of numbers
    Clock::time_point m_sweepAt = Clock::time_point::max();              ///< the next sweep
    std::vector<std::byte> m_packet = std::vector<std::byte>(maxPacket); ///< what visitors are read into

    std::unordered_multimap<std::uint32_t, std::shared_ptr<Visitor>> m_visits; ///< by process
};

} // namespace kiv
