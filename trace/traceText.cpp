/// What both implementations of the traces share.
#include "trace/trace.h"

#include <array>

namespace VornTrace {

const char* eventName(Event event)
{
    static constexpr std::array<const char*, eventCount> names = {
        "ERROR",      "INFO",       "STATE_CHANGE", "TRACE1",     "TRACE2",     "TRACE3",     "TRACE4",
        "TRACE5",     "TRACE6",     "TRACE7",       "REC_SIG",    "SEND_SIG",   "DATA",       "TRACE_UTS1",
        "TRACE_UTS2", "TRACE_UTS3", "TRACE_UTS4",   "TRACE_UTS5", "TRACE_UTS6", "TRACE_UTS7",
    };
    const auto index = static_cast<std::size_t>(event);
    return index < names.size() ? names[index] : "?";
}

std::string composeFailure(const char* reason) noexcept
try {
    return fmt::format("ABN: trace text not composed: {}", reason);
} catch (...) {
    return "(not composed)"; // short enough to need no memory
}

} // namespace VornTrace
