#include "faultmanager/faultData.h"

#include "faultmanager/activeFault.h"

#include <fmt/format.h>

namespace VornServer {

std::string faultSourceText(FaultSource source)
{
    switch (source) {
    case FaultSource::DUNL:
        return "DUNL";
    case FaultSource::BB_VORNI:
        return "BB_VORNI";
    case FaultSource::RHUNE:
        return "RHUNE";
    case FaultSource::XCS:
        return "XCS";
    case FaultSource::NONE:
        return "NONE";
    }
    return fmt::format("INVALID_VALUE({})", static_cast<std::uint32_t>(source));
}

const char* priorityText(Priority priority)
{
    switch (priority) {
    case Priority::FIRST:
        return "FIRST";
    case Priority::SECOND:
        return "SECOND";
    case Priority::THIRD:
        return "THIRD";
    case Priority::LOWEST:
        return "LOWEST";
    case Priority::NONE:
        return "NONE";
    }
    return "Unknown priority";
}

} // namespace VornServer
