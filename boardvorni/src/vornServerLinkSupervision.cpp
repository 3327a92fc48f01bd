#include "vornServerLinkSupervision.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "signalNames.h"
#include "vorni/linkSupervision.h"

using namespace tolme;

VornServerLinkSupervision::VornServerLinkSupervision(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_procedures(commonData, commonData.getDunlClient(), {"No DUNL transaction", ""})
{
}

bool VornServerLinkSupervision::init()
{
    using Self = VornServerLinkSupervision;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornLinkSupervisionReqS::number, &Self::handleLinkSupervisionReq);
    onMessage(dunl::MsgNo::ConnectivitySetSupervisionTimeoutCfm, &Self::handleConnectivitySetSupervisionTimeoutCfm);
    onMessage(dunl::MsgNo::ConnectivitySetSupervisionTimeoutRej, &Self::handleConnectivitySetSupervisionTimeoutRej);
    onMessage(dunl::MsgNo::ConnectivityConnectedCfm, &Self::handleConnectivityConnectedCfm);
    onMessage(dunl::MsgNo::ConnectivityConnectedRej, &Self::handleConnectivityConnectedRej);
    onMessage(dunl::MsgNo::ConnectivityNotConnectedCfm, &Self::handleConnectivityNotConnectedResp);
    onMessage(dunl::MsgNo::ConnectivityNotConnectedRej, &Self::handleConnectivityNotConnectedResp);
    addSignalName(dunl::MsgNo::ConnectivityConnectedCfm, "tolme.dunl.ConnectivityConnectedCfm");
    addSignalName(dunl::MsgNo::ConnectivityConnectedRej, "tolme.dunl.ConnectivityConnectedRej");
    addSignalName(dunl::MsgNo::ConnectivityNotConnectedCfm, "tolme.dunl.ConnectivityNotConnectedCfm");
    addSignalName(dunl::MsgNo::ConnectivityNotConnectedRej, "tolme.dunl.ConnectivityNotConnectedRej");
    return true;
}

/// Answered whoever asks, a mailbox without a session included.
void VornServerLinkSupervision::handleLinkSupervisionReq(const MessagePtr& msg)
{
    if (const auto* signal = receiveSignal<OmlaVornLinkSupervisionReqS>(msg)) {
        sendReject<OmlaVornLinkSupervisionRejS>(kiv_sender(msg.get()), signal->header.clientRef,
                                                signal->header.serverRef, 1, "Capability prerequisite not fulfilled");
    }
}

bool VornServerLinkSupervision::getConnectivityConnectedReqTransaction(
    const TolmeClient::ProcedureTransaction& transaction)
{
    return transaction.requestMsgNo == dunl::MsgNo::ConnectivityConnectedReq;
}

void VornServerLinkSupervision::onNewVornSession(VornSession& session)
{
    if (m_commonData.getDunlClient().findTransactionIf(getConnectivityConnectedReqTransaction) != nullptr) {
        return; // the state is known or on its way
    }
    if (m_procedures.request(dunl::MsgNo::ConnectivityConnectedReq, dunl::ConnectivityConnectedReq(), session)) {
        TRACE_1("ConnectivityConnectedReq sent for clientRef({}), serverRef({})", session.getClientRef(),
                session.getServerRef());
    }
}

void VornServerLinkSupervision::handleConnectivityConnectedCfm(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.find<dunl::ConnectivityConnectedCfm>(message)) {
        answer->session->setConnectivityConnectedState(true);
    }
}

void VornServerLinkSupervision::handleConnectivityConnectedRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.find<dunl::ConnectivityConnectedRej>(message)) {
        answer->session->setConnectivityConnectedState(false);
    }
}

/// Called before the session is deleted: a count of 1 means that the last client is going.
void VornServerLinkSupervision::onVornSessionLost(const VornSession& session)
{
    if (m_commonData.getVornSessionCount() > 1) {
        return;
    }
    TolmeClient& client = m_commonData.getDunlClient();
    if (client.send(dunl::MsgNo::ConnectivityNotConnectedReq, dunl::ConnectivityNotConnectedReq()) == 0) {
        TRACE_ERROR("Failed to send ConnectivityNotConnectedReq to DunlServer");
        return;
    }
    TRACE_1("ConnectivityNotConnectedReq sent for clientRef({}), serverRef({})", session.getClientRef(),
            session.getServerRef());
    if (const auto* told = client.findTransactionIf(getConnectivityConnectedReqTransaction)) {
        client.removeTransaction(told->procedureRef);
    }
    if (VornSession* last = m_commonData.findVornSession(session.getMboxId())) {
        last->setConnectivityConnectedState(std::nullopt);
    }
}

void VornServerLinkSupervision::handleConnectivityNotConnectedResp(const TolmeMessagePtr& message)
{
    TRACE_1("handleConnectivityNotConnectedResp(kiv_msg{{{}}})", getSignalName(message->number));
}

void VornServerLinkSupervision::onNotifyRestartReqReceived(const VornSession& session, std::uint32_t value)
{
    TRACE_1("VornServerLinkSupervision:onNotifyRestartReqReceived()");
    TolmeClient& client = m_commonData.getDunlClient();
    dunl::ConnectivitySetSupervisionTimeoutReq request;
    request.set_supervision_timeout(value);
    const std::uint32_t procedureRef = client.send(dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq, request);
    TRACE_1("VornServerLinkSupervision:sendConnectivitySetSupervisionTimeoutReq()");
    // Kept also where it couldn't be sent, under the reference 0.
    client.addTransaction({procedureRef, session.getMboxId(), session.getServerRef(), session.getClientRef(),
                           dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq});
}

template <typename Message>
void VornServerLinkSupervision::finishSupervisionTimeout(const TolmeMessagePtr& message, bool accepted)
{
    const auto answer = m_procedures.find<Message>(message);
    if (!answer) {
        return;
    }
    m_commonData.getDunlClient().removeTransaction(answer->transaction.procedureRef);
    if (supervisionTimeoutResult) {
        supervisionTimeoutResult(*answer->session, accepted);
    }
}

void VornServerLinkSupervision::handleConnectivitySetSupervisionTimeoutCfm(const TolmeMessagePtr& message)
{
    TRACE_1("VornServerLinkSupervision:handleConnectivitySetSupervisionTimeoutCfm()");
    finishSupervisionTimeout<dunl::ConnectivitySetSupervisionTimeoutCfm>(message, true);
}

void VornServerLinkSupervision::handleConnectivitySetSupervisionTimeoutRej(const TolmeMessagePtr& message)
{
    TRACE_1("VornServerLinkSupervision:handleConnectivitySetSupervisionTimeoutRej()");
    finishSupervisionTimeout<dunl::ConnectivitySetSupervisionTimeoutRej>(message, false);
}
