#include "vorni/faultIds.h"

#define FAULT_NAME(id_)                                                                                                \
    {                                                                                                                  \
        id_, #id_                                                                                                      \
    }

const std::map<std::uint16_t, std::string>& Vorni::faultNames()
{
    static const std::map<std::uint16_t, std::string> names{
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_HW_FAULT),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_POWER_FAILURE),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_SW_ERROR),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_LINK_ERROR),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_INTERNAL_RESOURCE_FAILURE),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_FAN_DEGRADED),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_FAN_FAILED),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_FAN_DISCONNECTED),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW),
        FAULT_NAME(OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED),
    };
    return names;
}
