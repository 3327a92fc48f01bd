#include "rhuneConnClose.h"

#include "rhune/rhuneSignals.h"

namespace VornServer::Rhune {

void RhuneConnClose::addMessageHandlers()
{
    m_subscriptions.add(RhuneVornConnCloseReqS::number, this, &RhuneConnClose::handleConnCloseReq);
}

void RhuneConnClose::handleConnCloseReq(const MessagePtr& msg)
{
    const auto* request = viewReceived<RhuneVornConnCloseReqS>(msg);
    if (request == nullptr) {
        return;
    }
    const kiv_mbox_id_t sender = kiv_sender(msg.get());
    const std::uint32_t procedureRef = request->header.procedureRef;
    const std::uint32_t serverRef = request->header.connectionRef;
    TRACE_REC_SIG(msg->number,
                  "Received RHUNE_VORN_CONN_CLOSE_REQ: procedureReference: {} connectionReference: {} sender: 0x{:x}",
                  procedureRef, serverRef, sender);
    const std::optional<std::uint32_t> clientRef = m_client.getClient(serverRef);
    m_client.resetClient(serverRef);
    if (!clientRef) {
        return;
    }
    NewSignal<RhuneVornConnCloseCfmS> cfm(procedureRef, *clientRef);
    if (cfm) {
        cfm.send(sender, KIV_CURRENT_MBOX);
        TRACE_SEND_SIG(RhuneVornConnCloseCfmS::number, sender,
                       "Sent signal RHUNE_VORN_CONN_CLOSE_CFM: procedureRef: {} connectionRef: {} mbox: 0x{:x}",
                       procedureRef, *clientRef, sender);
    }
}

} // namespace VornServer::Rhune
