/// Functions that wait for a thread.
///
/// The queue outlives the thread that empties it for as long as anyone holds it: a post that comes too late is refused
/// and touches nothing that is gone.
#pragma once

#include "uniqueFd.h"

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace Ostinel {

class PostQueue
{
public:
    /// Throws std::system_error where no descriptor can be had.
    PostQueue();

    /// Readable while functions wait or after wake.
    int fd() const { return m_event.get(); }

    /// Returns false, and drops the function, where the queue is closed. Any thread.
    bool post(std::function<void()> function);

    /// Makes the descriptor readable until the next runNext. Any thread.
    void wake();

    /// Runs the function that has waited longest, if there is one.
    void runNext();

    /// Drops what waits and refuses what comes.
    void close();

    bool isClosed() const;

private:
    void clearEvent();

    mutable std::mutex m_mutex;
    std::deque<std::function<void()>> m_waiting;
    bool m_closed = false;
    UniqueFd m_event;
};

/// The queue of the calling thread's event loop, for posts that may come when the thread has ended.
std::shared_ptr<PostQueue> currentLoopQueue();

} // namespace Ostinel
