/// What the connectors of the board resource servers have in common.
#pragma once

#include "tolmeClient.h"
#include "vornServerComponent.h"

/// Owns the connection to one board resource server: tells when it is ready and adds up the capabilities.
class TolmeConnector : public VornServerComponent
{
public:
    TolmeConnector(VornServerCommonData& commonData, TolmeClient& client)
        : VornServerComponent(commonData), m_client(client)
    {
    }

    /// Connected, and the capabilities are there.
    bool isReadyToPublish() const override;

protected:
    /// Adds the record of a capability that has no parameters; traces `text` unless it is null.
    void addPlainCapability(std::uint16_t code, const char* text);

    /// The capabilities are complete.
    void completeCapabilities();

    TolmeClient& m_client;
};
