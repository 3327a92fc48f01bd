/// The maintenance state.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

#include <string>

/// Lets the clients set the unit's maintenance state and be told of its changes, and translates between their numbers
/// and the board's. The transaction of a subscription stays as long as the subscription: indications find their client
/// through it. Speaks with the FESK server.
class VornServerMaintState : public VornServerComponent
{
public:
    explicit VornServerMaintState(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerMaintState"; }
    void onVornSessionLost(const VornSession& session) override;

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    void handleSetMaintStateReq(const MessagePtr& msg);
    void handleSetMaintStateCfm(const TolmeMessagePtr& message);
    void handleSetMaintStateRej(const TolmeMessagePtr& message);
    void handleSubscribeMaintStateReq(const MessagePtr& msg);
    void handleSubscribeMaintStateCfm(const TolmeMessagePtr& message);
    void handleSubscribeMaintStateRej(const TolmeMessagePtr& message);
    void handleMaintStateInd(const TolmeMessagePtr& message);
    void sendSetMaintStateRej(const Client& client, std::uint16_t errorCode, const std::string& text) const;

    std::uint32_t findMmiUser(std::uint32_t mboxId, const char* ignoring) const;
    VornSession* findSession(std::uint32_t mboxId, const char* ignoring) const;

    TolmeProcedures m_procedures;
};
