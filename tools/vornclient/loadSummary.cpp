#include "vornclient/loadSummary.h"

#include "vornclient/signal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr double megabyte = 1e6;
constexpr std::size_t nameLimit = 36;

double rate(std::uint64_t bytes, std::chrono::duration<double> time)
{
    return time.count() > 0 ? static_cast<double>(bytes) / time.count() : 0;
}

std::string printLeft(double seconds)
{
    constexpr double longest = 359999; // 99:59:59
    const auto whole = static_cast<unsigned>(std::min(std::ceil(seconds), longest));
    const unsigned hours = whole / 3600;
    const unsigned minutes = whole / 60 % 60;
    return hours > 0 ? fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60)
                     : fmt::format("{}:{:02}", minutes, whole % 60);
}

} // namespace

double LoadSummary::bytesPerSecond() const
{
    return rate(bytes, time);
}

const char* loadResultName(LoadResult result)
{
    switch (result) {
    case LoadResult::loaded:
        return "loaded";
    case LoadResult::alreadyLoaded:
        return "already loaded";
    case LoadResult::running:
        return "already loaded and running";
    case LoadResult::brokenOff:
        break;
    }
    return "broken off";
}

std::string printLoadSummary(const LoadSummary& summary)
{
    std::string line = fmt::format("{}: {}", printable(summary.loadModule, nameLimit), loadResultName(summary.result));
    if (summary.result == LoadResult::loaded || summary.result == LoadResult::brokenOff) {
        line += fmt::format(", {} bytes in {:.2f} s, {:.2f} MB/s", summary.bytes, summary.time.count(),
                            summary.bytesPerSecond() / megabyte);
    }
    return line;
}

std::string printLoadProgress(const std::string& loadModule, std::uint64_t done, std::uint64_t total,
                              std::chrono::duration<double> elapsed)
{
    constexpr std::size_t width = 20;
    const double share = total > 0 ? std::min(static_cast<double>(done) / static_cast<double>(total), 1.0) : 0;
    const auto filled = static_cast<std::size_t>(share * width);
    const double perSecond = rate(done, elapsed);
    const std::uint64_t left = total - std::min(done, total);
    return fmt::format("{} [{}{}] {:3.0f} %  {:.1f} of {:.1f} MB  {:.1f} MB/s  {} left",
                       printable(loadModule, nameLimit), std::string(filled, '#'), std::string(width - filled, '.'),
                       share * 100, static_cast<double>(done) / megabyte, static_cast<double>(total) / megabyte,
                       perSecond / megabyte, perSecond > 0 ? printLeft(static_cast<double>(left) / perSecond) : "-:--");
}

} // namespace VornClient
