#include "vornServerOpticalIndicatorControl.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "vorni/opticalIndicator.h"

using namespace tolme;

struct VornServerOpticalIndicatorControl::SubscribeStatusChange {
    using ReqSignal = OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS;
    using CfmSignal = OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS;
    using RejSignal = OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS;
    using Req = fesk::OpticalIndicatorControlSubscribeStatusChangeReq;
    using Cfm = fesk::OpticalIndicatorControlSubscribeStatusChangeCfm;
    using Rej = fesk::OpticalIndicatorControlSubscribeStatusChangeRej;
    static constexpr std::uint32_t reqMsgNo = fesk::MsgNo::OpticalIndicatorControlSubscribeStatusChangeReq;
    static constexpr const char* notSent = "Could not subscribe OpticalIndicatorControl.";
};

struct VornServerOpticalIndicatorControl::Activate {
    using ReqSignal = OmlaVornOpticalIndicatorControlActivateReqS;
    using CfmSignal = OmlaVornOpticalIndicatorControlActivateCfmS;
    using RejSignal = OmlaVornOpticalIndicatorControlActivateRejS;
    using Req = fesk::OpticalIndicatorControlActivateReq;
    using Cfm = fesk::OpticalIndicatorControlActivateCfm;
    using Rej = fesk::OpticalIndicatorControlActivateRej;
    static constexpr std::uint32_t reqMsgNo = fesk::MsgNo::OpticalIndicatorControlActivateReq;
    static constexpr const char* notSent = "Could not activate OpticalIndicatorControl.";
};

struct VornServerOpticalIndicatorControl::ActivateWithDuration {
    using ReqSignal = OmlaVornOpticalIndicatorControlActivateWithDurationReqS;
    using CfmSignal = OmlaVornOpticalIndicatorControlActivateWithDurationCfmS;
    using RejSignal = OmlaVornOpticalIndicatorControlActivateWithDurationRejS;
    using Req = fesk::OpticalIndicatorControlActivateWithDurationReq;
    using Cfm = fesk::OpticalIndicatorControlActivateWithDurationCfm;
    using Rej = fesk::OpticalIndicatorControlActivateWithDurationRej;
    static constexpr std::uint32_t reqMsgNo = fesk::MsgNo::OpticalIndicatorControlActivateWithDurationReq;
    static constexpr const char* notSent = "Could not activate with duration OpticalIndicatorControl.";
};

struct VornServerOpticalIndicatorControl::Deactivate {
    using ReqSignal = OmlaVornOpticalIndicatorControlDeactivateReqS;
    using CfmSignal = OmlaVornOpticalIndicatorControlDeactivateCfmS;
    using RejSignal = OmlaVornOpticalIndicatorControlDeactivateRejS;
    using Req = fesk::OpticalIndicatorControlDeactivateReq;
    using Cfm = fesk::OpticalIndicatorControlDeactivateCfm;
    using Rej = fesk::OpticalIndicatorControlDeactivateRej;
    static constexpr std::uint32_t reqMsgNo = fesk::MsgNo::OpticalIndicatorControlDeactivateReq;
    static constexpr const char* notSent = "Could not deactivate OpticalIndicatorControl.";
};

VornServerOpticalIndicatorControl::VornServerOpticalIndicatorControl(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getFeskClient(), {"ABN: No FESK transaction", "."})
{
}

bool VornServerOpticalIndicatorControl::init()
{
    using Self = VornServerOpticalIndicatorControl;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(SubscribeStatusChange::ReqSignal::number, &Self::handleOpticalIndicatorControlSubscribeStatusChangeReq);
    subscribe(Activate::ReqSignal::number, &Self::handleOpticalIndicatorControlActivateReq);
    subscribe(ActivateWithDuration::ReqSignal::number, &Self::handleOpticalIndicatorControlActivateWithDurationReq);
    subscribe(Deactivate::ReqSignal::number, &Self::handleOpticalIndicatorControlDeactivateReq);
    onMessage(fesk::MsgNo::OpticalIndicatorControlSubscribeStatusChangeCfm,
              &Self::handleOpticalIndicatorControlSubscribeStatusChangeCfm);
    onMessage(fesk::MsgNo::OpticalIndicatorControlActivateCfm, &Self::handleOpticalIndicatorControlActivateCfm);
    onMessage(fesk::MsgNo::OpticalIndicatorControlActivateWithDurationCfm,
              &Self::handleOpticalIndicatorControlActivateWithDurationCfm);
    onMessage(fesk::MsgNo::OpticalIndicatorControlDeactivateCfm, &Self::handleOpticalIndicatorControlDeactivateCfm);
    onMessage(fesk::MsgNo::OpticalIndicatorControlSubscribeStatusChangeRej,
              &Self::handleOpticalIndicatorControlSubscribeStatusChangeRej);
    onMessage(fesk::MsgNo::OpticalIndicatorControlActivateRej, &Self::handleOpticalIndicatorControlActivateRej);
    onMessage(fesk::MsgNo::OpticalIndicatorControlActivateWithDurationRej,
              &Self::handleOpticalIndicatorControlActivateWithDurationRej);
    onMessage(fesk::MsgNo::OpticalIndicatorControlDeactivateRej, &Self::handleOpticalIndicatorControlDeactivateRej);
    onMessage(fesk::MsgNo::OpticalIndicatorControlStatusChangeInd, &Self::handleOpticalIndicatorControlStatusChangeInd);
    return true;
}

// --- What the procedures share

template <typename Procedure>
void VornServerOpticalIndicatorControl::handleReq(const MessagePtr& msg)
{
    using ReqSignal = typename Procedure::ReqSignal;
    const auto* signal = receiveSignal<ReqSignal>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, Procedure::reqMsgNo);
    const VornSession* session = m_commonData.findVornSession(client.mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring {}!", Vorni::signalName(ReqSignal::number));
        return;
    }
    const std::uint32_t user = session->getMmiUserId();
    if (user == 0) {
        TRACE_INFO("ABN: MMI user has not been registered yet. Rejecting the {}!",
                   Vorni::signalName(ReqSignal::number));
        sendRej<Procedure>(client, "MMI user has not been registered yet.");
        return;
    }
    typename Procedure::Req request;
    request.set_mmi_user_id(user);
    if constexpr (std::is_same_v<Procedure, ActivateWithDuration>) {
        request.set_duration(signal->duration);
    }
    if (m_procedures.requestFor(client, Procedure::reqMsgNo, request) == 0) {
        sendRej<Procedure>(client, Procedure::notSent);
    }
}

/// The transaction stays, also where the procedure has ended.
template <typename Procedure>
void VornServerOpticalIndicatorControl::handleCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.find<typename Procedure::Cfm>(message);
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if constexpr (std::is_same_v<Procedure, SubscribeStatusChange>) {
        answer->session->addProcedureRef(Procedure::reqMsgNo, client.procedureRef);
    }
    sendSignal<typename Procedure::CfmSignal>(client);
}

template <typename Procedure>
void VornServerOpticalIndicatorControl::handleRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<typename Procedure::Rej>(message)) {
        sendRej<Procedure>(answer->transaction, "See logs to reveal why the FESK server rejected the request.");
    }
}

template <typename Procedure>
void VornServerOpticalIndicatorControl::sendRej(const Client& client, const char* text) const
{
    sendReject<typename Procedure::RejSignal>(client, 1, text);
}

// --- The procedures

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlSubscribeStatusChangeReq(const MessagePtr& msg)
{
    handleReq<SubscribeStatusChange>(msg);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlSubscribeStatusChangeCfm(
    const TolmeMessagePtr& message)
{
    handleCfm<SubscribeStatusChange>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlSubscribeStatusChangeRej(
    const TolmeMessagePtr& message)
{
    handleRej<SubscribeStatusChange>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlStatusChangeInd(const TolmeMessagePtr& message)
{
    auto ind = m_procedures.decode<fesk::OpticalIndicatorControlStatusChangeInd>(message);
    if (!ind) {
        return;
    }
    if (!ind->message.has_state()) {
        TRACE_INFO("ABN: OpticalIndicatorControlStatusChangeInd does not have a state.");
        return;
    }
    if (const auto told = m_procedures.withClient(std::move(ind))) {
        const Client& client = told->transaction;
        sendSignal<OmlaVornOpticalIndicatorControlStatusChangeIndS>(
            client, [&](auto& signal) { signal.state = static_cast<std::uint16_t>(told->message.state()); });
    }
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateReq(const MessagePtr& msg)
{
    handleReq<Activate>(msg);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateCfm(const TolmeMessagePtr& message)
{
    handleCfm<Activate>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateRej(const TolmeMessagePtr& message)
{
    handleRej<Activate>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateWithDurationReq(const MessagePtr& msg)
{
    handleReq<ActivateWithDuration>(msg);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateWithDurationCfm(
    const TolmeMessagePtr& message)
{
    handleCfm<ActivateWithDuration>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlActivateWithDurationRej(
    const TolmeMessagePtr& message)
{
    handleRej<ActivateWithDuration>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlDeactivateReq(const MessagePtr& msg)
{
    handleReq<Deactivate>(msg);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlDeactivateCfm(const TolmeMessagePtr& message)
{
    handleCfm<Deactivate>(message);
}

void VornServerOpticalIndicatorControl::handleOpticalIndicatorControlDeactivateRej(const TolmeMessagePtr& message)
{
    handleRej<Deactivate>(message);
}
