/// VORNI signals of deep sleep.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REQ: a client wants to be told of every change of the status.
using OmlaVornSubscribeDeepSleepStatusReqS = VornPlainSignal<0x165A800>;
using OmlaVornSubscribeDeepSleepStatusCfmS = VornPlainSignal<0x165A801>;
using OmlaVornSubscribeDeepSleepStatusRejS = VornRejectSignal<0x165A802>;

/// OMLA_VORN_DEEP_SLEEP_STATUS_IND: the deep sleep status has changed.
struct OmlaVornDeepSleepStatusIndS {
    static constexpr std::uint32_t number = 0x165A803;
    VornSignalHeader header;
    VornU16 status; ///< 0 inactive, 1 pre-active, 2 activating, 3 active, 4 failure
    std::uint8_t reserved1[2];
    char statusText[110]; ///< zero-terminated
    std::uint8_t reserved2[2];
};
static_assert(sizeof(OmlaVornDeepSleepStatusIndS) == 128 && offsetof(OmlaVornDeepSleepStatusIndS, status) == 12 &&
              offsetof(OmlaVornDeepSleepStatusIndS, statusText) == 16);

/// OMLA_VORN_ACTIVATE_DEEP_SLEEP_REQ: a client puts the unit to deep sleep.
using OmlaVornActivateDeepSleepReqS = VornPlainSignal<0x165A804>;
using OmlaVornActivateDeepSleepCfmS = VornPlainSignal<0x165A805>;
using OmlaVornActivateDeepSleepRejS = VornRejectSignal<0x165A806>;

/// OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REQ: a client wakes the unit.
using OmlaVornDeactivateDeepSleepReqS = VornPlainSignal<0x165A807>;

/// OMLA_VORN_DEACTIVATE_DEEP_SLEEP_CFM: as long as a reject, with nothing behind the references.
struct OmlaVornDeactivateDeepSleepCfmS {
    static constexpr std::uint32_t number = 0x165A808;
    VornSignalHeader header;
    std::uint8_t reserved[116];
};
static_assert(sizeof(OmlaVornDeactivateDeepSleepCfmS) == 128);

using OmlaVornDeactivateDeepSleepRejS = VornRejectSignal<0x165A809>;
