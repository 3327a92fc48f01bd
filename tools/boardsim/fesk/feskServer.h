/// The FESK server, owner of the board's man-machine interface.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/fesk/feskCapabilities.h"
#include "tools/boardsim/fesk/hereIAm.h"
#include "tools/boardsim/fesk/indicators.h"
#include "tools/boardsim/fesk/maintenanceState.h"
#include "tools/boardsim/fesk/mmiUsers.h"
#include "tools/boardsim/fesk/opticalIndicator.h"

namespace boardsim {

class FeskServer : public ProtobufServer
{
public:
    FeskServer();

private:
    FeskCapabilities m_capabilities;
    MmiUsers m_mmiUsers;
    Indicators m_indicators;
    MaintenanceState m_maintenanceState;
    HereIAm m_hereIAm;
    OpticalIndicator m_opticalIndicator;
};

} // namespace boardsim
