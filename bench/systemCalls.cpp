/// The system calls that a round trip over kiv costs each of its processes, counted by strace.

#include "results.h"

#include <csignal>
#include <iostream>
#include <memory>
#include <sstream>

namespace Bench {
namespace {

constexpr unsigned warmUp = 100;

/// The machine has no strace, or doesn't let it.
struct NotAllowed : Failed {
    using Failed::Failed;
};

/// An strace on all threads of a running process.
class CallCounter
{
public:
    explicit CallCounter(const Child& process)
        : m_strace("/bin/sh",
                   {"-c", R"(exec strace -f -c -U calls,name -p "$1" 2>&1)", "sh", std::to_string(process.pid())},
                   Child::Io::pipes)
    {
        const std::string line = m_strace.readLine();
        if (line.find(" attached") == std::string::npos) {
            throw NotAllowed(line);
        }
    }

    /// Ends the count. Calls by name.
    std::map<std::string, unsigned> stop()
    {
        ::kill(m_strace.pid(), SIGINT);
        std::map<std::string, unsigned> calls;
        for (;;) {
            std::istringstream line(m_strace.readLine());
            unsigned count = 0;
            std::string name;
            if (line >> count >> name) {
                if (name == "total") {
                    return calls;
                }
                calls[name] = count;
            }
        }
    }

private:
    Child m_strace;
};

struct Partner {
    const char* name;
    const Child& process;
};

/// Counts while the client makes round trips.
void count(const char* way, Child& client, const std::vector<Partner>& partners, const Effort& effort, Results& results)
{
    const auto makeRoundTrips = [&client](unsigned number) {
        client.writeLine(std::to_string(number));
        client.readLine();
    };
    makeRoundTrips(warmUp);
    std::vector<std::unique_ptr<CallCounter>> counters;
    for (const Partner& partner : partners) {
        counters.push_back(std::make_unique<CallCounter>(partner.process));
    }
    makeRoundTrips(effort.countedRoundTrips);
    for (std::size_t i = 0; i < partners.size(); ++i) {
        CallFigures figures{way, partners[i].name, {}};
        for (const auto& [name, calls] : counters[i]->stop()) {
            figures.calls[name] = static_cast<double>(calls) / effort.countedRoundTrips;
        }
        results.calls.push_back(std::move(figures));
    }
}

void countDirect(const Effort& effort, Results& results)
{
    const Child echo = startRole({"kivEcho", "echo"});
    Child client = startRole({"kivClient", "echo"});
    count("direct", client, {{"client", client}, {"echo", echo}}, effort, results);
}

void countRelayed(const std::string& serverProgram, const Effort& effort, Results& results)
{
    const Unit unit(serverProgram);
    Child client = startRole({"kivClient", "VornServer"});
    count("relayed", client, {{"client", client}, {"vornserver", unit.server()}, {"board", unit.board()}}, effort,
          results);
}

} // namespace

void measureSystemCalls(const std::string& /*folder*/, const std::string& serverProgram, const Effort& effort,
                        Results& results)
try {
    std::cerr << "system calls ...\n";
    runOn(Processors::one);
    countDirect(effort, results);
    countRelayed(serverProgram, effort, results);
} catch (const NotAllowed& reason) {
    results.callsRefusal = reason.what();
}

} // namespace Bench
