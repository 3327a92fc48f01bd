// One sd-event loop per thread, with three kinds of sources: a source per watched descriptor, one time source for the
// earliest of all timers, so that timers fire in the order of their deadlines, and the descriptor of the post queue.

#include "ostinel/eventLoop.h"

#include "kiv/loop.h"
#include "ostinel/guarded.h"
#include "ostinel/postQueue.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <set>
#include <sys/epoll.h>
#include <system_error>
#include <systemd/sd-event.h>
#include <unordered_map>
#include <utility>

namespace Ostinel {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr std::uint64_t exactTime = 1; ///< microseconds; 0 would let sd-event be late by a quarter of a second
/// A mailbox's messages that lie in memory already are reported one after the other, without asking the system again.
/// After so many the others have their turn.
constexpr int maxRow = 64;
constexpr microseconds longestDelay = std::chrono::hours(24 * 365 * 100);

struct Unref {
    void operator()(sd_event* event) const { sd_event_unref(event); }
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
};
using SourcePtr = std::unique_ptr<sd_event_source, Unref>;

/// A watched descriptor. A callback that removes its own descriptor runs on: the dispatch holds the watch.
struct Watch : std::enable_shared_from_this<Watch> {
    explicit Watch(std::function<void(int)> function) : callback(std::move(function)) {}

    /// Whether it is still watched, and for something to read.
    bool isReported() const
    {
        std::uint32_t events = 0;
        return source && sd_event_source_get_io_events(source.get(), &events) >= 0 && (events & EPOLLIN) != 0;
    }

    std::function<void(int)> callback;
    SourcePtr source;
};

struct Timer {
    microseconds deadline; ///< on the steady clock
    std::function<void()> callback;
};

void check(int result, const char* what)
{
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), what);
    }
}

class SdEventLoop final : public EventLoop::V1::EventLoopIf
{
public:
    static SdEventLoop& current()
    {
        static thread_local SdEventLoop loop;
        return loop;
    }

    SdEventLoop();
    ~SdEventLoop() override;
    SdEventLoop(const SdEventLoop&) = delete;
    SdEventLoop& operator=(const SdEventLoop&) = delete;

    int addFd(int fd, std::uint32_t events, std::function<void(int)> callback) override;
    int modifyFd(int fd, std::uint32_t events) override;
    int removeFd(int fd) override;
    std::uint32_t addTimer(microseconds delay, std::function<void()> callback) override;
    void removeTimer(std::uint32_t id) override;
    void post(std::function<void()> function) override { m_queue->post(std::move(function)); }
    void run() override;
    void runOnce(microseconds timeout) override;
    void stop() override;

    const std::shared_ptr<PostQueue>& queue() const { return m_queue; }

private:
    static int onFd(sd_event_source* source, int fd, std::uint32_t revents, void* watch);
    static int onTime(sd_event_source* source, std::uint64_t usec, void* loop);
    static int onPost(sd_event_source* source, int fd, std::uint32_t revents, void* loop);

    int dispatch(std::uint64_t timeout);
    void runFirstTimer();
    void armTimer();

    std::unique_ptr<sd_event, Unref> m_event;
    std::shared_ptr<PostQueue> m_queue = std::make_shared<PostQueue>();
    SourcePtr m_queueSource;
    SourcePtr m_timeSource;
    std::unordered_map<int, std::shared_ptr<Watch>> m_watches;
    std::unordered_map<std::uint32_t, Timer> m_timers;
    std::set<std::pair<microseconds, std::uint32_t>> m_timerOrder;
    std::uint32_t m_lastTimer = 0;
    std::atomic<bool> m_stop = false;
};

SdEventLoop::SdEventLoop()
{
    sd_event* event = nullptr;
    check(sd_event_new(&event), "sd_event_new");
    m_event.reset(event);

    sd_event_source* source = nullptr;
    check(sd_event_add_io(event, &source, m_queue->fd(), EPOLLIN, onPost, this), "sd_event_add_io");
    m_queueSource.reset(source);
    check(sd_event_add_time(event, &source, CLOCK_MONOTONIC, UINT64_MAX, exactTime, onTime, this), "sd_event_add_time");
    m_timeSource.reset(source);
    check(sd_event_source_set_enabled(source, SD_EVENT_OFF), "sd_event_source_set_enabled");
}

SdEventLoop::~SdEventLoop()
{
    m_queue->close();
    // One by one: what a callback holds may remove others when it goes.
    while (!m_timers.empty()) {
        removeTimer(m_timers.begin()->first);
    }
    while (!m_watches.empty()) {
        removeFd(m_watches.begin()->first);
    }
}

int SdEventLoop::addFd(int fd, std::uint32_t events, std::function<void(int)> callback)
{
    if (m_watches.contains(fd)) {
        return EEXIST;
    }
    auto watch = std::make_shared<Watch>(std::move(callback));
    sd_event_source* source = nullptr;
    const int result = fd < 0 ? -EBADF : sd_event_add_io(m_event.get(), &source, fd, events, onFd, watch.get());
    if (result < 0) {
        return -result;
    }
    watch->source.reset(source);
    m_watches.emplace(fd, std::move(watch));
    return 0;
}

int SdEventLoop::modifyFd(int fd, std::uint32_t events)
{
    const auto found = m_watches.find(fd);
    return found == m_watches.end() ? ENOENT : -sd_event_source_set_io_events(found->second->source.get(), events);
}

int SdEventLoop::removeFd(int fd)
{
    const auto removed = m_watches.extract(fd);
    if (removed.empty()) {
        return ENOENT;
    }
    removed.mapped()
        ->source.reset(); // now, though a running callback holds the watch: the descriptor may be added anew
    return 0;
}

std::uint32_t SdEventLoop::addTimer(microseconds delay, std::function<void()> callback)
{
    const auto now = std::chrono::ceil<microseconds>(steady_clock::now().time_since_epoch());
    const auto deadline = now + std::clamp(delay, microseconds(0), longestDelay);
    do {
        ++m_lastTimer;
    } while (m_lastTimer == 0 || m_timers.contains(m_lastTimer));
    m_timers.emplace(m_lastTimer, Timer{deadline, std::move(callback)});
    m_timerOrder.emplace(deadline, m_lastTimer);
    armTimer();
    return m_lastTimer;
}

void SdEventLoop::removeTimer(std::uint32_t id)
{
    const auto removed = m_timers.extract(id);
    if (!removed.empty()) {
        m_timerOrder.erase({removed.mapped().deadline, id});
        armTimer();
    }
}

void SdEventLoop::armTimer()
{
    if (m_timerOrder.empty()) {
        sd_event_source_set_enabled(m_timeSource.get(), SD_EVENT_OFF);
        return;
    }
    const auto earliest = m_timerOrder.begin()->first.count();
    sd_event_source_set_time(m_timeSource.get(), static_cast<std::uint64_t>(earliest));
    sd_event_source_set_enabled(m_timeSource.get(), SD_EVENT_ONESHOT);
}

void SdEventLoop::runFirstTimer()
{
    const auto now = std::chrono::floor<microseconds>(steady_clock::now().time_since_epoch());
    std::function<void()> callback;
    if (!m_timerOrder.empty() && m_timerOrder.begin()->first <= now) {
        const auto fired = m_timers.extract(m_timerOrder.begin()->second);
        m_timerOrder.erase(m_timerOrder.begin());
        callback = std::move(fired.mapped().callback);
    }
    armTimer();
    if (callback) {
        guarded("a timer's callback", callback);
    }
}

int SdEventLoop::onFd(sd_event_source*, int fd, std::uint32_t, void* watch)
{
    const kiv::Dispatch dispatch;
    const auto held = static_cast<Watch*>(watch)->shared_from_this();
    bool goesOn = true;
    for (int count = 0; goesOn && (count == 0 || kiv::hasQueued(fd)) && count < maxRow; ++count) {
        goesOn = false;
        guarded("a descriptor's callback", [&] {
            held->callback(fd);
            goesOn = held->isReported() && !current().m_stop.load(std::memory_order_acquire);
        });
    }
    return 0;
}

int SdEventLoop::onTime(sd_event_source*, std::uint64_t, void* loop)
{
    const kiv::Dispatch dispatch;
    static_cast<SdEventLoop*>(loop)->runFirstTimer();
    return 0;
}

int SdEventLoop::onPost(sd_event_source*, int, std::uint32_t, void* loop)
{
    const kiv::Dispatch dispatch;
    static_cast<SdEventLoop*>(loop)->m_queue->runNext();
    return 0;
}

/// One callback at most. Returns what sd_event_run does: positive where something was dispatched.
int SdEventLoop::dispatch(std::uint64_t timeout)
{
    const int result = sd_event_run(m_event.get(), timeout);
    if (result < 0) {
        std::fprintf(stderr, "ostinel: event loop: %s\n", std::strerror(-result));
    }
    return result;
}

void SdEventLoop::run()
{
    while (!m_stop.load(std::memory_order_acquire)) {
        const int result = dispatch(UINT64_MAX);
        if (result == -EBUSY || result == -ESTALE || result == -ECHILD) {
            return; // a loop inside a callback of the same loop, or a process without its parent's loop
        }
    }
    m_stop.store(false, std::memory_order_release);
}

void SdEventLoop::runOnce(microseconds timeout)
{
    // Callbacks may keep each other busy for ever: no more than each source once.
    auto turns = m_watches.size() + m_timers.size() + 1;
    auto wait = timeout < microseconds(0) ? UINT64_MAX : static_cast<std::uint64_t>(timeout.count());
    while (dispatch(wait) > 0 && --turns > 0) {
        wait = 0;
    }
}

void SdEventLoop::stop()
{
    m_stop.store(true, std::memory_order_release);
    m_queue->wake();
}

} // namespace

std::shared_ptr<PostQueue> currentLoopQueue()
{
    return SdEventLoop::current().queue();
}

namespace EventLoop::V1 {

EventLoopIf& EventLoopIf::getInstance()
{
    return SdEventLoop::current();
}

} // namespace EventLoop::V1
} // namespace Ostinel
