/// What all components share.
#pragma once

#include "productData.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

class FDFClient;
class GANTClient;
class TolmeClient;
class VornSession;
class YarrowIClient;
namespace VornServer {
class FaultManagerIf;
namespace BbVorni {
class Client;
}
} // namespace VornServer

/// The one shared context: the server's two mailboxes, the sessions, the clients of the board's servers, product data,
/// counters. Used on the server thread only.
class VornServerCommonData
{
public:
    /// Reads "SYS_MODE": "AUBOOT" means that the server runs in the boot environment.
    VornServerCommonData();
    virtual ~VornServerCommonData();
    VornServerCommonData(const VornServerCommonData&) = delete;
    VornServerCommonData& operator=(const VornServerCommonData&) = delete;

    std::uint32_t getPrivateMbox() const { return m_privateMbox; }
    std::uint32_t getPublicMbox() const { return m_publicMbox; }
    /// 0xFFFFFFFF for none; a mailbox that is held is deleted then.
    void setPrivateMbox(std::uint32_t id);
    void setPublicMbox(std::uint32_t id);

    TolmeClient& getDunlClient();
    TolmeClient& getFeskClient();
    GANTClient& getGANTClient();
    FDFClient& getFDFClient();
    YarrowIClient& getYarrowIClient();
    VornServer::FaultManagerIf& getFaultManager();

    /// The baseband side, which isn't owned; set as soon as it is built, before any component is initialised.
    const VornServer::BbVorni::Client& getBbVorniClient() const { return *m_bbVorniClient; }
    void setBbVorniClient(const VornServer::BbVorni::Client& client) { m_bbVorniClient = &client; }

    VornSession& addVornSession(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                                std::uint16_t protocolRev, const std::string& mboxName, std::uint32_t monitorId);
    /// Deletes the first session with this mailbox, if there is one.
    void removeVornSession(std::uint32_t mboxId);
    /// The first session with this mailbox, or null.
    VornSession* findVornSession(std::uint32_t mboxId) const;
    /// The first session whose forward mailbox has this id, or null.
    VornSession* findVornSessionByFwdMbox(std::uint32_t fwdMboxId) const;
    std::size_t getVornSessionCount() const { return m_sessions.size(); }
    void dumpVornSessions(std::ostream& out) const;

    /// The revisions of the VORNI protocol that the server speaks, highest first.
    std::uint16_t getHighestProtocolRev() const { return m_protocolRevisions.front(); }
    bool hasProtocolRev(std::uint16_t revision) const;
    bool isAuBootMode() const { return m_auBootMode != 0; }

    const HwPid& getHwPid() const { return m_hwPid; }
    void setHwPid(const HwPid& pid) { m_hwPid = pid; }
    const ContainerPid& getContainerPid() const { return m_containerPid; }
    void setContainerPid(const ContainerPid& pid) { m_containerPid = pid; }
    const std::string& getSelectLoadModule() const { return m_selectLoadModule; }
    void setSelectLoadModule(const std::string& name) { m_selectLoadModule = name; }

    /// The next number for the names of a client and its forward mailbox; never given out twice.
    std::uint32_t takeSessionNumber() { return m_nextSessionNumber++; }

    /// Counts fault filters up or down, not below 0.
    void updateFaultFilterCount(bool up);
    bool isFaultFilterActive() const { return m_faultFilterCount != 0; }

    /// Saturates at 0xFFFFFFFF.
    void incrementLostClientCount();
    std::uint32_t getLostClientCount() const { return m_lostClientCount; }

    void setSystemConstantsAvailable() { m_systemConstantsAvailable = true; }
    bool isSystemConstantsAvailable() const { return m_systemConstantsAvailable; }

    /// The MMI user id of the unit's own registration.
    void setMmiUid(std::uint32_t userId) { m_mmiUid = userId; }
    std::uint32_t getMmiUid() const { return m_mmiUid; }

    /// Deletes the mailboxes, destroys the sessions, disconnects the clients.
    void shutdown();

private:
    struct Impl;

    std::uint32_t m_privateMbox;
    std::uint32_t m_publicMbox;
    std::vector<std::unique_ptr<VornSession>> m_sessions; ///< in order of creation
    std::unique_ptr<Impl> m_impl;                         ///< the clients
    std::string m_selectLoadModule;
    std::uint32_t m_auBootMode = 0;
    std::vector<std::uint16_t> m_protocolRevisions;
    HwPid m_hwPid;
    ContainerPid m_containerPid;
    std::uint32_t m_nextSessionNumber = 0;
    std::uint32_t m_faultFilterCount = 0;
    std::uint32_t m_lostClientCount = 0;
    bool m_systemConstantsAvailable = false;
    std::uint32_t m_mmiUid;
    const VornServer::BbVorni::Client* m_bbVorniClient = nullptr;

    // Finding the session of a message must not cost more with a thousand clients than with one. Both point into
    // m_sessions; the second is filled on the first look-up of a forward mailbox.
    std::unordered_map<std::uint32_t, VornSession*> m_sessionByMbox;
    mutable std::unordered_map<std::uint32_t, VornSession*> m_sessionByFwdMbox;
};
