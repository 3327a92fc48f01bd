/// What the steps of a test have in common, whoever plays them.
#pragma once

#include <chrono>
#include <stdexcept>

namespace TestUnit {

constexpr std::chrono::seconds deadline{10};

/// Ends a test whose step didn't get what it waits for.
struct StepFailed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace TestUnit
