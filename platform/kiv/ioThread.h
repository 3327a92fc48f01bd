/// The one thread that the library runs in a process ("kiv-io").
///
/// It waits for everything that must go on without the program's threads: peers that connect or die, sockets that take
/// data again, new names, time-outs. What it waits for is a Handler; events find it by a token that is never used
/// twice, so a late event for something that was removed finds nothing.
///
/// Threads: all functions can be called from all threads; handlers, posted calls and time-outs run on the thread
/// itself, one after the other. Its lock is a leaf: nothing is called with it held.
#pragma once

#include "kiv/descriptor.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <unordered_map>
#include <vector>

namespace kiv {

class Handler
{
public:
    Handler() = default;
    virtual ~Handler() = default;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;

    /// On the I/O thread. `events` as of epoll.
    virtual void onEvents(std::uint32_t events) = 0;
};

/// Starts a detached thread that takes no signals: those of the program are for the program's threads. Returns 0 or an
/// errno value.
int startThread(const char* name, void* (*threadMain)(void*), void* argument);

class IoThread
{
public:
    using Clock = std::chrono::steady_clock;
    using Call = std::function<void()>;

    /// Starts the thread where it doesn't run yet. Returns 0 or an errno value.
    int start();

    /// A token for the other two, or 0 where the system can't watch it.
    std::uint64_t add(int descriptor, std::uint32_t events, std::shared_ptr<Handler> handler);
    void modify(std::uint64_t token, int descriptor, std::uint32_t events);
    void remove(std::uint64_t token, int descriptor);

    void post(Call call);
    void after(Clock::duration delay, Call call);

private:
    static void* threadMain(void* self);
    void run();
    void round();
    Clock::duration waitTime();
    void dispatch(std::uint64_t token, std::uint32_t events);
    void runCalls();
    void wake();

    std::atomic<pthread_t> m_thread{};
    std::mutex m_mutex;
    std::atomic<bool> m_running = false;
    Descriptor m_epoll;
    Descriptor m_wake;
    std::uint64_t m_lastToken = 0; ///< token 0 is the wake-up itself
    std::unordered_map<std::uint64_t, std::shared_ptr<Handler>> m_handlers;
    std::vector<Call> m_posted;
    std::multimap<Clock::time_point, Call> m_timed;
};

} // namespace kiv
