#include "vornServerTemperature.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "vornServerDunl.h"
#include "vorni/temperature.h"

#include <algorithm>

using namespace tolme;

namespace {

/// Under this key the session has the procedure reference of its measurement.
constexpr std::uint32_t measurementKey = dunl::MsgNo::TempMeasStartReq;

constexpr const char* invalidPeriod = "Invalid hotSpotMeasurementPeriod: exp: 1 - 30";
constexpr const char* invalidReference = "Internal error INVALID_TEMP_MEAS_REF";
constexpr const char* unknownCause = "Unknown";

const char* startRejText(std::uint32_t cause)
{
    switch (cause) {
    case dunl::TempMeasStartRej::INVALID_TIMER_PERIOD:
        return invalidPeriod;
    case dunl::TempMeasStartRej::UNABLE_TO_START_TIMER:
        return "Unable to start hotSpot timer";
    default: // UNKNOWN, and what came later
        return unknownCause;
    }
}

/// Empty where the cause isn't known.
const char* restartRejText(std::uint32_t cause)
{
    switch (cause) {
    case dunl::TempMeasRestartRej::INVALID_TIMER_PERIOD:
        return invalidPeriod;
    case dunl::TempMeasRestartRej::UNABLE_TO_RESTART_TIMER:
        return "Unable to restart hotSpot timer";
    case dunl::TempMeasRestartRej::INVALID_TEMP_MEAS_REF:
        return invalidReference;
    default:
        TRACE_INFO("VornServerTemperature:handleTempMeasRestartRej() reject_cause {}", cause);
        return "";
    }
}

const char* stopRejText(std::uint32_t cause)
{
    switch (cause) {
    case dunl::TempMeasStopRej::INVALID_TEMP_MEAS_REF:
        return invalidReference;
    case dunl::TempMeasStopRej::UNABLE_TO_STOP_TIMER:
        return "Internal error UNABLE_TO_STOP_TIMER";
    default:
        return unknownCause;
    }
}

void traceIgnored(std::uint32_t mboxId)
{
    TRACE_INFO("ABN: VORN session for mailboxID {}not found, ignore signal", mboxId);
}

} // namespace

VornServerTemperature::VornServerTemperature(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_procedures(commonData, commonData.getDunlClient())
{
}

bool VornServerTemperature::init()
{
    using Self = VornServerTemperature;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornTempMeasStartReqS::number, &Self::handleTemperatureMeasStart);
    onMessage(dunl::MsgNo::TempMeasStartCfm, &Self::handleTempMeasStartCfm);
    onMessage(dunl::MsgNo::TempMeasStartRej, &Self::handleTempMeasStartRej);
    onMessage(dunl::MsgNo::TempMeasRestartCfm, &Self::handleTempMeasRestartCfm);
    onMessage(dunl::MsgNo::TempMeasRestartRej, &Self::handleTempMeasRestartRej);
    onMessage(dunl::MsgNo::TempMeasStopCfm, &Self::handleTempMeasStopCfm);
    onMessage(dunl::MsgNo::TempMeasStopRej, &Self::handleTempMeasStopRej);
    onMessage(dunl::MsgNo::TempMeasInd, &Self::handleTempMeasInd);
    return true;
}

// --- The client's signal: what it means depends on whether a measurement runs

void VornServerTemperature::handleTemperatureMeasStart(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornTempMeasStartReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, measurementKey);
    if (!m_commonData.getDunlClient().hasCapability(DunlCapability::TemperatureLevelMeasurement)) {
        reject(client, "Hotspots not supported");
        return;
    }
    const VornSession* session = m_commonData.findVornSession(client.mboxId);
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring OmlaVornTempMeasStartReq!");
        return;
    }
    const std::uint32_t period = signal->hotSpotMeasurementPeriod;
    if (!session->hasProcedureRef(measurementKey)) {
        sendTempMeasStartReq(client, period); // also 0: the DUNL server checks the range
    } else if (period != 0) {
        sendTempMeasRestartReq(client, *session, period);
    } else {
        sendTempMeasStopReq(client, *session);
    }
}

void VornServerTemperature::sendTempMeasStartReq(const Client& client, std::uint32_t period)
{
    TRACE_1("VornServerTemperature:sendTempMeasStartReq(), sending DUNL_TEMP_MEAS_START_REQ with timer of {} sec. for "
            "mbox({}), clientRef({}), serverRef({}",
            period, client.mboxId, client.clientRef, client.serverRef);
    dunl::TempMeasStartReq request;
    request.set_hot_spot_measurement_period(period);
    m_procedures.requestFor(client, dunl::MsgNo::TempMeasStartReq, request);
}

void VornServerTemperature::sendTempMeasRestartReq(const Client& client, const VornSession& session,
                                                   std::uint32_t period)
{
    TRACE_1("VornServerTemperature:sendTempMeasRestartReq(), sending DUNL_TEMP_MEAS_RESTART_REQ with timer of {} sec. "
            "for mbox({}), clientRef({}), serverRef({}",
            period, client.mboxId, client.clientRef, client.serverRef);
    dunl::TempMeasRestartReq request;
    request.set_temp_meas_ref(session.getTempMeasRef());
    request.set_hot_spot_measurement_period(period);
    m_commonData.getDunlClient().send(dunl::MsgNo::TempMeasRestartReq, request,
                                      session.getProcedureRefSignal(measurementKey));
}

void VornServerTemperature::sendTempMeasStopReq(const Client& client, const VornSession& session)
{
    TRACE_1("VornServerTemperature:sendTempMeasStopReq(), sending DUNL_TEMP_MEAS_STOP_REQ for mbox({}), clientRef({}), "
            "serverRef({}",
            client.mboxId, client.clientRef, client.serverRef);
    dunl::TempMeasStopReq request;
    request.set_temp_meas_ref(session.getTempMeasRef());
    m_commonData.getDunlClient().send(dunl::MsgNo::TempMeasStopReq, request,
                                      session.getProcedureRefSignal(measurementKey));
}

/// The answer finds no session and takes the transaction away.
void VornServerTemperature::onVornSessionLost(const VornSession& session)
{
    if (session.hasProcedureRef(measurementKey)) {
        sendTempMeasStopReq({0, session.getMboxId(), session.getServerRef(), session.getClientRef(), measurementKey},
                            session);
    }
}

// --- The DUNL server's answers

template <typename Message>
std::optional<TolmeAnswer<Message>> VornServerTemperature::receive(const TolmeMessagePtr& message,
                                                                   const char* noTransaction) const
{
    auto answer = m_procedures.decode<Message>(message);
    if (!answer) {
        return std::nullopt;
    }
    const Client* client = m_commonData.getDunlClient().findTransaction(answer->envelope.procedureRef);
    if (client == nullptr) {
        if (noTransaction != nullptr) {
            TRACE_INFO("{}", noTransaction);
        }
        return std::nullopt;
    }
    answer->transaction = *client;
    answer->session = m_commonData.findVornSession(client->mboxId);
    return answer;
}

void VornServerTemperature::confirm(const Client& client) const
{
    sendSignal<OmlaVornTempMeasStartCfmS>(client);
}

void VornServerTemperature::reject(const Client& client, const char* text) const
{
    sendReject<OmlaVornTempMeasStartRejS>(client, 1, text);
}

void VornServerTemperature::handleTempMeasStartCfm(const TolmeMessagePtr& message)
{
    const auto answer = receive<dunl::TempMeasStartCfm>(
        message, "ABN: DUNL_TEMP_MEAS_START_CFM, no matching DUNL_TEMP_MEAS_START_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if (answer->session == nullptr) {
        traceIgnored(client.mboxId);
        return;
    }
    answer->session->setTempMeasRef(answer->message.temp_meas_ref());
    answer->session->addProcedureRef(measurementKey, client.procedureRef);
    confirm(client);
}

void VornServerTemperature::handleTempMeasStartRej(const TolmeMessagePtr& message)
{
    const auto answer = receive<dunl::TempMeasStartRej>(
        message, "ABN: DUNL_TEMP_MEAS_START_REJ, no matching DUNL_TEMP_MEAS_START_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if (answer->session == nullptr) {
        TRACE_1("VornServerTemperature:handleTempMeasStartRej() received DUNL_TEMP_MEAS_START_REJ, session was deleted "
                "for procedureRef({}",
                client.procedureRef);
    } else {
        reject(client, startRejText(answer->message.reject_cause()));
    }
    m_commonData.getDunlClient().removeTransaction(client.procedureRef);
}

/// The client is told the same as for a start.
void VornServerTemperature::handleTempMeasRestartCfm(const TolmeMessagePtr& message)
{
    const auto answer = receive<dunl::TempMeasRestartCfm>(
        message, "ABN: DUNL_TEMP_MEAS_RESTART_CFM, no matching DUNL_TEMP_MEAS_RESTART_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    if (answer->session == nullptr) {
        traceIgnored(answer->transaction.mboxId);
        return;
    }
    confirm(answer->transaction);
}

/// The measurement goes on as it was.
void VornServerTemperature::handleTempMeasRestartRej(const TolmeMessagePtr& message)
{
    // The trace names another message, and always has.
    const auto answer = receive<dunl::TempMeasRestartRej>(
        message, "ABN: DUNL_TEMP_MEAS_STOP_REJ, no matching DUNL_TEMP_MEAS_RESTART_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    if (answer->session == nullptr) {
        traceIgnored(answer->transaction.mboxId);
        return;
    }
    reject(answer->transaction, restartRejText(answer->message.reject_cause()));
}

void VornServerTemperature::handleTempMeasStopCfm(const TolmeMessagePtr& message)
{
    const auto answer = receive<dunl::TempMeasStopCfm>(
        message, "ABN: DUNL_TEMP_MEAS_STOP_CFM, no matching DUNL_TEMP_MEAS_STOP_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    const Client& client = answer->transaction;
    if (answer->session == nullptr) {
        TRACE_1("VornServerTemperature:handleTempMeasStopCfm() received DUNL_TEMP_MEAS_STOP_CFM, session was deleted "
                "for procedureRef({}",
                client.procedureRef);
    } else {
        confirm(client);
        answer->session->eraseProcedureRef(measurementKey);
        answer->session->setTempMeasRef(0);
    }
    m_commonData.getDunlClient().removeTransaction(client.procedureRef);
}

/// The measurement counts as running.
void VornServerTemperature::handleTempMeasStopRej(const TolmeMessagePtr& message)
{
    const auto answer = receive<dunl::TempMeasStopRej>(
        message, "ABN: DUNL_TEMP_MEAS_STOP_REJ, no matching DUNL_TEMP_MEAS_STOP_REQ procedureRef was found");
    if (!answer) {
        return;
    }
    if (answer->session == nullptr) {
        TRACE_1("VornServerTemperature:handleTempMeasStopRej() received DUNL_TEMP_MEAS_STOP_CFM, session was deleted "
                "for procedureRef({}",
                answer->transaction.procedureRef);
        return;
    }
    reject(answer->transaction, stopRejText(answer->message.reject_cause()));
}

void VornServerTemperature::handleTempMeasInd(const TolmeMessagePtr& message)
{
    const auto ind = receive<dunl::TempMeasInd>(message, nullptr);
    if (!ind) {
        return;
    }
    const Client& client = ind->transaction;
    if (ind->session == nullptr) {
        TRACE_INFO("ABN: The client session for mailbox {} does not exist. Ignoring dunl::TempMeasInd", client.mboxId);
        return;
    }
    const auto& readings = ind->message.reading();
    const int count = std::min(readings.size(), static_cast<int>(vornMaxReadings));
    TRACE_1("VornServerTemperature::handleTempMeasInd() reporting {} readings to mbox({}), clientRef({}), serverRef({}",
            count, client.mboxId, client.clientRef, client.serverRef);
    sendSignal<OmlaVornTempMeasIndS>(client, [&](auto& signal) {
        signal.noOfReadings = static_cast<std::uint16_t>(count);
        for (int i = 0; i < count; ++i) {
            signal.readings[i] = static_cast<std::int16_t>(readings[i]);
        }
    });
}
