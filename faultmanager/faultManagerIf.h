/// The hub through which every fault passes on its way to the clients.
#pragma once

#include "faultmanager/faultData.h"

namespace VornServer {

class FaultManagerIf
{
public:
    virtual ~FaultManagerIf() = default;

    /// Registers the debug commands. False where that failed.
    virtual bool init() = 0;

    /// Takes a fault over; may change its faultId. False where the fault isn't supported.
    virtual bool addFault(FaultData& fault) = 0;
};

} // namespace VornServer
