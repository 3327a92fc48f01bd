/// How long a fault takes to reach all its subscribers.

#include "fanOut.h"

#include "mailbox.h"
#include "results.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>

namespace Bench {
namespace {

using Microseconds = std::chrono::duration<double, std::micro>;

constexpr unsigned fewestFaults = 5;
constexpr unsigned mostFaults = 1000;

void measureRound(FanOut& fanOut, unsigned faults, FanOutFigures& figures)
{
    std::vector<double> raised;
    std::vector<double> ceased;
    for (unsigned i = 0; i < faults; ++i) {
        raised.push_back(Microseconds(fanOut.run(FaultStep::raise)).count());
        ceased.push_back(Microseconds(fanOut.run(FaultStep::cease)).count());
    }
    const Spread fault = spreadOf(std::move(raised));
    figures.fault.push_back(fault.median);
    figures.faultP99.push_back(fault.p99);
    figures.cease.push_back(spreadOf(std::move(ceased)).median);
}

void compare(FanOut& kiv, FanOut& sockets, const Effort& effort, FanOutComparison& comparison)
{
    FanOutFigures warmUp;
    measureRound(kiv, fewestFaults, warmUp);
    measureRound(sockets, fewestFaults, warmUp);
    const unsigned faults = std::clamp(effort.signals / comparison.subscribers, fewestFaults, mostFaults);
    for (unsigned round = 0; round < effort.rounds; ++round) {
        measureRound(kiv, faults, comparison.kiv);
        measureRound(sockets, faults, comparison.sockets);
    }
}

} // namespace

void measureFanOuts(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results)
{
    for (const Clients kind : {Clients::mailboxes, Clients::processes}) {
        const bool isMailboxes = kind == Clients::mailboxes;
        for (const Processors processors : {Processors::one, Processors::all}) {
            runOn(processors);
            for (const unsigned subscribers : isMailboxes ? effort.mailboxSubscribers : effort.processSubscribers) {
                std::cerr << fmt::format("fan-out to {} {} ...\n", subscribers,
                                         isMailboxes ? "mailboxes" : "processes");
                const std::string sockets = fmt::format("{}/f{}", folder, results.fanOuts.size());
                std::filesystem::create_directory(sockets);
                results.fanOuts.push_back({processors, kind, subscribers, {}, {}});
                compare(*openKivFanOut(serverProgram, kind, subscribers), *openSocketFanOut(sockets, kind, subscribers),
                        effort, results.fanOuts.back());
            }
        }
    }
}

} // namespace Bench
