/// VORNI connection signals.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_CONN_ESTABLISH_REQ: a client asks for a connection. May be longer: the rest is the legacy server's.
struct OmlaVornConnEstablishReqS {
    static constexpr std::uint32_t number = 0x1658000;
    VornSignalHeader header;
    VornU16 protocolRev; ///< the client's protocol revision
};
static_assert(sizeof(OmlaVornConnEstablishReqS) == 14 && offsetof(OmlaVornConnEstablishReqS, protocolRev) == 12);

/// OMLA_VORN_CONN_ESTABLISH_CFM: the legacy server accepts the client. What follows the references is its own.
using OmlaVornConnEstablishCfmS = VornPlainSignal<0x1658001>;

/// OMLA_VORN_CONN_ESTABLISH_REJ: the legacy server refuses the client. All of it is the legacy server's.
using OmlaVornConnEstablishRejS = VornPlainSignal<0x1658002>;
