#include "vornServerMmiHandling.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "vorni/mmi.h"

using namespace tolme;

namespace {

constexpr std::uint32_t supportedMode = 1;

} // namespace

VornServerMmiHandling::VornServerMmiHandling(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getFeskClient(), {"ABN: No FESK transaction", "."})
{
}

bool VornServerMmiHandling::init()
{
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornSelectMmiReqS::number, &VornServerMmiHandling::handleSelectMmiReq);
    onMessage(fesk::MsgNo::RegisterMmiUserCfm, &VornServerMmiHandling::handleRegisterMmiUserCfm);
    onMessage(fesk::MsgNo::RegisterMmiUserRej, &VornServerMmiHandling::handleRegisterMmiUserRej);
    onMessage(fesk::MsgNo::UnregisterMmiUserCfm, &VornServerMmiHandling::handleUnregisterMmiUserCfm);
    onMessage(fesk::MsgNo::UnregisterMmiUserRej, &VornServerMmiHandling::handleUnregisterMmiUserRej);
    return true;
}

/// The selected mode isn't kept: there is one only.
void VornServerMmiHandling::handleSelectMmiReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSelectMmiReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const std::uint32_t sender = kiv_sender(msg.get());
    if (m_commonData.findVornSession(sender) == nullptr) {
        TRACE_INFO("ABN: No VORN session found for mailbox ID: {}. Ignoring OmlaVornSelectMmiReqS.", sender);
        return;
    }
    if (signal->mode == supportedMode) {
        sendSignal<OmlaVornSelectMmiCfmS>(sender, signal->header.clientRef, signal->header.serverRef);
    } else {
        sendReject<OmlaVornSelectMmiRejS>(sender, signal->header.clientRef, signal->header.serverRef, 1,
                                          "Unsupported MMI mode");
    }
}

void VornServerMmiHandling::onNewVornSession(VornSession& session)
{
    sendRegisterMmiUserReq(session);
}

void VornServerMmiHandling::sendRegisterMmiUserReq(const VornSession& session)
{
    fesk::RegisterMmiUserReq request;
    request.set_priority(fesk::RegisterMmiUserReq::PRIORITY_CLIENT);
    m_procedures.request(fesk::MsgNo::RegisterMmiUserReq, request, session);
}

void VornServerMmiHandling::handleRegisterMmiUserCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.takeTransaction<fesk::RegisterMmiUserCfm>(message);
    if (!answer) {
        return;
    }
    const std::uint32_t userId = answer->message.mmi_user_id();
    if (answer->transaction.mboxId == KIV_NO_MBOX && userId != 0) {
        m_commonData.setMmiUid(userId);
        TRACE_1("Internal mmiUserId = {}", userId);
        return;
    }
    if (!answer->message.has_mmi_user_id()) {
        TRACE_INFO("ABN: RegisterMmiUserCfm did not have a user ID");
    }
    if (const auto client = m_procedures.withSession(answer)) {
        client->session->setMmiUserId(userId);
    }
}

void VornServerMmiHandling::handleRegisterMmiUserRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<fesk::RegisterMmiUserRej>(message)) {
        answer->session->setMmiUserId(0);
    }
}

void VornServerMmiHandling::onVornSessionLost(const VornSession& session)
{
    if (session.getMmiUserId() != 0) {
        fesk::UnregisterMmiUserReq request;
        request.set_mmi_user_id(session.getMmiUserId());
        m_commonData.getFeskClient().send(fesk::MsgNo::UnregisterMmiUserReq, request);
    }
}

void VornServerMmiHandling::handleUnregisterMmiUserCfm(const TolmeMessagePtr& message)
{
    TRACE_REC_SIG(message->number, "handleUnregisterMmiUserCfm");
}

void VornServerMmiHandling::handleUnregisterMmiUserRej(const TolmeMessagePtr& message)
{
    TRACE_REC_SIG(message->number, "handleUnregisterMmiUserRej");
}
