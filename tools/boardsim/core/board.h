/// What a server of the board can do to the board as a whole.
#pragma once

#include <chrono>

namespace boardsim {

/// May be called from any thread, a server's own too: it is done a little later, on a thread that waits for servers.
class Board
{
public:
    virtual ~Board() = default;

    /// Takes all servers that run down, and after the time up again. While that goes on, a further order is dropped.
    virtual void restart(std::chrono::milliseconds down) = 0;

    /// Ends the deep sleep.
    virtual void wakeUp() = 0;
};

} // namespace boardsim
