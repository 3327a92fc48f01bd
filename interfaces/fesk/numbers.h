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

/// The number that a message travels under.
namespace MsgNo {
inline constexpr std::uint32_t ConnEstablishReq = 0x1707570;
inline constexpr std::uint32_t ConnEstablishCfm = 0x1707571;
inline constexpr std::uint32_t ConnEstablishRej = 0x1707572;
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
} // namespace MsgNo

/// All of them with their full names.
inline constexpr std::array messages{
    MessageNumber{MsgNo::ConnEstablishReq, "tolme.fesk.ConnEstablishReq"},
    MessageNumber{MsgNo::ConnEstablishCfm, "tolme.fesk.ConnEstablishCfm"},
    MessageNumber{MsgNo::ConnEstablishRej, "tolme.fesk.ConnEstablishRej"},
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
};

} // namespace tolme::fesk
