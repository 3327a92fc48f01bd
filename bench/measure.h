/// What is measured of a way to exchange messages, and how figures of several rounds become one.
#pragma once

#include <chrono>
#include <stdexcept>
#include <vector>

namespace Bench {

constexpr unsigned messageSize = 128;
constexpr unsigned inFlight = 64;
/// Nothing that is waited for takes as long as this; a run that hangs fails.
constexpr std::chrono::seconds patience{20};

struct Failed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A way to a partner that sends every message back. Both calls block, at most for the time of `patience`.
class Channel
{
public:
    Channel() = default;
    virtual ~Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    virtual void send() = 0;
    virtual void receive() = 0;
};

/// Of many times, in their unit.
struct Spread {
    double median;
    double p99;
};
Spread spreadOf(std::vector<double> times);

/// One message in flight. In microseconds.
Spread measureRoundTrips(Channel& channel, unsigned count);
/// Messages a second that go and come back while `inFlight` are on their way.
double measureThroughput(Channel& channel, unsigned count);

double median(std::vector<double> values);
/// The median of the ratios of each round: both sides of a ratio were measured one right after the other.
double medianRatio(const std::vector<double>& values, const std::vector<double>& references);

} // namespace Bench
