/// VORNI signals of the product identity of the hardware and the container. All texts are zero-terminated; one that is
/// longer than its field is cut.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_GET_HW_PID_REQ: a client asks for the product data of the hardware.
using OmlaVornGetHwPidReqS = VornPlainSignal<0x1658200>;

/// OMLA_VORN_GET_HW_PID_CFM: the product data.
struct OmlaVornGetHwPidCfmS {
    static constexpr std::uint32_t number = 0x1658201;
    VornSignalHeader header;
    char productionDate[9];
    std::uint8_t reserved1[3];
    char productName[13];
    std::uint8_t reserved2[3];
    char productNumber[25];
    std::uint8_t reserved3[3];
    char productRevision[8];
    char serialNumber[14];
    std::uint8_t reserved4[2];
};
static_assert(sizeof(OmlaVornGetHwPidCfmS) == 92 && offsetof(OmlaVornGetHwPidCfmS, productionDate) == 12 &&
              offsetof(OmlaVornGetHwPidCfmS, productName) == 24 &&
              offsetof(OmlaVornGetHwPidCfmS, productNumber) == 40 &&
              offsetof(OmlaVornGetHwPidCfmS, productRevision) == 68 &&
              offsetof(OmlaVornGetHwPidCfmS, serialNumber) == 76);

/// OMLA_VORN_GET_HW_PID_REJ: it isn't known in full.
using OmlaVornGetHwPidRejS = VornDescribedRejectSignal<0x1658202>;

/// OMLA_VORN_GET_CONTAINER_PID_REQ: a client asks for the product data of the container.
using OmlaVornGetContainerPidReqS = VornPlainSignal<0x1658203>;

/// OMLA_VORN_GET_CONTAINER_PID_CFM: the product data.
struct OmlaVornGetContainerPidCfmS {
    static constexpr std::uint32_t number = 0x1658204;
    VornSignalHeader header;
    char productionDate[9];
    std::uint8_t reserved1[3];
    char productName[21];
    std::uint8_t reserved2[3];
    char productNumber[25];
    std::uint8_t reserved3[3];
    char productRevision[8];
    char serialNumber[14];
    std::uint8_t reserved4[2];
};
static_assert(sizeof(OmlaVornGetContainerPidCfmS) == 100 &&
              offsetof(OmlaVornGetContainerPidCfmS, productionDate) == 12 &&
              offsetof(OmlaVornGetContainerPidCfmS, productName) == 24 &&
              offsetof(OmlaVornGetContainerPidCfmS, productNumber) == 48 &&
              offsetof(OmlaVornGetContainerPidCfmS, productRevision) == 76 &&
              offsetof(OmlaVornGetContainerPidCfmS, serialNumber) == 84);

/// OMLA_VORN_GET_CONTAINER_PID_REJ: it isn't known in full.
using OmlaVornGetContainerPidRejS = VornDescribedRejectSignal<0x1658205>;

/// OMLA_VORN_GET_MARKET_NAME_PID_REQ: a client asks for the product data of the hardware and its market name.
using OmlaVornGetMarketNamePidReqS = VornPlainSignal<0x1658206>;

/// OMLA_VORN_GET_MARKET_NAME_PID_CFM: both.
struct OmlaVornGetMarketNamePidCfmS {
    static constexpr std::uint32_t number = 0x1658207;
    VornSignalHeader header;
    char productionDate[9];
    std::uint8_t reserved1[3];
    char productName[33];
    std::uint8_t reserved2[3];
    char marketName[33];
    std::uint8_t reserved3[3];
    char productNumber[25];
    std::uint8_t reserved4[3];
    char productRevision[8];
    char serialNumber[14];
    std::uint8_t reserved5[2];
};
static_assert(sizeof(OmlaVornGetMarketNamePidCfmS) == 148 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, productionDate) == 12 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, productName) == 24 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, marketName) == 60 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, productNumber) == 96 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, productRevision) == 124 &&
              offsetof(OmlaVornGetMarketNamePidCfmS, serialNumber) == 132);

/// OMLA_VORN_GET_MARKET_NAME_PID_REJ: they aren't known in full.
using OmlaVornGetMarketNamePidRejS = VornDescribedRejectSignal<0x1658208>;

/// OMLA_VORN_GET_EXTENDED_MARKET_NAME_REQ: a client asks for the market name in full length.
using OmlaVornGetExtendedMarketNameReqS = VornPlainSignal<0x1658209>;

/// OMLA_VORN_GET_EXTENDED_MARKET_NAME_CFM: the market name.
struct OmlaVornGetExtendedMarketNameCfmS {
    static constexpr std::uint32_t number = 0x165820A;
    VornSignalHeader header;
    char marketName[65];
    std::uint8_t reserved[3];
};
static_assert(sizeof(OmlaVornGetExtendedMarketNameCfmS) == 80 &&
              offsetof(OmlaVornGetExtendedMarketNameCfmS, marketName) == 12);

/// OMLA_VORN_GET_EXTENDED_MARKET_NAME_REJ: it isn't known.
using OmlaVornGetExtendedMarketNameRejS = VornDescribedRejectSignal<0x165820B>;
