/// The server: its thread, its components, publication and the proxy to the legacy server.
#pragma once

#include "vornServerCmdHandler.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct kiv_msg;
class VornServerCommonData;
class VornServerComponent;
class VornSession;
class WenduSupervisor;
namespace Ostinel::ActiveObject::V1 {
class ActiveObjectIf;
}

/// Stands in front of the legacy server: the endpoint of every signal that a component has subscribed to, and a
/// transparent proxy for all others. Everything but start, stop and the destructor runs on the server thread.
class VornServerImpl : public VornServerCmdHandler
{
public:
    VornServerImpl();
    ~VornServerImpl() override;
    VornServerImpl(const VornServerImpl&) = delete;
    VornServerImpl& operator=(const VornServerImpl&) = delete;

    /// Starts the server thread. Returns 0; 4 where there is no thread to be had; 5 where the supervisor is null; 7
    /// where it is started already.
    int start();

    /// Ends the server thread: by the exit message, or at once. Returns 0.
    int stop(bool immediately);

    /// The debug commands "vornsrv all ...".
    bool handleCommand(const std::vector<std::string>& args, std::ostream& out) override;
    /// Counts a fault filter up or down; for what is to come.
    void updateFaultFilterCount(bool up);
    /// What the server holds, for whoever counts it on the server thread.
    VornServerCommonData& commonData() const { return *m_commonData; }
    const std::vector<std::unique_ptr<VornServerComponent>>& components() const { return m_components; }

private:
    /// What is touched by other threads too. Shared with the thread that ends the server thread after the exit message.
    struct ServerThread {
        std::mutex mutex;
        std::atomic<std::uint32_t> privateMbox{0xFFFFFFFF};
        std::shared_ptr<Ostinel::ActiveObject::V1::ActiveObjectIf> m_activeObject;
        void reset();
    };

    void runServerThread();
    int init();
    int initComponents();
    void setStaticCallbacks();
    void callComponents(const char* hook, const std::function<void(VornServerComponent&)>& call);
    void handleKivFdEvent(int fd);
    void dispatch(kiv_msg* msg);
    void handleSignalToExit(const std::shared_ptr<kiv_msg>& msg);
    void unregisterKivFd();

    void locateLegacyServer();
    void onLegacyServerFound(std::uint32_t mboxId);
    bool areComponentsReadyToPublish();
    bool publish();
    void awaitPublicName();
    void retryPublication();
    void stopAwaitingPublicName();

    void handleUnhandledMessage(kiv_msg* msg);
    void handleConnEstablishReq(kiv_msg*& msg);
    void handleMessageFromLegacyServer(VornSession& session, kiv_msg*& msg);
    void handleMessageFromNewClient(kiv_msg*& msg);
    void holdConnEstablishCfm(VornSession& session, kiv_msg*& msg);
    VornSession& createVornSession(std::uint32_t sender, std::uint32_t clientRef, std::uint32_t serverRef,
                                   std::uint16_t protocolRev);
    std::uint32_t monitor(std::uint32_t mboxId);
    std::uint32_t legacyMbox() const;
    void handleMailboxDisconnected(std::uint32_t mboxId);
    void deleteVornSession(VornSession& session);

    void listReady(std::ostream& out) const;
    void listSessions(std::ostream& out) const;

    std::unique_ptr<WenduSupervisor> m_wenduSupervisor;
    std::shared_ptr<ServerThread> m_serverThread;
    std::unique_ptr<VornServerCommonData> m_commonData;
    std::unique_ptr<VornSession> m_pLegacySession; ///< null while no legacy server is known
    std::vector<std::unique_ptr<VornServerComponent>> m_components;
    std::uint32_t m_nameHolderMonitor = 0xFFFFFFFF; ///< of another's mailbox that has the public name; else 0xFFFFFFFF
    std::uint32_t m_publishTimer = 0;               ///< until the next try; 0 if there is none
};
