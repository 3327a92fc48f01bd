/// What the programs of a run write down together: a file that all of them map. Times are of the monotonic clock, which
/// all processes share.
///
/// A process may be killed at any moment, so nothing here is locked, and a request is written down before it is sent:
/// what stands in the slot of a killed client is what was open when it died.
#pragma once

#include "procedures.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Endurance {

/// Nanoseconds of the monotonic clock.
std::int64_t now();

inline constexpr std::int64_t second = 1'000'000'000;

/// A client's request that has no answer yet.
struct OpenRequest {
    std::atomic<std::uint32_t> procedure{none};
    std::atomic<std::int64_t> sentAt{0};

    static constexpr std::uint32_t none = 0xFFFFFFFF;
};

/// What a living client is about.
struct Slot {
    static constexpr std::size_t maxOpen = 8;
    std::array<OpenRequest, maxOpen> open;
    std::atomic<std::int64_t> measuringSince{0}; ///< 0: it has no temperature measurement
    std::atomic<bool> isConnected{false};        ///< the server has confirmed its connection

    void clear();
};

/// Something that has come to no end of its own.
struct Entry {
    enum Kind : std::uint32_t {
        unanswered,   ///< the time for the answer was over
        clientKilled, ///< the client was killed while it waited
        measuring,    ///< a temperature measurement that wasn't stopped before its client went
        reconnected,  ///< a connection request of a client that had a session: its confirm needs no answer of the board
    };
    Kind kind;
    std::uint32_t procedure;
    std::int64_t from; ///< when the request was sent
    std::int64_t to;   ///< end of the time for the answer, or when the client was killed
};

struct ProcedureCounts {
    std::atomic<std::uint64_t> sent;
    std::atomic<std::uint64_t> confirmed;
    std::atomic<std::uint64_t> rejected;
    std::atomic<std::uint64_t> again; ///< sent by a client that had been confirmed the same before
};

struct Ledger {
    static constexpr std::size_t maxSlots = 1024;
    static constexpr std::size_t maxEntries = 1U << 17U;

    std::array<ProcedureCounts, procedureCount> procedures;
    std::atomic<std::uint64_t> indications;
    std::atomic<std::uint64_t> unasked;       ///< answers that no client waited for
    std::atomic<std::uint32_t> unaskedNumber; ///< signal number of the last one
    std::atomic<std::uint64_t> reconnects;    ///< connection requests of clients that had a session
    std::atomic<std::uint64_t> strayReads;    ///< of hardware logs, by mailboxes without a session
    std::atomic<std::uint64_t> left;          ///< clients that went in order
    std::atomic<std::uint64_t> rhuneAsked;    ///< requests of RHUNE clients
    std::atomic<std::uint64_t> rhuneAnswered;
    std::atomic<std::uint64_t> rhuneUnanswered;
    std::atomic<std::uint64_t> rhuneFaults;  ///< raised or ceased
    std::atomic<std::uint32_t> rhuneHighest; ///< the highest reference of a connection that the server has given
    std::array<Slot, maxSlots> slots;
    std::atomic<std::uint32_t> entryCount;
    std::array<Entry, maxEntries> entries;

    void add(const Entry& entry);
    std::uint32_t entriesKept() const;
};

/// Makes the file, or maps the one that there is.
std::unique_ptr<Ledger, void (*)(Ledger*)> createLedger(const std::string& path);
std::unique_ptr<Ledger, void (*)(Ledger*)> openLedger(const std::string& path);

} // namespace Endurance
