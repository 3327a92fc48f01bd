/// What the procedures of the GANTI server share.
#pragma once

#include "tools/boardsim/core/requestTable.h"
#include "tools/boardsim/core/server.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace gant {
class AcquireResourceCfm;
class AcquireResourceRej;
class AcquireResourceReq;
class ConnEstablishCfm;
class ConnEstablishRej;
class ConnEstablishReq;
class DeleteCfm;
class DeleteRej;
class DeleteReq;
class GetCapabilitiesCfm;
class GetCapabilitiesRej;
class GetCapabilitiesReq;
class GetRunningSwCfm;
class GetRunningSwRej;
class GetRunningSwReq;
class GetSwProductInvCfm;
class GetSwProductInvRej;
class GetSwProductInvReq;
class PullLoadAbortCfm;
class PullLoadAbortRej;
class PullLoadAbortReq;
class PullLoadInitCfm;
class PullLoadInitRej;
class PullLoadInitReq;
class PushLoadAck;
class PushLoadData;
class PushLoadEndCfm;
class PushLoadEndRej;
class PushLoadEndReq;
class PushLoadInitCfm;
class PushLoadInitRej;
class PushLoadInitReq;
class ReleaseResourceCfm;
class ReleaseResourceRej;
class ReleaseResourceReq;
class SetCurrentSlotWorkingCfm;
class SetCurrentSlotWorkingRej;
class SetCurrentSlotWorkingReq;
class SwCompListAck;
class SwCompListCfm;
class SwCompListRej;
class SwCompListReq;
} // namespace gant

namespace boardsim {

/// A request that is being handled.
struct Call {
    std::uint32_t client = 0;
    std::uint32_t procRef = 0;

    // What its handler may ask for.
    std::function<void(std::function<void()> send)> sendBy; ///< who sends the confirm, when it is time
    std::function<void()> then;                             ///< what follows when the confirm is out
};

/// Sends a client a message that is no answer.
using GantiIndicate = std::function<void(std::uint32_t client, std::uint32_t procRef, const Message&)>;

/// A group of the GANTI server. What an answer has in common with its request, as the ticket's number, is in it already
/// when its handler is called.
class GantiProcedures : public ProcedureGroup
{
public:
    /// A ticket has gone, and with it what was going on under it.
    virtual void ticketGone(std::uint32_t) {}

    /// The group's own commands.
    virtual std::vector<CommandRow> commands() { return {}; }
};

} // namespace boardsim
