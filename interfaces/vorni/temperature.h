/// VORNI signals of the measurement of hot spot temperatures.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_TEMP_MEAS_START_REQ: a client starts, retunes or stops its measurement.
struct OmlaVornTempMeasStartReqS {
    static constexpr std::uint32_t number = 0x1659100;
    VornSignalHeader header;
    std::uint8_t hotSpotMeasurementPeriod; ///< seconds, 1 to 30; 0 asks for a stop
};
static_assert(sizeof(OmlaVornTempMeasStartReqS) == 13 &&
              offsetof(OmlaVornTempMeasStartReqS, hotSpotMeasurementPeriod) == 12);

/// OMLA_VORN_TEMP_MEAS_START_CFM: it is started, retuned or stopped.
using OmlaVornTempMeasStartCfmS = VornPlainSignal<0x1659101>;

/// OMLA_VORN_TEMP_MEAS_START_REJ: it isn't.
using OmlaVornTempMeasStartRejS = VornRejectSignal<0x1659102>;

inline constexpr std::size_t vornMaxReadings = 10;

/// OMLA_VORN_TEMP_MEAS_IND: the temperatures of the hot spots.
struct OmlaVornTempMeasIndS {
    static constexpr std::uint32_t number = 0x1659103;
    VornSignalHeader header;
    VornU16 noOfReadings; ///< at most 10
    std::uint8_t reserved[2];
    VornS16 readings[vornMaxReadings]; ///< degrees Celsius; 0 behind noOfReadings
};
static_assert(sizeof(OmlaVornTempMeasIndS) == 36 && offsetof(OmlaVornTempMeasIndS, noOfReadings) == 12 &&
              offsetof(OmlaVornTempMeasIndS, readings) == 16);
