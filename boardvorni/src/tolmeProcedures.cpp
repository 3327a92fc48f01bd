#include "tolmeProcedures.h"

#include "trace/trace.h"
#include "vorni/access.h"

#include <google/protobuf/message.h>

TolmeClient::ProcedureTransaction clientOf(const kiv_msg& signal, std::uint32_t requestMsgNo)
{
    const auto& header = *viewSignal<VornSignalHeader>(&signal);
    return {.procedureRef = 0,
            .mboxId = kiv_sender(&signal),
            .serverRef = header.serverRef,
            .clientRef = header.clientRef,
            .requestMsgNo = requestMsgNo};
}

bool TolmeProcedures::request(std::uint32_t msgNo, const google::protobuf::Message& message, std::uint32_t mboxId,
                              std::uint32_t serverRef, std::uint32_t clientRef)
{
    return requestFor({0, mboxId, serverRef, clientRef, msgNo}, msgNo, message) != 0;
}

std::uint32_t TolmeProcedures::requestFor(TolmeClient::ProcedureTransaction client, std::uint32_t msgNo,
                                          const google::protobuf::Message& message)
{
    client.procedureRef = m_client.send(msgNo, message);
    return client.procedureRef != 0 && m_client.addTransaction(client) ? client.procedureRef : 0;
}

bool TolmeProcedures::request(std::uint32_t msgNo, const google::protobuf::Message& message, const VornSession& session)
{
    return request(msgNo, message, session.getMboxId(), session.getServerRef(), session.getClientRef());
}

std::string TolmeProcedures::traceReceived(const TolmeEnvelope& envelope, const google::protobuf::Message& message)
{
    std::string name = message.GetDescriptor()->name();
    TRACE_REC_SIG(envelope.msgNo, "handle{}({{{}}})", name, printMessage(envelope, message));
    return name;
}

bool TolmeProcedures::lookUpTransaction(std::uint32_t procedureRef, const std::string& name,
                                        TolmeClient::ProcedureTransaction& transaction) const
{
    const TolmeClient::ProcedureTransaction* found = m_client.findTransaction(procedureRef);
    if (found == nullptr) {
        TRACE_INFO("{} was found for procedureRef: {}. Ignoring {}{}", m_words.noTransaction, procedureRef, name,
                   m_words.end);
        return false;
    }
    transaction = *found;
    return true;
}

VornSession* TolmeProcedures::findSession(std::uint32_t mboxId, const std::string& name) const
{
    VornSession* session = m_commonData.findVornSession(mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No VORN session found for mailbox ID: {}. Ignoring {}{}", mboxId, name, m_words.end);
    }
    return session;
}
