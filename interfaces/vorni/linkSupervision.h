/// VORNI signals of link supervision.
#pragma once

#include "vorni/header.h"

/// OMLA_VORN_LINK_SUPERVISION_REQ: a client asks for supervision of its link. May be longer.
using OmlaVornLinkSupervisionReqS = VornPlainSignal<0x165801C>;

/// OMLA_VORN_LINK_SUPERVISION_REJ: the server has no such function for clients.
using OmlaVornLinkSupervisionRejS = VornRejectSignal<0x165801E>;
