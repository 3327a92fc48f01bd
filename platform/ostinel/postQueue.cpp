#include "ostinel/postQueue.h"

#include "ostinel/guarded.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <utility>

namespace Ostinel {

PostQueue::PostQueue() : m_event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!m_event) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

bool PostQueue::post(std::function<void()> function)
{
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        return false;
    }
    m_waiting.push_back(std::move(function));
    if (m_waiting.size() == 1) {
        wake();
    }
    return true;
}

void PostQueue::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_event.get(), &one, sizeof(one));
}

void PostQueue::clearEvent()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(m_event.get(), &count, sizeof(count));
}

void PostQueue::runNext()
{
    std::function<void()> function;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_waiting.empty()) {
            function = std::move(m_waiting.front());
            m_waiting.pop_front();
        }
        if (m_waiting.empty()) {
            clearEvent();
        }
    }
    if (function) {
        guarded("a posted function", function);
    }
}

void PostQueue::close()
{
    std::deque<std::function<void()>> dropped; // outside the lock: what a function holds may post when it goes
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    dropped.swap(m_waiting);
}

bool PostQueue::isClosed() const
{
    const std::lock_guard lock(m_mutex);
    return m_closed;
}

} // namespace Ostinel
