/// A message in memory: one block, a hidden header in front of what the holder sees.
///
/// The last part of the header is the frame header as it goes over the wire, directly in front of the payload: a
/// message is sent from where it lies. The first part links messages into queues, so that queueing allocates nothing.
#pragma once

#include "kiv/kiv.h"

#include <cstddef>
#include <memory>

namespace kiv {

enum class FrameKind : std::uint32_t {
    inlined = 1, ///< the payload follows the header
    memfd = 2,   ///< the payload is a sealed memfd that comes with the frame
    monitor = 3, ///< to a process: tell the sender when the receiver dies; the payload is a reference
    unmonitor = 4,
    dead = 5, ///< the sender died; the payload is the reference of the receiver's monitor
};

struct FrameHeader {
    kiv_mbox_id_t sender;
    kiv_mbox_id_t receiver;
    std::uint32_t size; ///< of the payload
    FrameKind kind;
};

struct Message {
    Message* next;
    std::uint32_t ref;     ///< of the monitor or hunt that delivered it, or 0
    std::uint16_t process; ///< received: where it came from, 0 for this one; to be sent: on whose behalf
    std::uint16_t magic;
    FrameHeader frame;

    kiv_msg* payload() { return reinterpret_cast<kiv_msg*>(this + 1); }
    const kiv_msg* payload() const { return reinterpret_cast<const kiv_msg*>(this + 1); }
    /// What a queue accounts for it.
    std::size_t footprint() const { return sizeof(Message) + frame.size; }

    static Message* of(kiv_msg* msg);
    static const Message* of(const kiv_msg* msg);
};
static_assert(sizeof(Message) == 32, "the payload keeps the alignment of malloc");

struct MessageDeleter {
    void operator()(Message* message) const;
};
using MessagePtr = std::unique_ptr<Message, MessageDeleter>;

inline bool isMessageSize(std::uint32_t size)
{
    return size >= sizeof(kiv_msg) && size <= KIV_MAX_SIZE;
}

/// A message of `size` bytes, or null. Its payload is zero where `zeroed`, else undefined.
MessagePtr makeMessage(std::uint32_t size, bool zeroed);

/// A queue of messages that it owns.
class MessageList
{
public:
    MessageList() = default;
    MessageList(MessageList&& other) noexcept { append(other); }
    MessageList(const MessageList&) = delete;
    MessageList& operator=(const MessageList&) = delete;
    MessageList& operator=(MessageList&&) = delete;
    ~MessageList() { clear(); }

    bool empty() const { return m_first == nullptr; }
    Message* first() const { return m_first; }
    void push(MessagePtr message);
    void append(MessageList& other);
    MessagePtr pop() { return takeAfter(nullptr); }
    /// Takes the message behind `previous`; the first one where that is null.
    MessagePtr takeAfter(Message* previous);
    void clear();

    /// Frees the messages for which `match` is true. Returns how many.
    template <typename Match>
    std::size_t removeIf(Match match)
    {
        std::size_t count = 0;
        for (Message* previous = nullptr;;) {
            Message* message = previous == nullptr ? m_first : previous->next;
            if (message == nullptr) {
                return count;
            }
            if (match(*message)) {
                takeAfter(previous);
                ++count;
            } else {
                previous = message;
            }
        }
    }

private:
    Message* m_first = nullptr;
    Message* m_last = nullptr;
};

} // namespace kiv
