/// Message numbers of the FESK interface.
#pragma once

#include "messageNumber.h"

#include <array>
#include <cstdint>

namespace tolme::fesk {

// For headers that name a message: the generated header is for sources.
class ConnEstablishReq;
class ConnEstablishCfm;
class ConnEstablishRej;
class SetMaintStateReq;
class SetMaintStateCfm;
class SetMaintStateRej;
class MaintStateInd;
class SubscribeMaintStateReq;
class SubscribeMaintStateCfm;
class SubscribeMaintStateRej;
class GetCapabilitiesReq;
class GetCapabilitiesCfm;
class GetCapabilitiesRej;
class RegisterMmiUserReq;
class RegisterMmiUserCfm;
class RegisterMmiUserRej;
class UnregisterMmiUserReq;
class UnregisterMmiUserCfm;
class UnregisterMmiUserRej;
class SetVisualIndicationReq;
class SetVisualIndicationCfm;
class SetVisualIndicationRej;
class GetVisualIndicationReq;
class GetVisualIndicationCfm;
class GetVisualIndicationRej;
class OrderHereIAmReq;
class OrderHereIAmCfm;
class OrderHereIAmRej;
class SubscribeHereIAmStateReq;
class SubscribeHereIAmStateCfm;
class SubscribeHereIAmStateRej;
class HereIAmStateInd;
class OpticalIndicatorControlSubscribeStatusChangeReq;
class OpticalIndicatorControlSubscribeStatusChangeCfm;
class OpticalIndicatorControlSubscribeStatusChangeRej;
class OpticalIndicatorControlStatusChangeInd;
class OpticalIndicatorControlActivateReq;
class OpticalIndicatorControlActivateCfm;
class OpticalIndicatorControlActivateRej;
class OpticalIndicatorControlDeactivateReq;
class OpticalIndicatorControlDeactivateCfm;
class OpticalIndicatorControlDeactivateRej;
class OpticalIndicatorControlActivateWithDurationReq;
class OpticalIndicatorControlActivateWithDurationCfm;
class OpticalIndicatorControlActivateWithDurationRej;

/// The number that a message travels under.
namespace MsgNo {
inline constexpr std::uint32_t ConnEstablishReq = 0x1707570;
inline constexpr std::uint32_t ConnEstablishCfm = 0x1707571;
inline constexpr std::uint32_t ConnEstablishRej = 0x1707572;
inline constexpr std::uint32_t SetMaintStateReq = 0x1707573;
inline constexpr std::uint32_t SetMaintStateCfm = 0x1707574;
inline constexpr std::uint32_t SetMaintStateRej = 0x1707575;
inline constexpr std::uint32_t MaintStateInd = 0x1707576;
inline constexpr std::uint32_t SubscribeMaintStateReq = 0x1707577;
inline constexpr std::uint32_t SubscribeMaintStateCfm = 0x1707578;
inline constexpr std::uint32_t SubscribeMaintStateRej = 0x1707579;
inline constexpr std::uint32_t GetCapabilitiesReq = 0x170757D;
inline constexpr std::uint32_t GetCapabilitiesCfm = 0x170757E;
inline constexpr std::uint32_t GetCapabilitiesRej = 0x170757F;
inline constexpr std::uint32_t RegisterMmiUserReq = 0x1707580;
inline constexpr std::uint32_t RegisterMmiUserCfm = 0x1707581;
inline constexpr std::uint32_t RegisterMmiUserRej = 0x1707582;
inline constexpr std::uint32_t UnregisterMmiUserReq = 0x1707583;
inline constexpr std::uint32_t UnregisterMmiUserCfm = 0x1707584;
inline constexpr std::uint32_t UnregisterMmiUserRej = 0x1707585;
inline constexpr std::uint32_t SetVisualIndicationReq = 0x1707586;
inline constexpr std::uint32_t SetVisualIndicationCfm = 0x1707587;
inline constexpr std::uint32_t SetVisualIndicationRej = 0x1707588;
inline constexpr std::uint32_t GetVisualIndicationReq = 0x1707589;
inline constexpr std::uint32_t GetVisualIndicationCfm = 0x170758A;
inline constexpr std::uint32_t GetVisualIndicationRej = 0x170758B;
inline constexpr std::uint32_t OrderHereIAmReq = 0x170758C;
inline constexpr std::uint32_t OrderHereIAmCfm = 0x170758D;
inline constexpr std::uint32_t OrderHereIAmRej = 0x170758E;
inline constexpr std::uint32_t SubscribeHereIAmStateReq = 0x170758F;
inline constexpr std::uint32_t SubscribeHereIAmStateCfm = 0x1707590;
inline constexpr std::uint32_t SubscribeHereIAmStateRej = 0x1707591;
inline constexpr std::uint32_t HereIAmStateInd = 0x1707595;
inline constexpr std::uint32_t OpticalIndicatorControlSubscribeStatusChangeReq = 0x1707596;
inline constexpr std::uint32_t OpticalIndicatorControlSubscribeStatusChangeCfm = 0x1707597;
inline constexpr std::uint32_t OpticalIndicatorControlSubscribeStatusChangeRej = 0x1707598;
inline constexpr std::uint32_t OpticalIndicatorControlStatusChangeInd = 0x1707599;
inline constexpr std::uint32_t OpticalIndicatorControlActivateReq = 0x170759A;
inline constexpr std::uint32_t OpticalIndicatorControlActivateCfm = 0x170759B;
inline constexpr std::uint32_t OpticalIndicatorControlActivateRej = 0x170759C;
inline constexpr std::uint32_t OpticalIndicatorControlDeactivateReq = 0x170759D;
inline constexpr std::uint32_t OpticalIndicatorControlDeactivateCfm = 0x170759E;
inline constexpr std::uint32_t OpticalIndicatorControlDeactivateRej = 0x170759F;
inline constexpr std::uint32_t OpticalIndicatorControlActivateWithDurationReq = 0x1707AC0;
inline constexpr std::uint32_t OpticalIndicatorControlActivateWithDurationCfm = 0x1707AC1;
inline constexpr std::uint32_t OpticalIndicatorControlActivateWithDurationRej = 0x1707AC2;
} // namespace MsgNo

/// All of them with their full names.
inline constexpr std::array messages{
    MessageNumber{MsgNo::ConnEstablishReq, "tolme.fesk.ConnEstablishReq"},
    MessageNumber{MsgNo::ConnEstablishCfm, "tolme.fesk.ConnEstablishCfm"},
    MessageNumber{MsgNo::ConnEstablishRej, "tolme.fesk.ConnEstablishRej"},
    MessageNumber{MsgNo::SetMaintStateReq, "tolme.fesk.SetMaintStateReq"},
    MessageNumber{MsgNo::SetMaintStateCfm, "tolme.fesk.SetMaintStateCfm"},
    MessageNumber{MsgNo::SetMaintStateRej, "tolme.fesk.SetMaintStateRej"},
    MessageNumber{MsgNo::MaintStateInd, "tolme.fesk.MaintStateInd"},
    MessageNumber{MsgNo::SubscribeMaintStateReq, "tolme.fesk.SubscribeMaintStateReq"},
    MessageNumber{MsgNo::SubscribeMaintStateCfm, "tolme.fesk.SubscribeMaintStateCfm"},
    MessageNumber{MsgNo::SubscribeMaintStateRej, "tolme.fesk.SubscribeMaintStateRej"},
    MessageNumber{MsgNo::GetCapabilitiesReq, "tolme.fesk.GetCapabilitiesReq"},
    MessageNumber{MsgNo::GetCapabilitiesCfm, "tolme.fesk.GetCapabilitiesCfm"},
    MessageNumber{MsgNo::GetCapabilitiesRej, "tolme.fesk.GetCapabilitiesRej"},
    MessageNumber{MsgNo::RegisterMmiUserReq, "tolme.fesk.RegisterMmiUserReq"},
    MessageNumber{MsgNo::RegisterMmiUserCfm, "tolme.fesk.RegisterMmiUserCfm"},
    MessageNumber{MsgNo::RegisterMmiUserRej, "tolme.fesk.RegisterMmiUserRej"},
    MessageNumber{MsgNo::UnregisterMmiUserReq, "tolme.fesk.UnregisterMmiUserReq"},
    MessageNumber{MsgNo::UnregisterMmiUserCfm, "tolme.fesk.UnregisterMmiUserCfm"},
    MessageNumber{MsgNo::UnregisterMmiUserRej, "tolme.fesk.UnregisterMmiUserRej"},
    MessageNumber{MsgNo::SetVisualIndicationReq, "tolme.fesk.SetVisualIndicationReq"},
    MessageNumber{MsgNo::SetVisualIndicationCfm, "tolme.fesk.SetVisualIndicationCfm"},
    MessageNumber{MsgNo::SetVisualIndicationRej, "tolme.fesk.SetVisualIndicationRej"},
    MessageNumber{MsgNo::GetVisualIndicationReq, "tolme.fesk.GetVisualIndicationReq"},
    MessageNumber{MsgNo::GetVisualIndicationCfm, "tolme.fesk.GetVisualIndicationCfm"},
    MessageNumber{MsgNo::GetVisualIndicationRej, "tolme.fesk.GetVisualIndicationRej"},
    MessageNumber{MsgNo::OrderHereIAmReq, "tolme.fesk.OrderHereIAmReq"},
    MessageNumber{MsgNo::OrderHereIAmCfm, "tolme.fesk.OrderHereIAmCfm"},
    MessageNumber{MsgNo::OrderHereIAmRej, "tolme.fesk.OrderHereIAmRej"},
    MessageNumber{MsgNo::SubscribeHereIAmStateReq, "tolme.fesk.SubscribeHereIAmStateReq"},
    MessageNumber{MsgNo::SubscribeHereIAmStateCfm, "tolme.fesk.SubscribeHereIAmStateCfm"},
    MessageNumber{MsgNo::SubscribeHereIAmStateRej, "tolme.fesk.SubscribeHereIAmStateRej"},
    MessageNumber{MsgNo::HereIAmStateInd, "tolme.fesk.HereIAmStateInd"},
    MessageNumber{MsgNo::OpticalIndicatorControlSubscribeStatusChangeReq,
                  "tolme.fesk.OpticalIndicatorControlSubscribeStatusChangeReq"},
    MessageNumber{MsgNo::OpticalIndicatorControlSubscribeStatusChangeCfm,
                  "tolme.fesk.OpticalIndicatorControlSubscribeStatusChangeCfm"},
    MessageNumber{MsgNo::OpticalIndicatorControlSubscribeStatusChangeRej,
                  "tolme.fesk.OpticalIndicatorControlSubscribeStatusChangeRej"},
    MessageNumber{MsgNo::OpticalIndicatorControlStatusChangeInd, "tolme.fesk.OpticalIndicatorControlStatusChangeInd"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateReq, "tolme.fesk.OpticalIndicatorControlActivateReq"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateCfm, "tolme.fesk.OpticalIndicatorControlActivateCfm"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateRej, "tolme.fesk.OpticalIndicatorControlActivateRej"},
    MessageNumber{MsgNo::OpticalIndicatorControlDeactivateReq, "tolme.fesk.OpticalIndicatorControlDeactivateReq"},
    MessageNumber{MsgNo::OpticalIndicatorControlDeactivateCfm, "tolme.fesk.OpticalIndicatorControlDeactivateCfm"},
    MessageNumber{MsgNo::OpticalIndicatorControlDeactivateRej, "tolme.fesk.OpticalIndicatorControlDeactivateRej"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateWithDurationReq,
                  "tolme.fesk.OpticalIndicatorControlActivateWithDurationReq"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateWithDurationCfm,
                  "tolme.fesk.OpticalIndicatorControlActivateWithDurationCfm"},
    MessageNumber{MsgNo::OpticalIndicatorControlActivateWithDurationRej,
                  "tolme.fesk.OpticalIndicatorControlActivateWithDurationRej"},
};

} // namespace tolme::fesk
