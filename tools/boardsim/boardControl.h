/// The hand on the simulated board's switch: what servers order for the board as a whole is done here.
#pragma once

#include "tools/boardsim/core/board.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace boardsim {

/// A server can't stop itself and wait for that, so a thread of its own carries the orders out. An order that comes
/// before `begin` waits for it; one behind `end` is dropped.
class BoardControl : public Board
{
public:
    struct Actions {
        std::function<void()> wakeUp;
        std::function<std::function<void()>()> takeDown; ///< returns what brings up again what it took down
    };

    BoardControl() = default;
    ~BoardControl() override { end(); }
    BoardControl(const BoardControl&) = delete;
    BoardControl& operator=(const BoardControl&) = delete;

    void begin(Actions actions);

    /// Waits for the action that goes on. A board that is down by then stays down. Not from a server's thread.
    void end();

    void restart(std::chrono::milliseconds down) override;
    void wakeUp() override;

private:
    using Lock = std::unique_lock<std::mutex>;

    void carryOut();
    void doRestart(Lock& lock);
    void pause(Lock& lock, std::chrono::milliseconds time);

    Actions m_actions;
    std::thread m_thread;

    std::mutex m_mutex; ///< of what follows
    std::condition_variable m_changed;
    bool m_isEnded = false;
    bool m_isWakeUpOrdered = false;
    std::optional<std::chrono::milliseconds> m_restart; ///< ordered, until it is done
};

} // namespace boardsim
