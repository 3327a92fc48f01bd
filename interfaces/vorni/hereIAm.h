/// VORNI signals of Here-I-Am, by which a technician at the site is shown which unit is meant.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_ORDER_HERE_I_AM_REQ: a client that has subscribed orders it on or off.
struct OmlaVornOrderHereIAmReqS {
    static constexpr std::uint32_t number = 0x165A401;
    VornSignalHeader header;
    VornS16 order; ///< 1 or 2
};
static_assert(sizeof(OmlaVornOrderHereIAmReqS) == 14 && offsetof(OmlaVornOrderHereIAmReqS, order) == 12);

/// OMLA_VORN_ORDER_HERE_I_AM_CFM: the order is taken.
struct OmlaVornOrderHereIAmCfmS {
    static constexpr std::uint32_t number = 0x165A402;
    VornSignalHeader header;
    VornU16 state; ///< the board's; 0 where it doesn't tell
    std::uint8_t reserved[2];
    char description[128]; ///< the board's, zero-terminated; may be empty
};
static_assert(sizeof(OmlaVornOrderHereIAmCfmS) == 144 && offsetof(OmlaVornOrderHereIAmCfmS, state) == 12 &&
              offsetof(OmlaVornOrderHereIAmCfmS, description) == 16);

using OmlaVornOrderHereIAmRejS = VornRejectSignal<0x165A403>;

/// OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ: a client wants to be told of every change.
using OmlaVornSubscribeHereIAmStateReqS = VornPlainSignal<0x165A404>;
using OmlaVornSubscribeHereIAmStateCfmS = VornPlainSignal<0x165A405>;
using OmlaVornSubscribeHereIAmStateRejS = VornRejectSignal<0x165A406>;

/// OMLA_VORN_HERE_I_AM_STATE_IND: the state has changed.
struct OmlaVornHereIAmStateIndS {
    static constexpr std::uint32_t number = 0x165A407;
    VornSignalHeader header;
    VornU16 state;
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornHereIAmStateIndS) == 16 && offsetof(OmlaVornHereIAmStateIndS, state) == 12);
