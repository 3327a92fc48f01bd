/// VORNI signals of the unit's indicators. A code of 16 bits stands for an indicator and its state.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// The code of an indication that the board doesn't tell.
inline constexpr std::uint16_t vornUnknownIndication = 0x00FF;

/// OMLA_VORN_SET_VISUAL_INDICATION_REQ: a client sets an indicator.
struct OmlaVornSetVisualIndicationReqS {
    static constexpr std::uint32_t number = 0x1658004;
    VornSignalHeader header;
    VornU16 visualState; ///< the code
};
static_assert(sizeof(OmlaVornSetVisualIndicationReqS) == 14 &&
              offsetof(OmlaVornSetVisualIndicationReqS, visualState) == 12);

using OmlaVornSetVisualIndicationCfmS = VornPlainSignal<0x1658005>;
using OmlaVornSetVisualIndicationRejS = VornRejectSignal<0x1658006>;

/// OMLA_VORN_GET_VISUAL_INDICATION_REQ: a client asks what is shown.
using OmlaVornGetVisualIndicationReqS = VornPlainSignal<0x165800F>;

/// OMLA_VORN_GET_VISUAL_INDICATION_CFM: the codes. The board counts its indications in another order.
struct OmlaVornGetVisualIndicationCfmS {
    static constexpr std::uint32_t number = 0x1658010;
    VornSignalHeader header;
    VornU16 firstIndication;
    VornU16 secondIndication;
    VornU16 fourthIndication;
    VornU16 thirdIndication;
};
static_assert(sizeof(OmlaVornGetVisualIndicationCfmS) == 20 &&
              offsetof(OmlaVornGetVisualIndicationCfmS, firstIndication) == 12 &&
              offsetof(OmlaVornGetVisualIndicationCfmS, secondIndication) == 14 &&
              offsetof(OmlaVornGetVisualIndicationCfmS, fourthIndication) == 16 &&
              offsetof(OmlaVornGetVisualIndicationCfmS, thirdIndication) == 18);

using OmlaVornGetVisualIndicationRejS = VornRejectSignal<0x1658011>;

/// OMLA_VORN_GET_SPECIAL_INDICATOR_REQ: a client asks for the indicators that have a name.
using OmlaVornGetSpecialIndicatorReqS = VornPlainSignal<0x1659A00>;

/// One of them.
struct VornSpecialIndicatorS {
    char name[128]; ///< zero-terminated
    VornU16 state;
    std::uint8_t reserved[2];
};
static_assert(sizeof(VornSpecialIndicatorS) == 132 && offsetof(VornSpecialIndicatorS, state) == 128);

/// OMLA_VORN_GET_SPECIAL_INDICATOR_CFM: they follow.
struct OmlaVornGetSpecialIndicatorCfmS {
    static constexpr std::uint32_t number = 0x1659A01;
    VornSignalHeader header;
    VornU32 noOfIndicators;
};
static_assert(sizeof(OmlaVornGetSpecialIndicatorCfmS) == 16 &&
              offsetof(OmlaVornGetSpecialIndicatorCfmS, noOfIndicators) == 12);

using OmlaVornGetSpecialIndicatorRejS = VornRejectSignal<0x1659A02>;
