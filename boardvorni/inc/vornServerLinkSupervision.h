/// Supervision of the link to the clients.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Tells the DUNL server when the first client has connected and the last has gone, and hands on the supervision
/// time-out that a client announces for a restart. The open transaction of ConnectivityConnectedReq is the state that
/// the server has been told of a client: it stays for as long as that lasts. Speaks with the DUNL server.
class VornServerLinkSupervision : public VornServerComponent
{
public:
    explicit VornServerLinkSupervision(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerLinkSupervision"; }
    void onVornSessionLost(const VornSession& session) override;
    void onNewVornSession(VornSession& session) override;
    void onNotifyRestartReqReceived(const VornSession& session, std::uint32_t value) override;

private:
    void handleLinkSupervisionReq(const MessagePtr& msg);
    void handleConnectivitySetSupervisionTimeoutCfm(const TolmeMessagePtr& message);
    void handleConnectivitySetSupervisionTimeoutRej(const TolmeMessagePtr& message);
    void handleConnectivityConnectedCfm(const TolmeMessagePtr& message);
    void handleConnectivityConnectedRej(const TolmeMessagePtr& message);
    void handleConnectivityNotConnectedResp(const TolmeMessagePtr& message);

    template <typename Message>
    void finishSupervisionTimeout(const TolmeMessagePtr& message, bool accepted);
    static bool getConnectivityConnectedReqTransaction(const TolmeClient::ProcedureTransaction& transaction);

    TolmeProcedures m_procedures;
};
