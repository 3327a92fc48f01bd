/// Faults that RHUNE clients forward.
#pragma once

#include "rhuneClient.h"

namespace VornServer {
class FaultManagerIf;
}

namespace VornServer::Rhune {

/// Gives the faults of connected clients to the fault manager. Nothing is answered. A fault isn't bound to the client
/// that raised it: any connected one ceases it, and it stays active when its client goes.
class RhuneFaultFwd
{
public:
    RhuneFaultFwd(RhuneClient& client, FaultManagerIf& faultManager) : m_client(client), m_faultManager(faultManager) {}

    void addMessageHandlers();
    void removeMessageHandlers() { m_subscriptions.removeAll(); }

    void handleFaultFwd(const MessagePtr& msg);
    void handleFaultceaseFwd(const MessagePtr& msg);

private:
    bool isConnected(std::uint32_t serverRef) const;

    RhuneClient& m_client;
    FaultManagerIf& m_faultManager;
    RhuneSubscriptions m_subscriptions;
};

} // namespace VornServer::Rhune
