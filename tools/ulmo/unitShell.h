/// The unit's command line: runs lines in whichever process registered their command.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace UnitShell {

/// Exit codes that aren't a command's own.
enum ExitCode : int {
    ok = 0,
    brokenOff = 1, ///< the process went away before the command had ended
    badLine = 2,   ///< a quote isn't closed
    unknownCommand = 127,
};

/// Runs one command, its output on standard output as it comes. Returns its exit code.
int runWords(const std::vector<std::string>& words);

/// Runs each line that isn't blank or a comment. Returns the exit code of the last one that failed, or 0.
int runLines(std::istream& lines);

/// Reads lines from the terminal until its end, "exit" or "quit". Returns the exit code of the last one.
int runInteractive();

/// Prints the names of all commands, one a line.
void printCommands();

} // namespace UnitShell
