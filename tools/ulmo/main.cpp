/// ulmo: the unit's command line.
#include "ulmo/unitShell.h"

#include <clocale>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* usage = "Usage: ulmo COMMAND [WORD...]\n"
                              "       ulmo --list\n"
                              "       ulmo\n"
                              "\n"
                              "Sends a command line to the process of the unit that registered the command, prints\n"
                              "its output and exits with its code. Without a command it reads lines: from the\n"
                              "terminal with history and completion, otherwise from standard input, where the exit\n"
                              "code is that of the last line that failed.\n"
                              "\n"
                              "  --list        print the names of all commands\n"
                              "  -h, --help    print this text\n"
                              "\n"
                              "Exit codes of its own: 127 no such command, 1 broken off, 2 a quote isn't closed.\n"
                              "RU_DIR is the unit's run-time directory, by default /run/ru.\n";

int run(const std::vector<std::string>& words)
{
    if (words.empty()) {
        return ::isatty(STDIN_FILENO) != 0 ? UnitShell::runInteractive() : UnitShell::runLines(std::cin);
    }
    // Only the first word is ulmo's: all behind it, dashes included, is the command's.
    if (words.front() == "--help" || words.front() == "-h") {
        fmt::print("{}", usage);
        return UnitShell::ok;
    }
    if (words.front() == "--list") {
        UnitShell::printCommands();
        return UnitShell::ok;
    }
    return UnitShell::runWords(words);
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    std::cout << std::unitbuf;
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        fmt::print(stderr, "ulmo: {}\n", error.what());
        return UnitShell::brokenOff;
    }
}
