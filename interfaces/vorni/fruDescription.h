/// VORNI signals of the unit's FRU description file, which comes in parts.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_GET_FRU_DESC_FILE_REQ: a client asks for the file of an FDF_ID.
struct OmlaVornGetFruDescFileReqS {
    static constexpr std::uint32_t number = 0x165A600;
    VornSignalHeader header; ///< the FDF_ID follows, zero-terminated
};

/// OMLA_VORN_GET_FRU_DESC_FILE_CFM: the file follows in parts.
using OmlaVornGetFruDescFileCfmS = VornPlainSignal<0x165A601>;

/// OMLA_VORN_GET_FRU_DESC_FILE_REJ: there is no such file.
using OmlaVornGetFruDescFileRejS = VornDescribedRejectSignal<0x165A602>;

/// OMLA_VORN_FRU_DESC_FILE_DATA: a part of the file. The order of the two numbers is its own.
struct OmlaVornFruDescFileDataS {
    static constexpr std::uint32_t number = 0x165A603;
    static constexpr std::size_t slack = 3; ///< bytes that the signal is longer than its text
    VornSignalHeader header;
    VornU32 noOfBytes; ///< of the text, which follows
    VornU32 endFlag;   ///< 1 in the last part, else 0
};
static_assert(sizeof(OmlaVornFruDescFileDataS) == 20 && offsetof(OmlaVornFruDescFileDataS, noOfBytes) == 12 &&
              offsetof(OmlaVornFruDescFileDataS, endFlag) == 16);

/// OMLA_VORN_FRU_DESC_FILE_ACK: the client wants the next part.
using OmlaVornFruDescFileAckS = VornPlainSignal<0x165A604>;
