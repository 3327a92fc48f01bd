// The LTTng-UST provider com_norvane_radiosw_vornserver: its events, their fields and log levels.
//
// LTTng's macros include this file several times, hence the guard in place of #pragma once, and keep the order of the
// fields. Only lttngTraces.cpp includes it.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER com_norvane_radiosw_vornserver

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "trace/lttngProvider.h"

#if !defined(VORN_TRACE_LTTNG_PROVIDER_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define VORN_TRACE_LTTNG_PROVIDER_H

#include <lttng/tracepoint.h>
#include <stdint.h>

// clang-format off

LTTNG_UST_TRACEPOINT_EVENT_CLASS(
    com_norvane_radiosw_vornserver, text,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, msg),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_string(msg, msg)))

LTTNG_UST_TRACEPOINT_EVENT_CLASS(
    com_norvane_radiosw_vornserver, object,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, obj, const char*, msg),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_string(obj, obj)
        lttng_ust_field_string(msg, msg)))

LTTNG_UST_TRACEPOINT_EVENT_CLASS(
    com_norvane_radiosw_vornserver, uts,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, uint32_t, sec, uint32_t, usec, const char*, process,
                      const char*, msg, const uint8_t*, data, uint32_t, datalen),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_integer(uint32_t, sec, sec)
        lttng_ust_field_integer(uint32_t, usec, usec)
        lttng_ust_field_string(process, process)
        lttng_ust_field_string(msg, msg)
        lttng_ust_field_sequence_hex(uint8_t, data, data, uint32_t, datalen)
        lttng_ust_field_integer(uint32_t, datalen, datalen)))

LTTNG_UST_TRACEPOINT_EVENT(
    com_norvane_radiosw_vornserver, REC_SIG,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, obj, uint32_t, number, const char*, msg),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_string(obj, obj)
        lttng_ust_field_integer_hex(uint32_t, sig_no, number)
        lttng_ust_field_string(msg, msg)))

LTTNG_UST_TRACEPOINT_EVENT(
    com_norvane_radiosw_vornserver, SEND_SIG,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, obj, uint32_t, number, uint32_t, receiver,
                      const char*, msg),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_string(obj, obj)
        lttng_ust_field_integer_hex(uint32_t, sig_no, number)
        lttng_ust_field_integer_hex(uint32_t, pid, receiver)
        lttng_ust_field_string(msg, msg)))

LTTNG_UST_TRACEPOINT_EVENT(
    com_norvane_radiosw_vornserver, DATA,
    LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, obj, const char*, msg, const uint8_t*, data,
                      uint32_t, datalen),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_string(file, file)
        lttng_ust_field_integer(int, line, line)
        lttng_ust_field_string(obj, obj)
        lttng_ust_field_string(msg, msg)
        lttng_ust_field_sequence_hex(uint8_t, data, data, uint32_t, datalen)
        lttng_ust_field_integer(uint32_t, datalen, datalen)))

#define VORN_TEXT_EVENT(name_)                                                                                         \
    LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(com_norvane_radiosw_vornserver, text, com_norvane_radiosw_vornserver, name_,   \
        LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, msg))
#define VORN_OBJECT_EVENT(name_)                                                                                       \
    LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(com_norvane_radiosw_vornserver, object, com_norvane_radiosw_vornserver, name_, \
        LTTNG_UST_TP_ARGS(const char*, file, int, line, const char*, obj, const char*, msg))
#define VORN_UTS_EVENT(name_)                                                                                          \
    LTTNG_UST_TRACEPOINT_EVENT_INSTANCE(com_norvane_radiosw_vornserver, uts, com_norvane_radiosw_vornserver, name_,    \
        LTTNG_UST_TP_ARGS(const char*, file, int, line, uint32_t, sec, uint32_t, usec, const char*, process,           \
                          const char*, msg, const uint8_t*, data, uint32_t, datalen))
#define VORN_LEVEL(name_, level_)                                                                                      \
    LTTNG_UST_TRACEPOINT_LOGLEVEL(com_norvane_radiosw_vornserver, name_, LTTNG_UST_TRACEPOINT_LOGLEVEL_##level_)

VORN_TEXT_EVENT(ERROR)
VORN_TEXT_EVENT(INFO)
VORN_OBJECT_EVENT(STATE_CHANGE)
VORN_OBJECT_EVENT(TRACE1)
VORN_OBJECT_EVENT(TRACE2)
VORN_OBJECT_EVENT(TRACE3)
VORN_OBJECT_EVENT(TRACE4)
VORN_OBJECT_EVENT(TRACE5)
VORN_OBJECT_EVENT(TRACE6)
VORN_OBJECT_EVENT(TRACE7)
VORN_UTS_EVENT(TRACE_UTS1)
VORN_UTS_EVENT(TRACE_UTS2)
VORN_UTS_EVENT(TRACE_UTS3)
VORN_UTS_EVENT(TRACE_UTS4)
VORN_UTS_EVENT(TRACE_UTS5)
VORN_UTS_EVENT(TRACE_UTS6)
VORN_UTS_EVENT(TRACE_UTS7)

// The levels 1 to 7 are LTTng's seven levels of debugging, from system down to line.
VORN_LEVEL(ERROR, ERR)
VORN_LEVEL(INFO, INFO)
VORN_LEVEL(STATE_CHANGE, NOTICE)
VORN_LEVEL(TRACE1, DEBUG_SYSTEM)
VORN_LEVEL(TRACE2, DEBUG_PROGRAM)
VORN_LEVEL(TRACE3, DEBUG_PROCESS)
VORN_LEVEL(TRACE4, DEBUG_MODULE)
VORN_LEVEL(TRACE5, DEBUG_UNIT)
VORN_LEVEL(TRACE6, DEBUG_FUNCTION)
VORN_LEVEL(TRACE7, DEBUG_LINE)
VORN_LEVEL(REC_SIG, DEBUG_SYSTEM)
VORN_LEVEL(SEND_SIG, DEBUG_SYSTEM)
VORN_LEVEL(DATA, DEBUG)
VORN_LEVEL(TRACE_UTS1, DEBUG_SYSTEM)
VORN_LEVEL(TRACE_UTS2, DEBUG_PROGRAM)
VORN_LEVEL(TRACE_UTS3, DEBUG_PROCESS)
VORN_LEVEL(TRACE_UTS4, DEBUG_MODULE)
VORN_LEVEL(TRACE_UTS5, DEBUG_UNIT)
VORN_LEVEL(TRACE_UTS6, DEBUG_FUNCTION)
VORN_LEVEL(TRACE_UTS7, DEBUG_LINE)

#undef VORN_TEXT_EVENT
#undef VORN_OBJECT_EVENT
#undef VORN_UTS_EVENT
#undef VORN_LEVEL

// clang-format on

#endif

#include <lttng/tracepoint-event.h>
