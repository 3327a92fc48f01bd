#include "kiv/message.h"

#include <cassert>
#include <cstdlib>
#include <utility>

namespace kiv {
namespace {

constexpr std::uint16_t liveMagic = 0x6B76;
constexpr std::uint16_t freedMagic = 0xDEAD;

} // namespace

Message* Message::of(kiv_msg* msg)
{
    Message* message = reinterpret_cast<Message*>(msg) - 1;
    assert(message->magic == liveMagic);
    return message;
}

const Message* Message::of(const kiv_msg* msg)
{
    const Message* message = reinterpret_cast<const Message*>(msg) - 1;
    assert(message->magic == liveMagic);
    return message;
}

void MessageDeleter::operator()(Message* message) const
{
    message->magic = freedMagic;
    std::free(message);
}

MessagePtr makeMessage(std::uint32_t size, bool zeroed)
{
    const std::size_t bytes = sizeof(Message) + size;
    void* block = zeroed ? std::calloc(1, bytes) : std::malloc(bytes);
    if (block == nullptr) {
        return nullptr;
    }
    return MessagePtr(new (block)
                          Message{nullptr, 0, 0, liveMagic, {KIV_NO_MBOX, KIV_NO_MBOX, size, FrameKind::inlined}});
}

void MessageList::push(MessagePtr message)
{
    Message* added = message.release();
    added->next = nullptr;
    (m_last == nullptr ? m_first : m_last->next) = added;
    m_last = added;
}

void MessageList::append(MessageList& other)
{
    if (!other.empty()) {
        (m_last == nullptr ? m_first : m_last->next) = std::exchange(other.m_first, nullptr);
        m_last = std::exchange(other.m_last, nullptr);
    }
}

MessagePtr MessageList::takeAfter(Message* previous)
{
    Message*& link = previous == nullptr ? m_first : previous->next;
    Message* taken = link;
    if (taken == nullptr) {
        return nullptr;
    }
    link = taken->next;
    if (m_last == taken) {
        m_last = previous;
    }
    taken->next = nullptr;
    return MessagePtr(taken);
}

void MessageList::clear()
{
    while (pop()) {
    }
}

} // namespace kiv
