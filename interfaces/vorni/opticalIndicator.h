/// VORNI signals of the control of the optical indicator.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_OPTICAL_INDICATOR_CONTROL_SUBSCRIBE_STATUS_CHANGE_REQ: a client wants to be told of every change.
using OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS = VornPlainSignal<0x165AA01>;
using OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS = VornPlainSignal<0x165AA02>;
using OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS = VornRejectSignal<0x165AA03>;

/// OMLA_VORN_OPTICAL_INDICATOR_CONTROL_STATUS_CHANGE_IND: the state has changed.
struct OmlaVornOpticalIndicatorControlStatusChangeIndS {
    static constexpr std::uint32_t number = 0x165AA07;
    VornSignalHeader header;
    VornU16 state;
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornOpticalIndicatorControlStatusChangeIndS) == 16 &&
              offsetof(OmlaVornOpticalIndicatorControlStatusChangeIndS, state) == 12);

/// OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_REQ: a client takes the indicator.
using OmlaVornOpticalIndicatorControlActivateReqS = VornPlainSignal<0x165AA08>;
using OmlaVornOpticalIndicatorControlActivateCfmS = VornPlainSignal<0x165AA09>;
using OmlaVornOpticalIndicatorControlActivateRejS = VornRejectSignal<0x165AA0A>;

/// OMLA_VORN_OPTICAL_INDICATOR_CONTROL_DEACTIVATE_REQ: and gives it back.
using OmlaVornOpticalIndicatorControlDeactivateReqS = VornPlainSignal<0x165AA0B>;
using OmlaVornOpticalIndicatorControlDeactivateCfmS = VornPlainSignal<0x165AA0C>;
using OmlaVornOpticalIndicatorControlDeactivateRejS = VornRejectSignal<0x165AA0D>;

/// OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_WITH_DURATION_REQ: it takes it for a time.
struct OmlaVornOpticalIndicatorControlActivateWithDurationReqS {
    static constexpr std::uint32_t number = 0x165AA0E;
    VornSignalHeader header;
    VornU32 duration; ///< seconds; the board interprets it
};
static_assert(sizeof(OmlaVornOpticalIndicatorControlActivateWithDurationReqS) == 16 &&
              offsetof(OmlaVornOpticalIndicatorControlActivateWithDurationReqS, duration) == 12);

using OmlaVornOpticalIndicatorControlActivateWithDurationCfmS = VornPlainSignal<0x165AA0F>;
using OmlaVornOpticalIndicatorControlActivateWithDurationRejS = VornRejectSignal<0x165AA10>;
