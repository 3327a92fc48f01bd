/// Session files: one command a line, played in order until one doesn't end as expected.
#pragma once

#include "vornclient/command.h"

#include <istream>
#include <string>
#include <vector>

namespace VornClient {

/// A line of a session file that is neither blank nor a comment.
struct SessionStep {
    int line = 0;
    std::string text;
    std::vector<std::string> words;
};

/// Reads the steps, with the environment's value in place of each ${NAME}. Throws BadUsage with "file:line" for a quote
/// that isn't closed, for an unknown command and for a variable that isn't set, so that a misspelt file does nothing
/// rather than half of it.
std::vector<SessionStep> readSession(std::istream& input, const std::string& file, const CommandTable& table);

/// Plays the steps of a file. The message of a failure begins with "file:line: command: ".
Outcome playSession(CommandContext& context, const std::string& path);

} // namespace VornClient
