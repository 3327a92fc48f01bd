/// The unit's FRU description file for the clients.
#pragma once

#include "vornServerComponent.h"

#include <string>

/// Sends the file to a client that names its FDF_ID, in parts, each when the client has acknowledged the one before.
/// There is one pending text for all clients: who asks replaces what another has not fetched yet.
class VornServerFdf : public VornServerComponent
{
public:
    using VornServerComponent::VornServerComponent;

    bool init() override;
    std::string_view name() const override { return "VornServerFdf"; }

private:
    void handleGetFruDescFileReq(const MessagePtr& msg);
    void handleFruDescFileAck(const MessagePtr& msg);
    void sendFdfData(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef);

    std::string m_pendingText;
};
