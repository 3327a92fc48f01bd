#include "vornSession.h"

#include "kiv/kiv.h"
#include "miravi/miravi.h"
#include "ostinel/kivMailboxMonitor.h"
#include "trace/trace.h"
#include "vorni/access.h"

#include <fmt/format.h>
#include <ostream>

namespace {

constexpr const char* restartLogCategory = "RadioApplication,RadioBoardCtrl";

template <typename Value>
std::string printOptional(const std::optional<Value>& value)
{
    return value ? fmt::format("{}", +*value) : "nullopt";
}

} // namespace

std::optional<bool> VornSession::s_connectivityConnectedState;

VornSession::VornSession(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef,
                         std::uint16_t protocolRev, const std::string& mboxName, std::uint32_t monitorId)
    : VornClientInfo(mboxId, clientRef, serverRef, protocolRev), m_monitorId(monitorId), m_publicMboxId(KIV_NO_MBOX),
      m_mboxName(mboxName)
{
}

VornSession::~VornSession()
{
    TRACE_2("VornSession::~VornSession");
    if (m_monitorId != 0) {
        Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf::getInstance().stopMonitor(m_monitorId);
    }
    kiv_free(m_pendingCfm);
}

void VornSession::setFwdMbox(FwdMbox* fwdMbox)
{
    m_pFwdMbox.reset(fwdMbox);
}

FwdMbox* VornSession::getFwdMbox() const
{
    if (m_pFwdMbox == nullptr) {
        TRACE_INFO("ABN: Forward mailbox for ID {} is null!", getMboxId());
    }
    return m_pFwdMbox.get();
}

void VornSession::setCfmPending(std::uint32_t publicMboxId, kiv_msg*& msg)
{
    kiv_free(m_pendingCfm);
    m_publicMboxId = publicMboxId;
    m_pendingCfm = msg;
    msg = nullptr;
}

void VornSession::setUtcTimeSourceRef(std::uint32_t reference)
{
    m_utcTimeSourceRef = reference;
    sendCfmIfInitialized();
}

void VornSession::setMmiUserId(std::uint32_t userId)
{
    m_mmiUserId = userId;
    sendCfmIfInitialized();
}

void VornSession::setConnectivityConnectedState(std::optional<bool> connected)
{
    s_connectivityConnectedState = connected;
    sendCfmIfInitialized();
}

void VornSession::setDeepSleepConnectionReqResponded(bool responded)
{
    m_deepSleepConnectionReqResponded = responded;
    sendCfmIfInitialized();
}

void VornSession::sendCfmIfInitialized()
{
    if (m_pendingCfm == nullptr) {
        return;
    }
    if (m_publicMboxId == KIV_NO_MBOX) {
        TRACE_INFO("ABN: The public mailbox was not set with setCfmPending()");
        return;
    }
    if (!isInitialized()) {
        return;
    }
    TRACE_INFO("{} initialized!", m_mboxName);
    const auto* header = viewSignal<VornSignalHeader>(static_cast<const kiv_msg*>(m_pendingCfm));
    const std::uint32_t clientRef = header != nullptr ? header->clientRef.value() : 0;
    const std::uint32_t serverRef = header != nullptr ? header->serverRef.value() : 0;
    miravi_log(
        restartLogCategory,
        fmt::format("Radio VORNServer Connection Established, End clientRef={}, serverRef={}", clientRef, serverRef));
    TRACE_SEND_SIG(m_pendingCfm->number, getMboxId(), "OMLA_VORN_CONN_ESTABLISH_CFM{{clientRef={}, serverRef={}}}",
                   clientRef, serverRef);
    kiv_send(&m_pendingCfm, getMboxId(), m_publicMboxId);
    m_pendingCfm = nullptr;
}

/// The order decides only which of several reasons is traced.
bool VornSession::isInitialized() const
{
    if (!m_mmiUserId) {
        TRACE_1("Initializing {}: MMI UID is not set", m_mboxName);
        return false;
    }
    if (!m_utcTimeSourceRef) {
        TRACE_1("Initializing {}: Time Source Ref is not set", m_mboxName);
        return false;
    }
    if (!s_connectivityConnectedState) {
        TRACE_1("Initializing {}: Link Supervision hasn't responded yet", m_mboxName);
        return false;
    }
    if (!m_deepSleepConnectionReqResponded) {
        TRACE_1("Initializing {}: Deep Sleep Connection hasn't responded yet", m_mboxName);
        return false;
    }
    return true;
}

void VornSession::addProcedureRef(std::uint32_t procedureRef, std::uint32_t sigNo)
{
    if (!procedureRefInfoMap.emplace(procedureRef, sigNo).second) {
        TRACE_INFO("ABN: Cannot add procedureRef : ({}) to procedureRefInfoMap.Key Value with signal Number: ({}) "
                   "already exist.",
                   procedureRef, sigNo);
    }
}

bool VornSession::hasProcedureRef(std::uint32_t procedureRef) const
{
    return procedureRefInfoMap.contains(procedureRef);
}

std::uint32_t VornSession::getProcedureRefSignal(std::uint32_t procedureRef) const
{
    const auto found = procedureRefInfoMap.find(procedureRef);
    return found != procedureRefInfoMap.end() ? found->second : 0;
}

void VornSession::eraseProcedureRef(std::uint32_t procedureRef)
{
    procedureRefInfoMap.erase(procedureRef);
}

std::ostream& operator<<(std::ostream& out, const VornSession& session)
{
    const std::string connected = printOptional(VornSession::s_connectivityConnectedState);
    out << fmt::format("m_mboxId = 0x{:x}\n", session.getMboxId())
        << fmt::format("m_clientRef = {}\nm_serverRef = {}\nm_protocolRev = {}\n", session.getClientRef(),
                       session.getServerRef(), session.getProtocolRev())
        << fmt::format("m_mboxName = {}\nm_monitorId = {}\n", session.m_mboxName, session.m_monitorId)
        << fmt::format("m_vornState = {}\n", session.getVornStateName())
        << fmt::format("m_utcTimeSourceRef = {}\nm_mmiUserId = {}\nm_tempMeasRef = {}\n",
                       printOptional(session.m_utcTimeSourceRef), printOptional(session.m_mmiUserId),
                       session.m_tempMeasRef)
        << fmt::format("s_connectivityConnectedState = {}\n", connected)
        // Shows the state common to all sessions, not the session's own answer.
        << fmt::format("m_deepSleepConnectionReqResponded = {}\n", connected);
    if (session.m_pFwdMbox == nullptr) {
        return out << "m_pFwdMbox = nullptr\n";
    }
    return out << "*m_pFwdMbox = {\n" << *session.m_pFwdMbox << "}\n";
}
