#include "measure.h"

#include <algorithm>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;
using Seconds = std::chrono::duration<double>;

double quantile(std::vector<double>& values, double share)
{
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

} // namespace

Spread spreadOf(std::vector<double> times)
{
    const double p99 = quantile(times, 0.99);
    return {quantile(times, 0.5), p99};
}

Spread measureRoundTrips(Channel& channel, unsigned count)
{
    std::vector<double> times;
    times.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        const auto begin = Clock::now();
        channel.send();
        channel.receive();
        times.push_back(Microseconds(Clock::now() - begin).count());
    }
    return spreadOf(std::move(times));
}

double measureThroughput(Channel& channel, unsigned count)
{
    const auto begin = Clock::now();
    for (unsigned sent = 0; sent < inFlight; ++sent) {
        channel.send();
    }
    for (unsigned received = 0; received < count; ++received) {
        channel.receive();
        if (received + inFlight < count) {
            channel.send();
        }
    }
    return count / Seconds(Clock::now() - begin).count();
}

double median(std::vector<double> values)
{
    if (values.empty()) {
        throw Failed("no figures");
    }
    return quantile(values, 0.5);
}

double medianRatio(const std::vector<double>& values, const std::vector<double>& references)
{
    std::vector<double> ratios;
    for (std::size_t i = 0; i < values.size() && i < references.size(); ++i) {
        ratios.push_back(values[i] / references[i]);
    }
    return median(std::move(ratios));
}

} // namespace Bench
