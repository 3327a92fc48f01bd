/// The clients' O&M states and the coordinated O&M state of the board.
#pragma once

#include "tolmeClient.h"
#include "vornCoordinatedStateSM.h"
#include "vornServerComponent.h"

#include <memory>

/// Lets each client audit, enable and disable its own operation, answered at once from its session. Where the DUNL
/// server can take a coordinated state, every change, and the exceptional temperature fault, goes through the state
/// machine that reduces all of them to one state of the board, and that is sent to the DUNL server. No client waits for
/// it.
class VornServerState : public VornServerComponent
{
public:
    explicit VornServerState(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerState"; }
    void onVornSessionLost(const VornSession& session) override;

private:
    void handleAuditReq(const MessagePtr& msg);
    void handleEnableOperationReq(const MessagePtr& msg);
    void handleDisableOperationReq(const MessagePtr& msg);
    void handleSetOamStateCfm(const TolmeMessagePtr& message);
    void handleSetOamStateRej(const TolmeMessagePtr& message);
    void handleExceptionalTempFault(bool isFaultRaised);

    VornSession* findSession(std::uint32_t mboxId) const;
    void coordinate(std::uint32_t mboxId, State state);
    bool isCoordinatedStateCapable();
    void sendSetOamStateReq();

    void sendEnableOperationCfm(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef) const;
    void sendEnableOperationRej(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                                const char* stateText) const;
    void sendDisableOperationCfm(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef) const;
    void sendDisableOperationRej(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                                 const char* stateText) const;

    std::unique_ptr<VornCoordinatedStateSM> m_coordinatedStateSM; ///< null until the capability has been found
    bool m_isCapabilityChecked = false;
};
