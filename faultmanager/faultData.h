/// A fault as its producers report it.
#pragma once

#include <cstdint>
#include <string>

namespace VornServer {

/// Who reports a fault.
enum class FaultSource : std::uint32_t {
    DUNL = 0,
    BB_VORNI = 1,
    RHUNE = 2,
    XCS = 3,
    NONE = 4,
};

/// "DUNL", ...; "INVALID_VALUE(<n>)" for a value that isn't one of them.
std::string faultSourceText(FaultSource source);

/// A plain value that is copied freely.
class FaultData
{
public:
    FaultData() = default;
    FaultData(const FaultData&) = default;
    FaultData& operator=(const FaultData&) = default;
    virtual ~FaultData() = default;

    FaultSource source = FaultSource::NONE;
    std::uint16_t faultId = 0;
    std::uint16_t faultCase = 0; ///< a producer's sub-code
    std::string faultDescription;
    std::uint32_t recoveryTime = 0; ///< seconds
    std::string hwFaultLabel;       ///< may be empty
};

} // namespace VornServer
