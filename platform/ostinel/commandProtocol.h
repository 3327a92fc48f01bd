/// What goes over a command's connection, told in commandClient.h, and the limits on it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Ostinel {

constexpr std::size_t longestLine = 64 * 1024;  ///< bytes of all words with their zeros and the end
constexpr std::size_t longestBlock = 64 * 1024; ///< what this side puts into a block; it takes any length
constexpr std::uint32_t endMark = 0xFFFFFFFF;   ///< instead of a block's length: the exit code follows
constexpr std::size_t lengthSize = 4;
constexpr std::size_t largestConnections = 64;    ///< connections that a process holds at a time
constexpr unsigned largestOwnThreads = 16;        ///< commands that run on own threads at a time
constexpr std::chrono::seconds lineDeadline(5);   ///< from the connection to the last word
constexpr std::chrono::seconds stallDeadline(60); ///< how long a client may leave output unread

/// Exit codes of what never came to the command's own.
enum : int {
    exitCrashed = 70,  ///< the command threw
    exitNoThread = 71, ///< the system gave no thread
    exitTooMany = 75,  ///< too many commands run
};

void putLength(char* to, std::uint32_t length);
std::uint32_t getLength(const char* from);

/// Output as blocks.
std::string frameOutput(std::string_view output);

/// The end of an answer.
std::string frameEnd(int exitCode);

/// Whether the empty word behind all words has come, where it hadn't among the first `seen` bytes.
bool hasAllWords(std::string_view bytes, std::size_t seen);

/// The words before the empty one.
std::vector<std::string> parseWords(std::string_view bytes);

/// The bytes for some words. Empty words can't be told from the end and are left out.
std::string frameWords(const std::vector<std::string>& words);

/// Sends all of `bytes`, waiting for the other end, but never longer than stallDeadline without progress.
/// False where the other end is gone or stalls.
bool sendAll(int fd, std::string_view bytes);

} // namespace Ostinel
