#include "memory.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <numeric>
#include <string>

namespace Endurance {

Memory memoryOf(pid_t process)
{
    std::ifstream status(fmt::format("/proc/{}/status", process));
    Memory memory;
    constexpr std::uint64_t kibibyte = 1024;
    std::string word;
    while (status >> word) {
        std::uint64_t value = 0;
        if (word == "VmRSS:" && status >> value) {
            memory.resident = value * kibibyte;
        } else if (word == "RssAnon:" && status >> value) {
            memory.anonymous = value * kibibyte;
        }
    }
    return memory;
}

namespace {

template <typename Iterator>
double mean(Iterator begin, Iterator end)
{
    const double sum = std::accumulate(begin, end, 0.0, [](double total, const auto& s) { return total + s.rest(); });
    return sum / static_cast<double>(std::max<std::ptrdiff_t>(end - begin, 1));
}

} // namespace

MemoryTrend trendOf(const std::vector<MemorySample>& samples, double from)
{
    std::vector<MemorySample> used;
    std::copy_if(samples.begin(), samples.end(), std::back_inserter(used),
                 [from](const MemorySample& sample) { return sample.time >= from; });
    MemoryTrend trend;
    trend.samples = used.size();
    if (used.size() < 3) {
        return trend;
    }
    constexpr double perMinute = 60;
    const auto count = static_cast<double>(used.size());
    double time = 0;
    for (const MemorySample& sample : used) {
        time += sample.time / count;
    }
    const double middle = mean(used.begin(), used.end());
    double covariance = 0;
    double variance = 0;
    for (const MemorySample& sample : used) {
        covariance += (sample.time - time) * (sample.rest() - middle);
        variance += (sample.time - time) * (sample.time - time);
    }
    trend.slope = variance > 0 ? covariance / variance * perMinute : 0;
    const auto tenth = static_cast<std::ptrdiff_t>(std::max<std::size_t>(used.size() / 10, 1));
    trend.growth = mean(used.end() - tenth, used.end()) - mean(used.begin(), used.begin() + tenth);
    const auto [lowest, highest] = std::minmax_element(
        used.begin(), used.end(), [](const auto& left, const auto& right) { return left.rest() < right.rest(); });
    trend.spread = highest->rest() - lowest->rest();
    return trend;
}

} // namespace Endurance
