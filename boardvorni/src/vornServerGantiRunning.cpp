// The running load module. Where the board can tell, a client sees only software that fits the hardware.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "ganti/ganti.pb.h"
#include "vornServerDunl.h"
#include "vornServerGanti.h"
#include "vorni/software.h"

using namespace tolme;

namespace {

constexpr std::uint32_t validationFailed = 1;

} // namespace

void VornServerGanti::handleGetRunningLmcReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornGetRunningLmcReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSignalHeader& header = signal->header;
    const GantiRequestRecord& record = m_records.append({.req = header.sigNo,
                                                         .clientRef = header.clientRef,
                                                         .serverRef = header.serverRef,
                                                         .mbox = kiv_sender(msg.get())});
    m_client.getRunningSwReq(record.procRef);
}

void VornServerGanti::confirmRunning(const GantiRequestRecord& record, const std::string& software)
{
    sendSignal<OmlaVornGetRunningLmcCfmS>(record.mbox, record.clientRef, record.serverRef,
                                          [&](auto& confirm) { fillText(confirm.loadModule, software); });
    m_records.remove(record);
}

void VornServerGanti::rejectRunning(const GantiRequestRecord& record, const char* text)
{
    sendReject<OmlaVornGetRunningLmcRejS>(record.mbox, record.clientRef, record.serverRef, 1, text);
    m_records.remove(record);
}

/// For a client, or for a list that is to be rewritten.
void VornServerGanti::handleGetRunningSwCfm(std::uint32_t procRef, const gant::GetRunningSwCfm& cfm)
{
    GantiRequestRecord* record = m_records.findByProcRef(procRef);
    if (record == nullptr) {
        return;
    }
    TolmeClient& dunl = m_commonData.getDunlClient();
    if (record->req == OmlaVornSwCompListReqS::number) {
        record->runningSw = cfm.running_software();
        parseSwCompListForGsmIru(*record);
    } else if (!dunl.hasCapability(DunlCapability::SelectiveLoadingSupport)) {
        confirmRunning(*record, cfm.running_software());
    } else {
        dunl::ValidateHwSwCompatibilityReq request;
        request.set_software(cfm.running_software());
        dunl.send(dunl::MsgNo::ValidateHwSwCompatibilityReq, request, record->procRef);
    }
}

void VornServerGanti::handleGetRunningSwRej(std::uint32_t procRef, const gant::GetRunningSwRej& rej)
{
    GantiRequestRecord* record = m_records.findByProcRef(procRef);
    if (record == nullptr) {
        return;
    }
    if (record->req == OmlaVornSwCompListReqS::number) {
        record->runningSw.clear();
        parseSwCompListForGsmIru(*record);
    } else {
        rejectRunning(*record, rej.reason() == gant::GetRunningSwRej::READ_ERROR
                                   ? "HW interaction failure in reading environment variable"
                                   : "Not found");
    }
}

void VornServerGanti::handleValidateHwSwCompatibilityCfm(const TolmeMessagePtr& message)
{
    const auto cfm = m_dunl.decode<dunl::ValidateHwSwCompatibilityCfm>(message);
    const auto* record = cfm ? m_records.findByProcRef(cfm->envelope.procedureRef) : nullptr;
    if (record != nullptr) {
        confirmRunning(*record, cfm->message.software());
    }
}

void VornServerGanti::handleValidateHwSwCompatibilityRej(const TolmeMessagePtr& message)
{
    const auto rej = m_dunl.decode<dunl::ValidateHwSwCompatibilityRej>(message);
    if (!rej) {
        return;
    }
    if (!rej->message.has_error_type()) {
        TRACE_INFO("ValidateHwSwCompatibilityRej missing errorType! Ignoring signal!");
        return;
    }
    if (const auto* record = m_records.findByProcRef(rej->envelope.procedureRef)) {
        rejectRunning(*record, rej->message.error_type() == validationFailed
                                   ? "ABN: Validating running software has failed"
                                   : "ABN: Unknown ErrorCode!");
    }
}
