/// Message numbers of the yarrowi interface.
#pragma once

#include "messageNumber.h"

#include <array>
#include <cstdint>

namespace yarrowi {

// For headers that name a message: the generated header is for sources.
class ConnectionEstablishReq;
class ConnectionEstablishCfm;
class ConnectionEstablishRej;
class CapabilityExchangeReq;
class CapabilityExchangeCfm;
class CapabilityExchangeRej;
class ActivateDeepSleepReq;
class ActivateDeepSleepCfm;
class ActivateDeepSleepRej;
class DeactivateDeepSleepReq;
class DeactivateDeepSleepCfm;
class DeactivateDeepSleepRej;
class SubscribeDeepSleepStatusReq;
class SubscribeDeepSleepStatusCfm;
class SubscribeDeepSleepStatusRej;
class DeepSleepStatusInd;
class ConnectionClosedownReq;
class ConnectionClosedownCfm;

/// The number that a message travels under.
namespace MsgNo {
inline constexpr std::uint32_t ConnectionEstablishReq = 0x1707A80;
inline constexpr std::uint32_t ConnectionEstablishCfm = 0x1707A81;
inline constexpr std::uint32_t ConnectionEstablishRej = 0x1707A82;
inline constexpr std::uint32_t CapabilityExchangeReq = 0x1707A83;
inline constexpr std::uint32_t CapabilityExchangeCfm = 0x1707A84;
inline constexpr std::uint32_t CapabilityExchangeRej = 0x1707A85;
inline constexpr std::uint32_t ActivateDeepSleepReq = 0x1707A86;
inline constexpr std::uint32_t ActivateDeepSleepCfm = 0x1707A87;
inline constexpr std::uint32_t ActivateDeepSleepRej = 0x1707A88;
inline constexpr std::uint32_t DeactivateDeepSleepReq = 0x1707A89;
inline constexpr std::uint32_t DeactivateDeepSleepCfm = 0x1707A8A;
inline constexpr std::uint32_t DeactivateDeepSleepRej = 0x1707A8B;
inline constexpr std::uint32_t SubscribeDeepSleepStatusReq = 0x1707A8C;
inline constexpr std::uint32_t SubscribeDeepSleepStatusCfm = 0x1707A8D;
inline constexpr std::uint32_t SubscribeDeepSleepStatusRej = 0x1707A8E;
inline constexpr std::uint32_t DeepSleepStatusInd = 0x1707A8F;
inline constexpr std::uint32_t ConnectionClosedownReq = 0x1707A90;
inline constexpr std::uint32_t ConnectionClosedownCfm = 0x1707A91;
} // namespace MsgNo

/// All of them with their full names.
inline constexpr std::array messages{
    MessageNumber{MsgNo::ConnectionEstablishReq, "yarrowi.ConnectionEstablishReq"},
    MessageNumber{MsgNo::ConnectionEstablishCfm, "yarrowi.ConnectionEstablishCfm"},
    MessageNumber{MsgNo::ConnectionEstablishRej, "yarrowi.ConnectionEstablishRej"},
    MessageNumber{MsgNo::CapabilityExchangeReq, "yarrowi.CapabilityExchangeReq"},
    MessageNumber{MsgNo::CapabilityExchangeCfm, "yarrowi.CapabilityExchangeCfm"},
    MessageNumber{MsgNo::CapabilityExchangeRej, "yarrowi.CapabilityExchangeRej"},
    MessageNumber{MsgNo::ActivateDeepSleepReq, "yarrowi.ActivateDeepSleepReq"},
    MessageNumber{MsgNo::ActivateDeepSleepCfm, "yarrowi.ActivateDeepSleepCfm"},
    MessageNumber{MsgNo::ActivateDeepSleepRej, "yarrowi.ActivateDeepSleepRej"},
    MessageNumber{MsgNo::DeactivateDeepSleepReq, "yarrowi.DeactivateDeepSleepReq"},
    MessageNumber{MsgNo::DeactivateDeepSleepCfm, "yarrowi.DeactivateDeepSleepCfm"},
    MessageNumber{MsgNo::DeactivateDeepSleepRej, "yarrowi.DeactivateDeepSleepRej"},
    MessageNumber{MsgNo::SubscribeDeepSleepStatusReq, "yarrowi.SubscribeDeepSleepStatusReq"},
    MessageNumber{MsgNo::SubscribeDeepSleepStatusCfm, "yarrowi.SubscribeDeepSleepStatusCfm"},
    MessageNumber{MsgNo::SubscribeDeepSleepStatusRej, "yarrowi.SubscribeDeepSleepStatusRej"},
    MessageNumber{MsgNo::DeepSleepStatusInd, "yarrowi.DeepSleepStatusInd"},
    MessageNumber{MsgNo::ConnectionClosedownReq, "yarrowi.ConnectionClosedownReq"},
    MessageNumber{MsgNo::ConnectionClosedownCfm, "yarrowi.ConnectionClosedownCfm"},
};

} // namespace yarrowi
