/// Ostinel::EventLoop: one event loop per thread, on sd-event.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace Ostinel::EventLoop::V1 {

/// Callbacks run on the thread whose loop it is. All operations but post and stop belong to that thread. A callback
/// may add and remove anything, itself included. An exception that leaves a callback is reported on standard error
/// and dropped.
class EventLoopIf
{
public:
    /// The loop of the calling thread, made on first use; it lives as long as the thread.
    static EventLoopIf& getInstance();

    virtual ~EventLoopIf() = default;

    /// Calls `callback` with `fd` whenever one of `events` (EPOLLIN and its like) holds, level-triggered.
    /// Returns 0, or an errno value: EEXIST where the descriptor is there already, EBADF, ...
    virtual int addFd(int fd, std::uint32_t events, std::function<void(int)> callback) = 0;

    /// Changes the events of a descriptor. Returns 0 or ENOENT.
    virtual int modifyFd(int fd, std::uint32_t events) = 0;

    /// Returns 0 or ENOENT.
    virtual int removeFd(int fd) = 0;

    /// Calls `callback` once after `delay`, unless removed. Returns the timer's id, never 0.
    virtual std::uint32_t addTimer(std::chrono::microseconds delay, std::function<void()> callback) = 0;

    /// A timer that has fired or is unknown is ignored.
    virtual void removeTimer(std::uint32_t id) = 0;

    /// Runs `function` once on the loop's thread, in the order posted. May be called from any thread, as long as the
    /// loop's thread lives.
    virtual void post(std::function<void()> function) = 0;

    /// Dispatches until stop.
    virtual void run() = 0;

    /// Waits up to `timeout` (negative: for ever) and dispatches what is ready.
    virtual void runOnce(std::chrono::microseconds timeout) = 0;

    /// Ends run. May be called from any thread, as long as the loop's thread lives.
    virtual void stop() = 0;
};

} // namespace Ostinel::EventLoop::V1
