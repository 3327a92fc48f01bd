#include "tools/boardsim/dunl/dunlServer.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"

namespace boardsim {

using namespace tolme::dunl;

DunlServer::DunlServer(Board& board)
    : ProtobufServer("dunl", DunlServerMetadata().name(), messages), m_faults(indicator()),
      m_selectiveLoading(requestIndicator()), m_temperatures(requestIndicator()), m_restarts(requestIndicator(), board)
{
    add(m_capabilities);
    add(m_utcTime);
    add(m_productData);
    add(m_hardwareLogs);
    add(m_connectivity);
    add(m_faults);
    add(m_oamState);
    add(m_selectiveLoading);
    add(m_temperatures);
    add(m_restarts);

    onConnect<ConnEstablishReq, ConnEstablishCfm, ConnEstablishRej>();

    on<GetCapabilitiesReq>(m_capabilities, &DunlCapabilities::get);

    on<RegisterUtcTimeSourceReq>(m_utcTime, &UtcTime::registerSource);
    on<UnregisterUtcTimeSourceReq>(m_utcTime, &UtcTime::unregisterSource);
    on<SetUtcTimeReq>(m_utcTime, &UtcTime::setTime);

    on<GetProductInfoReq>(m_productData, &ProductData::getProduct);
    on<GetContainerPidReq>(m_productData, &ProductData::getContainer);

    on<HwLogSetReq>(m_hardwareLogs, &HardwareLogs::set);
    on<HwLogGetReq>(m_hardwareLogs, &HardwareLogs::get);
    on<StoreNodeConfigEntryReq>(m_hardwareLogs, &HardwareLogs::storeNodeConfig);

    on<ConnectivityConnectedReq>(m_connectivity, &Connectivity::connected);
    on<ConnectivityNotConnectedReq>(m_connectivity, &Connectivity::notConnected);
    on<ConnectivitySetSupervisionTimeoutReq>(m_connectivity, &Connectivity::setSupervisionTimeout);

    on<SubscribeFaultsReq>(m_faults, &Faults::subscribe);

    on<SetOamStateReq>(m_oamState, &boardsim::OamState::setState);

    on<ValidateHwSwCompatibilityReq>(m_selectiveLoading, &SelectiveLoading::validate);
    on<ConnectedDevicesInitializedReq>(m_selectiveLoading, &SelectiveLoading::devicesInitialized);

    on<TempMeasStartReq>(m_temperatures, &Temperatures::start);
    on<TempMeasRestartReq>(m_temperatures, &Temperatures::restart);
    on<TempMeasStopReq>(m_temperatures, &Temperatures::stop);

    on<RestartBoardFwd>(m_restarts, &Restarts::order);
    on<SubscribeRestartBoardNotificationReq>(m_restarts, &Restarts::subscribe);
    on<GetRestartHistoryReq>(m_restarts, &Restarts::getHistory);

    indicates<FaultInd>(m_faults);
    indicates<FaultCeaseInd>(m_faults);
    indicates<ConnectedDevicesInitializedInd>(m_selectiveLoading);
    indicates<TempMeasInd>(m_temperatures);
    indicates<RestartBoardNotificationInd>(m_restarts);
}

} // namespace boardsim
