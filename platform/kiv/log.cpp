#include "kiv/log.h"

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace kiv {
namespace {

constexpr std::uint64_t mostLines = 20; ///< a second

bool isTooMany()
{
    // The second and how many lines it saw, in one word.
    static std::atomic<std::uint64_t> seen = 0;
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const auto second = static_cast<std::uint64_t>(std::chrono::floor<std::chrono::seconds>(now).count());
    std::uint64_t before = seen;
    std::uint64_t after = 0;
    do {
        after = before >> 32 == second ? before + 1 : second << 32 | 1;
    } while (!seen.compare_exchange_weak(before, after));
    return (after & 0xFFFFFFFF) > mostLines;
}

bool wouldBlock()
{
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    // Also not where nobody reads it any more, which would raise SIGPIPE.
    return ::poll(&output, 1, 0) != 1 || (output.revents & (POLLOUT | POLLERR | POLLHUP | POLLNVAL)) != POLLOUT;
}

} // namespace

void logLine(const char* format, ...)
{
    if (isTooMany() || wouldBlock()) {
        return;
    }
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // One call, so that lines of several processes do not mix.
    ::dprintf(STDERR_FILENO, "kiv[%d]: %s\n", static_cast<int>(::getpid()), text);
}

} // namespace kiv
