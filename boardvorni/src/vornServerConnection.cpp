/// VornServerImpl: publication, the proxy to the legacy server, clients that come and go.

#include "vornServerImpl.h"

#include "fwdMbox.h"
#include "kiv/kiv.h"
#include "miravi/miravi.h"
#include "ostinel/eventLoop.h"
#include "ostinel/kivMailboxLocator.h"
#include "ostinel/kivMailboxMonitor.h"
#include "trace/trace.h"
#include "vornServerCommonData.h"
#include "vornServerComponent.h"
#include "vornSession.h"
#include "vorni/access.h"
#include "vorni/connection.h"

#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>

using Ostinel::EventLoop::V1::EventLoopIf;
using Ostinel::KivMailboxLocator::V1::KivMailboxLocatorIf;
using Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf;

namespace {

constexpr const char* publicMboxName = "VornServer";
constexpr const char* legacyServerName = "LegacyVornServer";
constexpr const char* restartLogCategory = "RadioApplication,RadioBoardCtrl";
constexpr std::uint32_t noMonitor = 0xFFFFFFFF;
constexpr std::chrono::milliseconds publishRetryDelay{100}; ///< by then a deleted mailbox's name is free

/// Frees a message that nobody has taken over by the end of its handling.
class DropGuard
{
public:
    explicit DropGuard(kiv_msg*& msg) : m_msg(msg) {}
    ~DropGuard() { kiv_free(m_msg); }
    DropGuard(const DropGuard&) = delete;
    DropGuard& operator=(const DropGuard&) = delete;

private:
    kiv_msg*& m_msg;
};

/// The big-endian word at an offset; 0 where the message ends before it.
std::uint32_t wordAt(const kiv_msg& msg, std::size_t offset)
{
    std::uint32_t word = 0;
    if (kiv_size(&msg) >= offset + sizeof(word)) {
        std::memcpy(&word, reinterpret_cast<const std::byte*>(&msg) + offset, sizeof(word));
    }
    return boost::endian::big_to_native(word);
}

} // namespace

void VornServerImpl::locateLegacyServer()
{
    if (KivMailboxLocatorIf::getInstance().locate(legacyServerName,
                                                  [this](std::uint32_t mboxId) { onLegacyServerFound(mboxId); }) != 0) {
        TRACE_ERROR("ABN: {} can't be located", legacyServerName);
    }
}

void VornServerImpl::onLegacyServerFound(std::uint32_t mboxId)
{
    TRACE_INFO("Legacy VORN server was found at mailbox 0x{:x}", mboxId);
    m_pLegacySession = std::make_unique<VornSession>(mboxId, 0, 0, std::uint16_t{0}, legacyServerName, monitor(mboxId));
    areComponentsReadyToPublish();
}

std::uint32_t VornServerImpl::monitor(std::uint32_t mboxId)
{
    const std::uint32_t monitorId = KivMailboxMonitorIf::getInstance().monitor(
        mboxId, [this](std::uint32_t lost) { handleMailboxDisconnected(lost); });
    if (monitorId == noMonitor) {
        TRACE_ERROR("ABN: mailbox 0x{:x} can't be monitored", mboxId);
    }
    return monitorId;
}

bool VornServerImpl::areComponentsReadyToPublish()
{
    if (m_pLegacySession == nullptr) {
        TRACE_1("legacySession not found");
    }
    if (m_commonData->getPublicMbox() != KIV_NO_MBOX) {
        TRACE_1("Already published to the DU.");
        return false;
    }
    if (m_pLegacySession == nullptr) {
        return false;
    }
    for (const auto& component : m_components) {
        if (!component->isReadyToPublish()) {
            TRACE_1("{} component is not ready to publish.", component->name());
            return false;
        }
    }
    return publish();
}

bool VornServerImpl::publish()
{
    const std::uint32_t privateMbox = m_commonData->getPrivateMbox();
    const std::uint32_t mbox = kiv_clone_mailbox(privateMbox, publicMboxName);
    if (mbox == KIV_NO_MBOX) {
        const bool isNameTaken = errno == EEXIST;
        TRACE_ERROR("Cannot add clone \"{}\" to mailbox 0x{:x}", publicMboxName, privateMbox);
        if (isNameTaken) {
            awaitPublicName();
        }
        return false;
    }
    stopAwaitingPublicName();
    m_commonData->setPublicMbox(mbox);
    TRACE_INFO("Publishing cloned mailbox: {} (0x{:x}) and highestProtocolRev({})", publicMboxName, mbox,
               m_commonData->getHighestProtocolRev());
    miravi_log(restartLogCategory, "Radio VORNServer Published (VORNI)");
    return true;
}

/// Tries again when the mailbox that has the public name has disappeared.
void VornServerImpl::awaitPublicName()
{
    if (m_nameHolderMonitor != noMonitor) {
        return;
    }
    const std::uint32_t holder = kiv_locate(publicMboxName);
    if (holder == KIV_NO_MBOX) { // it has disappeared already
        retryPublication();
        return;
    }
    m_nameHolderMonitor = KivMailboxMonitorIf::getInstance().monitor(holder, [this](std::uint32_t) {
        m_nameHolderMonitor = noMonitor;
        retryPublication();
    });
}

/// Runs the readiness step once after the delay, so that holders that come and go can't keep the server busy.
void VornServerImpl::retryPublication()
{
    if (m_publishTimer != 0) {
        return;
    }
    m_publishTimer = EventLoopIf::getInstance().addTimer(publishRetryDelay, [this] {
        m_publishTimer = 0;
        areComponentsReadyToPublish();
    });
}

void VornServerImpl::stopAwaitingPublicName()
{
    KivMailboxMonitorIf::getInstance().stopMonitor(m_nameHolderMonitor);
    m_nameHolderMonitor = noMonitor;
    EventLoopIf::getInstance().removeTimer(m_publishTimer);
    m_publishTimer = 0;
}

std::uint32_t VornServerImpl::legacyMbox() const
{
    return m_pLegacySession != nullptr ? m_pLegacySession->getMboxId() : KIV_NO_MBOX;
}

void VornServerImpl::handleUnhandledMessage(kiv_msg* msg)
{
    const DropGuard guard(msg);
    if (msg->number == OmlaVornConnEstablishReqS::number) {
        handleConnEstablishReq(msg);
        return;
    }
    if (m_commonData->getPublicMbox() == KIV_NO_MBOX) {
        TRACE_INFO("ABN: DU message received before going public");
        return;
    }
    TRACE_1("VornServer received an unhandled message (0x{:x})", msg->number);
    VornSession* to = m_commonData->findVornSessionByFwdMbox(kiv_receiver(msg));
    if (to != nullptr && to->getFwdMbox() != nullptr) {
        handleMessageFromLegacyServer(*to, msg);
        return;
    }
    const VornSession* from = m_commonData->findVornSession(kiv_sender(msg));
    FwdMbox* fwdMbox = from != nullptr ? from->getFwdMbox() : nullptr;
    if (fwdMbox != nullptr) {
        TRACE_1("Forwarding message 0x{:x} from {} to {} via {}", msg->number, from->getMboxName(), legacyServerName,
                fwdMbox->getMboxName());
        fwdMbox->forward(msg, legacyMbox());
        return;
    }
    handleMessageFromNewClient(msg);
}

void VornServerImpl::handleMessageFromLegacyServer(VornSession& session, kiv_msg*& msg)
{
    const std::uint32_t number = msg->number;
    TRACE_1("Message was forwarded from legacy Vorn Server via {}", session.getFwdMbox()->getMboxName());
    if (number == OmlaVornConnEstablishCfmS::number) {
        holdConnEstablishCfm(session, msg);
        return;
    }
    TRACE_1("Forwarding message 0x{:x} to {}", number, session.getMboxName());
    kiv_send(&msg, session.getMboxId(), m_commonData->getPublicMbox());
    if (number == OmlaVornConnEstablishRejS::number) {
        TRACE_INFO("Connection Request was rejected for {}", session.getMboxName());
        m_commonData->removeVornSession(session.getMboxId());
    }
}

/// The gate sends the confirmation once the components have what the client needs.
void VornServerImpl::holdConnEstablishCfm(VornSession& session, kiv_msg*& msg)
{
    const auto* cfm = viewSignal<OmlaVornConnEstablishCfmS>(msg);
    if (cfm == nullptr) {
        TRACE_INFO("ABN: OMLA_VORN_CONN_ESTABLISH_CFM of {} bytes is too short. Ignoring it.", kiv_size(msg));
        return;
    }
    const std::uint32_t serverRef = cfm->header.serverRef;
    TRACE_1("Adopting OMLA_VORN_CONN_ESTABLISH_CFM's serverRef {}", serverRef);
    session.setServerRef(serverRef);
    session.setCfmPending(m_commonData->getPublicMbox(), msg);
    callComponents("onNewVornSession", [&](VornServerComponent& component) { component.onNewVornSession(session); });
}

/// A client that begins with another signal than the connection request. Its references are read one word too early,
/// as they always have been.
void VornServerImpl::handleMessageFromNewClient(kiv_msg*& msg)
{
    const std::uint32_t number = msg->number;
    const VornSession& session = createVornSession(kiv_sender(msg), wordAt(*msg, 0), wordAt(*msg, 4), 0);
    TRACE_1("default from {} creating new session list entry", session.getMboxName());
    FwdMbox& fwdMbox = *session.getFwdMbox();
    if (fwdMbox.createMbox() == 0) {
        TRACE_1("Message 0x{:x} from {} has been forwarded to {} via the {}", number, session.getMboxName(),
                legacyServerName, fwdMbox.getMboxName());
        fwdMbox.forward(msg, legacyMbox());
    }
}

void VornServerImpl::handleConnEstablishReq(kiv_msg*& msg)
{
    if (m_commonData->getPublicMbox() == KIV_NO_MBOX) {
        TRACE_INFO("ABN: OMLA_VORN_CONN_ESTABLISH_REQ received before going public");
        return;
    }
    const auto* request = viewSignal<OmlaVornConnEstablishReqS>(msg);
    if (request == nullptr) {
        TRACE_INFO("ABN: OMLA_VORN_CONN_ESTABLISH_REQ of {} bytes is too short. Ignoring it.", kiv_size(msg));
        return;
    }
    const std::uint32_t clientRef = request->header.clientRef;
    const std::uint32_t serverRef = request->header.serverRef;
    const std::uint16_t protocolRev = request->protocolRev;
    const std::uint32_t sender = kiv_sender(msg);
    TRACE_REC_SIG(msg->number, "OMLA_VORN_CONN_ESTABLISH_REQ from clientRef({}),serverRef({}),protocolRev({})",
                  clientRef, serverRef, protocolRev);
    miravi_log(
        restartLogCategory,
        fmt::format("Radio VORNServer Connection Established, Start clientRef={}, serverRef={}", clientRef, serverRef));
    const VornSession* known = m_commonData->findVornSession(sender);
    if (FwdMbox* fwdMbox = known != nullptr ? known->getFwdMbox() : nullptr; fwdMbox != nullptr) {
        fwdMbox->forward(msg, legacyMbox());
        TRACE_1("A session for this client already exists, forwarding to {} from {}", legacyServerName,
                fwdMbox->getMboxName());
        return;
    }
    const VornSession& session = createVornSession(sender, clientRef, serverRef, protocolRev);
    FwdMbox& fwdMbox = *session.getFwdMbox();
    if (fwdMbox.createMbox() == 0) {
        fwdMbox.forward(msg, legacyMbox());
    }
    TRACE_1("OMLA_VORN_CONN_ESTABLISH_REQ from {} has been forwarded to {} via the {}", session.getMboxName(),
            legacyServerName, fwdMbox.getMboxName());
}

/// With its forward mailbox, whose clone isn't made yet.
VornSession& VornServerImpl::createVornSession(std::uint32_t sender, std::uint32_t clientRef, std::uint32_t serverRef,
                                               std::uint16_t protocolRev)
{
    const std::uint32_t n = m_commonData->takeSessionNumber();
    const std::string clientName = fmt::format("DU_{}", n);
    auto fwdMbox = std::make_unique<FwdMbox>(m_commonData->getPrivateMbox(), fmt::format("VornFwdMbox_{}", n));
    TRACE_1("Creating new session and FwdMbox named {} for {}", fwdMbox->getMboxName(), clientName);
    VornSession& session =
        m_commonData->addVornSession(sender, clientRef, serverRef, protocolRev, clientName, monitor(sender));
    session.setFwdMbox(fwdMbox.release());
    return session;
}

void VornServerImpl::handleMailboxDisconnected(std::uint32_t mboxId)
{
    if (VornSession* session = m_commonData->findVornSession(mboxId)) {
        TRACE_INFO("Client disconnected: {}", session->getMboxName());
        deleteVornSession(*session);
        m_commonData->incrementLostClientCount();
        if (m_pLegacySession == nullptr || m_pLegacySession->getMboxId() != mboxId) {
            return;
        }
        // The legacy server had spoken to the public mailbox, as a client does: it is lost as both.
    }
    if (m_pLegacySession != nullptr && m_pLegacySession->getMboxId() == mboxId) {
        TRACE_ERROR("ABN: Backend disconnected: erasing {}", m_pLegacySession->getMboxName());
        m_pLegacySession.reset();
        m_commonData->setPublicMbox(KIV_NO_MBOX);
        locateLegacyServer();
        return;
    }
    TRACE_INFO("Unknown client disconnected: 0x{:x}", mboxId);
}

void VornServerImpl::deleteVornSession(VornSession& session)
{
    callComponents("onVornSessionLost", [&](VornServerComponent& component) { component.onVornSessionLost(session); });
    TRACE_1("VornServerImpl::deleteVornSession erasing {}", session.getMboxName());
    m_commonData->removeVornSession(session.getMboxId());
}
