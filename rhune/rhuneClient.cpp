#include "rhuneClient.h"

#include "rhune/rhuneSignals.h"

#include <algorithm>
#include <new>

namespace VornServer::Rhune {
namespace {

auto hasServerRef(std::uint32_t serverRef)
{
    return [serverRef](const ClientRecord& client) { return client.serverConnectionRef == serverRef; };
}

void traceNoClient(std::uint32_t serverRef)
{
    TRACE_1("No client with corresponding server connection reference {} was found.", serverRef);
}

} // namespace

void RhuneClient::addMessageHandlers()
{
    m_subscriptions.add(RhuneVornServerKivMonitorIndS::number, this, &RhuneClient::doClientDisconnected);
}

void RhuneClient::registerClient(std::uint32_t serverRef, std::uint32_t clientRef, kiv_mbox_id_t mbox)
{
    kiv_msg* msg = kiv_alloc(sizeof(RhuneVornServerKivMonitorIndS), RhuneVornServerKivMonitorIndS::number);
    if (msg == nullptr) {
        throw std::bad_alloc(); // a client that can't be watched isn't connected
    }
    OwnedMessage ind(msg);
    viewSignal<RhuneVornServerKivMonitorIndS>(msg)->serverConnectionReference = serverRef;
    m_clients.push_back({serverRef, clientRef, mbox, 0});
    m_clients.back().monitorRef = kiv_monitor(mbox, ind.release());
    if (m_clients.back().monitorRef == 0) {
        m_clients.pop_back();
        throw std::bad_alloc();
    }
    TRACE_1("Registering client: server connection reference: {}, client connection reference: {}", serverRef,
            clientRef);
}

const ClientRecord* RhuneClient::findClient(std::uint32_t serverRef) const
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(), hasServerRef(serverRef));
    if (found == m_clients.end()) {
        traceNoClient(serverRef);
        return nullptr;
    }
    TRACE_1("A client with corresponding server connection reference {} was found.", serverRef);
    return &*found;
}

std::optional<std::uint32_t> RhuneClient::getClient(std::uint32_t serverRef) const
{
    const ClientRecord* client = findClient(serverRef);
    return client != nullptr ? std::optional(client->clientConnectionRef) : std::nullopt;
}

void RhuneClient::resetClient(std::uint32_t serverRef)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(), hasServerRef(serverRef));
    if (found == m_clients.end()) {
        traceNoClient(serverRef);
        return;
    }
    kiv_unmonitor(found->monitorRef);
    m_clients.erase(found);
    TRACE_1("The client with corresponding server connection reference {} was reset.", serverRef);
}

void RhuneClient::doClientDisconnected(const MessagePtr& msg)
{
    const auto* ind = viewReceived<RhuneVornServerKivMonitorIndS>(msg);
    if (ind == nullptr) {
        return; // not from the monitor
    }
    const std::uint32_t serverRef = ind->serverConnectionReference;
    TRACE_REC_SIG(msg->number,
                  "Sent signal RHUNE_VORN_SERVER_KIV_MONITOR_IND: serverConnectionReference: {} mbox: 0x{:x}",
                  serverRef, kiv_sender(msg.get()));
    TRACE_1("Client with server connection reference {} is disconnected.", serverRef);
    resetClient(serverRef);
}

} // namespace VornServer::Rhune
