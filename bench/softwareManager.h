/// The fewest of a software manager that vornserver starts with and loads to.
#pragma once

namespace Bench {

/// It listens when this returns. Who connects is served by a thread of its own for as long as the process lives: it
/// grants and confirms what it is asked for at once, and throws the blocks of a load away.
void startSoftwareManager();

} // namespace Bench
