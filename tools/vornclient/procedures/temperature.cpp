/// The temperatures of the hot spots: measuring them, and drawing what is measured.
#include "vorni/temperature.h"

#include "vornclient/command.h"
#include "vornclient/interruptibleWaits.h"
#include "vornclient/procedures/procedures.h"
#include "vornclient/screen.h"
#include "vornclient/temperaturePlot.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr std::uint8_t stopPeriod = 0;

std::uint8_t parsePeriod(const std::string& word)
{
    return static_cast<std::uint8_t>(parseNumber(word, UINT8_MAX));
}

/// Starts, retunes or stops: the server knows which, and answers all three alike.
Outcome measure(CommandContext& context, std::uint8_t period)
{
    return context.request<OmlaVornTempMeasStartReqS>(
        {OmlaVornTempMeasStartCfmS::number, OmlaVornTempMeasStartRejS::number},
        [&](auto& request) { request.hotSpotMeasurementPeriod = period; });
}

struct WatchSettings {
    std::uint8_t period = 1; ///< seconds
    std::optional<std::uint64_t> count;
};

WatchSettings parseWatch(Words words)
{
    WatchSettings settings;
    bool hasPeriod = false;
    for (; !words.empty(); words = words.subspan(1)) {
        if (words[0] == "--count" && words.size() > 1) {
            constexpr std::uint64_t most = 1000000;
            settings.count = parseNumber(words[1], most);
            words = words.subspan(1);
        } else if (words[0] != "--count" && !hasPeriod) {
            settings.period = parsePeriod(words[0]);
            hasPeriod = true;
        } else {
            throw BadUsage(fmt::format("\"{}\" isn't PERIOD or --count N", words[0]));
        }
    }
    if (settings.count == 0U || settings.period == stopPeriod) {
        throw BadUsage("0 is nothing to watch");
    }
    return settings;
}

void show(CommandContext& context, const TemperaturePlot& plot, std::uint8_t period)
{
    const Screen screen = currentScreen();
    const auto count = static_cast<std::int64_t>(plot.indications());
    LiveReport view{{"temperatures", {{"indication", count}}, "hotSpots", plot.rows(), {}}, {}, {plot.printLine()}};
    view.report.lines = plot.print({.width = screen.columns, .drawsBlocks = screen.isUtf8});
    view.title = fmt::format("hot spots in degrees Celsius, every {} s, indication {}", period, count);
    context.printer().live(context.client(), view);
}

/// Draws what arrives until there is enough of it, Ctrl-C, or the server is gone.
Outcome watchIndications(CommandContext& context, const WatchSettings& settings, std::uint64_t since, unsigned losses)
{
    TemperaturePlot plot;
    const auto isIndication = [](const Signal& signal) { return signal.number() == OmlaVornTempMeasIndS::number; };
    const auto isEnough = [&] { return settings.count && plot.indications() >= *settings.count; };
    const auto takeAll = [&] {
        while (!isEnough()) {
            const auto signal = context.client().inbox().take(isIndication, since);
            if (!signal) {
                return;
            }
            if (const auto indication = recordOf<OmlaVornTempMeasIndS>(*signal)) {
                plot.apply(*indication);
                show(context, plot, settings.period);
            }
        }
    };
    const auto isOver = [&] {
        takeAll();
        return isEnough() || context.hub().serverLosses() != losses;
    };
    const std::chrono::seconds measured{static_cast<std::int64_t>(settings.period * settings.count.value_or(0))};
    const auto atMost = measured + measured / 10 + context.options().answerTimeout; // the board's clock isn't ours
    const auto end = settings.count ? ClientHub::Clock::now() + atMost : ClientHub::Clock::time_point::max();
    context.printer().progress(fmt::format("the first temperatures come within {} s", settings.period));
    const WaitResult result = context.hub().waitUntil(isOver, end);
    context.printer().endProgress();
    if (result == WaitResult::fulfilled && !isEnough()) {
        return {Verdict::noServer, fmt::format("\"{}\" went away", ClientHub::serverName), {}};
    }
    if (result == WaitResult::timedOut) {
        return {Verdict::timedOut,
                fmt::format("expected {} indications, came: {}", *settings.count, plot.indications()),
                {}};
    }
    const bool endsSession = result == WaitResult::interrupted && context.playDepth > 0;
    return endsSession ? Outcome{Verdict::interrupted, "interrupted", {}} : Outcome{};
}

Outcome watch(CommandContext& context, Words words)
{
    const WatchSettings settings = parseWatch(words);
    const InterruptibleWaits interrupt(context.hub());
    if (Outcome connected = context.beConnected(); connected.verdict != Verdict::ok) {
        return connected;
    }
    const LivePrinting live(context.printer());
    const std::uint64_t mark = context.client().inbox().nextSequence();
    const unsigned losses = context.hub().serverLosses();
    if (Outcome started = measure(context, settings.period); started.verdict != Verdict::ok) {
        return started;
    }
    Outcome watched = watchIndications(context, settings, mark, losses);
    if (watched.verdict == Verdict::noServer) {
        return watched;
    }
    const UninterruptedWaits uninterrupted(context.hub());
    Outcome stopped = measure(context, stopPeriod);
    return watched.verdict != Verdict::ok ? watched : stopped;
}

Outcome temperature(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    if (words[0] == "watch" || words[0] == "--watch") {
        return watch(context, words.subspan(1));
    }
    requireWords(words, 1, 1);
    return measure(context, words[0] == "stop" ? stopPeriod : parsePeriod(words[0]));
}

std::vector<std::string> complete(Words words)
{
    if (words.size() == 1) {
        return {"stop", "watch"};
    }
    return words[0] == "stop" ? std::vector<std::string>{} : std::vector<std::string>{"--count"};
}

} // namespace

void addTemperatureCommands(CommandTable& table)
{
    table.add({"temp", "{ PERIOD | stop | watch [PERIOD] [--count N] }",
               "have the hot spots' temperatures indicated every PERIOD seconds, or no longer; draw them, every second "
               "by default, until Ctrl-C or so many indications, and stop (also spelt --watch)",
               temperature, complete});
}

} // namespace VornClient
