#include "tools/boardsim/fesk/feskServer.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"

namespace boardsim {

using namespace tolme::fesk;

FeskServer::FeskServer()
    : ProtobufServer("fesk", ServerMetadata().name(), messages), m_indicators(m_mmiUsers),
      m_maintenanceState(requestIndicator(), m_mmiUsers), m_hereIAm(requestIndicator(), m_mmiUsers),
      m_opticalIndicator(requestIndicator(), m_mmiUsers)
{
    add(m_capabilities);
    add(m_mmiUsers);
    add(m_indicators);
    add(m_maintenanceState);
    add(m_hereIAm);
    add(m_opticalIndicator);

    onConnect<ConnEstablishReq, ConnEstablishCfm, ConnEstablishRej>();

    on<GetCapabilitiesReq>(m_capabilities, &FeskCapabilities::get);

    on<RegisterMmiUserReq>(m_mmiUsers, &MmiUsers::registerUser);
    on<UnregisterMmiUserReq>(m_mmiUsers, &MmiUsers::unregisterUser);

    on<SetVisualIndicationReq>(m_indicators, &Indicators::set);
    on<GetVisualIndicationReq>(m_indicators, &Indicators::get);

    on<SetMaintStateReq>(m_maintenanceState, &MaintenanceState::set);
    on<SubscribeMaintStateReq>(m_maintenanceState, &MaintenanceState::subscribe);

    on<OrderHereIAmReq>(m_hereIAm, &HereIAm::order);
    on<SubscribeHereIAmStateReq>(m_hereIAm, &HereIAm::subscribe);

    on<OpticalIndicatorControlSubscribeStatusChangeReq>(m_opticalIndicator, &OpticalIndicator::subscribe);
    on<OpticalIndicatorControlActivateReq>(m_opticalIndicator, &OpticalIndicator::activate);
    on<OpticalIndicatorControlActivateWithDurationReq>(m_opticalIndicator, &OpticalIndicator::activateWithDuration);
    on<OpticalIndicatorControlDeactivateReq>(m_opticalIndicator, &OpticalIndicator::deactivate);

    indicates<MaintStateInd>(m_maintenanceState);
    indicates<HereIAmStateInd>(m_hereIAm);
    indicates<OpticalIndicatorControlStatusChangeInd>(m_opticalIndicator);
}

} // namespace boardsim
