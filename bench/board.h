/// The fewest board servers and the fastest legacy server that vornserver publishes itself for.
#pragma once

#include "channels.h"

#include <cstdint>
#include <string>

namespace Bench {

/// To the DUNL server: it shall raise a fault, or end it, and note the time at `faultTimesPath`.
struct FaultOrder {
    static constexpr std::uint32_t number = 3;
    std::uint32_t msgNo;
    bool isRaise;
};

/// In the run-time directory of this process.
std::string faultTimesPath();

/// Plays the legacy, DUNL, FESK and yarrowi servers on one thread, and the software manager on another: confirms what
/// is asked of it at once, and sends every other signal to the legacy server back.
void runBoard(const Ready& ready);

} // namespace Bench
