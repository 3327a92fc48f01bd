/// A fault that is active, and the priorities by which active faults hide each other.
#pragma once

#include "faultmanager/faultData.h"

#include <cstdint>

namespace VornServer {

enum class Priority : std::uint32_t {
    NONE = 0,
    LOWEST = 1,
    THIRD = 2,
    SECOND = 3,
    FIRST = 4,
};

/// "FIRST", ...; "Unknown priority" for a value that isn't one of them.
const char* priorityText(Priority priority);

class ActiveFault : public FaultData
{
public:
    ActiveFault() = default;
    ActiveFault(const FaultData& fault, std::uint32_t listNumber)
        : FaultData(fault), numOfSources(1), faultClass(listNumber)
    {
    }

    std::uint32_t numOfSources = 0; ///< how often it has been added and not removed
    bool isReported = false;        ///< the clients have been told of it, and not of its cease
    std::uint32_t faultClass = 0;   ///< number of the list that holds it
};

} // namespace VornServer
