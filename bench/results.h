/// The figures of one run.
#pragma once

#include "load.h"
#include "swarm.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Bench {

/// One way to exchange messages, a figure for each round.
struct TransportFigures {
    std::string name;
    std::vector<double> roundTrip;  ///< median of a round, microseconds
    std::vector<double> p99;        ///< microseconds
    std::vector<double> throughput; ///< messages a second
};

/// One number of clients, a figure for each round.
struct ScaleFigures {
    Clients kind;
    unsigned clients;
    std::vector<double> relayProcessor, relayRoundTrip; ///< microseconds
    std::vector<double> utcProcessor, utcRoundTrip;     ///< microseconds
    double memory = 0;                                  ///< bytes a client; 0 with one client
};

/// All transports with their ends on the same processors.
struct Comparison {
    Processors processors;
    std::vector<TransportFigures> direct;  ///< kiv first, then bare sockets, then ZeroMQ
    std::vector<TransportFigures> relayed; ///< in the same order
};

/// The fan-out of a fault over one way, a figure for each round.
struct FanOutFigures {
    std::vector<double> fault;    ///< median of a round until the last subscriber has it, microseconds
    std::vector<double> faultP99; ///< microseconds
    std::vector<double> cease;    ///< median of the fault's end, microseconds
};

/// Both ways with their ends on the same processors.
struct FanOutComparison {
    Processors processors;
    Clients kind;
    unsigned subscribers;
    FanOutFigures kiv;
    FanOutFigures sockets;
};

/// Loads of one shape over one way, a figure for each round.
struct LoadFigures {
    std::vector<double> rate;      ///< MB/s
    std::vector<double> processor; ///< seconds a GB, of the process in the middle
};

/// Both ways with their ends on the same processors.
struct LoadComparison {
    Processors processors;
    LoadShape shape;
    LoadFigures kiv;
    LoadFigures sockets;
};

/// The server's memory around a load.
struct LongLoad {
    std::size_t bytes = 0; ///< loaded
    double memoryBefore = 0;
    double memoryAfter = 0;
};

/// Starts of the server with their processes on the same processors.
struct StartFigures {
    Processors processors;
    std::vector<double> times;     ///< of each start, until clients find the server, milliseconds
    std::vector<double> processor; ///< that the server has used by then, milliseconds
};

/// Messages with and without a listener, in turn.
struct TapFigures {
    Processors processors;
    std::vector<double> question; ///< whether somebody listens, nanoseconds
    std::vector<double> without;  ///< messages a second
    std::vector<double> with;
    std::vector<double> lost; ///< share of the copies
};

/// The system calls of one process on the way of a message and its answer.
struct CallFigures {
    std::string way;
    std::string process;
    std::map<std::string, double> calls; ///< for one round trip, by name
};

struct Results {
    bool quick = false;
    unsigned rounds = 0;
    double loadBefore = 0; ///< processes that ran or wanted to, just before
    std::vector<Comparison> comparisons;
    std::vector<FanOutComparison> fanOuts; ///< by kind, then by processors, then by number
    std::vector<ScaleFigures> scale;       ///< by kind, then by number
    std::vector<LoadComparison> loads;     ///< by processors, then by size, then by window
    LongLoad longLoad;
    std::vector<StartFigures> starts;
    std::vector<TapFigures> tap;
    std::vector<CallFigures> calls; ///< by way, in the order in which a message passes the processes
    std::string callsRefusal;       ///< why they couldn't be counted
};

/// How much is measured.
struct Effort {
    unsigned rounds;
    unsigned roundTrips;        ///< a round
    unsigned messages;          ///< a round, for the throughput
    unsigned requests;          ///< a round and number of clients
    unsigned signals;           ///< a round, of the fan-out of faults; that of one fault may be more
    unsigned loadBlocks;        ///< a round, at most
    std::size_t loadBytes;      ///< a round, at most
    std::size_t longLoadBytes;  ///< of the one load that the server's memory is watched during
    unsigned starts;            ///< with each choice of processors
    unsigned countedRoundTrips; ///< while system calls are counted
    std::vector<unsigned> mailboxClients;
    std::vector<unsigned> groupClients;
    std::vector<unsigned> processClients;
    std::vector<unsigned> mailboxSubscribers;
    std::vector<unsigned> processSubscribers;
};

/// The server is found in the calling process's run-time directory; the calling thread has a mailbox.
void measureTransports(const std::string& folder, const std::string& serverProgram, const Effort& effort,
                       Results& results);
void measureFanOuts(const std::string& folder, const std::string& serverProgram, const Effort& effort,
                    Results& results);
void measureScale(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results);
void measureLoads(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results);
void measureStarts(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results);
void measureTap(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results);
void measureSystemCalls(const std::string& folder, const std::string& serverProgram, const Effort& effort,
                        Results& results);

/// Markdown tables, readable as they are, of what was measured.
std::string printTables(const Results& results);
/// A table of its own.
std::string printSystemCalls(const Results& results);
std::string printJson(const Results& results);

} // namespace Bench
