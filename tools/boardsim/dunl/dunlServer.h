/// The DUNL server, owner of the board's resources.
#pragma once

#include "tools/boardsim/core/board.h"
#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/dunl/connectivity.h"
#include "tools/boardsim/dunl/dunlCapabilities.h"
#include "tools/boardsim/dunl/faults.h"
#include "tools/boardsim/dunl/hardwareLogs.h"
#include "tools/boardsim/dunl/oamState.h"
#include "tools/boardsim/dunl/productData.h"
#include "tools/boardsim/dunl/restarts.h"
#include "tools/boardsim/dunl/selectiveLoading.h"
#include "tools/boardsim/dunl/temperatures.h"
#include "tools/boardsim/dunl/utcTime.h"

namespace boardsim {

class DunlServer : public ProtobufServer
{
public:
    explicit DunlServer(Board& board);

private:
    DunlCapabilities m_capabilities;
    UtcTime m_utcTime;
    ProductData m_productData;
    HardwareLogs m_hardwareLogs;
    Connectivity m_connectivity;
    Faults m_faults;
    OamState m_oamState;
    SelectiveLoading m_selectiveLoading;
    Temperatures m_temperatures;
    Restarts m_restarts;
};

} // namespace boardsim
