/// RHUNE connections: the request for one.
#pragma once

#include "rhuneClient.h"

#include <cstdint>
#include <vector>

struct RhuneVornConnEstablishReqS;

namespace VornServer::Rhune {

/// Connects clients that speak the server's one protocol revision, and gives each connection its reference.
class RhuneConnEstablish
{
public:
    explicit RhuneConnEstablish(RhuneClient& client) : m_client(client) {}

    void addMessageHandlers();
    void removeMessageHandlers() { m_subscriptions.removeAll(); }

    void handleConnEstablishReq(const MessagePtr& msg);

private:
    using Revisions = std::vector<std::uint32_t>;

    void sendConnEstablishCfm(const RhuneVornConnEstablishReqS& request, kiv_mbox_id_t mbox) const;
    static void sendConnEstablishRej(const RhuneVornConnEstablishReqS& request, const Revisions& revisions,
                                     kiv_mbox_id_t mbox);

    RhuneClient& m_client;
    std::uint32_t m_nextServerConnectionRef = 4096; ///< only rises: no reference is given twice
    RhuneSubscriptions m_subscriptions;
};

} // namespace VornServer::Rhune
