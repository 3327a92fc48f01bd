/// Safe access to the records in kiv messages.
#pragma once

#include "kiv/kiv.h"
#include "vorni/header.h"

#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

/// Views a received message as a record; null where it is too short for one.
template <typename Record>
Record* viewSignal(kiv_msg* msg)
{
    static_assert(std::is_trivially_copyable_v<Record> && alignof(Record) == 1);
    return msg != nullptr && kiv_size(msg) >= sizeof(Record) ? reinterpret_cast<Record*>(msg) : nullptr;
}

template <typename Record>
const Record* viewSignal(const kiv_msg* msg)
{
    return viewSignal<Record>(const_cast<kiv_msg*>(msg));
}

template <typename Record>
const Record* viewSignal(const std::shared_ptr<kiv_msg>& msg)
{
    return viewSignal<Record>(msg.get());
}

/// A message that its holder frees.
struct FreeMessage {
    void operator()(kiv_msg* msg) const { kiv_free(msg); }
};
using OwnedMessage = std::unique_ptr<kiv_msg, FreeMessage>;

/// Hands an owned message over.
inline void sendOwned(OwnedMessage message, std::uint32_t receiver, std::uint32_t sender)
{
    kiv_msg* msg = message.release();
    kiv_send(&msg, receiver, sender);
}

/// A signal that is being built: zeroed, with number and references filled in. It is freed unless it is sent.
template <typename Record>
class NewSignal
{
public:
    /// The references in the order of the record's header; `sizeBehind` zeroed bytes follow the record.
    NewSignal(std::uint32_t firstRef, std::uint32_t secondRef, std::size_t sizeBehind = 0)
        : m_msg(kiv_alloc(static_cast<std::uint32_t>(sizeof(Record) + sizeBehind), Record::number))
    {
        if (m_msg != nullptr) {
            record().header.setReferences(firstRef, secondRef);
        }
    }
    ~NewSignal() { kiv_free(m_msg); }
    NewSignal(const NewSignal&) = delete;
    NewSignal& operator=(const NewSignal&) = delete;

    /// Whether there was memory for it.
    explicit operator bool() const { return m_msg != nullptr; }
    Record& operator*() { return record(); }
    Record* operator->() { return &record(); }
    const kiv_msg& message() const { return *m_msg; }

    /// Hands it over; the signal is empty afterwards.
    void send(std::uint32_t receiver, std::uint32_t sender) { kiv_send(&m_msg, receiver, sender); }

private:
    Record& record() { return *viewSignal<Record>(m_msg); }

    kiv_msg* m_msg;
};

/// The bytes behind the record of a received message, of which there are at least the record's.
template <typename Record>
std::span<const std::byte> bytesBehind(const kiv_msg& msg)
{
    return std::span(reinterpret_cast<const std::byte*>(&msg), kiv_size(&msg)).subspan(sizeof(Record));
}

/// The text in bytes that may lack its zero.
inline std::string_view textUntilZero(std::span<const std::byte> bytes)
{
    const char* text = reinterpret_cast<const char*>(bytes.data());
    return {text, ::strnlen(text, bytes.size())};
}

/// The text behind the record of a received message, ended by its zero or by the message's end.
template <typename Record>
std::string_view textBehind(const kiv_msg& msg)
{
    return textUntilZero(bytesBehind<Record>(msg));
}

/// The text in a fixed field, ended by its zero or by the field's end.
template <std::size_t Size>
std::string_view fieldText(const char (&field)[Size])
{
    return {field, ::strnlen(field, Size)};
}
