#include "tools/boardsim/dunl/dunlServer.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"

namespace boardsim {

using namespace tolme::dunl;

DunlServer::DunlServer() : ProtobufServer("dunl", DunlServerMetadata().name(), messages), m_faults(indicator())
{
    add(m_capabilities);
    add(m_utcTime);
    add(m_connectivity);
    add(m_faults);
    add(m_oamState);

    onConnect<ConnEstablishReq, ConnEstablishCfm, ConnEstablishRej>();

    on<GetCapabilitiesReq>(m_capabilities, &DunlCapabilities::get);

    on<RegisterUtcTimeSourceReq>(m_utcTime, &UtcTime::registerSource);
    on<UnregisterUtcTimeSourceReq>(m_utcTime, &UtcTime::unregisterSource);
    on<SetUtcTimeReq>(m_utcTime, &UtcTime::setTime);

    on<ConnectivityConnectedReq>(m_connectivity, &Connectivity::connected);
    on<ConnectivityNotConnectedReq>(m_connectivity, &Connectivity::notConnected);
    on<ConnectivitySetSupervisionTimeoutReq>(m_connectivity, &Connectivity::setSupervisionTimeout);

    on<SubscribeFaultsReq>(m_faults, &Faults::subscribe);

    on<SetOamStateReq>(m_oamState, &boardsim::OamState::setState);

    onUnanswered<GetProductInfoReq>();
    onUnanswered<GetContainerPidReq>();

    indicates<FaultInd>();
    indicates<FaultCeaseInd>();
}

} // namespace boardsim
