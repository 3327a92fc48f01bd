/// A signal in the client's hands, and the words by which a user names, builds and expects one.
#pragma once

#include "kiv/kiv.h"
#include "vorni/header.h"
#include "vorni/signalTable.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace VornClient {

/// What the user typed makes no sense; the text says why.
class BadUsage : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The references that a client puts into its signals; in RHUNE's they are procedureRef and connectionRef.
struct References {
    std::uint32_t clientRef = 1;
    std::uint32_t serverRef = 1;
};

/// A signal sent or received, copied out of its message. It may be of any length from 4 bytes on.
struct Signal {
    std::vector<std::byte> bytes;
    kiv_mbox_id_t peer = KIV_NO_MBOX; ///< whom it came from or went to
    bool peerIsServer = false;        ///< whether that was the mailbox that the server has for the client
    std::chrono::system_clock::time_point time;
    std::uint64_t sequence = 0;     ///< of the received ones of a client, in their order
    const char* peerName = nullptr; ///< where it is one of the server's mailboxes

    std::uint32_t number() const;
    Vorni::DecodedSignal decode() const { return Vorni::decodeSignal(bytes); }
    /// Name and fields on one line, safe for a terminal and cut where it is very long.
    std::string print() const;
    /// The first text among its fields: of a reject, the reason.
    std::string text() const;
};

/// A record as the bytes of a signal, with number and references filled in; `fill` writes the rest. `sizeBehind` zeroed
/// bytes follow the record.
template <typename Record, typename Fill>
std::vector<std::byte> makeSignal(const References& references, Fill&& fill, std::size_t sizeBehind = 0)
{
    Record record{};
    record.header.sigNo = Record::number;
    record.header.setReferences(references.clientRef, references.serverRef);
    fill(record);
    std::vector<std::byte> bytes(sizeof(Record) + sizeBehind);
    std::memcpy(bytes.data(), &record, sizeof(Record));
    return bytes;
}

/// The same with a text behind the record, and the text's zero.
template <typename Record>
std::vector<std::byte> makeSignalWithText(const References& references, std::string_view text)
{
    auto bytes = makeSignal<Record>(
        references, [](Record&) {}, text.size() + 1);
    text.copy(reinterpret_cast<char*>(bytes.data()) + sizeof(Record), text.size());
    return bytes;
}

/// The record at the start of a signal; nothing where the signal is too short for it.
template <typename Record>
std::optional<Record> recordOf(const Signal& signal)
{
    if (signal.bytes.size() < sizeof(Record)) {
        return std::nullopt;
    }
    Record record;
    std::memcpy(&record, signal.bytes.data(), sizeof(Record));
    return record;
}

/// The number of a signal by its name, with or without "OMLA_VORN_" and in any case, or by its number.
std::uint32_t parseSignalNumber(const std::string& word);

/// Builds any signal: "SIGNAL [field=value ...] [--raw HEX] [--size N]". Fields are those of the signal table besides
/// clientRef and serverRef; --raw appends bytes behind the record, or behind the references where the number is
/// unknown; --size cuts or extends the whole.
std::vector<std::byte> buildSignal(std::span<const std::string> words, const References& references);

/// What a signal must look like: "SIGNAL [field=value ...]", where "rest" stands for the bytes behind the record.
class SignalPattern
{
public:
    static SignalPattern parse(std::span<const std::string> words);

    std::uint32_t number() const { return m_number; }
    /// Whether a signal of this number has the expected fields.
    bool matchesFields(const Signal& signal) const;
    std::string print() const;

private:
    struct Expected {
        std::string name;
        std::string value; ///< a number in decimal, a text, or hexadecimal digits
    };

    std::uint32_t m_number = 0;
    std::vector<Expected> m_fields;
};

/// A number in decimal or, behind "0x", in hexadecimal, of at most `limit`.
std::uint64_t parseNumber(const std::string& word, std::uint64_t limit = UINT64_MAX);

/// A duration in seconds, with a fraction where wanted.
std::chrono::milliseconds parseSeconds(const std::string& word);

/// "2026-01-02T03:04:05.678Z".
std::string isoTime(std::chrono::system_clock::time_point time);

/// The text with control characters and broken UTF-8 written as \xNN, at most `limit` bytes of it.
std::string printable(std::string_view text, std::size_t limit = SIZE_MAX);

} // namespace VornClient
