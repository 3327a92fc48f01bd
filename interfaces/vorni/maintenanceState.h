/// VORNI signals of the unit's maintenance state: what the maintenance button and indicator show.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_SUBSCRIBE_MAINT_STATE_REQ: a client wants to be told of every change.
using OmlaVornSubscribeMaintStateReqS = VornPlainSignal<0x1658015>;
using OmlaVornSubscribeMaintStateCfmS = VornPlainSignal<0x1658016>;
using OmlaVornSubscribeMaintStateRejS = VornRejectSignal<0x1658017>;

/// OMLA_VORN_SET_MAINT_STATE_IND: the maintenance state has changed.
struct OmlaVornSetMaintStateIndS {
    static constexpr std::uint32_t number = 0x1658018;
    VornSignalHeader header;
    VornU32 maintState; ///< 0 to 4
};
static_assert(sizeof(OmlaVornSetMaintStateIndS) == 16 && offsetof(OmlaVornSetMaintStateIndS, maintState) == 12);

/// OMLA_VORN_SET_MAINT_STATE_REQ: a client sets it.
struct OmlaVornSetMaintStateReqS {
    static constexpr std::uint32_t number = 0x1658019;
    VornSignalHeader header;
    VornU32 maintState; ///< 0, 2, 3 or 4; 1 can be told, not asked for
};
static_assert(sizeof(OmlaVornSetMaintStateReqS) == 16 && offsetof(OmlaVornSetMaintStateReqS, maintState) == 12);

using OmlaVornSetMaintStateCfmS = VornPlainSignal<0x165801A>;

/// OMLA_VORN_SET_MAINT_STATE_REJ: errorCode 1: refused, or not a state; 2: not from the present state, or not now.
using OmlaVornSetMaintStateRejS = VornRejectSignal<0x165801B>;
