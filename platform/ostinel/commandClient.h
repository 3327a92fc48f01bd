/// The other end of the command registry: finds and runs commands of the unit's processes.
///
/// A process with commands has the socket "$RU_DIR/cmd/<pid>" and, for each command, the link "$RU_DIR/cmd/<name>" to
/// it. A client connects and sends the command's words, each ended by a zero byte, with an empty word at the end. The
/// process answers with blocks of a 32-bit big-endian length and that many bytes of output, then the length 0xFFFFFFFF
/// and the exit code, 32 bits big-endian.
#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace Ostinel::CommandClient {

/// Splits a line into words as a shell does for blanks, single and double quotes and backslashes.
/// Nothing where a quote isn't closed.
std::optional<std::vector<std::string>> splitLine(const std::string& line);

/// Names of all commands of living processes, sorted.
std::vector<std::string> listCommands();

enum class RunError {
    notFound,  ///< no process has a command of this name
    brokenOff, ///< the process closed the connection before the exit code
    timedOut,
    interrupted,
};

struct RunResult {
    std::optional<RunError> error;
    int exitCode = 0; ///< valid without error
};

/// What ends the waiting for a command that doesn't end; the command isn't told.
struct RunLimits {
    std::optional<std::chrono::steady_clock::time_point> deadline;
    int interruptFd = -1; ///< RunError::interrupted as soon as it is readable; -1 for none
};

/// Runs a command, its output written to `out` as it comes. Blocks until the command has ended.
/// Empty words are left out: the process would take one for the end.
RunResult run(const std::vector<std::string>& words, std::ostream& out, const RunLimits& limits = {});

} // namespace Ostinel::CommandClient
