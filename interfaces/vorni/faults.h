/// VORNI signals of the unit's faults. The fault identifiers are those of vorni/faultIds.h.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_SUBSCRIBE_FAULTS_REQ: a client asks for faults in the short form.
using OmlaVornSubscribeFaultsReqS = VornPlainSignal<0x165800A>;

/// OMLA_VORN_SUBSCRIBE_FAULTS_CFM: it will be told; the faults that are shown follow.
using OmlaVornSubscribeFaultsCfmS = VornPlainSignal<0x165800B>;

/// OMLA_VORN_FAULT_IND: a fault in the short form.
struct OmlaVornFaultIndS {
    static constexpr std::uint32_t number = 0x165800D;
    VornSignalHeader header;
    VornU16 faultId;
    std::uint8_t reserved1[2];
    char faultDescription[110]; ///< zero-terminated
    std::uint8_t reserved2[2];
    VornU16 reserved3; ///< 0
    std::uint8_t reserved4[10];
    VornU16 faultCase; ///< the producer's sub-code
    std::uint8_t reserved5[2];
};
static_assert(sizeof(OmlaVornFaultIndS) == 144 && offsetof(OmlaVornFaultIndS, faultId) == 12 &&
              offsetof(OmlaVornFaultIndS, faultDescription) == 16 && offsetof(OmlaVornFaultIndS, reserved3) == 128 &&
              offsetof(OmlaVornFaultIndS, faultCase) == 140);

/// OMLA_VORN_FAULTCEASE_IND: a fault is over; the same for both forms.
struct OmlaVornFaultceaseIndS {
    static constexpr std::uint32_t number = 0x165800E;
    VornSignalHeader header;
    VornU16 faultId;
    VornU16 reserved1; ///< 0
    std::uint8_t reserved2[8];
    VornU16 faultCase; ///< of the fault that was raised
    std::uint8_t reserved3[2];
};
static_assert(sizeof(OmlaVornFaultceaseIndS) == 28 && offsetof(OmlaVornFaultceaseIndS, faultId) == 12 &&
              offsetof(OmlaVornFaultceaseIndS, faultCase) == 24);

/// OMLA_VORN_FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND: a fault in the form with label.
struct OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS {
    static constexpr std::uint32_t number = 0x165A101;
    VornSignalHeader header;
    VornU16 faultId;
    std::uint8_t reserved1[2];
    char faultDescription[110]; ///< zero-terminated
    std::uint8_t reserved2[2];
    VornU16 reserved3; ///< 0
    std::uint8_t reserved4[10];
    VornU16 faultCase; ///< the producer's sub-code
    std::uint8_t reserved5[2];
    VornU32 recoveryTime;  ///< seconds, 300 at least
    char hwFaultLabel[20]; ///< zero-terminated, may be empty
};
static_assert(sizeof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS) == 168 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, faultId) == 12 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, faultDescription) == 16 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, reserved3) == 128 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, faultCase) == 140 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, recoveryTime) == 144 &&
              offsetof(OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS, hwFaultLabel) == 148);

/// OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_CFM: it will be told; the faults that are shown follow.
using OmlaVornSubscribeFaultsWithHwFaultLabelCfmS = VornPlainSignal<0x165A104>;

/// OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ: a client asks for faults in the form with label.
using OmlaVornSubscribeFaultsWithHwFaultLabelReqS = VornPlainSignal<0x165A107>;
