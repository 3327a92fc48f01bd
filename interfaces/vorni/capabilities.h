/// VORNI signals that tell a client what the unit can do.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_GET_CAPABILITIES_REQ: a client asks.
using OmlaVornGetCapabilitiesReqS = VornPlainSignal<0x1658007>;

/// OMLA_VORN_GET_CAPABILITIES_CFM: records of VornCapabilityRecordS follow. There may be more of them than are filled.
struct OmlaVornGetCapabilitiesCfmS {
    static constexpr std::uint32_t number = 0x1658008;
    VornSignalHeader header;
    VornU16 noOfRecords; ///< that are filled
    std::uint8_t reserved[2];
};
static_assert(sizeof(OmlaVornGetCapabilitiesCfmS) == 16 && offsetof(OmlaVornGetCapabilitiesCfmS, noOfRecords) == 12);

/// Numbers of the capabilities that clients know.
namespace VornCapability {
enum Number : std::uint16_t {
    LoadingBlockSize = 1,
    SystemConstants = 2,
    HwPid = 3,
    ClimateControl = 6,
    CommonMmi = 7,
    Preinstalled = 8,
    SwCompList = 9,
    LockableResource = 11,
    LockableResourceSwStore = 12,
    ContainerPid = 13,
    IntegratedHwCategory_1 = 19,
    SpecialIndicator = 23,
    UnitPort = 24,
    MarketPid = 25,
    Baseband26 = 26,
    Baseband28 = 28,
    SiteFailureNote = 29,
    TemperatureLevelMeasurement = 30,
    EarlyPowerFailureReporting = 32,
    NotifyRestart = 34,
    HereIAm = 38,
    FdfIdList = 39,
    BootSwInventory = 40,
    AlternativeLmcSupport = 41,
    DeepSleepSupport = 42,
    RestartNotificationSupport = 43,
    EventHistorySupport = 44,
    RestartRankLabelSupport = 45,
    OpticalIndicatorControl = 46,
    wakeUpTimeSupport = 47,
};
} // namespace VornCapability

/// What all records have in common. The rest is one of the payloads below; a capability without one has zeros.
inline constexpr std::size_t vornCapabilityPayloadSize = 216;
struct VornCapabilityRecordS {
    VornU16 number;
    VornU16 size; ///< of the record, bytes
    std::uint8_t payload[vornCapabilityPayloadSize];
};
static_assert(sizeof(VornCapabilityRecordS) == 220 && offsetof(VornCapabilityRecordS, payload) == 4);

/// LoadingBlockSize
struct VornLoadingBlockSizeS {
    VornU16 reserved1; ///< 1
    VornU16 reserved2; ///< 1
    VornU16 reserved3; ///< 0
    std::uint8_t reserved4[2];
    boost::endian::big_int32_t blockSize; ///< bytes
};
static_assert(sizeof(VornLoadingBlockSizeS) == 12 && offsetof(VornLoadingBlockSizeS, blockSize) == 8);

/// ClimateControl and TemperatureLevelMeasurement: three numbers for each hot spot or sensor.
struct VornTemperatureRangesS {
    static constexpr std::size_t maxRanges = 10;
    struct Range {
        VornU16 id; ///< of the hot spot or sensor
        VornU16 upper;
        VornU16 lower;
        std::uint8_t reserved[2];
    };
    VornU16 noOfRanges;
    std::uint8_t reserved[2];
    Range ranges[maxRanges];
};
static_assert(sizeof(VornTemperatureRangesS) == 84 && offsetof(VornTemperatureRangesS, ranges) == 4 &&
              sizeof(VornTemperatureRangesS::Range) == 8);

/// FdfIdList
struct VornFdfIdListS {
    static constexpr std::size_t maxIds = 3;
    VornU16 noOfIds;
    std::uint8_t reserved[2];
    char ids[maxIds][68]; ///< zero-terminated
};
static_assert(sizeof(VornFdfIdListS) == 208 && offsetof(VornFdfIdListS, ids) == 4);

/// BootSwInventory
struct VornBootSwInventoryS {
    static constexpr std::size_t maxEntries = 5;
    struct Entry {
        char productNumber[24];   ///< zero-terminated, at most 22 characters
        char productRevision[12]; ///< zero-terminated, at most 8 characters
    };
    VornU32 noOfEntries;
    Entry entries[maxEntries];
};
static_assert(sizeof(VornBootSwInventoryS) == 184 && offsetof(VornBootSwInventoryS, entries) == 4);

/// AlternativeLmcSupport
struct VornAlternativeLmcS {
    char tag[16]; ///< zero-terminated
};

/// RestartRankLabelSupport and wakeUpTimeSupport
struct VornCapabilityValueS {
    VornU32 value; ///< the label; the time in seconds
};
