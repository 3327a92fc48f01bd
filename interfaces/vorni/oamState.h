/// VORNI signals of a client's O&M state.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_AUDIT_REQ: a client asks for the O&M state of its session.
using OmlaVornAuditReqS = VornPlainSignal<0x1658400>;

/// OMLA_VORN_AUDIT_CFM: the O&M state.
struct OmlaVornAuditCfmS {
    static constexpr std::uint32_t number = 0x1658401;
    VornSignalHeader header;
    VornU16 state; ///< 0 starting, 1 operational, 2 disabled
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornAuditCfmS) == 16 && offsetof(OmlaVornAuditCfmS, state) == 12);

/// OMLA_VORN_ENABLE_OPERATION_REQ: a client takes its operation up.
using OmlaVornEnableOperationReqS = VornPlainSignal<0x1658403>;

/// OMLA_VORN_ENABLE_OPERATION_CFM: the session is operational.
using OmlaVornEnableOperationCfmS = VornPlainSignal<0x1658404>;

/// OMLA_VORN_ENABLE_OPERATION_REJ: a session that was disabled can't be enabled again.
using OmlaVornEnableOperationRejS = VornRejectSignal<0x1658405>;

/// OMLA_VORN_DISABLE_OPERATION_REQ: a client ends its operation.
using OmlaVornDisableOperationReqS = VornPlainSignal<0x1658406>;

/// OMLA_VORN_DISABLE_OPERATION_CFM: the session is disabled.
using OmlaVornDisableOperationCfmS = VornPlainSignal<0x1658407>;

/// OMLA_VORN_DISABLE_OPERATION_REJ: the session has no state to be disabled from.
using OmlaVornDisableOperationRejS = VornRejectSignal<0x1658408>;
