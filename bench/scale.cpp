/// The cost of a request with few and with many clients.

#include "results.h"

#include <fmt/format.h>
#include <iostream>

namespace Bench {
namespace {

void measureRound(Swarm& swarm, unsigned requests, ScaleFigures& figures)
{
    const Cost relay = swarm.measure(Ask::relay, requests);
    figures.relayProcessor.push_back(relay.processor);
    figures.relayRoundTrip.push_back(relay.roundTrip);
    const Cost utc = swarm.measure(Ask::utc, requests);
    figures.utcProcessor.push_back(utc.processor);
    figures.utcRoundTrip.push_back(utc.roundTrip);
}

std::vector<ScaleFigures> measureKind(const std::string& folder, const std::string& serverProgram, Clients kind,
                                      const std::vector<unsigned>& numbers, const Effort& effort)
{
    std::vector<Swarm> swarms;
    std::vector<ScaleFigures> figures;
    for (const unsigned clients : numbers) {
        swarms.emplace_back(fmt::format("{}/{}", folder, clients), serverProgram, kind, clients);
        swarms.back().awaitConnected();
        figures.push_back({kind, clients, {}, {}, {}, {}, clients > 1 ? swarms.back().memoryPerClient() : 0});
    }
    for (unsigned round = 0; round < effort.rounds; ++round) {
        for (std::size_t i = 0; i < swarms.size(); ++i) {
            measureRound(swarms[i], effort.requests, figures[i]);
        }
    }
    return figures;
}

} // namespace

void measureScale(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results)
{
    std::cerr << "scale, mailboxes ...\n";
    results.scale = measureKind(folder + "/m", serverProgram, Clients::mailboxes, effort.mailboxClients, effort);
    std::cerr << "scale, groups ...\n";
    const auto groups = measureKind(folder + "/g", serverProgram, Clients::groups, effort.groupClients, effort);
    std::cerr << "scale, processes ...\n";
    const auto processes = measureKind(folder + "/p", serverProgram, Clients::processes, effort.processClients, effort);
    results.scale.insert(results.scale.end(), groups.begin(), groups.end());
    results.scale.insert(results.scale.end(), processes.begin(), processes.end());
}

} // namespace Bench
