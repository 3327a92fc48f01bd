#include "tools/boardsim/core/console.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fmt/format.h>
#include <mutex>

namespace boardsim::console {

namespace {

std::atomic<bool> verbose{false};
std::mutex outputMutex;

std::string timeOfDay()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    return fmt::format("{:02}:{:02}:{:02}.{:03}", parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds);
}

} // namespace

void setVerbose(bool wanted)
{
    verbose = wanted;
}

bool isVerbose()
{
    return verbose;
}

void traffic(std::string_view server, std::string_view text)
{
    if (!verbose) {
        return;
    }
    const std::string line = fmt::format("{} {:<7} {}\n", timeOfDay(), server, text);
    const std::lock_guard lock(outputMutex);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

} // namespace boardsim::console
