/// The recording implementation of the traces: every event is enabled and kept in memory, for tests.
#pragma once

#include "trace/trace.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VornTrace {

struct RecordedTrace {
    Event event;
    std::string file; ///< short name
    int line;
    std::string object;         ///< empty for ERROR and INFO
    std::uint32_t number = 0;   ///< REC_SIG, SEND_SIG
    std::uint32_t receiver = 0; ///< SEND_SIG
    std::string text;
    std::vector<std::uint8_t> data; ///< DATA, TRACE_UTS
    std::uint32_t sec = 0;          ///< TRACE_UTS
    std::uint32_t usec = 0;         ///< TRACE_UTS
    std::string process;            ///< TRACE_UTS
};

/// All traces of the process so far, of all its threads. All operations may be called from any thread.
class RecordedTraces
{
public:
    /// A position in the record; only what comes behind it is looked at.
    using Mark = std::size_t;

    static Mark mark();
    static std::vector<RecordedTrace> since(Mark mark = 0);

    /// Whether a trace behind the mark is exactly `text`, or has it as a part.
    static bool has(std::string_view text, Mark mark = 0);
    static bool hasPart(std::string_view part, Mark mark = 0);
    /// How many traces behind the mark are exactly `text`.
    static std::size_t count(std::string_view text, Mark mark = 0);

    /// Waits until a trace behind the mark has `part`. Nothing where the deadline passes first.
    static std::optional<RecordedTrace> waitFor(std::string_view part, Mark mark = 0,
                                                std::chrono::milliseconds deadline = std::chrono::seconds(5));

    /// Switches an event off or on again.
    static void enable(Event event, bool enabled);
};

} // namespace VornTrace
