/// VORNI signals of the man-machine interface's users.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_SELECT_MMI_REQ: a client selects an MMI mode.
struct OmlaVornSelectMmiReqS {
    static constexpr std::uint32_t number = 0x1658012;
    VornSignalHeader header;
    VornU32 mode; ///< only mode 1 is supported
};
static_assert(sizeof(OmlaVornSelectMmiReqS) == 16 && offsetof(OmlaVornSelectMmiReqS, mode) == 12);

/// OMLA_VORN_SELECT_MMI_CFM: the mode is selected.
using OmlaVornSelectMmiCfmS = VornPlainSignal<0x1658013>;

/// OMLA_VORN_SELECT_MMI_REJ: the mode isn't supported.
using OmlaVornSelectMmiRejS = VornRejectSignal<0x1658014>;
