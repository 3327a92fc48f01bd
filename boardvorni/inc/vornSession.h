/// A client's session, and the gate that holds its connection confirmation back.
#pragma once

#include "fwdMbox.h"
#include "state.h"
#include "vornClientInfo.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <string>

struct kiv_msg;

/// What the server knows of one client: who it is, what its components have learnt about it, which requests of it are
/// open. It holds the legacy server's OMLA_VORN_CONN_ESTABLISH_CFM back until four things are known for the client: the
/// MMI user id, the UTC time source reference, the answers of link supervision and of deep sleep. Each of the four
/// setters runs that gate; the one that completes it sends the confirmation.
class VornSession : public VornClientInfo
{
public:
    VornSession(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef, std::uint16_t protocolRev,
                const std::string& mboxName, std::uint32_t monitorId);
    /// Stops the monitor and frees a held confirmation; the forward mailbox goes with it.
    ~VornSession() override;

    /// Takes ownership; an earlier one is deleted.
    void setFwdMbox(FwdMbox* fwdMbox);
    /// Null for the legacy server's session only; traces where it is.
    FwdMbox* getFwdMbox() const;

    std::uint32_t getMonitorId() const { return m_monitorId; }
    const std::string& getMboxName() const { return m_mboxName; }

    State getVornState() const { return m_vornState; }
    void setVornState(State state) { m_vornState = state; }
    const char* getVornStateName() const { return stateName(m_vornState); }

    /// Holds a confirmation, to be sent from `publicMboxId`; takes the message over and clears the caller's pointer.
    /// One that is held already is freed. Doesn't run the gate.
    void setCfmPending(std::uint32_t publicMboxId, kiv_msg*& msg);

    void setUtcTimeSourceRef(std::uint32_t reference);
    void setMmiUserId(std::uint32_t userId);
    /// Common to all sessions: once link supervision has answered for one client, no client waits for it.
    void setConnectivityConnectedState(std::optional<bool> connected);
    void setDeepSleepConnectionReqResponded(bool responded);

    /// 0 while not set.
    std::uint32_t getUtcTimeSourceRef() const { return m_utcTimeSourceRef.value_or(0); }
    std::uint32_t getMmiUserId() const { return m_mmiUserId.value_or(0); }

    void setTempMeasRef(std::uint32_t reference) { m_tempMeasRef = reference; }
    std::uint32_t getTempMeasRef() const { return m_tempMeasRef; }

    /// Notes an open board request. A key in use keeps its signal number.
    void addProcedureRef(std::uint32_t procedureRef, std::uint32_t sigNo);
    bool hasProcedureRef(std::uint32_t procedureRef) const;
    /// The signal number, or 0 where the key is absent.
    std::uint32_t getProcedureRefSignal(std::uint32_t procedureRef) const;
    void eraseProcedureRef(std::uint32_t procedureRef);

private:
    friend std::ostream& operator<<(std::ostream& out, const VornSession& session);

    void sendCfmIfInitialized();
    bool isInitialized() const;

    static std::optional<bool> s_connectivityConnectedState;

    std::uint32_t m_monitorId;
    std::uint32_t m_publicMboxId; ///< sender of the held confirmation
    std::unique_ptr<FwdMbox> m_pFwdMbox;
    State m_vornState = State::STARTING;
    kiv_msg* m_pendingCfm = nullptr;
    std::optional<std::uint32_t> m_utcTimeSourceRef;
    std::optional<std::uint32_t> m_mmiUserId;
    std::optional<bool> m_deepSleepConnectionReqResponded;
    std::map<std::uint32_t, std::uint32_t> procedureRefInfoMap;
    std::uint32_t m_tempMeasRef = 0;
    std::string m_mboxName;
};

/// The dump of the debug command, many lines.
std::ostream& operator<<(std::ostream& out, const VornSession& session);
