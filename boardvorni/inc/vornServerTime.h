/// The unit's UTC time.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Lets clients set the unit's UTC time. Every session is a time source of its own: it is registered with the DUNL
/// server when it starts, and the reference that comes back goes with each setting. Speaks with the DUNL server.
class VornServerTime : public VornServerComponent
{
public:
    explicit VornServerTime(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerTime"; }
    void onVornSessionLost(const VornSession& session) override;
    void onNewVornSession(VornSession& session) override;

private:
    void handleRegisterUtcTimeSourceCfm(const TolmeMessagePtr& message);
    void handleRegisterUtcTimeSourceRej(const TolmeMessagePtr& message);
    void handleUnregisterUtcTimeSourceCfm(const TolmeMessagePtr& message);
    void handleUnregisterUtcTimeSourceRej(const TolmeMessagePtr& message);
    void handleSetUtcTimeReq(const MessagePtr& msg);
    void handleSetUtcTimeCfm(const TolmeMessagePtr& message);
    void handleSetUtcTimeRej(const TolmeMessagePtr& message);

    TolmeProcedures m_procedures;
};
