#include "vornServerTime.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "vorni/utc.h"

using namespace tolme;

VornServerTime::VornServerTime(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getDunlClient(), {"No DUNL transaction", "."})
{
}

bool VornServerTime::init()
{
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    onMessage(dunl::MsgNo::RegisterUtcTimeSourceCfm, &VornServerTime::handleRegisterUtcTimeSourceCfm);
    onMessage(dunl::MsgNo::RegisterUtcTimeSourceRej, &VornServerTime::handleRegisterUtcTimeSourceRej);
    onMessage(dunl::MsgNo::UnregisterUtcTimeSourceCfm, &VornServerTime::handleUnregisterUtcTimeSourceCfm);
    onMessage(dunl::MsgNo::UnregisterUtcTimeSourceRej, &VornServerTime::handleUnregisterUtcTimeSourceRej);
    onMessage(dunl::MsgNo::SetUtcTimeCfm, &VornServerTime::handleSetUtcTimeCfm);
    onMessage(dunl::MsgNo::SetUtcTimeRej, &VornServerTime::handleSetUtcTimeRej);
    subscribe(OmlaVornSetUtcTimeReqS::number, &VornServerTime::handleSetUtcTimeReq);
    return true;
}

void VornServerTime::onNewVornSession(VornSession& session)
{
    dunl::RegisterUtcTimeSourceReq request;
    request.set_accuracy(isGsmServerRef(static_cast<std::int32_t>(session.getServerRef()))
                             ? dunl::RegisterUtcTimeSourceReq::ACCURACY_GSM
                             : dunl::RegisterUtcTimeSourceReq::ACCURACY_NORMAL);
    m_procedures.request(dunl::MsgNo::RegisterUtcTimeSourceReq, request, session);
}

void VornServerTime::handleRegisterUtcTimeSourceCfm(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.take<dunl::RegisterUtcTimeSourceCfm>(message);
    if (!answer) {
        return;
    }
    if (!answer->message.has_utc_time_source_ref()) {
        TRACE_INFO("ABN: RegisterUtcTimeSourceCfm did not have a time source reference");
        return;
    }
    answer->session->setUtcTimeSourceRef(answer->message.utc_time_source_ref());
}

/// A client that is refused is no time source, but its session goes on.
void VornServerTime::handleRegisterUtcTimeSourceRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<dunl::RegisterUtcTimeSourceRej>(message)) {
        answer->session->setUtcTimeSourceRef(0);
    }
}

void VornServerTime::onVornSessionLost(const VornSession& session)
{
    if (session.getUtcTimeSourceRef() != 0) {
        dunl::UnregisterUtcTimeSourceReq request;
        request.set_utc_time_source_ref(session.getUtcTimeSourceRef());
        m_commonData.getDunlClient().send(dunl::MsgNo::UnregisterUtcTimeSourceReq, request);
    }
}

void VornServerTime::handleUnregisterUtcTimeSourceCfm(const TolmeMessagePtr& message)
{
    m_procedures.decode<dunl::UnregisterUtcTimeSourceCfm>(message);
}

void VornServerTime::handleUnregisterUtcTimeSourceRej(const TolmeMessagePtr& message)
{
    m_procedures.decode<dunl::UnregisterUtcTimeSourceRej>(message);
}

void VornServerTime::handleSetUtcTimeReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSetUtcTimeReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSession* session = m_commonData.findVornSession(kiv_sender(msg.get()));
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring REQ!");
        return;
    }
    dunl::SetUtcTimeReq request;
    request.set_utc_time_source_ref(session->getUtcTimeSourceRef());
    request.set_utc_time(signal->utcTime);
    m_procedures.request(dunl::MsgNo::SetUtcTimeReq, request, kiv_sender(msg.get()), signal->header.serverRef,
                         signal->header.clientRef);
}

void VornServerTime::handleSetUtcTimeCfm(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<dunl::SetUtcTimeCfm>(message)) {
        const TolmeClient::ProcedureTransaction& client = answer->transaction;
        sendSignal<OmlaVornSetUtcTimeCfmS>(client);
    }
}

void VornServerTime::handleSetUtcTimeRej(const TolmeMessagePtr& message)
{
    const auto answer = m_procedures.take<dunl::SetUtcTimeRej>(message);
    if (!answer) {
        return;
    }
    const TolmeClient::ProcedureTransaction& client = answer->transaction;
    sendReject<OmlaVornSetUtcTimeRejS>(client, 1, "Failed to set UTC time");
}
