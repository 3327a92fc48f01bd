/// Users of the man-machine interface (MMI).
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Registers an MMI user with the FESK server for every session, and answers a client's selection of an MMI mode. The
/// unit's own MMI user is registered by VornServerFesk; its answer arrives here. Speaks with the FESK server.
class VornServerMmiHandling : public VornServerComponent
{
public:
    explicit VornServerMmiHandling(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerMmiHandling"; }
    void onVornSessionLost(const VornSession& session) override;
    void onNewVornSession(VornSession& session) override;

private:
    void handleSelectMmiReq(const MessagePtr& msg);
    void sendRegisterMmiUserReq(const VornSession& session);
    void handleRegisterMmiUserCfm(const TolmeMessagePtr& message);
    void handleRegisterMmiUserRej(const TolmeMessagePtr& message);
    void handleUnregisterMmiUserCfm(const TolmeMessagePtr& message);
    void handleUnregisterMmiUserRej(const TolmeMessagePtr& message);

    TolmeProcedures m_procedures;
};
