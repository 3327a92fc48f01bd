#include "dunlfaulthandler/dunlFaultTable.h"

#include "vorni/faultIds.h"

#include <map>

namespace DunlFaultTable {

namespace {

template <typename Map>
const typename Map::mapped_type* lookUp(const Map& map, const typename Map::key_type& key)
{
    const auto found = map.find(key);
    return found != map.end() ? &found->second : nullptr;
}

const std::map<std::int32_t, DunlFaultInfo> faults{
    {hwFault, {"HW_FAULT", OMLA_CONST_FH_FAULT_ID_HW_FAULT, 0}},
    {1, {"HW_FAULT_FOR_EVALUATION_LTU_FAULT", OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION, 7}},
    {2, {"HW_FAULT_FOR_EVALUATION_INIT_FAULT", OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION, 8}},
    {3, {"HW_FAULT_FOR_EVALUATION", OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION, 9}},
    {4, {"EXCEPTIONAL_TEMPERATURE_TOO_LOW", OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW, 2}},
    {5, {"EXCEPTIONAL_TEMPERATURE_TOO_HIGH", OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH, 1}},
    {6, {"EXTERNAL_FAN_DEGRADED", OMLA_CONST_FH_FAULT_ID_FAN_DEGRADED, 3}},
    {externalFanFailed, {"EXTERNAL_FAN_FAILED", OMLA_CONST_FH_FAULT_ID_FAN_FAILED, 5}},
    {externalFanDisconnected, {"EXTERNAL_FAN_DISCONNECTED", OMLA_CONST_FH_FAULT_ID_FAN_DISCONNECTED, 4}},
    {9, {"POE_DEVICE_0_TEMP_EXC_HIGH", OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH, 1}},
    {10, {"POE_DEVICE_1_TEMP_EXC_HIGH", OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH, 1}},
    {externalPowerSupplyFault, {"EXTERNAL_POWER_SUPPLY_FAULT", OMLA_CONST_FH_FAULT_ID_POWER_FAILURE, 6}},
};

const std::map<std::uint16_t, std::uint32_t> priorities{
    {OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH, 0x1A00},
    {OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW, 0x1A00},
    {OMLA_CONST_FH_FAULT_ID_HW_FAULT, 0x1A01},
    {OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION, 0x1A01},
    {OMLA_CONST_FH_FAULT_ID_FAN_DEGRADED, 0x0001},
    {OMLA_CONST_FH_FAULT_ID_FAN_FAILED, 0x0001},
    {OMLA_CONST_FH_FAULT_ID_FAN_DISCONNECTED, 0x0001},
    {OMLA_CONST_FH_FAULT_ID_POWER_FAILURE, 0x0001},
};

const std::map<std::uint32_t, const char*> descriptions{
    {1, "Temperature is too high."},
    {2, "Temperature is too low."},
    {3, "RU External Fan Degraded"},
    {4, "RU External Fan Disconnected"},
    {5, "RU External Fan Failed"},
    {6, "External power supply fault"},
    {7, "LTU Fault"},
    {8, "Initialization failure"},
    {9, "Internal DC fault"},
};

} // namespace

const DunlFaultInfo* find(std::int32_t dunlFaultId)
{
    return lookUp(faults, dunlFaultId);
}

std::uint32_t priority(std::uint16_t faultId)
{
    const std::uint32_t* found = lookUp(priorities, faultId);
    return found != nullptr ? *found : 0;
}

const char* description(std::uint32_t faultDescTag)
{
    const auto* found = lookUp(descriptions, faultDescTag);
    return found != nullptr ? *found : nullptr;
}

} // namespace DunlFaultTable
