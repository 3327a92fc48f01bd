// Loading: a client loads a module block by block. Where no slot is free, one is cleared first, see the selection.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "ganti/ganti.pb.h"
#include "vornServerDunl.h"
#include "vornServerGanti.h"
#include "vorni/software.h"

#include <utility>

using namespace tolme;

namespace {

enum LoadInitResult : std::uint16_t {
    accepted = 0,
    alreadyLoaded = 1,
    running = 2,
};

} // namespace

void VornServerGanti::handleLoadLmcInitReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornLoadLmcInitReqS>(msg);
    if (signal != nullptr && !requestUnderTicket(msg, std::string(textBehind<OmlaVornLoadLmcInitReqS>(*msg)))) {
        sendReject<OmlaVornLoadLmcInitRejS>(kiv_sender(msg.get()), signal->header.clientRef, signal->header.serverRef,
                                            1, resourceNotAcquired);
    }
}

void VornServerGanti::confirmLoadInit(const GantiRequestRecord& record, std::uint16_t result)
{
    sendSignal<OmlaVornLoadLmcInitCfmS>(record.mbox, record.clientRef, record.serverRef,
                                        [=](auto& confirm) { confirm.loadInitResult = result; });
}

/// The load is over.
void VornServerGanti::rejectLoadInit(const GantiRequestRecord& record, const char* text)
{
    sendReject<OmlaVornLoadLmcInitRejS>(record.mbox, record.clientRef, record.serverRef, 1, text);
    m_records.remove(record);
}

void VornServerGanti::handlePushLoadInitCfm(GantiRequestRecord& record, const gant::PushLoadInitCfm&)
{
    confirmLoadInit(record, accepted);
}

void VornServerGanti::handlePushLoadInitRej(GantiRequestRecord& record, const gant::PushLoadInitRej& rej)
{
    switch (rej.reason()) {
    case gant::PushLoadInitRej::RESOURCE_SHORTAGE:
        m_client.getSwProductInvReq(record.procRef, record.ticket);
        return;
    case gant::PushLoadInitRej::INVALID_TICKET_NUMBER:
        rejectLoadInit(record, "Invalid ticket number");
        return;
    case gant::PushLoadInitRej::ALREADY_LOADED:
        confirmAlreadyLoaded(record);
        return;
    case gant::PushLoadInitRej::BUSY:
        rejectLoadInit(record, "Busy");
        return;
    case gant::PushLoadInitRej::RUNNING:
        confirmLoadInit(record, running);
        m_records.remove(record);
        return;
    case gant::PushLoadInitRej::TICKET_IN_QUEUE:
        rejectLoadInit(record, resourceNotAcquired);
        return;
    default:
        rejectLoadInit(record, "LMC encountered unknown failure");
        return;
    }
}

/// Software that is there is of use only once the connected devices are up.
void VornServerGanti::confirmAlreadyLoaded(const GantiRequestRecord& record)
{
    TolmeClient& dunl = m_commonData.getDunlClient();
    if (dunl.hasCapability(DunlCapability::SelectiveLoadingSupport)) {
        dunl.send(dunl::MsgNo::ConnectedDevicesInitializedReq, dunl::ConnectedDevicesInitializedReq(), record.procRef);
    } else {
        confirmLoadInit(record, alreadyLoaded);
        m_records.remove(record);
    }
}

/// The indication is the answer.
void VornServerGanti::handleConnectedDevicesInitializedCfm(const TolmeMessagePtr& message)
{
    m_dunl.decode<dunl::ConnectedDevicesInitializedCfm>(message);
}

void VornServerGanti::handleConnectedDevicesInitializedInd(const TolmeMessagePtr& message)
{
    const auto ind = m_dunl.decode<dunl::ConnectedDevicesInitializedInd>(message);
    const auto* record = ind ? m_records.findByProcRef(ind->envelope.procedureRef) : nullptr;
    if (record != nullptr) {
        confirmLoadInit(*record, alreadyLoaded);
        m_records.remove(*record);
    }
}

/// Nothing says no to a block: one that can't be passed on isn't acknowledged.
void VornServerGanti::handleLoadLmcData(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornLoadLmcDataS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSignalHeader& header = signal->header;
    const auto* load = m_records.findRequest(OmlaVornLoadLmcInitReqS::number, header.serverRef);
    if (load == nullptr) {
        return;
    }
    const auto data = bytesBehind<OmlaVornLoadLmcDataS>(*msg);
    if (signal->noOfBytes > data.size()) {
        TRACE_INFO("ABN: noOfBytes({}) is more than the {} bytes of data. Ignoring it.", signal->noOfBytes.value(),
                   data.size());
        return;
    }
    const GantiRequestRecord& record = m_records.append({.req = header.sigNo,
                                                         .clientRef = header.clientRef,
                                                         .serverRef = header.serverRef,
                                                         .ticket = load->ticket,
                                                         .mbox = kiv_sender(msg.get()),
                                                         .endClientRef = signal->lmSeqNr});
    const std::uint32_t failCode =
        m_client.pushLoadData(record.procRef, record.ticket, signal->lmSeqNr, data.data(), signal->noOfBytes);
    if (failCode != GANTClient::ok) {
        TRACE_INFO("ABN: failCode({}), lmSeqNr({})", failCode, signal->lmSeqNr.value());
    }
}

/// An aborted load shows as a block that isn't acknowledged.
void VornServerGanti::handlePushLoadAck(GantiRequestRecord& record, const gant::PushLoadAck& ack)
{
    if (!ack.abort()) {
        sendSignal<OmlaVornLoadLmcAckS>(record.mbox, record.clientRef, record.serverRef, [&](auto& signal) {
            signal.lmSeqNr = static_cast<std::uint16_t>(ack.sequence_number());
        });
    }
    m_records.remove(record);
}

void VornServerGanti::handleLoadLmcEndReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornLoadLmcEndReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    if (auto* record = m_records.findRequest(OmlaVornLoadLmcInitReqS::number, signal->header.serverRef)) {
        record->prevReq = std::exchange(record->req, signal->header.sigNo);
        record->endClientRef = signal->header.clientRef;
        m_client.pushLoadEndReq(record->procRef, record->ticket);
    }
}

void VornServerGanti::handlePushLoadEndCfm(GantiRequestRecord& record, const gant::PushLoadEndCfm& cfm)
{
    sendSignal<OmlaVornLoadLmcEndCfmS>(record.mbox, record.endClientRef, record.serverRef, [&](auto& confirm) {
        confirm.loadResult = cfm.result() == gant::PushLoadEndCfm::COMPLETED ? 0 : 1;
    });
    m_records.remove(record);
}

/// The load is open again.
void VornServerGanti::handlePushLoadEndRej(GantiRequestRecord& record, const gant::PushLoadEndRej& rej)
{
    record.req = record.prevReq;
    sendReject<OmlaVornLoadLmcEndRejS>(
        record.mbox, record.endClientRef, record.serverRef, 1,
        rej.reason() == gant::PushLoadEndRej::INVALID_TICKET_NUMBER ? "Invalid ticket number" : "ticket in queue");
}
