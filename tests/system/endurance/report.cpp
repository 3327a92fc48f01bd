#include "report.h"

#include <fmt/format.h>

namespace Endurance {

namespace {

constexpr double kibibyte = 1024;

const char* verdict(bool holds)
{
    return holds ? "holds" : "**doesn't hold**";
}

std::string printBounds(const Bounds& bounds)
{
    return bounds.least == bounds.most ? std::to_string(bounds.most)
                                       : fmt::format("{} to {}", bounds.least, bounds.most);
}

std::string printLosses(const Result& result)
{
    std::string text;
    for (unsigned i = 0; i < backEndCount; ++i) {
        text += fmt::format("{}{} {}", i == 0 ? "" : ", ", backEndNames[i], result.losses[i]);
    }
    return text;
}

std::string printPlayed(const Result& result)
{
    std::string text = "| Played | |\n|---|--:|\n";
    const auto row = [&text](const char* what, const auto& value) {
        text += fmt::format("| {} | {} |\n", what, value);
    };
    row("Minutes", fmt::format("{:.1f}", result.settings.minutes));
    row("Seed", result.settings.seed);
    row("Clients at a time", result.settings.clients);
    row("Client processes", result.clientsStarted);
    row("of them killed", result.clientsKilled);
    row("Requests", result.requests);
    row("Answers", result.answers);
    row("Not answered and not owed: a server was away", result.notOwed);
    row("Indications", result.indications);
    row("Servers killed", printLosses(result));
    if (!result.memory.empty()) {
        const MemorySample& last = result.memory.back();
        row("Server's memory at the end, resident, KiB",
            fmt::format("{:.0f}", static_cast<double>(last.memory.resident) / kibibyte));
        row("without what is mapped from files, KiB",
            fmt::format("{:.0f}", static_cast<double>(last.memory.anonymous) / kibibyte));
        row("of that described to stay, about, KiB", fmt::format("{:.0f}", last.staying / kibibyte));
        row("Between the lowest and the highest sample of the rest, KiB",
            fmt::format("{:.0f}", result.trend.spread / kibibyte));
    }
    return text + '\n';
}

} // namespace

std::string printResult(const Result& result)
{
    std::string text = printPlayed(result);
    text += "| Has to hold | Found | Allowed | |\n|---|--:|--:|---|\n";
    for (const Check& check : result.checks) {
        text += fmt::format("| {} | {} | {} | {} |\n", check.what, check.found, check.allowed, verdict(check.holds));
    }
    text += "\n| Left in the server | Found | Allowed | | Why it stays |\n|---|--:|--:|---|---|\n";
    for (const Remaining& row : result.remains) {
        text += fmt::format("| {} | {} | {} | {} | {} |\n", row.what, row.found, printBounds(row.bounds),
                            verdict(row.holds()), row.reason);
    }
    for (const std::string& missing : result.missing) {
        text += fmt::format("\nNo answer: {}", missing);
    }
    return text + '\n';
}

} // namespace Endurance
