/// A unit with a number of clients, in a process of its own, that measures on demand.
///
/// Units with few and with many clients run beside each other and are measured in turn, so that what else the machine
/// does meets all of them alike.
#pragma once

#include "channels.h"
#include "unit.h"

#include <cstdint>
#include <string>

namespace Bench {

enum class Clients {
    mailboxes, ///< of one process, on one queue
    groups,    ///< mailboxes of several processes, up to `groupSize` on the queue of each
    processes, ///< each client in a process of its own
};
constexpr unsigned groupSize = 1000;

/// The cost of one request.
struct Cost {
    double processor; ///< microseconds of the server's processor time
    double roundTrip; ///< microseconds until the client has its answer
};

class Swarm
{
public:
    /// Starts it; it works until awaitConnected returns.
    Swarm(const std::string& runDir, const std::string& serverProgram, Clients kind, unsigned count);

    unsigned count() const { return m_count; }
    void awaitConnected();
    /// Lets the clients make `requests` requests by turns, one at a time.
    Cost measure(Ask what, unsigned requests);
    /// Bytes of the server's memory for each client after the first. Only with more than one client.
    double memoryPerClient();

private:
    Child m_child;
    unsigned m_count;
};

/// The process of a swarm; obeys its standard input until that ends.
void runSwarm(const std::string& serverProgram, Clients kind, unsigned count, const Ready& ready);
/// One of its client processes, with one client or a group of them; doesn't return.
void runClients(const std::string& name);

} // namespace Bench
