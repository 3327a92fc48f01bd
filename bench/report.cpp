/// The figures of a run as tables and as JSON.

#include "results.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <thread>

namespace Bench {
namespace {

constexpr double aimDirectRoundTrip = 1.3;
constexpr double aimThroughput = 1.5;
constexpr double aimFanOut = 1.5;
constexpr double aimFanOutToMailboxes = 1.0; ///< to more than one
constexpr double aimStart = 50;              ///< milliseconds
constexpr double aimLoad = 1.5;
constexpr LoadShape aimedLoad{16 * 1024, 16};
constexpr double aimLoadGrowth = 256;
constexpr double kibibyte = 1024;
constexpr double fewestCalls = 0.01; ///< a round trip; what is rarer isn't named

const char* nameOf(Processors processors)
{
    return processors == Processors::one ? "one processor" : "all processors";
}

/// The round trips beside bare sockets of the kiv that handed each message to the kernel by itself.
struct FormerRoundTrips {
    double direct;
    double relayed;
};

FormerRoundTrips formerRoundTrips(Processors processors)
{
    return processors == Processors::one ? FormerRoundTrips{1.47, 1.35} : FormerRoundTrips{1.34, 1.76};
}

/// What many clients may cost, beside one, and in memory.
struct ScaleAim {
    Clients kind;
    const char* name;  ///< of the clients
    const char* title; ///< of their table
    double cost;
    double memory; ///< KiB a client
};
constexpr std::array scaleAims{
    ScaleAim{Clients::mailboxes, "clients", "Clients, one process", 1.3, 16},
    ScaleAim{Clients::groups, "clients in processes of 1000", "Clients, 1000 in a process", 1.2, 2},
    ScaleAim{Clients::processes, "client processes", "Clients, a process each", 1.3, 16},
};

const char* subscribersName(Clients kind)
{
    return kind == Clients::mailboxes ? "Subscribers in one process" : "Subscribers, a process each";
}

std::string printTransports(const std::string& title, const std::vector<TransportFigures>& figures)
{
    std::string text =
        fmt::format("| {} | Round trip, median (µs) | 99th percentile (µs) | 64 in flight (messages/s) |\n"
                    "|---|--:|--:|--:|\n",
                    title);
    for (const TransportFigures& row : figures) {
        text += fmt::format("| {} | {:.1f} | {:.1f} | {:.0f} |\n", row.name, median(row.roundTrip), median(row.p99),
                            median(row.throughput));
    }
    const TransportFigures& kiv = figures.front();
    for (auto row = figures.begin() + 1; row != figures.end(); ++row) {
        text += fmt::format("| **kiv : {}** | **{:.2f}** | {:.2f} | **{:.2f}** |\n", row->name,
                            medianRatio(kiv.roundTrip, row->roundTrip), medianRatio(kiv.p99, row->p99),
                            medianRatio(kiv.throughput, row->throughput));
    }
    return text + '\n';
}

std::string printFanOutRow(const FanOutComparison& comparison, const char* way, const FanOutFigures& figures)
{
    const double fault = median(figures.fault);
    return fmt::format("| {} | {} | {:.1f} | {:.1f} | {:.2f} | {:.1f} |\n", comparison.subscribers, way, fault,
                       median(figures.faultP99), fault / comparison.subscribers, median(figures.cease));
}

/// The fan-outs of one table, one right after the other.
std::string printFanOuts(const std::vector<FanOutComparison>& comparisons, Clients kind, Processors processors)
{
    if (comparisons.empty()) {
        return {};
    }
    std::string text = fmt::format("| {}, {} | | Fault, until the last has it, median (µs) | 99th percentile (µs) | "
                                   "Per subscriber (µs) | Cease, until the last has it (µs) |\n"
                                   "|--:|---|--:|--:|--:|--:|\n",
                                   subscribersName(kind), nameOf(processors));
    for (const FanOutComparison& row : comparisons) {
        if (row.kind == kind && row.processors == processors) {
            text += printFanOutRow(row, "kiv, vornserver", row.kiv) +
                    printFanOutRow(row, "bare sockets, epoll hub", row.sockets);
            const double ratio = medianRatio(row.kiv.fault, row.sockets.fault);
            text += fmt::format("| | **kiv : bare sockets** | **{:.2f}** | {:.2f} | {:.2f} | {:.2f} |\n", ratio,
                                medianRatio(row.kiv.faultP99, row.sockets.faultP99), ratio,
                                medianRatio(row.kiv.cease, row.sockets.cease));
        }
    }
    return text + '\n';
}

/// How much longer a load takes through the server.
double timeRatio(const LoadComparison& comparison)
{
    return medianRatio(comparison.sockets.rate, comparison.kiv.rate);
}

std::string printLoadRow(const LoadComparison& comparison, const char* way, const LoadFigures& figures)
{
    return fmt::format("| {} | {} | {} | {:.0f} | {:.2f} |\n", comparison.shape.blockSize / 1024,
                       comparison.shape.window, way, median(figures.rate), median(figures.processor));
}

/// The loads of one table.
std::string printLoads(const std::vector<LoadComparison>& comparisons, Processors processors)
{
    if (comparisons.empty()) {
        return {};
    }
    std::string text = fmt::format("| Block (KiB), {} | Blocks in flight | | MB/s | Processor in the middle (s/GB) |\n"
                                   "|--:|--:|---|--:|--:|\n",
                                   nameOf(processors));
    for (const LoadComparison& row : comparisons) {
        if (row.processors == processors) {
            text += printLoadRow(row, "kiv, vornserver, ploe", row.kiv) +
                    printLoadRow(row, "bare sockets, epoll relay", row.sockets);
            text += fmt::format("| | | **time and cost, kiv : bare sockets** | **{:.2f}** | {:.2f} |\n", timeRatio(row),
                                medianRatio(row.kiv.processor, row.sockets.processor));
        }
    }
    return text + '\n';
}

double growth(const LongLoad& load)
{
    return (load.memoryAfter - load.memoryBefore) / kibibyte;
}

std::string printLongLoad(const LongLoad& load)
{
    if (load.bytes == 0) {
        return {};
    }
    return fmt::format("The server's memory around a load of {} MiB: {:.0f} KiB before, {:.0f} KiB after.\n\n",
                       load.bytes / 1024 / 1024, load.memoryBefore / kibibyte, load.memoryAfter / kibibyte);
}

std::vector<ScaleFigures> ofKind(const Results& results, Clients kind)
{
    std::vector<ScaleFigures> chosen;
    std::copy_if(results.scale.begin(), results.scale.end(), std::back_inserter(chosen),
                 [kind](const ScaleFigures& figures) { return figures.kind == kind; });
    return chosen;
}

std::string printScale(const std::string& title, const std::vector<ScaleFigures>& rows)
{
    if (rows.empty()) {
        return {};
    }
    std::string text =
        fmt::format("| {} | Relayed, server's CPU (µs) | Relayed, round trip (µs) | UTC, server's CPU (µs) | "
                    "UTC, round trip (µs) | Memory a client (KiB) |\n|---|--:|--:|--:|--:|--:|\n",
                    title);
    for (const ScaleFigures& row : rows) {
        text += fmt::format("| {} | {:.1f} | {:.1f} | {:.1f} | {:.1f} | {} |\n", row.clients,
                            median(row.relayProcessor), median(row.relayRoundTrip), median(row.utcProcessor),
                            median(row.utcRoundTrip), row.clients > 1 ? fmt::format("{:.1f}", row.memory / 1024) : "");
    }
    const ScaleFigures& one = rows.front();
    const ScaleFigures& all = rows.back();
    return text + fmt::format("| **{} : {}** | **{:.2f}** | {:.2f} | **{:.2f}** | {:.2f} | |\n\n", all.clients,
                              one.clients, medianRatio(all.relayProcessor, one.relayProcessor),
                              medianRatio(all.relayRoundTrip, one.relayRoundTrip),
                              medianRatio(all.utcProcessor, one.utcProcessor),
                              medianRatio(all.utcRoundTrip, one.utcRoundTrip));
}

std::string printTap(const std::vector<TapFigures>& figures)
{
    if (figures.empty()) {
        return {};
    }
    std::string text =
        "| Tap, direct, 64 in flight | Asking whether somebody listens (ns a message) | Without listener "
        "(messages/s) | With one that reads (messages/s) | With : without | Copies lost |\n"
        "|---|--:|--:|--:|--:|--:|\n";
    for (const TapFigures& row : figures) {
        text += fmt::format("| {} | {:.2f} | {:.0f} | {:.0f} | {:.2f} | {:.0f} % |\n", nameOf(row.processors),
                            median(row.question), median(row.without), median(row.with),
                            medianRatio(row.with, row.without), 100 * median(row.lost));
    }
    return text + '\n';
}

std::string printStarts(const std::vector<StartFigures>& figures)
{
    if (figures.empty()) {
        return {};
    }
    std::string text = "| Start of the server | Median (ms) | 99th percentile (ms) | Longest (ms) | "
                       "Server's CPU (ms) |\n"
                       "|---|--:|--:|--:|--:|\n";
    for (const StartFigures& row : figures) {
        const Spread spread = spreadOf(row.times);
        text += fmt::format("| {} | {:.1f} | {:.1f} | {:.1f} | {:.1f} |\n", nameOf(row.processors), spread.median,
                            spread.p99, *std::max_element(row.times.begin(), row.times.end()), median(row.processor));
    }
    return text + '\n';
}

/// A line of the table of aims: how far a figure is on the wrong side of its limit, if it is.
std::string printAim(const std::string& aim, double figure, double limit, bool isUpperLimit, const std::string& unit)
{
    const double miss = isUpperLimit ? figure / limit - 1 : 1 - figure / limit;
    return fmt::format("| {} | {:.2f}{} | {} |\n", aim, figure, unit,
                       miss <= 0 ? "met" : fmt::format("missed by {:.0f} %", miss * 100));
}

std::string printScaleAims(const ScaleAim& aim, const std::vector<ScaleFigures>& rows)
{
    if (rows.empty()) {
        return {};
    }
    const ScaleFigures& one = rows.front();
    const ScaleFigures& all = rows.back();
    return printAim(
               fmt::format("Relayed message, cost with {} {} within {:.1f} of one", all.clients, aim.name, aim.cost),
               medianRatio(all.relayProcessor, one.relayProcessor), aim.cost, true, "") +
           printAim(fmt::format("UTC request, cost with {} {} within {:.1f} of one", all.clients, aim.name, aim.cost),
                    medianRatio(all.utcProcessor, one.utcProcessor), aim.cost, true, "") +
           printAim(fmt::format("At most {} KiB a client, {} {}", aim.memory, all.clients, aim.name),
                    all.memory / kibibyte, aim.memory, true, " KiB");
}

std::string printTransportAims(const Comparison& comparison)
{
    const auto& [processors, direct, relayed] = comparison;
    const FormerRoundTrips former = formerRoundTrips(processors);
    const double directRoundTrip = medianRatio(direct[0].roundTrip, direct[1].roundTrip);
    return printAim(fmt::format("Direct round trip within 1.3 of bare sockets, {}", nameOf(processors)),
                    directRoundTrip, aimDirectRoundTrip, true, "") +
           printAim(fmt::format("Direct round trip as before packing, {} of bare sockets, {}", former.direct,
                                nameOf(processors)),
                    directRoundTrip, former.direct, true, "") +
           printAim(fmt::format("Relayed round trip as before packing, {} of bare sockets, {}", former.relayed,
                                nameOf(processors)),
                    medianRatio(relayed[0].roundTrip, relayed[1].roundTrip), former.relayed, true, "") +
           printAim(fmt::format("Direct throughput at least 1.5 of ZeroMQ, {}", nameOf(processors)),
                    medianRatio(direct[0].throughput, direct[2].throughput), aimThroughput, false, "") +
           printAim(fmt::format("Relayed throughput at least 1.5 of ZeroMQ's relay, {}", nameOf(processors)),
                    medianRatio(relayed[0].throughput, relayed[2].throughput), aimThroughput, false, "");
}

std::string printFanOutAim(const FanOutComparison& row)
{
    const bool isMailboxes = row.kind == Clients::mailboxes;
    const double aim = isMailboxes && row.subscribers > 1 ? aimFanOutToMailboxes : aimFanOut;
    return printAim(fmt::format("Fault to {} {} within {:.1f} of bare sockets, {}", row.subscribers,
                                isMailboxes ? (row.subscribers == 1 ? "mailbox" : "mailboxes") : "processes", aim,
                                nameOf(row.processors)),
                    medianRatio(row.kiv.fault, row.sockets.fault), aim, true, "");
}

std::string printAims(const Results& results)
{
    std::string text;
    for (const Comparison& comparison : results.comparisons) {
        text += printTransportAims(comparison);
    }
    for (const FanOutComparison& row : results.fanOuts) {
        text += printFanOutAim(row);
    }
    for (const LoadComparison& row : results.loads) {
        if (row.shape.blockSize == aimedLoad.blockSize && row.shape.window == aimedLoad.window) {
            text += printAim(fmt::format("Load of {} KiB blocks, {} in flight, within 1.5 of bare sockets, {}",
                                         row.shape.blockSize / 1024, row.shape.window, nameOf(row.processors)),
                             timeRatio(row), aimLoad, true, "");
        }
    }
    if (results.longLoad.bytes > 0) {
        text += printAim(fmt::format("The server grows by at most 256 KiB during a load of {} MiB",
                                     results.longLoad.bytes / 1024 / 1024),
                         growth(results.longLoad), aimLoadGrowth, true, " KiB");
    }
    for (const ScaleAim& aim : scaleAims) {
        text += printScaleAims(aim, ofKind(results, aim.kind));
    }
    for (const StartFigures& row : results.starts) {
        text += printAim(fmt::format("Start of the server within 50 ms, {}", nameOf(row.processors)), median(row.times),
                         aimStart, true, " ms");
    }
    return text.empty() ? text : "| Aim | Figure | |\n|---|--:|---|\n" + text + '\n';
}

nlohmann::json jsonOf(const std::vector<TransportFigures>& figures)
{
    nlohmann::json list = nlohmann::json::array();
    for (const TransportFigures& row : figures) {
        list.push_back({{"name", row.name},
                        {"roundTripMicroseconds", row.roundTrip},
                        {"p99Microseconds", row.p99},
                        {"messagesPerSecond", row.throughput}});
    }
    return list;
}

nlohmann::json jsonOf(const FanOutFigures& figures)
{
    return {{"faultMicroseconds", figures.fault},
            {"faultP99Microseconds", figures.faultP99},
            {"ceaseMicroseconds", figures.cease}};
}

nlohmann::json jsonOf(const std::vector<FanOutComparison>& comparisons)
{
    nlohmann::json list = nlohmann::json::array();
    for (const FanOutComparison& row : comparisons) {
        list.push_back({{"processors", nameOf(row.processors)},
                        {"subscribers", row.subscribers},
                        {"processEach", row.kind == Clients::processes},
                        {"kiv", jsonOf(row.kiv)},
                        {"sockets", jsonOf(row.sockets)}});
    }
    return list;
}

nlohmann::json jsonOf(const LoadFigures& figures)
{
    return {{"megabytesPerSecond", figures.rate}, {"processorSecondsPerGigabyte", figures.processor}};
}

nlohmann::json jsonOf(const std::vector<LoadComparison>& comparisons)
{
    nlohmann::json list = nlohmann::json::array();
    for (const LoadComparison& row : comparisons) {
        list.push_back({{"processors", nameOf(row.processors)},
                        {"blockBytes", row.shape.blockSize},
                        {"inFlight", row.shape.window},
                        {"kiv", jsonOf(row.kiv)},
                        {"sockets", jsonOf(row.sockets)}});
    }
    return list;
}

nlohmann::json jsonOf(const LongLoad& load)
{
    return {{"bytes", load.bytes}, {"memoryBefore", load.memoryBefore}, {"memoryAfter", load.memoryAfter}};
}

} // namespace

std::string printTables(const Results& results)
{
    std::string transports;
    for (const Comparison& comparison : results.comparisons) {
        const std::string processors = nameOf(comparison.processors);
        transports += printTransports("Direct, " + processors, comparison.direct);
        transports += printTransports("Relayed, " + processors, comparison.relayed);
    }
    std::string fanOuts;
    for (const Clients kind : {Clients::mailboxes, Clients::processes}) {
        for (const Processors processors : {Processors::one, Processors::all}) {
            fanOuts += printFanOuts(results.fanOuts, kind, processors);
        }
    }
    std::string scale;
    for (const ScaleAim& aim : scaleAims) {
        scale += printScale(aim.title, ofKind(results, aim.kind));
    }
    return fmt::format("{} processors, load {:.1f} before the run, {} rounds{}.\n\n",
                       std::thread::hardware_concurrency(), results.loadBefore, results.rounds,
                       results.quick ? ", quick" : "") +
           printAims(results) + transports + fanOuts + printLoads(results.loads, Processors::one) +
           printLoads(results.loads, Processors::all) + printLongLoad(results.longLoad) + scale +
           printStarts(results.starts) + printTap(results.tap);
}

std::string printSystemCalls(const Results& results)
{
    if (!results.callsRefusal.empty()) {
        return "Not counted, as this machine doesn't allow it: " + results.callsRefusal + "\n\n";
    }
    if (results.calls.empty()) {
        return {};
    }
    std::string text = "| Round trip | Process | System calls | Which |\n|---|---|--:|---|\n";
    for (const CallFigures& row : results.calls) {
        double total = 0;
        std::string names;
        for (const auto& [name, calls] : row.calls) {
            total += calls;
            if (calls >= fewestCalls) {
                names += fmt::format("{}{} {:.2f}", names.empty() ? "" : ", ", name, calls);
            }
        }
        text += fmt::format("| {} | {} | {:.2f} | {} |\n", row.way, row.process, total, names);
    }
    return text + '\n';
}

std::string printJson(const Results& results)
{
    nlohmann::json scale = nlohmann::json::array();
    for (const ScaleFigures& row : results.scale) {
        scale.push_back({{"clients", row.clients},
                         {"processEach", row.kind == Clients::processes},
                         {"groups", row.kind == Clients::groups},
                         {"relayProcessorMicroseconds", row.relayProcessor},
                         {"relayRoundTripMicroseconds", row.relayRoundTrip},
                         {"utcProcessorMicroseconds", row.utcProcessor},
                         {"utcRoundTripMicroseconds", row.utcRoundTrip},
                         {"bytesPerClient", row.memory}});
    }
    nlohmann::json tap = nlohmann::json::array();
    for (const TapFigures& row : results.tap) {
        tap.push_back({{"processors", nameOf(row.processors)},
                       {"question", row.question},
                       {"without", row.without},
                       {"with", row.with},
                       {"lost", row.lost}});
    }
    nlohmann::json starts = nlohmann::json::array();
    for (const StartFigures& row : results.starts) {
        starts.push_back({{"processors", nameOf(row.processors)},
                          {"milliseconds", row.times},
                          {"processorMilliseconds", row.processor}});
    }
    nlohmann::json calls = nlohmann::json::array();
    for (const CallFigures& row : results.calls) {
        calls.push_back({{"way", row.way}, {"process", row.process}, {"systemCalls", row.calls}});
    }
    nlohmann::json comparisons = nlohmann::json::array();
    for (const Comparison& comparison : results.comparisons) {
        comparisons.push_back({{"processors", nameOf(comparison.processors)},
                               {"direct", jsonOf(comparison.direct)},
                               {"relayed", jsonOf(comparison.relayed)}});
    }
    return nlohmann::json{{"quick", results.quick},
                          {"loadBefore", results.loadBefore},
                          {"comparisons", comparisons},
                          {"fanOuts", jsonOf(results.fanOuts)},
                          {"loads", jsonOf(results.loads)},
                          {"longLoad", jsonOf(results.longLoad)},
                          {"scale", scale},
                          {"starts", starts},
                          {"tap", tap},
                          {"systemCalls", calls}}
        .dump(2);
}

} // namespace Bench
