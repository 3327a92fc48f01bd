// Tickets: a client acquires and releases the software store, or it is done for a client of the boot environment.

#include "ganti/ganti.pb.h"
#include "vornServerGanti.h"
#include "vornSession.h"
#include "vorni/software.h"

#include <utility>

namespace {

constexpr std::uint16_t auBootResource = 1;
constexpr std::uint16_t auBootProtocolRev = 1;
constexpr const char* unknownResource = "unknown resource";

} // namespace

template <typename Confirm>
void VornServerGanti::confirmResource(const GantiRequestRecord& record, std::uint32_t clientRef)
{
    sendSignal<Confirm>(record.mbox, clientRef, record.serverRef,
                        [&](Confirm& confirm) { confirm.resource = static_cast<std::uint16_t>(record.resource); });
}

template <typename Reject>
void VornServerGanti::rejectResource(const GantiRequestRecord& record, std::uint32_t clientRef, const char* text)
{
    sendSignal<Reject>(record.mbox, clientRef, record.serverRef, [&](Reject& reject) {
        reject.resource = static_cast<std::uint16_t>(record.resource);
        reject.errorCode = 1;
        copyErrorDescription(reject.description, vornRejectTextSize, text);
    });
}

/// The client's number of the resource isn't the software manager's: that has one only.
void VornServerGanti::handleAcquireResourceReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornAcquireResourceReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSignalHeader& header = signal->header;
    if (const auto* earlier = m_records.findRequest(header.sigNo, header.serverRef, signal->resource)) {
        rejectResource<OmlaVornAcquireResourceRejS>(*earlier, header.clientRef,
                                                    "acquire resource already requested by this client");
        return;
    }
    const GantiRequestRecord& record = m_records.append({.req = header.sigNo,
                                                         .clientRef = header.clientRef,
                                                         .serverRef = header.serverRef,
                                                         .resource = signal->resource,
                                                         .mbox = kiv_sender(msg.get())});
    m_client.acquireResourceReq(record.procRef, record.serverRef, gant::SW_STORE);
}

/// The client hears of it when the ticket can be used.
void VornServerGanti::handleAcquireResourceCfm(std::uint32_t procRef, const gant::AcquireResourceCfm& cfm)
{
    if (GantiRequestRecord* record = m_records.findByServerRef(procRef, cfm.ticket_request_reference())) {
        record->ticket = cfm.ticket_number();
    }
}

void VornServerGanti::handleAcquireResourceRej(std::uint32_t procRef, const gant::AcquireResourceRej& rej)
{
    if (const auto* record = m_records.findByServerRef(procRef, rej.ticket_request_reference())) {
        rejectResource<OmlaVornAcquireResourceRejS>(*record, record->clientRef, unknownResource);
        m_records.remove(*record);
    }
}

/// The ticket can be used. A ticket that was acquired for a client is for the request that follows it.
void VornServerGanti::handleAcquireResourceInd(GantiRequestRecord& record, const gant::AcquireResourceInd&)
{
    m_commonData.setSelectLoadModule("");
    if (!isAuBootClient(record.mbox)) {
        confirmResource<OmlaVornAcquireResourceCfmS>(record, record.clientRef);
    } else if (GantiRequestRecord* waiting = m_records.findByProcRef(record.procRef + 1)) {
        waiting->ticket = record.ticket;
        sendUnderTicket(*waiting);
    }
}

void VornServerGanti::handleReleaseResourceReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornReleaseResourceReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSignalHeader& header = signal->header;
    if (auto* record = m_records.findRequest(OmlaVornAcquireResourceReqS::number, header.serverRef, signal->resource)) {
        record->prevReq = std::exchange(record->req, header.sigNo);
        record->endClientRef = header.clientRef;
        m_client.releaseResourceReq(record->procRef, record->ticket);
    }
}

/// What is still open under the ticket ends unanswered.
void VornServerGanti::handleReleaseResourceCfm(GantiRequestRecord& record, const gant::ReleaseResourceCfm&)
{
    confirmResource<OmlaVornReleaseResourceCfmS>(record, record.endClientRef);
    m_records.removeAllOfTicket(record.ticket);
}

void VornServerGanti::handleReleaseResourceRej(GantiRequestRecord& record, const gant::ReleaseResourceRej&)
{
    record.req = record.prevReq;
    rejectResource<OmlaVornReleaseResourceRejS>(record, record.endClientRef, unknownResource);
}

bool VornServerGanti::isAuBootClient(std::uint32_t mboxId) const
{
    const VornSession* session = m_commonData.isAuBootMode() ? m_commonData.findVornSession(mboxId) : nullptr;
    return session != nullptr && session->getProtocolRev() == auBootProtocolRev;
}

/// Asks as the client would have. The caller's record of the request comes next, so that its procRef is the one behind
/// this one's: by that the grant finds it.
bool VornServerGanti::auBootAcquireResourceReq(std::uint32_t clientRef, std::uint32_t serverRef, std::uint32_t mboxId)
{
    kiv_msg* msg = kiv_alloc(sizeof(OmlaVornAcquireResourceReqS), OmlaVornAcquireResourceReqS::number);
    const MessagePtr request(msg, kiv_free);
    auto* signal = viewSignal<OmlaVornAcquireResourceReqS>(msg);
    if (signal == nullptr) {
        return false;
    }
    signal->header.setReferences(clientRef, serverRef);
    signal->resource = auBootResource;
    handleAcquireResourceReq(request);
    m_records.last().mbox = mboxId; // a signal that was never sent has no sender
    return true;
}

bool VornServerGanti::requestUnderTicket(const MessagePtr& msg, const std::string& text)
{
    const auto& header = *viewSignal<VornSignalHeader>(msg);
    const std::uint32_t sender = kiv_sender(msg.get());
    GantiRequestRecord request{.req = header.sigNo,
                               .clientRef = header.clientRef,
                               .serverRef = header.serverRef,
                               .mbox = sender,
                               .text = text};
    if (const auto* acquired = m_records.findRequest(OmlaVornAcquireResourceReqS::number, header.serverRef)) {
        request.ticket = acquired->ticket;
        sendUnderTicket(m_records.append(request));
        return true;
    }
    if (!isAuBootClient(sender)) {
        return false;
    }
    if (auBootAcquireResourceReq(header.clientRef, header.serverRef, sender)) {
        m_records.append(request); // nothing may come between
    }
    return true;
}

void VornServerGanti::sendUnderTicket(const GantiRequestRecord& record)
{
    switch (record.req) {
    case OmlaVornSelectLmcReqS::number:
        m_client.getSwProductInvReq(record.procRef, record.ticket);
        break;
    case OmlaVornSwCompListReqS::number:
        m_client.swCompListReq(record.procRef, record.ticket);
        break;
    case OmlaVornLoadLmcInitReqS::number:
        m_client.pushLoadInitReq(record.procRef, record.ticket, record.text);
        break;
    default:
        break;
    }
}

/// Ends what the client has begun, its ticket last.
void VornServerGanti::onVornSessionLostGanti(const VornSession& session)
{
    const std::size_t ended = m_records.removeLowestFirst(
        [&](const auto& record) { return record.serverRef == session.getServerRef() && endProcedure(record); });
    if (ended == 0) {
        TRACE_INFO("VornServerGanti::onVornSessionLostGanti() had nothing to release");
    }
}

/// False for a record that its client's end doesn't end.
bool VornServerGanti::endProcedure(const GantiRequestRecord& record)
{
    switch (record.req) {
    case OmlaVornLoadLmcInitReqS::number:
        m_client.pushLoadEndReq(record.procRef, record.ticket);
        return true;
    case OmlaVornSwCompListReqS::number:
        m_client.swCompListAck(record.procRef, record.ticket, true);
        return true;
    case OmlaVornAcquireResourceReqS::number:
        m_client.releaseResourceReq(record.procRef, record.ticket);
        return true;
    default:
        return false;
    }
}
