#include "vornServerCommonData.h"

#include "faultmanager/faultManager.h"
#include "fdfclient/fdfClient.h"
#include "gantclient/gantClient.h"
#include "kiv/kiv.h"
#include "tolmeClient.h"
#include "vornSession.h"
#include "yarrowi/if/yarrowIClient.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <string_view>

namespace {

constexpr std::uint32_t firstTolmeClientId = 100;

bool isBootEnvironment()
{
    const char* mode = std::getenv("SYS_MODE");
    return mode != nullptr && std::string_view(mode) == "AUBOOT";
}

void replaceMbox(std::uint32_t& held, std::uint32_t id)
{
    if (id == KIV_NO_MBOX && held != KIV_NO_MBOX) {
        kiv_delete_mailbox(held);
    }
    held = id;
}

template <typename Map>
auto lookUp(const Map& map, std::uint32_t id)
{
    const auto found = map.find(id);
    return found != map.end() ? found->second : nullptr;
}

} // namespace

struct VornServerCommonData::Impl {
    TolmeClient dunlClient{firstTolmeClientId};
    TolmeClient feskClient{firstTolmeClientId};
    GANTClient gantClient;
    FDFClient fdfClient;
    YarrowIClient yarrowIClient;
    std::unique_ptr<VornServer::FaultManagerIf> faultManager = std::make_unique<VornServer::FaultManager>();
};

VornServerCommonData::VornServerCommonData()
    : m_privateMbox(KIV_NO_MBOX), m_publicMbox(KIV_NO_MBOX),
      m_impl(std::make_unique<Impl>()), m_protocolRevisions{3, 2, 1}, m_mmiUid(0xFFFFFFFF)
{
    if (isBootEnvironment()) {
        m_auBootMode = 1;
        m_protocolRevisions = {1};
    }
}

VornServerCommonData::~VornServerCommonData() = default;

void VornServerCommonData::setPrivateMbox(std::uint32_t id)
{
    replaceMbox(m_privateMbox, id);
}

void VornServerCommonData::setPublicMbox(std::uint32_t id)
{
    replaceMbox(m_publicMbox, id);
}

TolmeClient& VornServerCommonData::getDunlClient()
{
    return m_impl->dunlClient;
}

TolmeClient& VornServerCommonData::getFeskClient()
{
    return m_impl->feskClient;
}

GANTClient& VornServerCommonData::getGANTClient()
{
    return m_impl->gantClient;
}

FDFClient& VornServerCommonData::getFDFClient()
{
    return m_impl->fdfClient;
}

YarrowIClient& VornServerCommonData::getYarrowIClient()
{
    return m_impl->yarrowIClient;
}

VornServer::FaultManagerIf& VornServerCommonData::getFaultManager()
{
    return *m_impl->faultManager;
}

VornSession& VornServerCommonData::addVornSession(std::uint32_t mboxId, std::uint32_t clientRef,
                                                  std::uint32_t serverRef, std::uint16_t protocolRev,
                                                  const std::string& mboxName, std::uint32_t monitorId)
{
    m_sessions.push_back(std::make_unique<VornSession>(mboxId, clientRef, serverRef, protocolRev, mboxName, monitorId));
    try {
        m_sessionByMbox.emplace(mboxId, m_sessions.back().get());
    } catch (...) {
        m_sessions.pop_back();
        throw;
    }
    return *m_sessions.back();
}

void VornServerCommonData::removeVornSession(std::uint32_t mboxId)
{
    const auto hasMbox = [&](const auto& session) { return session->getMboxId() == mboxId; };
    const auto found = std::find_if(m_sessions.begin(), m_sessions.end(), hasMbox);
    if (found == m_sessions.end()) {
        return;
    }
    std::erase_if(m_sessionByFwdMbox, [&](const auto& entry) { return entry.second == found->get(); });
    m_sessionByMbox.erase(mboxId);
    const auto next = m_sessions.erase(found);
    const auto second = std::find_if(next, m_sessions.end(), hasMbox);
    if (second != m_sessions.end()) {
        m_sessionByMbox.emplace(mboxId, second->get());
    }
}

VornSession* VornServerCommonData::findVornSession(std::uint32_t mboxId) const
{
    return lookUp(m_sessionByMbox, mboxId);
}

VornSession* VornServerCommonData::findVornSessionByFwdMbox(std::uint32_t fwdMboxId) const
{
    if (fwdMboxId == m_publicMbox || fwdMboxId == m_privateMbox) {
        return nullptr;
    }
    const auto hasFwdMbox = [&](const VornSession& session) {
        const FwdMbox* fwdMbox = session.getFwdMbox();
        return fwdMbox != nullptr && fwdMbox->getMboxId() == fwdMboxId;
    };
    if (VornSession* known = lookUp(m_sessionByFwdMbox, fwdMboxId); known != nullptr && hasFwdMbox(*known)) {
        return known;
    }
    for (const auto& session : m_sessions) {
        if (hasFwdMbox(*session)) {
            m_sessionByFwdMbox[fwdMboxId] = session.get();
            return session.get();
        }
    }
    return nullptr;
}

void VornServerCommonData::dumpVornSessions(std::ostream& out) const
{
    for (const auto& session : m_sessions) {
        out << *session << '\n';
    }
}

bool VornServerCommonData::hasProtocolRev(std::uint16_t revision) const
{
    return std::find(m_protocolRevisions.begin(), m_protocolRevisions.end(), revision) != m_protocolRevisions.end();
}

void VornServerCommonData::updateFaultFilterCount(bool up)
{
    if (up) {
        ++m_faultFilterCount;
    } else if (m_faultFilterCount > 0) {
        --m_faultFilterCount;
    }
}

void VornServerCommonData::incrementLostClientCount()
{
    if (m_lostClientCount < std::numeric_limits<std::uint32_t>::max()) {
        ++m_lostClientCount;
    }
}

void VornServerCommonData::shutdown()
{
    setPublicMbox(KIV_NO_MBOX);
    setPrivateMbox(KIV_NO_MBOX);
    m_sessionByMbox.clear();
    m_sessionByFwdMbox.clear();
    m_sessions.clear();
    m_impl->dunlClient.disconnect();
    m_impl->feskClient.disconnect();
    m_impl->gantClient.disconnect();
    m_impl->yarrowIClient.close();
}
