#include "vornServerHwLog.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "hwLogEntries.h"
#include "vorni/hwLog.h"

#include <cstring>

using namespace tolme;

namespace {

constexpr std::uint32_t highestLogId = 999;
constexpr std::uint32_t nodeConfigurationLog = 2;

enum ErrorCode : std::uint16_t {
    failed = 1,
    noSuchLog = 2,
};

/// The log's number, or 0 where the signal ends before it.
std::uint32_t logIdOf(const kiv_msg& msg)
{
    constexpr std::size_t offset = offsetof(OmlaVornHwLogSetReqS, logId);
    VornU32 logId = 0;
    if (kiv_size(&msg) >= offset + sizeof(logId)) {
        std::memcpy(&logId, reinterpret_cast<const std::byte*>(&msg) + offset, sizeof(logId));
    }
    return logId;
}

} // namespace

VornServerHwLog::VornServerHwLog(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getDunlClient(), {"ABN: No DUNL transaction", "."})
{
}

bool VornServerHwLog::init()
{
    subscribe(OmlaVornHwLogGetReqS::number, &VornServerHwLog::handleHwLogGetReq);
    subscribe(OmlaVornHwLogSetReqS::number, &VornServerHwLog::handleHwLogSetReq);
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    onMessage(dunl::MsgNo::HwLogGetCfm, &VornServerHwLog::handleDunlHwLogGetCfm);
    onMessage(dunl::MsgNo::HwLogGetRej, &VornServerHwLog::handleDunlHwLogGetRej);
    onMessage(dunl::MsgNo::HwLogSetCfm, &VornServerHwLog::handleDunlHwLogSetCfm);
    onMessage(dunl::MsgNo::HwLogSetRej, &VornServerHwLog::handleDunlHwLogSetRej);
    onMessage(dunl::MsgNo::StoreNodeConfigEntryCfm, &VornServerHwLog::handleDunlStoreNodeConfigEntryCfm);
    onMessage(dunl::MsgNo::StoreNodeConfigEntryRej, &VornServerHwLog::handleDunlStoreNodeConfigEntryRej);
    return true;
}

/// A request that is too short is answered too, so that it isn't viewed as a whole at first.
void VornServerHwLog::handleHwLogSetReq(const MessagePtr& msg)
{
    const auto* header = receiveSignal<VornSignalHeader>(msg);
    if (header == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, OmlaVornHwLogSetReqS::number);
    if (m_commonData.findVornSession(client.mboxId) == nullptr) {
        TRACE_INFO("ABN: VornServer has no session for mailbox {}. Ignoring OMLA_VORN_HWLOG_SET_REQ.", client.mboxId);
        return;
    }
    if (!isAcceptable(*msg, client)) {
        return;
    }
    const auto& signal = *viewSignal<OmlaVornHwLogSetReqS>(msg);
    const std::span bytes(reinterpret_cast<const std::byte*>(msg.get()), kiv_size(msg.get()));
    const auto entries = parseHwLogEntries(bytes.subspan(offsetof(OmlaVornHwLogSetReqS, entries)), signal.length);
    if (entries.size() != signal.length) {
        sendHwLogSetRej(client, failed,
                        fmt::format("length field of {} is different from the number of entries {}",
                                    signal.length.value(), entries.size()));
        return;
    }
    if (signal.logId == nodeConfigurationLog) {
        dunl::StoreNodeConfigEntryReq request;
        request.set_server_ref(client.serverRef);
        const auto procedureRef = sendEntries(dunl::MsgNo::StoreNodeConfigEntryReq, request, signal, client, entries);
        TRACE_INFO("StoreNodeConfigEntryReq: procedureRef:{} mailboxId:{}", procedureRef, client.mboxId);
    } else {
        dunl::HwLogSetReq request;
        const auto procedureRef = sendEntries(dunl::MsgNo::HwLogSetReq, request, signal, client, entries);
        TRACE_INFO("HwLogSetReq: procedureRef:{} mailboxId:{}", procedureRef, client.mboxId);
    }
}

/// The number is judged before the size.
bool VornServerHwLog::isAcceptable(const kiv_msg& msg, const Client& client) const
{
    if (const std::uint32_t logId = logIdOf(msg); logId > highestLogId) {
        sendHwLogSetRej(client, noSuchLog, fmt::format("logId out of range,logId:{}", logId));
        return false;
    }
    if (kiv_size(&msg) < sizeof(OmlaVornHwLogSetReqS)) {
        sendHwLogSetRej(client, failed,
                        fmt::format("input signal (size={}) is too small to be a OmlaVornHwLogSetReqS (size={})",
                                    kiv_size(&msg), sizeof(OmlaVornHwLogSetReqS)));
        return false;
    }
    return true;
}

template <typename Request>
std::uint32_t VornServerHwLog::sendEntries(std::uint32_t msgNo, Request& request, const OmlaVornHwLogSetReqS& signal,
                                           const Client& client, const std::vector<std::string>& entries)
{
    request.set_log_id(signal.logId);
    request.set_label(std::string(fieldText(signal.label)));
    for (const std::string& entry : entries) {
        request.add_entry(entry);
    }
    return m_procedures.requestFor(client, msgNo, request);
}

template <typename Message>
std::optional<VornServerHwLog::Client> VornServerHwLog::takeWriter(const TolmeMessagePtr& message,
                                                                   const char* signalName)
{
    const auto answer = m_procedures.takeTransaction<Message>(message);
    if (!answer) {
        return std::nullopt;
    }
    if (m_commonData.findVornSession(answer->transaction.mboxId) == nullptr) {
        TRACE_INFO("ABN: VornServer has no session for mailbox {}. Ignoring {}.", answer->transaction.mboxId,
                   signalName);
        return std::nullopt;
    }
    return answer->transaction;
}

void VornServerHwLog::handleDunlHwLogSetCfm(const TolmeMessagePtr& message)
{
    confirmWriter<dunl::HwLogSetCfm>(message);
}

void VornServerHwLog::handleDunlStoreNodeConfigEntryCfm(const TolmeMessagePtr& message)
{
    confirmWriter<dunl::StoreNodeConfigEntryCfm>(message);
}

void VornServerHwLog::handleDunlHwLogSetRej(const TolmeMessagePtr& message)
{
    rejectWriter<dunl::HwLogSetRej>(message);
}

void VornServerHwLog::handleDunlStoreNodeConfigEntryRej(const TolmeMessagePtr& message)
{
    rejectWriter<dunl::StoreNodeConfigEntryRej>(message);
}

template <typename Message>
void VornServerHwLog::confirmWriter(const TolmeMessagePtr& message)
{
    if (const auto client = takeWriter<Message>(message, "OMLA_VORN_HWLOG_SET_CFM")) {
        sendHwLogSetCfm(*client);
    }
}

template <typename Message>
void VornServerHwLog::rejectWriter(const TolmeMessagePtr& message)
{
    if (const auto client = takeWriter<Message>(message, "OMLA_VORN_HWLOG_SET_REJ")) {
        sendHwLogSetRej(*client, failed, "");
    }
}

void VornServerHwLog::sendHwLogSetCfm(const Client& client) const
{
    sendSignal<OmlaVornHwLogSetCfmS>(client);
}

void VornServerHwLog::sendHwLogSetRej(const Client& client, std::uint16_t errorCode,
                                      const std::string& description) const
{
    sendReject<OmlaVornHwLogSetRejS>(client, errorCode, description);
}

void VornServerHwLog::handleHwLogGetReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornHwLogGetReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    dunl::HwLogGetReq request;
    request.set_log_id(signal->logId);
    const VornSignalHeader& header = signal->header;
    m_procedures.requestFor(clientOf(*msg, header.sigNo), dunl::MsgNo::HwLogGetReq, request);
}

/// A client that has gone leaves its transaction.
template <typename Message>
std::optional<TolmeAnswer<Message>> VornServerHwLog::findReader(const TolmeMessagePtr& message) const
{
    auto answer = m_procedures.decode<Message>(message);
    if (!answer) {
        return std::nullopt;
    }
    const Client* client = m_commonData.getDunlClient().findTransaction(answer->envelope.procedureRef);
    if (client == nullptr) {
        TRACE_INFO("Dunl{}:: missing transaction for the provided procedureRef!", answer->name);
        return std::nullopt;
    }
    if (m_commonData.findVornSession(client->mboxId) == nullptr) {
        TRACE_INFO("ABN: Dunl{}:: cannot find VORN session for the provided mboxID!", answer->name);
        return std::nullopt;
    }
    answer->transaction = *client;
    return answer;
}

/// Of more than a signal holds, the first; an entry that is longer than the room for it is cut.
void VornServerHwLog::handleDunlHwLogGetCfm(const TolmeMessagePtr& message)
{
    const auto answer = findReader<dunl::HwLogGetCfm>(message);
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    const auto& entries = answer->message.entry();
    sendSignal<OmlaVornHwLogGetCfmS>(client, [&](auto& cfm) {
        cfm.length = writeHwLogEntries(entries, cfm.entries);
        if (cfm.length != static_cast<std::uint32_t>(entries.size())) {
            TRACE_INFO("ABN: only {} of {} log entries fit in OMLA_VORN_HWLOG_GET_CFM", cfm.length.value(),
                       entries.size());
        }
    });
    m_commonData.getDunlClient().removeTransaction(client.procedureRef);
}

void VornServerHwLog::handleDunlHwLogGetRej(const TolmeMessagePtr& message)
{
    const auto answer = findReader<dunl::HwLogGetRej>(message);
    if (!answer) {
        return;
    }
    if (!answer->message.has_error_type()) {
        TRACE_INFO("DunlHwLogGetRej missing errorType! Ignoring signal!");
        return;
    }
    struct Reason {
        ErrorCode errorCode;
        const char* description;
    };
    static constexpr Reason reasons[] = {{noSuchLog, "logId out of range"}, {failed, "Reading from HW log has failed"}};
    static constexpr Reason unknown{failed, "ABN: Unknown ErrorCode!"};
    const std::uint32_t errorType = answer->message.error_type();
    const Reason& reason = errorType < std::size(reasons) ? reasons[errorType] : unknown;
    const Client& client = answer->transaction;
    sendReject<OmlaVornHwLogGetRejS>(client, reason.errorCode, reason.description);
    m_commonData.getDunlClient().removeTransaction(client.procedureRef);
}
