/// The traces as events of the LTTng-UST provider.
#include "trace/trace.h"

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "trace/lttngProvider.h"

#include <limits>

/// use_(event, NAME) for each event: ours, and the name that the provider has for it.
#define VORN_OBJECT_EVENTS(use_)                                                                                       \
    use_(stateChange, STATE_CHANGE) use_(trace1, TRACE1) use_(trace2, TRACE2) use_(trace3, TRACE3)                     \
        use_(trace4, TRACE4) use_(trace5, TRACE5) use_(trace6, TRACE6) use_(trace7, TRACE7)
#define VORN_UTS_EVENTS(use_)                                                                                          \
    use_(traceUts1, TRACE_UTS1) use_(traceUts2, TRACE_UTS2) use_(traceUts3, TRACE_UTS3) use_(traceUts4, TRACE_UTS4)    \
        use_(traceUts5, TRACE_UTS5) use_(traceUts6, TRACE_UTS6) use_(traceUts7, TRACE_UTS7)
#define VORN_ALL_EVENTS(use_)                                                                                          \
    use_(error, ERROR) use_(info, INFO) VORN_OBJECT_EVENTS(use_) use_(recSig, REC_SIG) use_(sendSig, SEND_SIG)         \
        use_(data, DATA) VORN_UTS_EVENTS(use_)

namespace VornTrace {

namespace {

/// Bytes as the events take them: never a null pointer, and a count of 32 bits.
struct Bytes {
    const std::uint8_t* data;
    std::uint32_t size;

    Bytes(const void* bytes, std::size_t count)
    {
        static constexpr std::uint8_t none = 0;
        constexpr std::size_t most = std::numeric_limits<std::uint32_t>::max();
        data = bytes != nullptr ? static_cast<const std::uint8_t*>(bytes) : &none;
        size = bytes != nullptr ? static_cast<std::uint32_t>(count < most ? count : most) : 0;
    }
};

const char* orEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

bool isEnabled(Event event) noexcept
{
    switch (event) {
#define VORN_IS_ENABLED(event_, name_)                                                                                 \
    case Event::event_:                                                                                                \
        return lttng_ust_tracepoint_enabled(com_norvane_radiosw_vornserver, name_) != 0;
        VORN_ALL_EVENTS(VORN_IS_ENABLED)
#undef VORN_IS_ENABLED
    }
    return false;
}

void error(Place place, const char* text) noexcept
{
    lttng_ust_tracepoint(com_norvane_radiosw_vornserver, ERROR, place.file, place.line, text);
}

void info(Place place, const char* text) noexcept
{
    lttng_ust_tracepoint(com_norvane_radiosw_vornserver, INFO, place.file, place.line, text);
}

void trace(Event event, Place place, const char* object, const char* text) noexcept
{
    switch (event) {
#define VORN_EMIT(event_, name_)                                                                                       \
    case Event::event_:                                                                                                \
        lttng_ust_tracepoint(com_norvane_radiosw_vornserver, name_, place.file, place.line, object, text);             \
        break;
        VORN_OBJECT_EVENTS(VORN_EMIT)
#undef VORN_EMIT
    default:
        break;
    }
}

void recSig(Place place, const char* object, std::uint32_t number, const char* text) noexcept
{
    lttng_ust_tracepoint(com_norvane_radiosw_vornserver, REC_SIG, place.file, place.line, object, number, text);
}

void sendSig(Place place, const char* object, std::uint32_t number, std::uint32_t receiver, const char* text) noexcept
{
    lttng_ust_tracepoint(com_norvane_radiosw_vornserver, SEND_SIG, place.file, place.line, object, number, receiver,
                         text);
}

void data(Place place, const char* object, const char* text, const void* bytes, std::size_t size) noexcept
{
    const Bytes shown(bytes, size);
    lttng_ust_tracepoint(com_norvane_radiosw_vornserver, DATA, place.file, place.line, object, text, shown.data,
                         shown.size);
}

void traceUts(Event event, Place place, const Uts& uts, const char* text, const void* bytes, std::size_t size) noexcept
{
    const Bytes shown(bytes, size);
    const char* process = orEmpty(uts.process);
    switch (event) {
#define VORN_EMIT(event_, name_)                                                                                       \
    case Event::event_:                                                                                                \
        lttng_ust_tracepoint(com_norvane_radiosw_vornserver, name_, place.file, place.line, uts.sec, uts.usec,         \
                             process, text, shown.data, shown.size);                                                   \
        break;
        VORN_UTS_EVENTS(VORN_EMIT)
#undef VORN_EMIT
    default:
        break;
    }
}

} // namespace VornTrace
