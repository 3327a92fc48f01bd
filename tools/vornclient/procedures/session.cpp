/// What session files are made of besides the procedures: rejects that are expected, the unit's own command line,
/// further session files.
#include "vornclient/session.h"

#include "ostinel/commandClient.h"
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sstream>

namespace VornClient {

namespace {

Outcome expectReject(CommandContext& context, Words words)
{
    std::optional<std::string> text;
    if (words.size() > 2 && words[words.size() - 2] == "with") {
        text = words.back();
        words = words.first(words.size() - 2);
    }
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

struct UnitResult {
    Outcome outcome;
    std::string output;
};

UnitResult runUnitCommand(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    std::ostringstream output;
    const auto result = Ostinel::CommandClient::run({words.begin(), words.end()}, output);
    const std::string command = fmt::format("{}", fmt::join(words, " "));
    UnitResult unit{{}, output.str()};
    context.printer().unitOutput(command, unit.output, result.error ? 0 : result.exitCode);
    if (result.error == Ostinel::CommandClient::RunError::notFound) {
        unit.outcome = {Verdict::failed, fmt::format("no process has the command \"{}\"", words.front()), {}};
    } else if (result.error) {
        unit.outcome = {Verdict::failed, fmt::format("\"{}\" was broken off", command), {}};
    } else if (result.exitCode != 0) {
        unit.outcome = {Verdict::failed, fmt::format("\"{}\" ended with {}", command, result.exitCode), {}};
    }
    return unit;
}

Outcome ulmo(CommandContext& context, Words words)
{
    return runUnitCommand(context, words).outcome;
}

Outcome ulmoExpect(CommandContext& context, Words words)
{
    requireWords(words, 2, SIZE_MAX);
    UnitResult unit = runUnitCommand(context, words.subspan(1));
    if (unit.outcome.verdict == Verdict::ok && unit.output.find(words[0]) == std::string::npos) {
        unit.outcome = {
            Verdict::failed, fmt::format("expected output with \"{}\", came: {}", words[0], unit.output), {}};
    }
    return unit.outcome;
}

Outcome play(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    return playSession(context, words[0]);
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
    table.add({"ulmo-expect", "TEXT WORD...", "the same, and its output has the text", ulmoExpect, nullptr});
    table.add({"play", "FILE", "play a session file: one command a line, # comments", play, nullptr});
}

} // namespace VornClient
