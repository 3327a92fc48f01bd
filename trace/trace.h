/// Traces of the server: one macro per event of the provider com_norvane_radiosw_vornserver.
///
///     TRACE_INFO("ABN: no session for mailbox {}", mbox);
///     TRACE_REC_SIG(msg->number, "EXIT_THREAD_MSG");
///     TRACE_SEND_SIG(number, receiver, "OMLA_VORN_SET_UTC_TIME_CFM{{clientRef={}}}", clientRef);
///
/// A text is a fmt format string with its arguments; it is composed only while its event is enabled. Every event
/// carries the source file's short name and the line. Each macro ends in one plain function of namespace VornTrace; a
/// program links one implementation of them: trace_lttng (LTTng-UST) or trace_recording (a list in memory, for tests).
#pragma once

#include "quent/quent.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <fmt/format.h>
#include <string>
#include <utility>

namespace VornTrace {

/// The provider's events, in its order.
enum class Event : std::uint8_t {
    error,
    info,
    stateChange,
    trace1,
    trace2,
    trace3,
    trace4,
    trace5,
    trace6,
    trace7,
    recSig,
    sendSig,
    data,
    traceUts1,
    traceUts2,
    traceUts3,
    traceUts4,
    traceUts5,
    traceUts6,
    traceUts7,
};

inline constexpr std::size_t eventCount = static_cast<std::size_t>(Event::traceUts7) + 1;

/// The event's name as the provider has it: "ERROR", "REC_SIG", ...
const char* eventName(Event event);

/// Where a trace stands in the source.
struct Place {
    const char* file; ///< short name
    int line;
};

/// A time stamp as the TRACE_UTS events carry it.
struct Uts {
    std::uint32_t sec;
    std::uint32_t usec;
    const char* process;
};

// What an implementation provides. `object` is "-" in nearly all traces.
bool isEnabled(Event event) noexcept;
void error(Place place, const char* text) noexcept;
void info(Place place, const char* text) noexcept;
/// stateChange and trace1 to trace7.
void trace(Event event, Place place, const char* object, const char* text) noexcept;
void recSig(Place place, const char* object, std::uint32_t number, const char* text) noexcept;
void sendSig(Place place, const char* object, std::uint32_t number, std::uint32_t receiver, const char* text) noexcept;
void data(Place place, const char* object, const char* text, const void* bytes, std::size_t size) noexcept;
/// traceUts1 to traceUts7.
void traceUts(Event event, Place place, const Uts& uts, const char* text, const void* bytes, std::size_t size) noexcept;

/// The text that stands for one that could not be composed.
std::string composeFailure(const char* reason) noexcept;

/// Composes a text; whatever goes wrong in it (memory, an argument's own printing) gives a text that says so.
template <typename... Args>
std::string compose(fmt::format_string<Args...> format, Args&&... args) noexcept
try {
    return fmt::format(format, std::forward<Args>(args)...);
} catch (const std::exception& failure) {
    return composeFailure(failure.what());
} catch (...) {
    return composeFailure("unknown reason");
}

} // namespace VornTrace

#define VORN_TRACE_PLACE                                                                                               \
    ::VornTrace::Place                                                                                                 \
    {                                                                                                                  \
        quent_short_fname(__FILE__), __LINE__                                                                          \
    }

#define VORN_TRACE_IF(event_, call_)                                                                                   \
    do {                                                                                                               \
        if (::VornTrace::isEnabled(::VornTrace::Event::event_)) {                                                      \
            call_;                                                                                                     \
        }                                                                                                              \
    } while (false)

#define VORN_TRACE_PLAIN(event_, ...)                                                                                  \
    VORN_TRACE_IF(event_, ::VornTrace::trace(::VornTrace::Event::event_, VORN_TRACE_PLACE, "-",                        \
                                             ::VornTrace::compose(__VA_ARGS__).c_str()))

#define TRACE_ERROR(...)                                                                                               \
    VORN_TRACE_IF(error, ::VornTrace::error(VORN_TRACE_PLACE, ::VornTrace::compose(__VA_ARGS__).c_str()))
#define TRACE_INFO(...)                                                                                                \
    VORN_TRACE_IF(info, ::VornTrace::info(VORN_TRACE_PLACE, ::VornTrace::compose(__VA_ARGS__).c_str()))
#define TRACE_STATE_CHANGE(...) VORN_TRACE_PLAIN(stateChange, __VA_ARGS__)
#define TRACE_1(...) VORN_TRACE_PLAIN(trace1, __VA_ARGS__)
#define TRACE_2(...) VORN_TRACE_PLAIN(trace2, __VA_ARGS__)
#define TRACE_3(...) VORN_TRACE_PLAIN(trace3, __VA_ARGS__)
#define TRACE_4(...) VORN_TRACE_PLAIN(trace4, __VA_ARGS__)
#define TRACE_5(...) VORN_TRACE_PLAIN(trace5, __VA_ARGS__)
#define TRACE_6(...) VORN_TRACE_PLAIN(trace6, __VA_ARGS__)
#define TRACE_7(...) VORN_TRACE_PLAIN(trace7, __VA_ARGS__)
/// Number of the signal, then the text.
#define TRACE_REC_SIG(number_, ...)                                                                                    \
    VORN_TRACE_IF(recSig,                                                                                              \
                  ::VornTrace::recSig(VORN_TRACE_PLACE, "-", number_, ::VornTrace::compose(__VA_ARGS__).c_str()))
/// Number of the signal, the mailbox it goes to, then the text.
#define TRACE_SEND_SIG(number_, receiver_, ...)                                                                        \
    VORN_TRACE_IF(sendSig, ::VornTrace::sendSig(VORN_TRACE_PLACE, "-", number_, receiver_,                             \
                                                ::VornTrace::compose(__VA_ARGS__).c_str()))
/// Bytes and their count, then the text.
#define TRACE_DATA(bytes_, size_, ...)                                                                                 \
    VORN_TRACE_IF(data,                                                                                                \
                  ::VornTrace::data(VORN_TRACE_PLACE, "-", ::VornTrace::compose(__VA_ARGS__).c_str(), bytes_, size_))
/// Level 1 to 7, the time stamp, bytes and their count, then the text.
#define TRACE_UTS(level_, uts_, bytes_, size_, ...)                                                                    \
    VORN_TRACE_IF(traceUts##level_,                                                                                    \
                  ::VornTrace::traceUts(::VornTrace::Event::traceUts##level_, VORN_TRACE_PLACE, uts_,                  \
                                        ::VornTrace::compose(__VA_ARGS__).c_str(), bytes_, size_))
