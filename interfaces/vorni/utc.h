/// VORNI signals of the unit's UTC time.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_SET_UTC_TIME_REQ: a client sets the unit's time.
struct OmlaVornSetUtcTimeReqS {
    static constexpr std::uint32_t number = 0x1659500;
    VornSignalHeader header;
    VornU32 utcTime; ///< passed on untouched
};
static_assert(sizeof(OmlaVornSetUtcTimeReqS) == 16 && offsetof(OmlaVornSetUtcTimeReqS, utcTime) == 12);

/// OMLA_VORN_SET_UTC_TIME_CFM: the time is set.
using OmlaVornSetUtcTimeCfmS = VornPlainSignal<0x1659501>;

/// OMLA_VORN_SET_UTC_TIME_REJ: the time isn't set.
using OmlaVornSetUtcTimeRejS = VornDescribedRejectSignal<0x1659502>;
