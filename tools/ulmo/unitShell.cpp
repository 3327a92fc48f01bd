#include "ulmo/unitShell.h"

#include "ostinel/commandClient.h"
#include "ulmo/lineEditor.h"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iostream>
#include <optional>

namespace UnitShell {

namespace {

using Ostinel::CommandClient::RunError;

void printUnknown(const std::string& command)
{
    fmt::print(stderr, "ulmo: no process of the unit has the command \"{}\"\n", command);
    const std::vector<std::string> known = Ostinel::CommandClient::listCommands();
    if (known.empty()) {
        fmt::print(stderr, "ulmo: no commands are registered; is the unit running, and is RU_DIR the unit's?\n");
    } else {
        fmt::print(stderr, "ulmo: known commands: {}\n", fmt::join(known, ", "));
    }
}

/// The line's exit code; nothing for a line without words.
std::optional<int> runLine(const std::string& line)
{
    const auto words = Ostinel::CommandClient::splitLine(line);
    if (!words) {
        fmt::print(stderr, "ulmo: a quote isn't closed: {}\n", line);
        return badLine;
    }
    if (words->empty() || words->front().starts_with('#')) {
        return std::nullopt;
    }
    return runWords(*words);
}

std::vector<std::string> complete(const std::vector<std::string>& words)
{
    return words.size() == 1 ? Ostinel::CommandClient::listCommands() : std::vector<std::string>{};
}

bool isFarewell(const std::string& line)
{
    return line == "exit" || line == "quit";
}

} // namespace

int runWords(const std::vector<std::string>& words)
{
    std::cout.flush();
    const auto result = Ostinel::CommandClient::run(words, std::cout);
    std::cout.flush();
    if (!result.error) {
        return result.exitCode;
    }
    switch (*result.error) {
    case RunError::notFound:
        printUnknown(words.front());
        return unknownCommand;
    case RunError::brokenOff:
    case RunError::timedOut:    // these two don't happen
    case RunError::interrupted: // without limits
        break;
    }
    fmt::print(stderr, "ulmo: \"{}\" was broken off: its process closed the connection\n", words.front());
    return brokenOff;
}

int runLines(std::istream& lines)
{
    int failure = ok;
    for (std::string line; std::getline(lines, line);) {
        if (const int code = runLine(line).value_or(ok); code != ok) {
            failure = code;
        }
    }
    return failure;
}

int runInteractive()
{
    LineEditor editor({.program = "ulmo", .prompt = [] { return std::string("ulmo> "); }, .completer = complete});
    int last = ok;
    while (const auto line = editor.readLine()) {
        if (isFarewell(*line)) {
            break;
        }
        last = runLine(*line).value_or(last);
    }
    return last;
}

void printCommands()
{
    for (const std::string& command : Ostinel::CommandClient::listCommands()) {
        fmt::print("{}\n", command);
    }
}

} // namespace UnitShell
