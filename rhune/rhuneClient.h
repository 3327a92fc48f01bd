/// The connected RHUNE clients.
#pragma once

#include "rhuneSubscriptions.h"

#include "kiv/kiv.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace VornServer::Rhune {

/// A client from its connection on until it closes or its mailbox dies.
struct ClientRecord {
    std::uint32_t serverConnectionRef; ///< given by the server
    std::uint32_t clientConnectionRef; ///< given by the client
    std::uint32_t mboxId;              ///< that asked for the connection
    std::uint32_t monitorRef;          ///< from kiv_monitor
};

/// The table of connected clients, in order of connection. It watches their mailboxes. A mailbox that connects twice
/// stands in it twice, under two references.
class RhuneClient
{
public:
    void initialize() { addMessageHandlers(); }
    void addMessageHandlers();
    void removeMessageHandlers() { m_subscriptions.removeAll(); }

    void registerClient(std::uint32_t serverRef, std::uint32_t clientRef, kiv_mbox_id_t mbox);
    /// The record of a server connection reference, or null.
    const ClientRecord* findClient(std::uint32_t serverRef) const;
    /// The client's own reference.
    std::optional<std::uint32_t> getClient(std::uint32_t serverRef) const;
    /// Forgets a client.
    void resetClient(std::uint32_t serverRef);
    /// RHUNE_VORN_SERVER_KIV_MONITOR_IND: the mailbox of a client has ended.
    void doClientDisconnected(const MessagePtr& msg);

private:
    std::vector<ClientRecord> m_clients;
    RhuneSubscriptions m_subscriptions;
};

} // namespace VornServer::Rhune
