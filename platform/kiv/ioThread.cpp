#include "kiv/ioThread.h"

#include "kiv/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace kiv {
namespace {

/// What is thrown in one call must not keep the others from running.
template <typename Call>
void guarded(const Call& call)
{
    try {
        call();
    } catch (const std::exception& error) {
        logLine("the I/O thread goes on after: %s", error.what());
    }
}

} // namespace

int startThread(const char* name, void* (*threadMain)(void*), void* argument)
{
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, threadMain, argument);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (error == 0) {
        pthread_setname_np(thread, name);
        pthread_detach(thread);
    }
    return error;
}

int IoThread::start()
{
    if (m_running) {
        return 0;
    }
    // Made and closed without the lock.
    Descriptor epoll;
    Descriptor wake;
    {
        const DescriptorScope scope;
        epoll = Descriptor(::epoll_create1(EPOLL_CLOEXEC));
        wake = Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    epoll_event event{};
    event.events = EPOLLIN;
    if (!epoll || !wake || ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, wake.get(), &event) != 0) {
        return errno;
    }
    const std::lock_guard lock(m_mutex);
    if (m_running) {
        return 0;
    }
    std::swap(m_epoll, epoll);
    std::swap(m_wake, wake);
    const int error = startThread("kiv-io", threadMain, this);
    m_running = error == 0;
    return error;
}

void* IoThread::threadMain(void* self)
{
    static_cast<IoThread*>(self)->run();
    return nullptr;
}

void IoThread::run()
{
    m_thread = pthread_self();
    for (;;) {
        guarded([this] { round(); });
    }
}

void IoThread::round()
{
    std::array<epoll_event, 64> events;
    const auto wait = waitTime();
    const timespec limit{wait / std::chrono::seconds(1),
                         std::chrono::nanoseconds(wait % std::chrono::seconds(1)).count()};
    const int count = ::epoll_pwait2(m_epoll.get(), events.data(), static_cast<int>(events.size()), &limit, nullptr);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        if (event.data.u64 != 0) {
            dispatch(event.data.u64, event.events);
            continue;
        }
        std::uint64_t wakes = 0;
        if (::read(m_wake.get(), &wakes, sizeof wakes) < 0) {
            continue;
        }
    }
    runCalls();
}

IoThread::Clock::duration IoThread::waitTime()
{
    constexpr Clock::duration longest = std::chrono::minutes(1);
    const std::lock_guard lock(m_mutex);
    if (!m_posted.empty()) {
        return Clock::duration::zero();
    }
    return m_timed.empty() ? longest
                           : std::clamp(m_timed.begin()->first - Clock::now(), Clock::duration::zero(), longest);
}

void IoThread::dispatch(std::uint64_t token, std::uint32_t events)
{
    std::shared_ptr<Handler> handler;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_handlers.find(token);
        if (found == m_handlers.end()) {
            return;
        }
        handler = found->second;
    }
    guarded([&] { handler->onEvents(events); });
}

void IoThread::runCalls()
{
    std::vector<Call> calls;
    {
        const std::lock_guard lock(m_mutex);
        const auto now = Clock::now();
        while (!m_timed.empty() && m_timed.begin()->first <= now) {
            m_posted.push_back(std::move(m_timed.begin()->second));
            m_timed.erase(m_timed.begin());
        }
        calls.swap(m_posted);
    }
    for (const Call& call : calls) {
        guarded(call);
    }
}

void IoThread::wake()
{
    if (pthread_equal(m_thread, pthread_self()) != 0) {
        return; // it looks before it waits
    }
    const std::uint64_t one = 1;
    if (::write(m_wake.get(), &one, sizeof one) < 0) {
        return; // it is set already
    }
}

std::uint64_t IoThread::add(int descriptor, std::uint32_t events, std::shared_ptr<Handler> handler)
{
    std::shared_ptr<Handler> removed; // its destructor may come back here
    const std::lock_guard lock(m_mutex);
    const std::uint64_t token = ++m_lastToken;
    const auto added = m_handlers.emplace(token, std::move(handler)).first;
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
        removed = std::move(added->second);
        m_handlers.erase(added);
        return 0;
    }
    return token;
}

void IoThread::modify(std::uint64_t token, int descriptor, std::uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = token;
    ::epoll_ctl(m_epoll.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void IoThread::remove(std::uint64_t token, int descriptor)
{
    std::shared_ptr<Handler> removed; // its destructor may come back here
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_handlers.find(token); found != m_handlers.end()) {
        removed = std::move(found->second);
        m_handlers.erase(found);
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, descriptor, nullptr);
    }
}

void IoThread::post(Call call)
{
    {
        const std::lock_guard lock(m_mutex);
        m_posted.push_back(std::move(call));
    }
    wake();
}

void IoThread::after(Clock::duration delay, Call call)
{
    {
        const std::lock_guard lock(m_mutex);
        m_timed.emplace(Clock::now() + delay, std::move(call));
    }
    wake();
}

} // namespace kiv
