#include "tools/boardsim/yarrowi/yarrowiServer.h"

#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

namespace boardsim {

using namespace yarrowi;

YarrowiServer::YarrowiServer() : ProtobufServer("yarrowi", ServerMetadata().name(), messages), m_deepSleep(indicator())
{
    add(m_deepSleep);

    onConnect<ConnectionEstablishReq, ConnectionEstablishCfm, ConnectionEstablishRej>();
    onDisconnect<ConnectionClosedownReq, ConnectionClosedownCfm>();

    on<CapabilityExchangeReq>(m_deepSleep, &DeepSleep::exchangeCapability);
    on<SubscribeDeepSleepStatusReq>(m_deepSleep, &DeepSleep::subscribe);
    on<ActivateDeepSleepReq>(m_deepSleep, &DeepSleep::activate);
    on<DeactivateDeepSleepReq>(m_deepSleep, &DeepSleep::deactivate);

    indicates<DeepSleepStatusInd>(m_deepSleep);
}

} // namespace boardsim
