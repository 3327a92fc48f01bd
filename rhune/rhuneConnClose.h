/// RHUNE connections: the end of one.
#pragma once

#include "rhuneClient.h"

namespace VornServer::Rhune {

/// Closes connections. The reference alone counts, not who sends it; an unknown one gets no answer.
class RhuneConnClose
{
public:
    explicit RhuneConnClose(RhuneClient& client) : m_client(client) {}

    void addMessageHandlers();
    void removeMessageHandlers() { m_subscriptions.removeAll(); }

    void handleConnCloseReq(const MessagePtr& msg);

private:
    RhuneClient& m_client;
    RhuneSubscriptions m_subscriptions;
};

} // namespace VornServer::Rhune
