#include "tools/boardsim/boardControl.h"

#include <utility>

namespace boardsim {

namespace {

// For what has been sent before a restart to be received: a client loses the board with its next look at the mailbox.
constexpr std::chrono::milliseconds notice(50);

} // namespace

void BoardControl::begin(Actions actions)
{
    m_actions = std::move(actions);
    m_thread = std::thread([this] { carryOut(); });
}

void BoardControl::end()
{
    {
        const Lock lock(m_mutex);
        m_isEnded = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void BoardControl::restart(std::chrono::milliseconds down)
{
    const Lock lock(m_mutex);
    if (!m_restart) {
        m_restart = down;
        m_changed.notify_all();
    }
}

void BoardControl::wakeUp()
{
    const Lock lock(m_mutex);
    m_isWakeUpOrdered = true;
    m_changed.notify_all();
}

void BoardControl::carryOut()
{
    Lock lock(m_mutex);
    while (!m_isEnded) {
        m_changed.wait(lock, [this] { return m_isEnded || m_isWakeUpOrdered || m_restart; });
        if (m_isEnded) {
            return;
        }
        if (std::exchange(m_isWakeUpOrdered, false)) {
            lock.unlock();
            m_actions.wakeUp();
            lock.lock();
        } else {
            doRestart(lock);
        }
    }
}

/// The lock is open while an action waits for servers, which may be giving an order.
void BoardControl::doRestart(Lock& lock)
{
    const std::chrono::milliseconds down = *m_restart;
    pause(lock, notice);
    lock.unlock();
    const std::function<void()> bringUp = m_actions.takeDown();
    lock.lock();
    pause(lock, down);
    if (!m_isEnded) {
        lock.unlock();
        bringUp();
        lock.lock();
    }
    m_restart.reset();
}

void BoardControl::pause(Lock& lock, std::chrono::milliseconds time)
{
    m_changed.wait_for(lock, time, [this] { return m_isEnded; });
}

} // namespace boardsim
