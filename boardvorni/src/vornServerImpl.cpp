#include "vornServerImpl.h"

#include "faultmanager/faultManagerIf.h"
#include "kiv/kiv.h"
#include "ostinel/activeObject.h"
#include "ostinel/eventLoop.h"
#include "ostinel/kivMessageSubscription.h"
#include "trace/trace.h"
#include "vornServerCommonData.h"
#include "vornServerComponent.h"
#include "vornServerComponents.h"
#include "vornServerUlmo.h"
#include "vornSession.h"
#include "vorni/access.h"
#include "wenduSupervisor.h"

#include <cerrno>
#include <ctime>
#include <exception>
#include <new>
#include <systemd/sd-daemon.h>
#include <thread>

using Ostinel::ActiveObject::V1::ActiveObjectIf;
using Ostinel::EventLoop::V1::EventLoopIf;
using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;

namespace {

constexpr std::uint32_t exitThreadMsg = 0xDEADBEEF;
constexpr const char* privateMboxName = "private_VornServer";
constexpr std::uint32_t readable = 1;

enum StartResult { started = 0, noThread = 4, noSupervisor = 5, alreadyStarted = 7 };
enum InitResult { initialised = 0, initFailed = 6 };

/// Gives the server thread the time to leave the handler of the exit message.
void sleepBeforeExit()
{
    timespec remaining{.tv_sec = 0, .tv_nsec = 100'000'000};
    while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

} // namespace

VornServerImpl::VornServerImpl() : m_serverThread(std::make_shared<ServerThread>())
{
    m_commonData = std::make_unique<VornServerCommonData>();
    m_components = makeComponents(*m_commonData);
}

VornServerImpl::~VornServerImpl()
{
    stop(true);
    m_pLegacySession.reset(); // the descriptor has gone with its thread
    VornServerUlmo::getInstance().unregisterCmdHandler("all", this);
    VornServerComponent::areComponentsReadyToPublish = nullptr;
    VornServerComponent::notifyRestartReqReceived = nullptr;
    VornServerComponent::supervisionTimeoutResult = nullptr;
    for (auto& component : m_components) {
        component.reset();
    }
}

void VornServerImpl::ServerThread::reset()
{
    const std::lock_guard lock(mutex);
    m_activeObject.reset();
}

int VornServerImpl::start()
{
    std::shared_ptr<ActiveObjectIf> activeObject;
    {
        const std::lock_guard lock(m_serverThread->mutex);
        if (m_serverThread->m_activeObject != nullptr) {
            return alreadyStarted;
        }
        activeObject = ActiveObjectIf::create("vornserver", [this] { runServerThread(); }, {});
        m_serverThread->m_activeObject = activeObject;
    }
    if (activeObject == nullptr) {
        return noThread;
    }
    const auto reportFault = [this](VornServer::FaultData fault) { m_commonData->getFaultManager().addFault(fault); };
    m_wenduSupervisor.reset(new (std::nothrow) WenduSupervisor(reportFault, activeObject));
    if (m_wenduSupervisor == nullptr) {
        TRACE_ERROR("WENDU supervisor pointer is null!");
        return noSupervisor;
    }
    m_wenduSupervisor->start();
    return started;
}

int VornServerImpl::stop(bool immediately)
{
    const std::uint32_t mbox = m_serverThread->privateMbox;
    if (!immediately && mbox != KIV_NO_MBOX) {
        kiv_msg* msg = kiv_alloc(sizeof(std::uint32_t), exitThreadMsg);
        kiv_send(&msg, mbox, mbox);
    } else {
        m_serverThread->reset();
    }
    return 0;
}

void VornServerImpl::runServerThread()
{
    const std::uint32_t mbox = kiv_create_mailbox(privateMboxName);
    m_commonData->setPrivateMbox(mbox);
    m_serverThread->privateMbox = mbox;
    if (mbox == KIV_NO_MBOX) {
        TRACE_1("Failed to create KIV mailbox!");
        unregisterKivFd();
        return;
    }
    const bool isListening =
        EventLoopIf::getInstance().addFd(kiv_get_fd(), readable, [this](int fd) { handleKivFdEvent(fd); }) == 0;
    if (!isListening) {
        TRACE_1("Failed to register KIV FD handler");
        unregisterKivFd();
    }
    TRACE_1("Published server: {} (0x{:x})", privateMboxName, mbox);
    if (init() != initialised) {
        TRACE_1("Failed to register signal handlers!");
        unregisterKivFd();
    } else if (isListening) {
        sd_notify(0, "READY=1");
    }
}

int VornServerImpl::init()
try {
    KivMessageSubscriptionIf::getInstance().subscribe(
        exitThreadMsg, [this](const std::shared_ptr<kiv_msg>& msg) { handleSignalToExit(msg); });
    locateLegacyServer();
    VornServerUlmo::getInstance().registerCommands();
    VornServerUlmo::getInstance().registerCmdHandler("all", this);
    setStaticCallbacks();
    return initComponents();
} catch (const std::exception& error) {
    TRACE_ERROR("ABN: the server can't be initialised: {}", error.what());
    return initFailed;
}

int VornServerImpl::initComponents()
{
    for (const auto& component : m_components) {
        if (!component->init()) {
            TRACE_INFO("VornServer component {} has failed to init", component->name());
            return initFailed;
        }
    }
    if (!m_commonData->getFaultManager().init()) {
        TRACE_INFO("VornServer Fault Manager has failed to init");
        return initFailed;
    }
    return initialised;
}

void VornServerImpl::setStaticCallbacks()
{
    VornServerComponent::areComponentsReadyToPublish = [this] { return areComponentsReadyToPublish(); };
    VornServerComponent::notifyRestartReqReceived = [this](const VornSession& session, std::uint32_t value) {
        callComponents("onNotifyRestartReqReceived",
                       [&](VornServerComponent& component) { component.onNotifyRestartReqReceived(session, value); });
    };
    VornServerComponent::supervisionTimeoutResult = [this](const VornSession& session, bool accepted) {
        callComponents("onSupervisionTimeoutResult", [&](VornServerComponent& component) {
            component.onSupervisionTimeoutResult(session, accepted);
        });
    };
}

/// Calls a hook of every component in list order. One that fails doesn't keep the others from being told.
void VornServerImpl::callComponents(const char* hook, const std::function<void(VornServerComponent&)>& call)
{
    for (const auto& component : m_components) {
        try {
            call(*component);
        } catch (const std::exception& error) {
            TRACE_ERROR("ABN: {} of {} failed: {}", hook, component->name(), error.what());
        }
    }
}

/// Takes one message for each report; the event loop reports again while messages are queued.
void VornServerImpl::handleKivFdEvent(int /*fd*/)
{
    kiv_msg* msg = kiv_receive(nullptr, KIV_NO_WAIT, KIV_ANY_SENDER);
    if (msg == nullptr) {
        return;
    }
    const std::uint32_t number = msg->number;
    try {
        dispatch(msg);
    } catch (const std::exception& error) {
        TRACE_ERROR("ABN: message 0x{:x} is dropped: {}", number, error.what());
    } catch (...) {
        TRACE_ERROR("ABN: message 0x{:x} is dropped: unknown exception", number);
    }
}

void VornServerImpl::dispatch(kiv_msg* msg)
{
    OwnedMessage owned(msg);
    Ostinel::KivMessageSubscription::V1::Handler handler;
    if (KivMessageSubscriptionIf::getInstance().lookUp(msg->number, handler) == 0) {
        handler(Ostinel::KivMessageSubscription::V1::makeShared(owned.release()));
    } else {
        handleUnhandledMessage(owned.release());
    }
}

void VornServerImpl::handleSignalToExit(const std::shared_ptr<kiv_msg>& msg)
{
    TRACE_REC_SIG(msg->number, "EXIT_THREAD_MSG");
    callComponents("shutdown", [](VornServerComponent& component) { component.shutdown(); });
    // The descriptor goes with the mailbox; it has to leave the event loop before.
    const int fd = kiv_get_fd();
    EventLoopIf::getInstance().removeFd(fd);
    m_serverThread->privateMbox = KIV_NO_MBOX;
    m_commonData->shutdown();
    unregisterKivFd();
    std::thread([serverThread = m_serverThread] {
        sleepBeforeExit();
        serverThread->reset();
    }).detach();
}

void VornServerImpl::unregisterKivFd()
{
    EventLoopIf::getInstance().removeFd(kiv_get_fd());
    stopAwaitingPublicName();
    m_pLegacySession.reset();
}

bool VornServerImpl::handleCommand(const std::vector<std::string>& args, std::ostream& out)
{
    if (args.size() == 3 && args[2] == "ready") {
        listReady(out);
        return true;
    }
    if (args.size() == 3 && args[2] == "sessions") {
        listSessions(out);
        return true;
    }
    out << "invalid \"all\" command\n";
    return false;
}

void VornServerImpl::updateFaultFilterCount(bool up)
{
    m_commonData->updateFaultFilterCount(up);
}

void VornServerImpl::listReady(std::ostream& out) const
{
    bool areAllReady = true;
    for (const auto& component : m_components) {
        if (!component->isReadyToPublish()) {
            if (areAllReady) {
                out << "The following component(s) are not ready to publish\n";
            }
            areAllReady = false;
            out << component->name() << '\n';
        }
    }
    if (areAllReady) {
        out << "All components are ready to publish\n";
    }
    out << '\n';
}

void VornServerImpl::listSessions(std::ostream& out) const
{
    m_commonData->dumpVornSessions(out);
    if (m_pLegacySession != nullptr) {
        out << "m_pLegacySession:\n"
            << "-----------------\n"
            << *m_pLegacySession << '\n';
    }
}
