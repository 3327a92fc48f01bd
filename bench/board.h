/// The fewest board servers and the fastest legacy server that vornserver publishes itself for.
#pragma once

#include "channels.h"

namespace Bench {

/// Plays the legacy, DUNL, FESK and yarrowi servers on one thread: confirms what is asked of it at once, and sends
/// every other signal to the legacy server back.
void runBoard(const Ready& ready);

} // namespace Bench
