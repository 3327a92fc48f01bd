/// Which signals the tests cover, for the signal reference.
///
/// The peers that a test plays note each signal that it sends as a record to the server, and each to a client that it
/// has expected and got; bytes that a test throws at the server aren't noted. Where VORN_SIGNAL_COVERAGE names a
/// directory, each test that has noted something and has passed leaves a file there: its name, then the signals'
/// numbers, a line each.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>

namespace SignalCoverage {

/// The running test covers this signal.
void note(std::uint32_t number);

/// While one lives nothing is noted: for what peers send in the course of every test.
class Pause
{
public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
};

/// Writes the files.
class Listener : public ::testing::EmptyTestEventListener
{
private:
    void OnTestStart(const ::testing::TestInfo& test) override;
    void OnTestEnd(const ::testing::TestInfo& test) override;
};

} // namespace SignalCoverage
