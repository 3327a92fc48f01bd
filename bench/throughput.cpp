/// Round trip and throughput of the three transports, direct and through a relay.

#include "mailbox.h"
#include "results.h"

#include <filesystem>
#include <iostream>

namespace Bench {
namespace {

struct Contender {
    const char* name;
    std::unique_ptr<Channel> channel;
};

/// All partners stay there for the whole measurement; those that aren't measured sleep.
std::vector<TransportFigures> compare(const std::vector<Contender>& contenders, const Effort& effort)
{
    std::vector<TransportFigures> figures;
    for (const Contender& contender : contenders) {
        figures.push_back({contender.name, {}, {}, {}});
        measureThroughput(*contender.channel, effort.roundTrips); // warms up
    }
    for (unsigned round = 0; round < effort.rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            const Spread trips = measureRoundTrips(*contenders[i].channel, effort.roundTrips);
            figures[i].roundTrip.push_back(trips.median);
            figures[i].p99.push_back(trips.p99);
        }
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            figures[i].throughput.push_back(measureThroughput(*contenders[i].channel, effort.messages));
        }
    }
    return figures;
}

std::vector<TransportFigures> compareDirect(const std::string& folder, const Effort& effort)
{
    const Child kivEcho = startRole({"kivEcho", "echo"});
    const Child socketEcho = startRole({"socketEcho", folder + "/echo"});
    const Child zmqEcho = startRole({"zmqPairEcho", folder + "/zmqEcho"});
    std::vector<Contender> contenders;
    contenders.push_back({"kiv", openKivChannel(awaitMailbox("echo"))});
    contenders.push_back({"bare sockets", openSocketChannel(folder + "/echo")});
    contenders.push_back({"ZeroMQ", openZmqPair(folder + "/zmqEcho")});
    return compare(contenders, effort);
}

std::vector<TransportFigures> compareRelayed(const std::string& folder, const std::string& serverProgram,
                                             const Effort& effort)
{
    const Unit unit(serverProgram);
    const Child socketEcho = startRole({"socketEcho", folder + "/back"});
    const Child socketRelay = startRole({"socketRelay", folder + "/front", folder + "/back"});
    const Child zmqRelay = startRole({"zmqRelay", folder + "/zmqFront", folder + "/zmqBack"});
    const Child zmqEcho = startRole({"zmqRelayedEcho", folder + "/zmqBack"});
    connectClient(kiv_current_mbox(), unit.publicMbox());
    std::vector<Contender> contenders;
    contenders.push_back({"kiv, vornserver", openKivChannel(unit.publicMbox())});
    contenders.push_back({"bare sockets, epoll relay", openSocketChannel(folder + "/front")});
    contenders.push_back({"ZeroMQ, proxy", openZmqDealer(folder + "/zmqFront")});
    return compare(contenders, effort);
}

} // namespace

void measureTransports(const std::string& folder, const std::string& serverProgram, const Effort& effort,
                       Results& results)
{
    for (const Processors processors : {Processors::one, Processors::all}) {
        runOn(processors);
        const std::string sockets = folder + (processors == Processors::one ? "/one" : "/all");
        std::filesystem::create_directory(sockets);
        std::cerr << "direct ...\n";
        auto direct = compareDirect(sockets, effort);
        std::cerr << "relayed ...\n";
        results.comparisons.push_back({processors, std::move(direct), compareRelayed(sockets, serverProgram, effort)});
    }
}

} // namespace Bench
