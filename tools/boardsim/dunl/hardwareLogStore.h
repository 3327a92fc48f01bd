/// Where the board keeps its hardware logs: a file a log, so that they outlive the simulator.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace boardsim {

struct LogEntry {
    std::string label;
    std::string serverRef; ///< of the client whose entry it is; empty where that isn't told
    std::string text;
};

class HardwareLogStore
{
public:
    static constexpr std::uint32_t maxLog = 999;

    /// The oldest entry first; nothing: the log was never written. Throws std::runtime_error.
    static std::optional<std::vector<LogEntry>> read(std::uint32_t log);

    /// Adds the entries. What doesn't fit any more goes, the oldest first. Throws std::runtime_error, with nothing
    /// changed, when they can't be kept.
    static void append(std::uint32_t log, const std::vector<LogEntry>& entries);

    /// As if it had never been written. Throws std::runtime_error.
    static void clear(std::uint32_t log);
};

} // namespace boardsim
