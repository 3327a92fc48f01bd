#include "tolmeConnector.h"

bool TolmeConnector::isReadyToPublish() const
{
    if (m_client.isConnected() && m_client.areCapabilitiesReceived()) {
        return true;
    }
    TRACE_INFO("{} is not ready to publish.{}", name(),
               m_client.isConnected() ? " Capabilities have not been received." : " Client is not connected.");
    return false;
}

void TolmeConnector::addPlainCapability(std::uint16_t code, const char* text)
{
    if (text != nullptr) {
        TRACE_1("{}", text);
    }
    m_client.addCapability(std::make_shared<TolmeCapability>(code));
}

void TolmeConnector::completeCapabilities()
{
    m_client.setCapabilitiesReceived();
    if (areComponentsReadyToPublish) {
        areComponentsReadyToPublish();
    }
}
