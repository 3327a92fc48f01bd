/// Message numbers of the GANTI interface.
#pragma once

#include "messageNumber.h"

#include <array>

namespace gant {

// For headers that name a message: the generated header is for sources.
class ConnEstablishReq;
class ConnEstablishCfm;
class ConnEstablishRej;
class GetCapabilitiesReq;
class GetCapabilitiesCfm;
class GetCapabilitiesRej;
class AcquireResourceReq;
class AcquireResourceCfm;
class AcquireResourceRej;
class AcquireResourceInd;
class ReleaseResourceReq;
class ReleaseResourceCfm;
class ReleaseResourceRej;
class PushLoadInitReq;
class PushLoadInitCfm;
class PushLoadInitRej;
class PushLoadData;
class PushLoadAck;
class PushLoadEndReq;
class PushLoadEndCfm;
class PushLoadEndRej;
class PullLoadInitReq;
class PullLoadInitCfm;
class PullLoadInitRej;
class PullLoadEndInd;
class PullLoadAbortReq;
class PullLoadAbortCfm;
class PullLoadAbortRej;
class DeleteReq;
class DeleteCfm;
class DeleteRej;
class GetSwProductInvReq;
class GetSwProductInvCfm;
class GetSwProductInvRej;
class SwCompListReq;
class SwCompListCfm;
class SwCompListRej;
class SwCompListData;
class SwCompListAck;
class GetRunningSwReq;
class GetRunningSwCfm;
class GetRunningSwRej;
class SetCurrentSlotWorkingReq;
class SetCurrentSlotWorkingCfm;
class SetCurrentSlotWorkingRej;

/// All of them with their full names. Each is the MetaInfo::MESSAGE_NUMBER of its message.
inline constexpr std::array messages{
    MessageNumber{1, "gant.ConnEstablishReq"},
    MessageNumber{2, "gant.ConnEstablishCfm"},
    MessageNumber{3, "gant.ConnEstablishRej"},
    MessageNumber{4, "gant.GetCapabilitiesReq"},
    MessageNumber{5, "gant.GetCapabilitiesCfm"},
    MessageNumber{6, "gant.GetCapabilitiesRej"},
    MessageNumber{7, "gant.AcquireResourceReq"},
    MessageNumber{8, "gant.AcquireResourceCfm"},
    MessageNumber{9, "gant.AcquireResourceRej"},
    MessageNumber{10, "gant.AcquireResourceInd"},
    MessageNumber{11, "gant.ReleaseResourceReq"},
    MessageNumber{12, "gant.ReleaseResourceCfm"},
    MessageNumber{13, "gant.ReleaseResourceRej"},
    MessageNumber{14, "gant.PushLoadInitReq"},
    MessageNumber{15, "gant.PushLoadInitCfm"},
    MessageNumber{16, "gant.PushLoadInitRej"},
    MessageNumber{17, "gant.PushLoadData"},
    MessageNumber{18, "gant.PushLoadAck"},
    MessageNumber{19, "gant.PushLoadEndReq"},
    MessageNumber{20, "gant.PushLoadEndCfm"},
    MessageNumber{21, "gant.PushLoadEndRej"},
    MessageNumber{22, "gant.PullLoadInitReq"},
    MessageNumber{23, "gant.PullLoadInitCfm"},
    MessageNumber{24, "gant.PullLoadInitRej"},
    MessageNumber{25, "gant.PullLoadEndInd"},
    MessageNumber{26, "gant.PullLoadAbortReq"},
    MessageNumber{27, "gant.PullLoadAbortCfm"},
    MessageNumber{28, "gant.PullLoadAbortRej"},
    MessageNumber{29, "gant.DeleteReq"},
    MessageNumber{30, "gant.DeleteCfm"},
    MessageNumber{31, "gant.DeleteRej"},
    MessageNumber{32, "gant.GetSwProductInvReq"},
    MessageNumber{33, "gant.GetSwProductInvCfm"},
    MessageNumber{34, "gant.GetSwProductInvRej"},
    MessageNumber{35, "gant.SwCompListReq"},
    MessageNumber{36, "gant.SwCompListCfm"},
    MessageNumber{37, "gant.SwCompListRej"},
    MessageNumber{38, "gant.SwCompListData"},
    MessageNumber{39, "gant.SwCompListAck"},
    MessageNumber{40, "gant.GetRunningSwReq"},
    MessageNumber{41, "gant.GetRunningSwCfm"},
    MessageNumber{42, "gant.GetRunningSwRej"},
    MessageNumber{43, "gant.SetCurrentSlotWorkingReq"},
    MessageNumber{44, "gant.SetCurrentSlotWorkingCfm"},
    MessageNumber{45, "gant.SetCurrentSlotWorkingRej"},
};

} // namespace gant
