/// The FESK server, owner of the board's man-machine interface.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/fesk/feskCapabilities.h"
#include "tools/boardsim/fesk/mmiUsers.h"

namespace boardsim {

class FeskServer : public ProtobufServer
{
public:
    FeskServer();

private:
    FeskCapabilities m_capabilities;
    MmiUsers m_mmiUsers;
};

} // namespace boardsim
