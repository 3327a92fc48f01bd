/// What the yarrowi server answers to the debug commands.
#pragma once

#include "kiv/kiv.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <queue>

/// Messages of the debug connection on their way from the server thread to a command that waits for them on its own
/// thread. Whoever waits holds the queue: it may outlive the component.
class UlmoQueue
{
public:
    using MessagePtr = std::shared_ptr<kiv_msg>;

    /// Of messages that nobody picks up the oldest goes.
    void push(const MessagePtr& message);
    /// The next message; null where none has come in that many seconds.
    MessagePtr wait(std::uint32_t seconds);

private:
    std::queue<MessagePtr> m_messages;
    std::mutex m_mutex;
    std::condition_variable m_condition;
};
