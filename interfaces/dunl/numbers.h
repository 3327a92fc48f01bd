/// Message numbers of the DUNL interface.
#pragma once

#include "messageNumber.h"

#include <array>
#include <cstdint>

namespace tolme::dunl {

// For headers that name a message: the generated header is for sources.
class ConnEstablishReq;
class ConnEstablishCfm;
class ConnEstablishRej;
class GetCapabilitiesReq;
class GetCapabilitiesCfm;
class GetCapabilitiesRej;
class RegisterUtcTimeSourceReq;
class RegisterUtcTimeSourceCfm;
class RegisterUtcTimeSourceRej;
class UnregisterUtcTimeSourceReq;
class UnregisterUtcTimeSourceCfm;
class UnregisterUtcTimeSourceRej;
class SetUtcTimeReq;
class SetUtcTimeCfm;
class SetUtcTimeRej;
class GetProductInfoReq;
class GetProductInfoCfm;
class GetProductInfoRej;
class GetContainerPidReq;
class GetContainerPidCfm;
class GetContainerPidRej;
class TempMeasStartReq;
class TempMeasStartCfm;
class TempMeasStartRej;
class TempMeasStopReq;
class TempMeasStopCfm;
class TempMeasStopRej;
class TempMeasInd;
class RestartBoardFwd;
class HwLogSetReq;
class HwLogSetCfm;
class HwLogSetRej;
class HwLogGetReq;
class HwLogGetCfm;
class HwLogGetRej;
class SubscribeFaultsReq;
class SubscribeFaultsCfm;
class FaultInd;
class FaultCeaseInd;
class SetOamStateCfm;
class SetOamStateRej;
class StoreNodeConfigEntryReq;
class StoreNodeConfigEntryCfm;
class StoreNodeConfigEntryRej;
class TempMeasRestartReq;
class TempMeasRestartCfm;
class TempMeasRestartRej;
class ConnectivitySetSupervisionTimeoutReq;
class ConnectivitySetSupervisionTimeoutCfm;
class ConnectivitySetSupervisionTimeoutRej;
class ConnectivityConnectedReq;
class ConnectivityConnectedCfm;
class ConnectivityConnectedRej;
class ConnectivityNotConnectedReq;
class ConnectivityNotConnectedCfm;
class ConnectivityNotConnectedRej;
class SubscribeRestartBoardNotificationReq;
class SubscribeRestartBoardNotificationCfm;
class SubscribeRestartBoardNotificationRej;
class RestartBoardNotificationInd;
class GetRestartHistoryReq;
class GetRestartHistoryCfm;
class GetRestartHistoryRej;
class ValidateHwSwCompatibilityReq;
class ValidateHwSwCompatibilityCfm;
class ValidateHwSwCompatibilityRej;
class ConnectedDevicesInitializedReq;
class ConnectedDevicesInitializedCfm;
class ConnectedDevicesInitializedInd;
class SetOamStateReq;

/// The number that a message travels under.
namespace MsgNo {
inline constexpr std::uint32_t ConnEstablishReq = 0x170772D;
inline constexpr std::uint32_t ConnEstablishCfm = 0x170772E;
inline constexpr std::uint32_t ConnEstablishRej = 0x170772F;
inline constexpr std::uint32_t GetCapabilitiesReq = 0x1707730;
inline constexpr std::uint32_t GetCapabilitiesCfm = 0x1707731;
inline constexpr std::uint32_t GetCapabilitiesRej = 0x1707732;
inline constexpr std::uint32_t RegisterUtcTimeSourceReq = 0x1707733;
inline constexpr std::uint32_t RegisterUtcTimeSourceCfm = 0x1707734;
inline constexpr std::uint32_t RegisterUtcTimeSourceRej = 0x1707735;
inline constexpr std::uint32_t UnregisterUtcTimeSourceReq = 0x1707736;
inline constexpr std::uint32_t UnregisterUtcTimeSourceCfm = 0x1707737;
inline constexpr std::uint32_t UnregisterUtcTimeSourceRej = 0x1707738;
inline constexpr std::uint32_t SetUtcTimeReq = 0x1707739;
inline constexpr std::uint32_t SetUtcTimeCfm = 0x170773A;
inline constexpr std::uint32_t SetUtcTimeRej = 0x170773B;
inline constexpr std::uint32_t GetProductInfoReq = 0x170773C;
inline constexpr std::uint32_t GetProductInfoCfm = 0x170773D;
inline constexpr std::uint32_t GetProductInfoRej = 0x170773E;
inline constexpr std::uint32_t GetContainerPidReq = 0x170773F;
inline constexpr std::uint32_t GetContainerPidCfm = 0x1707740;
inline constexpr std::uint32_t GetContainerPidRej = 0x1707741;
inline constexpr std::uint32_t TempMeasStartReq = 0x1707742;
inline constexpr std::uint32_t TempMeasStartCfm = 0x1707743;
inline constexpr std::uint32_t TempMeasStartRej = 0x1707744;
inline constexpr std::uint32_t TempMeasStopReq = 0x1707745;
inline constexpr std::uint32_t TempMeasStopCfm = 0x1707746;
inline constexpr std::uint32_t TempMeasStopRej = 0x1707747;
inline constexpr std::uint32_t TempMeasInd = 0x1707748;
inline constexpr std::uint32_t RestartBoardFwd = 0x1707749;
inline constexpr std::uint32_t HwLogSetReq = 0x170774D;
inline constexpr std::uint32_t HwLogSetCfm = 0x170774E;
inline constexpr std::uint32_t HwLogSetRej = 0x170774F;
inline constexpr std::uint32_t HwLogGetReq = 0x1707750;
inline constexpr std::uint32_t HwLogGetCfm = 0x1707751;
inline constexpr std::uint32_t HwLogGetRej = 0x1707752;
inline constexpr std::uint32_t SubscribeFaultsReq = 0x1707753;
inline constexpr std::uint32_t SubscribeFaultsCfm = 0x1707754;
inline constexpr std::uint32_t FaultInd = 0x1707759;
inline constexpr std::uint32_t FaultCeaseInd = 0x170775A;
inline constexpr std::uint32_t SetOamStateCfm = 0x170775B;
inline constexpr std::uint32_t SetOamStateRej = 0x170775C;
inline constexpr std::uint32_t StoreNodeConfigEntryReq = 0x1707764;
inline constexpr std::uint32_t StoreNodeConfigEntryCfm = 0x1707765;
inline constexpr std::uint32_t StoreNodeConfigEntryRej = 0x1707766;
inline constexpr std::uint32_t TempMeasRestartReq = 0x170776A;
inline constexpr std::uint32_t TempMeasRestartCfm = 0x170776B;
inline constexpr std::uint32_t TempMeasRestartRej = 0x170776C;
inline constexpr std::uint32_t ConnectivitySetSupervisionTimeoutReq = 0x170776D;
inline constexpr std::uint32_t ConnectivitySetSupervisionTimeoutCfm = 0x170776E;
inline constexpr std::uint32_t ConnectivitySetSupervisionTimeoutRej = 0x170776F;
inline constexpr std::uint32_t ConnectivityConnectedReq = 0x1707770;
inline constexpr std::uint32_t ConnectivityConnectedCfm = 0x1707771;
inline constexpr std::uint32_t ConnectivityConnectedRej = 0x1707772;
inline constexpr std::uint32_t ConnectivityNotConnectedReq = 0x1707773;
inline constexpr std::uint32_t ConnectivityNotConnectedCfm = 0x1707774;
inline constexpr std::uint32_t ConnectivityNotConnectedRej = 0x1707775;
inline constexpr std::uint32_t SubscribeRestartBoardNotificationReq = 0x170777F;
inline constexpr std::uint32_t SubscribeRestartBoardNotificationCfm = 0x1707780;
inline constexpr std::uint32_t SubscribeRestartBoardNotificationRej = 0x1707781;
inline constexpr std::uint32_t RestartBoardNotificationInd = 0x1707782;
inline constexpr std::uint32_t GetRestartHistoryReq = 0x1707783;
inline constexpr std::uint32_t GetRestartHistoryCfm = 0x1707784;
inline constexpr std::uint32_t GetRestartHistoryRej = 0x1707785;
inline constexpr std::uint32_t ValidateHwSwCompatibilityReq = 0x1707786;
inline constexpr std::uint32_t ValidateHwSwCompatibilityCfm = 0x1707787;
inline constexpr std::uint32_t ValidateHwSwCompatibilityRej = 0x1707788;
inline constexpr std::uint32_t ConnectedDevicesInitializedReq = 0x1707789;
inline constexpr std::uint32_t ConnectedDevicesInitializedCfm = 0x170778A;
inline constexpr std::uint32_t ConnectedDevicesInitializedInd = 0x170778B;
inline constexpr std::uint32_t SetOamStateReq = 0x170778C;
} // namespace MsgNo

/// All of them with their full names.
inline constexpr std::array messages{
    MessageNumber{MsgNo::ConnEstablishReq, "tolme.dunl.ConnEstablishReq"},
    MessageNumber{MsgNo::ConnEstablishCfm, "tolme.dunl.ConnEstablishCfm"},
    MessageNumber{MsgNo::ConnEstablishRej, "tolme.dunl.ConnEstablishRej"},
    MessageNumber{MsgNo::GetCapabilitiesReq, "tolme.dunl.GetCapabilitiesReq"},
    MessageNumber{MsgNo::GetCapabilitiesCfm, "tolme.dunl.GetCapabilitiesCfm"},
    MessageNumber{MsgNo::GetCapabilitiesRej, "tolme.dunl.GetCapabilitiesRej"},
    MessageNumber{MsgNo::RegisterUtcTimeSourceReq, "tolme.dunl.RegisterUtcTimeSourceReq"},
    MessageNumber{MsgNo::RegisterUtcTimeSourceCfm, "tolme.dunl.RegisterUtcTimeSourceCfm"},
    MessageNumber{MsgNo::RegisterUtcTimeSourceRej, "tolme.dunl.RegisterUtcTimeSourceRej"},
    MessageNumber{MsgNo::UnregisterUtcTimeSourceReq, "tolme.dunl.UnregisterUtcTimeSourceReq"},
    MessageNumber{MsgNo::UnregisterUtcTimeSourceCfm, "tolme.dunl.UnregisterUtcTimeSourceCfm"},
    MessageNumber{MsgNo::UnregisterUtcTimeSourceRej, "tolme.dunl.UnregisterUtcTimeSourceRej"},
    MessageNumber{MsgNo::SetUtcTimeReq, "tolme.dunl.SetUtcTimeReq"},
    MessageNumber{MsgNo::SetUtcTimeCfm, "tolme.dunl.SetUtcTimeCfm"},
    MessageNumber{MsgNo::SetUtcTimeRej, "tolme.dunl.SetUtcTimeRej"},
    MessageNumber{MsgNo::GetProductInfoReq, "tolme.dunl.GetProductInfoReq"},
    MessageNumber{MsgNo::GetProductInfoCfm, "tolme.dunl.GetProductInfoCfm"},
    MessageNumber{MsgNo::GetProductInfoRej, "tolme.dunl.GetProductInfoRej"},
    MessageNumber{MsgNo::GetContainerPidReq, "tolme.dunl.GetContainerPidReq"},
    MessageNumber{MsgNo::GetContainerPidCfm, "tolme.dunl.GetContainerPidCfm"},
    MessageNumber{MsgNo::GetContainerPidRej, "tolme.dunl.GetContainerPidRej"},
    MessageNumber{MsgNo::TempMeasStartReq, "tolme.dunl.TempMeasStartReq"},
    MessageNumber{MsgNo::TempMeasStartCfm, "tolme.dunl.TempMeasStartCfm"},
    MessageNumber{MsgNo::TempMeasStartRej, "tolme.dunl.TempMeasStartRej"},
    MessageNumber{MsgNo::TempMeasStopReq, "tolme.dunl.TempMeasStopReq"},
    MessageNumber{MsgNo::TempMeasStopCfm, "tolme.dunl.TempMeasStopCfm"},
    MessageNumber{MsgNo::TempMeasStopRej, "tolme.dunl.TempMeasStopRej"},
    MessageNumber{MsgNo::TempMeasInd, "tolme.dunl.TempMeasInd"},
    MessageNumber{MsgNo::RestartBoardFwd, "tolme.dunl.RestartBoardFwd"},
    MessageNumber{MsgNo::HwLogSetReq, "tolme.dunl.HwLogSetReq"},
    MessageNumber{MsgNo::HwLogSetCfm, "tolme.dunl.HwLogSetCfm"},
    MessageNumber{MsgNo::HwLogSetRej, "tolme.dunl.HwLogSetRej"},
    MessageNumber{MsgNo::HwLogGetReq, "tolme.dunl.HwLogGetReq"},
    MessageNumber{MsgNo::HwLogGetCfm, "tolme.dunl.HwLogGetCfm"},
    MessageNumber{MsgNo::HwLogGetRej, "tolme.dunl.HwLogGetRej"},
    MessageNumber{MsgNo::SubscribeFaultsReq, "tolme.dunl.SubscribeFaultsReq"},
    MessageNumber{MsgNo::SubscribeFaultsCfm, "tolme.dunl.SubscribeFaultsCfm"},
    MessageNumber{MsgNo::FaultInd, "tolme.dunl.FaultInd"},
    MessageNumber{MsgNo::FaultCeaseInd, "tolme.dunl.FaultCeaseInd"},
    MessageNumber{MsgNo::SetOamStateCfm, "tolme.dunl.SetOamStateCfm"},
    MessageNumber{MsgNo::SetOamStateRej, "tolme.dunl.SetOamStateRej"},
    MessageNumber{MsgNo::StoreNodeConfigEntryReq, "tolme.dunl.StoreNodeConfigEntryReq"},
    MessageNumber{MsgNo::StoreNodeConfigEntryCfm, "tolme.dunl.StoreNodeConfigEntryCfm"},
    MessageNumber{MsgNo::StoreNodeConfigEntryRej, "tolme.dunl.StoreNodeConfigEntryRej"},
    MessageNumber{MsgNo::TempMeasRestartReq, "tolme.dunl.TempMeasRestartReq"},
    MessageNumber{MsgNo::TempMeasRestartCfm, "tolme.dunl.TempMeasRestartCfm"},
    MessageNumber{MsgNo::TempMeasRestartRej, "tolme.dunl.TempMeasRestartRej"},
    MessageNumber{MsgNo::ConnectivitySetSupervisionTimeoutReq, "tolme.dunl.ConnectivitySetSupervisionTimeoutReq"},
    MessageNumber{MsgNo::ConnectivitySetSupervisionTimeoutCfm, "tolme.dunl.ConnectivitySetSupervisionTimeoutCfm"},
    MessageNumber{MsgNo::ConnectivitySetSupervisionTimeoutRej, "tolme.dunl.ConnectivitySetSupervisionTimeoutRej"},
    MessageNumber{MsgNo::ConnectivityConnectedReq, "tolme.dunl.ConnectivityConnectedReq"},
    MessageNumber{MsgNo::ConnectivityConnectedCfm, "tolme.dunl.ConnectivityConnectedCfm"},
    MessageNumber{MsgNo::ConnectivityConnectedRej, "tolme.dunl.ConnectivityConnectedRej"},
    MessageNumber{MsgNo::ConnectivityNotConnectedReq, "tolme.dunl.ConnectivityNotConnectedReq"},
    MessageNumber{MsgNo::ConnectivityNotConnectedCfm, "tolme.dunl.ConnectivityNotConnectedCfm"},
    MessageNumber{MsgNo::ConnectivityNotConnectedRej, "tolme.dunl.ConnectivityNotConnectedRej"},
    MessageNumber{MsgNo::SubscribeRestartBoardNotificationReq, "tolme.dunl.SubscribeRestartBoardNotificationReq"},
    MessageNumber{MsgNo::SubscribeRestartBoardNotificationCfm, "tolme.dunl.SubscribeRestartBoardNotificationCfm"},
    MessageNumber{MsgNo::SubscribeRestartBoardNotificationRej, "tolme.dunl.SubscribeRestartBoardNotificationRej"},
    MessageNumber{MsgNo::RestartBoardNotificationInd, "tolme.dunl.RestartBoardNotificationInd"},
    MessageNumber{MsgNo::GetRestartHistoryReq, "tolme.dunl.GetRestartHistoryReq"},
    MessageNumber{MsgNo::GetRestartHistoryCfm, "tolme.dunl.GetRestartHistoryCfm"},
    MessageNumber{MsgNo::GetRestartHistoryRej, "tolme.dunl.GetRestartHistoryRej"},
    MessageNumber{MsgNo::ValidateHwSwCompatibilityReq, "tolme.dunl.ValidateHwSwCompatibilityReq"},
    MessageNumber{MsgNo::ValidateHwSwCompatibilityCfm, "tolme.dunl.ValidateHwSwCompatibilityCfm"},
    MessageNumber{MsgNo::ValidateHwSwCompatibilityRej, "tolme.dunl.ValidateHwSwCompatibilityRej"},
    MessageNumber{MsgNo::ConnectedDevicesInitializedReq, "tolme.dunl.ConnectedDevicesInitializedReq"},
    MessageNumber{MsgNo::ConnectedDevicesInitializedCfm, "tolme.dunl.ConnectedDevicesInitializedCfm"},
    MessageNumber{MsgNo::ConnectedDevicesInitializedInd, "tolme.dunl.ConnectedDevicesInitializedInd"},
    MessageNumber{MsgNo::SetOamStateReq, "tolme.dunl.SetOamStateReq"},
};

} // namespace tolme::dunl
