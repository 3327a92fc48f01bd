/// Deep sleep of the unit.
#pragma once

#include "vornServerComponent.h"
#include "yarrowi/if/yarrowIClient.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

class UlmoQueue;

/// Finds the yarrowi server, learns its capabilities over a start-up connection that it closes again, then keeps one
/// connection for each session and translates the clients' deep sleep signals into requests on it. Answers on the
/// connection of the debug commands go to a queue, where those commands wait for them. Speaks with the yarrowi server.
class VornServerYarrowI : public VornServerComponent
{
public:
    explicit VornServerYarrowI(VornServerCommonData& commonData);
    ~VornServerYarrowI() override;

    bool init() override;
    std::string_view name() const override { return "VornServerYarrowI"; }
    void onVornSessionLost(const VornSession& session) override;
    void shutdown() override;
    void onNewVornSession(VornSession& session) override;
    bool isReadyToPublish() const override { return m_capabilitiesReceived; }

    /// Hands a message of the debug connection to the command that waits for it.
    void forwardToUlmoQueue(const MessagePtr& message);
    /// The next message of the debug connection; null where none has come in that many seconds. Any thread.
    MessagePtr waitForUlmoMessage(std::uint32_t seconds);

private:
    /// An answer of the server, decoded, with the connection that it came on.
    template <typename Message>
    struct Received;

    void registerSignalNames();
    void handleDeepSleepServerLocate(std::uint32_t mboxId);
    void handleDeepSleepServerDown(std::uint32_t mboxId);
    void sendConnectionEstablishReq(clientInfo& client);

    void handleConnectionEstablishCfm(const MessagePtr& msg);
    void handleConnectionEstablishRej(const MessagePtr& msg);
    void handleCapabilitiesExchCfm(const MessagePtr& msg);
    void handleCapabilitiesExchRej(const MessagePtr& msg);
    void handleConnectionClosedownCfm(const MessagePtr& msg);
    void handleActivateDeepSleepReq(const MessagePtr& msg);
    void handleActivateDeepSleepCfm(const MessagePtr& msg);
    void handleActivateDeepSleepRej(const MessagePtr& msg);
    void handleDeactivateDeepSleepReq(const MessagePtr& msg);
    void handleDeactivateDeepSleepCfm(const MessagePtr& msg);
    void handleDeactivateDeepSleepRej(const MessagePtr& msg);
    void handleSubscribeDeepSleepStatusReq(const MessagePtr& msg);
    void handleSubscribeDeepSleepStatusCfm(const MessagePtr& msg);
    void handleSubscribeDeepSleepStatusRej(const MessagePtr& msg);
    void handleDeepSleepStatusInd(const MessagePtr& msg);

    // The shapes that the handlers share; each is told the texts of its own that it traces.
    template <typename Message>
    std::optional<Received<Message>> decode(const MessagePtr& msg) const;
    template <typename Message>
    std::optional<Received<Message>> receiveForConnection(const MessagePtr& msg, const std::string& name) const;
    template <typename Message>
    std::optional<Received<Message>> receiveForProcedure(const MessagePtr& msg) const;
    template <typename RejSignal, typename Request>
    void handleClientReq(const MessagePtr& msg, std::uint32_t msgNo, const char* notFound);
    template <typename Message>
    VornSession* receiveForSession(const MessagePtr& msg, Message& message, const char* name, const char* ignoring);
    template <typename Message, typename Signal>
    void handleCfm(const MessagePtr& msg, const char* name);
    template <typename Message, typename Signal, typename Reason>
    void handleRej(const MessagePtr& msg, Reason&& reason);
    template <typename Signal>
    void sendRej(const clientInfo* client, std::uint16_t errorCode, const std::string& reason);
    bool isForUlmo(const clientInfo& client) const;
    VornSession* findSession(const clientInfo& client, const char* ignoring) const;
    void sendConnectionClosedownReq(clientInfo* client);

    YarrowIClient& m_yarrowI;
    bool m_capabilitiesReceived = false;
    bool m_isServerUp = false;
    std::uint32_t m_monitorId = 0;
    std::shared_ptr<UlmoQueue> m_ulmoQueue;
    bool m_hasCommand = false;
};
