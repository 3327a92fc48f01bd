/// What session files are made of besides the procedures: rejects that are expected, the unit's own command line,
/// further session files.
#include "vornclient/session.h"

#include "ostinel/commandClient.h"
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sstream>

namespace VornClient {

namespace {

Outcome expectReject(CommandContext& context, Words words)
{
    const auto text = takeWith(words);
    requireWords(words, 1, SIZE_MAX);
    Outcome outcome = context.table().run(context, words);
    if (outcome.verdict == Verdict::ok) {
        return {Verdict::failed,
                fmt::format("expected a reject, came: {}", outcome.answer ? outcome.answer->print() : "success"),
                {}};
    }
    if (outcome.verdict != Verdict::rejected) {
        return outcome;
    }
    if (text && outcome.answer && outcome.answer->text() != *text) {
        return {Verdict::failed,
                fmt::format("expected a reject with \"{}\", came: {}", *text, outcome.answer->print()),
                {}};
    }
    return {Verdict::ok, "", std::move(outcome.answer)};
}

/// What a command of the unit's command line gave.
struct UnitResult {
    Outcome outcome;
    std::string output;
    std::string command;
    int exitCode = 0;
    bool hasEnded = false; ///< with that exit code
};

UnitResult runUnitCommand(Words words, const Ostinel::CommandClient::RunLimits& limits)
{
    requireWords(words, 1, SIZE_MAX);
    std::ostringstream output;
    const auto result = Ostinel::CommandClient::run({words.begin(), words.end()}, output, limits);
    UnitResult unit{
        {}, output.str(), fmt::format("{}", fmt::join(words, " ")), result.error ? 0 : result.exitCode, !result.error};
    if (result.error == Ostinel::CommandClient::RunError::notFound) {
        unit.outcome = {Verdict::failed, fmt::format("no process has the command \"{}\"", words.front()), {}};
    } else if (result.error == Ostinel::CommandClient::RunError::interrupted) {
        unit.outcome = {Verdict::interrupted, "interrupted", {}};
    } else if (result.error == Ostinel::CommandClient::RunError::timedOut) {
        unit.outcome = {Verdict::timedOut, fmt::format("\"{}\" gave no answer", unit.command), {}};
    } else if (result.error) {
        unit.outcome = {Verdict::failed, fmt::format("\"{}\" was broken off", unit.command), {}};
    } else if (result.exitCode != 0) {
        unit.outcome = {Verdict::failed, fmt::format("\"{}\" ended with {}", unit.command, result.exitCode), {}};
    }
    return unit;
}

void print(CommandContext& context, const UnitResult& unit)
{
    context.printer().unitOutput(unit.command, unit.output, unit.exitCode);
}

Outcome ulmo(CommandContext& context, Words words)
{
    const UnitResult unit = runUnitCommand(words, {std::nullopt, context.hub().interruptFd()});
    print(context, unit);
    return unit.outcome;
}

Outcome unexpectedOutput(const std::string& expected, const std::string& output)
{
    constexpr std::size_t longestShown = 2000;
    return {Verdict::failed,
            fmt::format("expected output with \"{}\", came: {}", expected, printable(output, longestShown)),
            {}};
}

/// Asks again for as long as an answer may take: what the unit does may still be on its way.
Outcome ulmoExpect(CommandContext& context, Words words)
{
    constexpr std::chrono::milliseconds askAgain{20};
    requireWords(words, 2, SIZE_MAX);
    const auto end = ClientHub::Clock::now() + context.options().answerTimeout;
    const Ostinel::CommandClient::RunLimits limits{end, context.hub().interruptFd()};
    UnitResult unit = runUnitCommand(words.subspan(1), limits);
    const auto hasText = [&] { return unit.output.find(words[0]) != std::string::npos; };
    while (unit.outcome.verdict == Verdict::ok && !hasText() && ClientHub::Clock::now() < end) {
        if (context.hub().waitUntil([] { return false; }, ClientHub::Clock::now() + askAgain) ==
            WaitResult::interrupted) {
            return {Verdict::interrupted, "interrupted", {}};
        }
        unit = runUnitCommand(words.subspan(1), limits);
    }
    print(context, unit);
    if (unit.outcome.verdict == Verdict::ok && !hasText()) {
        unit.outcome = unexpectedOutput(words[0], unit.output);
    }
    return unit.outcome;
}

/// What mustn't be done twice, or must fail: asked once, with an exit code and texts.
Outcome ulmoExit(CommandContext& context, Words words)
{
    std::vector<std::string> texts;
    for (auto text = takeWith(words); text; text = takeWith(words)) {
        texts.push_back(*text);
    }
    requireWords(words, 2, SIZE_MAX);
    const auto code = static_cast<int>(parseNumber(words[0], UINT8_MAX));
    UnitResult unit = runUnitCommand(words.subspan(1), {std::nullopt, context.hub().interruptFd()});
    print(context, unit);
    if (!unit.hasEnded) {
        return unit.outcome;
    }
    if (unit.exitCode != code) {
        return {Verdict::failed, fmt::format("expected exit code {}, came: {}", code, unit.exitCode), {}};
    }
    const auto isMissing = [&](const std::string& text) { return unit.output.find(text) == std::string::npos; };
    const auto missing = std::find_if(texts.begin(), texts.end(), isMissing);
    return missing == texts.end() ? Outcome{} : unexpectedOutput(*missing, unit.output);
}

Outcome play(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    return playSession(context, words[0]);
}

std::vector<std::string> sessionFiles(Words words)
{
    return words.size() == 1 ? completePath(words[0]) : std::vector<std::string>{};
}

std::vector<std::string> unitCommands(Words words)
{
    return words.size() == 1 ? Ostinel::CommandClient::listCommands() : std::vector<std::string>{};
}

} // namespace

void addSessionCommands(CommandTable& table)
{
    table.add({"expect-reject", "COMMAND... [with TEXT]", "the command is answered with a reject, of this text",
               expectReject, nullptr});
    table.add({"ulmo", "WORD...", "run a command of the unit's command line; it must end with 0", ulmo, unitCommands});
    table.add({"ulmo-expect", "TEXT WORD...",
               "as ulmo, asked again until its output has the text, for at most the time that an answer may take",
               ulmoExpect, nullptr});
    table.add({"ulmo-exit", "CODE WORD... [with TEXT]...",
               "as ulmo, but it must end with this code, its output having these texts", ulmoExit, nullptr});
    table.add({"play", "FILE",
               "play a session file: one command a line, # comments, ${NAME} for a variable of the environment", play,
               sessionFiles});
}

} // namespace VornClient
