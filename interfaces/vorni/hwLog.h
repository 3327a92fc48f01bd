/// VORNI signals of the hardware logs. The entries of a log are zero-terminated texts, one behind the other.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// The room for the entries, bytes.
inline constexpr std::size_t vornHwLogAreaSize = 424;

/// OMLA_VORN_HWLOG_SET_REQ: a client writes entries to a log.
struct OmlaVornHwLogSetReqS {
    static constexpr std::uint32_t number = 0x165920A;
    VornSignalHeader header;
    char label[16]; ///< zero-terminated, or full
    VornU32 logId;  ///< 0 to 999, else refused; 2 is the node configuration log
    VornU32 length; ///< number of entries
    std::uint8_t entries[vornHwLogAreaSize];
};
static_assert(sizeof(OmlaVornHwLogSetReqS) == 460 && offsetof(OmlaVornHwLogSetReqS, label) == 12 &&
              offsetof(OmlaVornHwLogSetReqS, logId) == 28 && offsetof(OmlaVornHwLogSetReqS, length) == 32 &&
              offsetof(OmlaVornHwLogSetReqS, entries) == 36);

/// OMLA_VORN_HWLOG_SET_CFM: they are written.
using OmlaVornHwLogSetCfmS = VornPlainSignal<0x165920B>;

/// OMLA_VORN_HWLOG_SET_REJ: they aren't. errorCode 1: the request is malformed or has failed; 2: there is no such log.
using OmlaVornHwLogSetRejS = VornDescribedRejectSignal<0x165920C>;

/// OMLA_VORN_HWLOG_GET_REQ: a client reads a log.
struct OmlaVornHwLogGetReqS {
    static constexpr std::uint32_t number = 0x165920D;
    VornSignalHeader header;
    VornU32 logId; ///< any: the board knows its logs
};
static_assert(sizeof(OmlaVornHwLogGetReqS) == 16 && offsetof(OmlaVornHwLogGetReqS, logId) == 12);

/// OMLA_VORN_HWLOG_GET_CFM: its entries.
struct OmlaVornHwLogGetCfmS {
    static constexpr std::uint32_t number = 0x165920E;
    VornSignalHeader header;
    VornU32 length; ///< number of entries
    std::uint8_t entries[vornHwLogAreaSize];
};
static_assert(sizeof(OmlaVornHwLogGetCfmS) == 440 && offsetof(OmlaVornHwLogGetCfmS, length) == 12 &&
              offsetof(OmlaVornHwLogGetCfmS, entries) == 16);

/// OMLA_VORN_HWLOG_GET_REJ: it can't be read. errorCode 1: reading has failed; 2: there is no such log.
using OmlaVornHwLogGetRejS = VornDescribedRejectSignal<0x165920F>;
