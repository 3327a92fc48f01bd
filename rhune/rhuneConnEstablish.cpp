#include "rhuneConnEstablish.h"

#include "rhune/rhuneSignals.h"

#include <algorithm>
#include <cstdio>
#include <span>
#include <string>

namespace VornServer::Rhune {
namespace {

constexpr std::uint32_t supportedRevision = 1;
constexpr std::uint16_t protocolNotSupported = 1;

/// The revisions behind the request, in host order. A count beyond the signal's end is cut to those that the signal
/// holds: the rest is neither looked at nor named in traces and reject.
std::vector<std::uint32_t> revisionsOf(const RhuneVornConnEstablishReqS& request, std::size_t size)
{
    const std::size_t held = (size - sizeof(request)) / sizeof(VornU32);
    const std::size_t count = std::min<std::size_t>(request.nbrOfSupportedProtocolRev, held);
    const std::span list(reinterpret_cast<const VornU32*>(&request + 1), count);
    return {list.begin(), list.end()};
}

/// Ends once it is longer than the field that it is written to: the list of a large signal has millions of entries.
std::string rejectText(const std::vector<std::uint32_t>& revisions)
{
    std::string text = "protocol(s) not supported:";
    for (const std::uint32_t revision : revisions) {
        if (text.size() >= sizeof(RhuneVornConnEstablishRejS::errorDescription)) {
            break;
        }
        text += ' ' + std::to_string(revision);
    }
    return text;
}

} // namespace

void RhuneConnEstablish::addMessageHandlers()
{
    m_subscriptions.add(RhuneVornConnEstablishReqS::number, this, &RhuneConnEstablish::handleConnEstablishReq);
}

void RhuneConnEstablish::handleConnEstablishReq(const MessagePtr& msg)
{
    const auto* request = viewReceived<RhuneVornConnEstablishReqS>(msg);
    if (request == nullptr) {
        return;
    }
    const kiv_mbox_id_t sender = kiv_sender(msg.get());
    const Revisions revisions = revisionsOf(*request, kiv_size(msg.get()));
    const std::uint32_t nbrOfRevisions = request->nbrOfSupportedProtocolRev;
    TRACE_1("Number of protocol revisions supported by the client: {}", nbrOfRevisions);
    TRACE_1("Protocol revisions supported by the client: {}", fmt::join(revisions, " "));
    TRACE_REC_SIG(msg->number,
                  "Received signal RHUNE_VORN_CONN_ESTABLISH_REQ: connectionRef: {} procedureRef: {} "
                  "nbrOfSupportedProtocolRev: {} protocolRevList: {} sender: 0x{:x}",
                  request->header.connectionRef.value(), request->header.procedureRef.value(), nbrOfRevisions,
                  fmt::join(revisions, " "), sender);
    if (std::find(revisions.begin(), revisions.end(), supportedRevision) == revisions.end()) {
        sendConnEstablishRej(*request, revisions, sender);
        return;
    }
    m_client.registerClient(m_nextServerConnectionRef, request->header.connectionRef, sender);
    sendConnEstablishCfm(*request, sender);
    ++m_nextServerConnectionRef;
}

void RhuneConnEstablish::sendConnEstablishCfm(const RhuneVornConnEstablishReqS& request, kiv_mbox_id_t mbox) const
{
    NewSignal<RhuneVornConnEstablishCfmS> cfm(request.header.procedureRef, m_nextServerConnectionRef);
    if (cfm) {
        cfm->selectedProtocolRevision = supportedRevision;
        cfm.send(mbox, KIV_CURRENT_MBOX);
        TRACE_SEND_SIG(RhuneVornConnEstablishCfmS::number, mbox,
                       "Sent signal RHUNE_VORN_CONN_ESTABLISH_CFM: connectionRef: {} procedureRef: {} "
                       "selectedProtocolRevision: {} mbox: 0x{:x}",
                       m_nextServerConnectionRef, request.header.procedureRef.value(), supportedRevision, mbox);
    }
}

void RhuneConnEstablish::sendConnEstablishRej(const RhuneVornConnEstablishReqS& request, const Revisions& revisions,
                                              kiv_mbox_id_t mbox)
{
    constexpr std::uint32_t noConnection = 0;
    NewSignal<RhuneVornConnEstablishRejS> rej(request.header.procedureRef, noConnection);
    if (rej) {
        rej->errorCode = protocolNotSupported;
        std::snprintf(rej->errorDescription, sizeof(rej->errorDescription), "%s", rejectText(revisions).c_str());
        const std::string written(fieldText(rej->errorDescription));
        rej.send(mbox, KIV_CURRENT_MBOX);
        TRACE_SEND_SIG(RhuneVornConnEstablishRejS::number, mbox,
                       "Sent signal RHUNE_VORN_CONN_ESTABLISH_REJ: connectionRef: {} procedureRef: {} errorCode:{} "
                       "errorDescription:{} mbox: 0x{:x}",
                       noConnection, request.header.procedureRef.value(), protocolNotSupported, written, mbox);
    }
}

} // namespace VornServer::Rhune
