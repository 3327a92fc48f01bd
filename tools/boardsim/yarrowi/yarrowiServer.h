/// The yarrowi server, which puts the board to deep sleep. Its clients have several connections each.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/yarrowi/deepSleep.h"

namespace boardsim {

class YarrowiServer : public ProtobufServer
{
public:
    YarrowiServer();

private:
    DeepSleep m_deepSleep;
};

} // namespace boardsim
