// The list of software components, passed on part by part; that of a GSM client on an IRU is collected, rewritten and
// cut anew.

#include "ganti/ganti.pb.h"
#include "nonVolatile.h"
#include "softwareList.h"
#include "vornServerGanti.h"
#include "vorni/software.h"

#include <cstring>

void VornServerGanti::handleSwCompListReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSwCompListReqS>(msg);
    if (signal != nullptr && !requestUnderTicket(msg)) {
        sendReject<OmlaVornSwCompListRejS>(kiv_sender(msg.get()), signal->header.clientRef, signal->header.serverRef, 1,
                                           resourceNotAcquired);
    }
}

void VornServerGanti::handleSwCompListCfm(GantiRequestRecord& record, const gant::SwCompListCfm&)
{
    sendSignal<OmlaVornSwCompListCfmS>(record.mbox, record.clientRef, record.serverRef);
}

void VornServerGanti::handleSwCompListRej(GantiRequestRecord& record, const gant::SwCompListRej& rej)
{
    sendReject<OmlaVornSwCompListRejS>(record.mbox, record.clientRef, record.serverRef, 1,
                                       rej.reason() > gant::SwCompListRej::TICKET_IN_QUEUE ? "ABN: Read error"
                                                                                           : resourceNotAcquired);
    m_records.remove(record);
}

/// Whether the list is for a GSM client on an IRU.
bool VornServerGanti::isGsmIruList(const GantiRequestRecord& record) const
{
    const HwPid& pid = m_commonData.getHwPid();
    return isGsmServerRef(static_cast<std::int32_t>(record.serverRef)) && pid.allPidData != 0 &&
           pid.productName.starts_with("IRU");
}

void VornServerGanti::handleSwCompListData(GantiRequestRecord& record, const gant::SwCompListData& data)
{
    record.resource = data.end() ? 1 : 0;
    if (isGsmIruList(record)) {
        record.text += data.data().c_str();
        m_client.swCompListAck(record.procRef, record.ticket, data.end()); // the end goes back as an abort
        if (data.end()) {
            m_client.getRunningSwReq(record.procRef);
        }
        return;
    }
    std::string part = data.data();
    if (!sarnaReadPid().empty()) {
        TRACE_INFO("Updating SwCompList due to manipulated PID");
        markPreinstalled(part); // where it throws, the part is dropped and the list stays open
    }
    sendListPart(record, part, data.end());
}

void VornServerGanti::sendListPart(const GantiRequestRecord& record, const std::string& part, bool isLast)
{
    const auto fill = [&](OmlaVornSwCompListDataS& data) {
        data.endFlag = isLast ? 1 : 0;
        data.noOfBytes = static_cast<std::uint32_t>(part.size());
        std::memcpy(reinterpret_cast<char*>(&data) + sizeof(data), part.data(), part.size());
    };
    sendSignal<OmlaVornSwCompListDataS>(record.mbox, record.clientRef, record.serverRef, fill,
                                        part.size() + OmlaVornSwCompListDataS::slack);
}

/// Of a list that is rewritten: of what there is, so that a client that doesn't wait for the first part gets it as it
/// came.
void VornServerGanti::sendNextPart(GantiRequestRecord& record)
{
    if (!record.text.empty()) {
        const std::string part = takePart(record.text);
        record.resource = record.text.empty() ? 1 : 0;
        sendListPart(record, part, record.resource != 0);
    }
}

/// The client wants the next part, or no more.
void VornServerGanti::handleSwCompListAck(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSwCompListAckS>(msg);
    GantiRequestRecord* record =
        signal == nullptr ? nullptr : m_records.findRequest(OmlaVornSwCompListReqS::number, signal->header.serverRef);
    if (record == nullptr) {
        return;
    }
    const bool isAborted = signal->abort != 0;
    if (!isGsmIruList(*record)) {
        m_client.swCompListAck(record->procRef, record->ticket, isAborted);
    } else if (!isAborted) { // the software manager isn't told of an abort here
        if (record->text.empty() && record->resource == 0) {
            return; // it isn't through yet
        }
        sendNextPart(*record);
    }
    if (record->resource != 0 || isAborted) {
        m_records.remove(*record);
    }
}

/// The running software is known, or isn't: the list can be rewritten, and its first part goes out.
void VornServerGanti::parseSwCompListForGsmIru(GantiRequestRecord& record)
{
    TRACE_INFO("VornServer:parseSwCompListForGsmIru with misc={} and misc_1={}", record.text, record.runningSw);
    rewriteForGsmIru(record.text, record.runningSw); // where it throws, the list stays open as it came
    if (!record.text.empty()) {
        const std::string part = takePart(record.text);
        sendListPart(record, part, record.text.empty());
    }
}
