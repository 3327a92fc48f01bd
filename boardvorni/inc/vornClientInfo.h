/// Who a client is.
#pragma once

#include <cstdint>

/// A client's mailbox and references, in host order.
class VornClientInfo
{
public:
    VornClientInfo(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef, std::uint16_t protocolRev)
        : m_mboxId(mboxId), m_clientRef(clientRef), m_serverRef(serverRef), m_protocolRev(protocolRev)
    {
    }
    virtual ~VornClientInfo() = default;
    VornClientInfo(const VornClientInfo&) = delete;
    VornClientInfo& operator=(const VornClientInfo&) = delete;

    std::uint32_t getMboxId() const { return m_mboxId; }
    std::uint32_t getClientRef() const { return m_clientRef; }
    std::uint32_t getServerRef() const { return m_serverRef; }
    std::uint16_t getProtocolRev() const { return m_protocolRev; }
    void setServerRef(std::uint32_t serverRef) { m_serverRef = serverRef; }

private:
    std::uint32_t m_mboxId;
    std::uint32_t m_clientRef;
    std::uint32_t m_serverRef;
    std::uint16_t m_protocolRev;
};
