#include "ulmoQueue.h"

#include "signalNames.h"
#include "trace/trace.h"

#include <chrono>

namespace {

constexpr std::size_t limit = 1024;

} // namespace

void UlmoQueue::push(const MessagePtr& message)
{
    {
        const std::lock_guard lock(m_mutex);
        TRACE_1("Sending {} to ulmo\n", getSignalName(message->number));
        m_messages.push(message);
        if (m_messages.size() > limit) {
            TRACE_INFO("ABN: nobody picks up {} messages for ulmo. Dropping the oldest.", limit);
            m_messages.pop();
        }
    }
    m_condition.notify_one();
}

UlmoQueue::MessagePtr UlmoQueue::wait(std::uint32_t seconds)
{
    std::unique_lock lock(m_mutex);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    if (!m_condition.wait_until(lock, deadline, [this] { return !m_messages.empty(); })) {
        return nullptr;
    }
    MessagePtr message = m_messages.front();
    m_messages.pop();
    TRACE_1("Ulmo picked up {}", getSignalName(message->number));
    return message;
}
