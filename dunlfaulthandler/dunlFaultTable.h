/// The DUNL server's faults: what its numbers mean to the unit.
#pragma once

#include <cstdint>

struct DunlFaultInfo {
    const char* name;
    std::uint16_t faultId;      ///< OMLA_CONST_FH_FAULT_ID_...
    std::uint32_t faultDescTag; ///< 0: described by its name
};

namespace DunlFaultTable {

// Numbers of the DUNL server that the intake looks at.
inline constexpr std::int32_t hwFault = 0;
inline constexpr std::int32_t externalFanFailed = 7;
inline constexpr std::int32_t externalFanDisconnected = 8;
inline constexpr std::int32_t externalPowerSupplyFault = 11;
inline constexpr std::int32_t externalFanHostDisconnected = 12; ///< no row: it is taken for a disconnected fan

/// Null where the number isn't known.
const DunlFaultInfo* find(std::int32_t dunlFaultId);

/// The order of coordination, a lower value earlier: four hexadecimal digits, each compared by itself, where 0xA means
/// that the fault hides all behind it. 0 for a fault that has none.
std::uint32_t priority(std::uint16_t faultId);

/// Null where the tag has no text.
const char* description(std::uint32_t faultDescTag);

} // namespace DunlFaultTable
