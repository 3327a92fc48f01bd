#include "tools/boardsim/dunl/temperatures.h"

#include "ostinel/eventLoop.h"

#include "dunl/dunl.pb.h"

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

using tolme::dunl::TempMeasRestartRej;
using tolme::dunl::TempMeasStartRej;
using tolme::dunl::TempMeasStopRej;

constexpr std::size_t maxMeasurements = 4096;

bool isPeriod(std::uint32_t seconds)
{
    return seconds >= 1 && seconds <= 30;
}

} // namespace

Verdict Temperatures::start(const Connection& connection, const tolme::dunl::TempMeasStartReq& request,
                            tolme::dunl::TempMeasStartCfm& confirm, TempMeasStartRej& reject)
{
    if (!isPeriod(request.hot_spot_measurement_period())) {
        reject.set_reject_cause(TempMeasStartRej::INVALID_TIMER_PERIOD);
        return Verdict::reject;
    }
    if (m_state.measurements.size() >= maxMeasurements) {
        return Verdict::reject;
    }
    do {
        ++m_state.lastRef;
    } while (m_state.lastRef == 0 || m_state.measurements.count(m_state.lastRef) != 0);
    const std::chrono::seconds period(request.hot_spot_measurement_period());
    m_state.measurements[m_state.lastRef] = {connection, period, startTimer(m_state.lastRef, period)};
    confirm.set_temp_meas_ref(m_state.lastRef);
    return Verdict::confirm;
}

Verdict Temperatures::restart(const Connection& connection, const tolme::dunl::TempMeasRestartReq& request,
                              tolme::dunl::TempMeasRestartCfm&, TempMeasRestartRej& reject)
{
    Measurement* measurement = find(connection, request.temp_meas_ref());
    if (measurement == nullptr) {
        reject.set_reject_cause(TempMeasRestartRej::INVALID_TEMP_MEAS_REF);
        return Verdict::reject;
    }
    if (!isPeriod(request.hot_spot_measurement_period())) {
        reject.set_reject_cause(TempMeasRestartRej::INVALID_TIMER_PERIOD);
        return Verdict::reject;
    }
    EventLoopIf::getInstance().removeTimer(measurement->timer);
    measurement->period = std::chrono::seconds(request.hot_spot_measurement_period());
    measurement->timer = startTimer(request.temp_meas_ref(), measurement->period);
    return Verdict::confirm;
}

Verdict Temperatures::stop(const Connection& connection, const tolme::dunl::TempMeasStopReq& request,
                           tolme::dunl::TempMeasStopCfm&, TempMeasStopRej& reject)
{
    const Measurement* measurement = find(connection, request.temp_meas_ref());
    if (measurement == nullptr) {
        reject.set_reject_cause(TempMeasStopRej::INVALID_TEMP_MEAS_REF);
        return Verdict::reject;
    }
    EventLoopIf::getInstance().removeTimer(measurement->timer);
    m_state.measurements.erase(request.temp_meas_ref());
    return Verdict::confirm;
}

/// A measurement is that of the connection which started it.
Temperatures::Measurement* Temperatures::find(const Connection& connection, std::uint32_t ref)
{
    const auto found = m_state.measurements.find(ref);
    const bool isKnown = found != m_state.measurements.end() && found->second.connection.ref == connection.ref;
    return isKnown ? &found->second : nullptr;
}

std::uint32_t Temperatures::startTimer(std::uint32_t ref, std::chrono::seconds period)
{
    return EventLoopIf::getInstance().addTimer(period, [this, ref] { measure(ref); });
}

void Temperatures::measure(std::uint32_t ref)
{
    Measurement& measurement = m_state.measurements.at(ref);
    measurement.timer = startTimer(ref, measurement.period);
    tolme::dunl::TempMeasInd indication;
    prepareIndication(indication);
    m_indicate(measurement.connection, indication);
}

std::vector<Connection> Temperatures::audience(const Message&) const
{
    std::vector<Connection> audience;
    for (const auto& [ref, measurement] : m_state.measurements) {
        audience.push_back(measurement.connection);
    }
    return audience;
}

void Temperatures::prepareIndication(Message& indication) const
{
    for (const std::int32_t degrees : m_hotSpots.readings(std::chrono::steady_clock::now())) {
        static_cast<tolme::dunl::TempMeasInd&>(indication).add_reading(degrees);
    }
}

void Temperatures::prepareReject(Message& reject) const
{
    if (auto* start = dynamic_cast<TempMeasStartRej*>(&reject)) {
        start->set_reject_cause(TempMeasStartRej::UNABLE_TO_START_TIMER);
    } else if (auto* restart = dynamic_cast<TempMeasRestartRej*>(&reject)) {
        restart->set_reject_cause(TempMeasRestartRej::UNABLE_TO_RESTART_TIMER);
    } else if (auto* stop = dynamic_cast<TempMeasStopRej*>(&reject)) {
        stop->set_reject_cause(TempMeasStopRej::UNABLE_TO_STOP_TIMER);
    }
}

void Temperatures::connectionLost(const Connection& connection)
{
    std::erase_if(m_state.measurements, [&](const auto& entry) {
        const bool isLost = entry.second.connection.ref == connection.ref;
        if (isLost) {
            EventLoopIf::getInstance().removeTimer(entry.second.timer);
        }
        return isLost;
    });
}

void Temperatures::reset()
{
    for (const auto& [ref, measurement] : m_state.measurements) {
        EventLoopIf::getInstance().removeTimer(measurement.timer);
    }
    m_state = {};
}

std::vector<CommandRow> Temperatures::commands()
{
    return {
        {"temperature <hot spot> { <degrees> | wander }", "what is measured there from now on; hot spots count from 1",
         [this](const Words& args, std::ostream&) { setTemperature(args); }},
        {"hot-spots <count>", "how many are measured; 4 at first",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_hotSpots.setCount(parseNumber(args[0], "the count", HotSpots::max));
         }},
    };
}

void Temperatures::setTemperature(const Words& args)
{
    expectWords(args, 2, 2);
    const std::uint32_t hotSpot = parseNumber(args[0], "the hot spot", HotSpots::max);
    if (hotSpot == 0) {
        throw CommandError("hot spots count from 1");
    }
    m_hotSpots.set(hotSpot,
                   args[1] == "wander" ? std::nullopt : std::optional(parseSigned(args[1], "the temperature")));
}

void Temperatures::show(Json& server) const
{
    Json hotSpots = Json::array();
    std::uint32_t number = 0;
    for (const std::int32_t degrees : m_hotSpots.readings(std::chrono::steady_clock::now())) {
        ++number;
        hotSpots.push_back(
            {{"hotSpot", number}, {"degrees", degrees}, {"mode", m_hotSpots.isSet(number) ? "set" : "wanders"}});
    }
    Json measurements = Json::array();
    for (const auto& [ref, measurement] : m_state.measurements) {
        measurements.push_back({{"ref", ref},
                                {"connection", measurement.connection.ref},
                                {"procedureRef", measurement.connection.procedureRef},
                                {"period", measurement.period.count()}});
    }
    server["temperatures"]["hotSpots"] = std::move(hotSpots);
    server["temperatures"]["measurements"] = std::move(measurements);
}

} // namespace boardsim
