#include "tap/tap.h"

#include "tap/sender.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <pthread.h>

namespace tap {
namespace {

std::atomic<bool> started = false; ///< also where it failed: it isn't tried twice
std::atomic<Sender*> current = nullptr;
Sender* abandoned = nullptr;

void beforeFork()
{
    Sender::descriptorMutex().lock();
}

void inParent()
{
    Sender::descriptorMutex().unlock();
}

void inChild()
{
    detail::open = false;
    if (Sender* sender = current.exchange(nullptr)) {
        sender->abandon();
        sender->next = abandoned;
        abandoned = sender;
    }
    started = false;
    inParent();
}

void atExit()
{
    if (const Sender* sender = current) {
        sender->removeFile();
    }
}

void startLocked()
{
    static const bool handlers = pthread_atfork(beforeFork, inParent, inChild) == 0 && std::atexit(atExit) == 0;
    if (!handlers) {
        return;
    }
    auto sender = std::make_unique<Sender>();
    if (sender->start() != 0) {
        return;
    }
    Sender* running = sender.release();
    current = running;
    running->findListeners();
}

} // namespace

void start() noexcept
{
    if (started.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard lock(Sender::descriptorMutex());
    if (started.load(std::memory_order_relaxed)) {
        return;
    }
    const int error = errno;
    try {
        startLocked();
    } catch (const std::exception&) { // short of memory
    }
    errno = error;
    started.store(true, std::memory_order_release);
}

std::uint64_t now() noexcept
{
    timespec time = {};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(time.tv_nsec);
}

void copy(const Copy& what) noexcept
{
    Sender* sender = current.load(std::memory_order_acquire);
    if (sender == nullptr) {
        return;
    }
    const int error = errno;
    sender->copy(what);
    errno = error;
}

} // namespace tap
