#include "tools/boardsim/dunl/utcTime.h"

#include "dunl/dunl.pb.h"

namespace boardsim {

namespace {

constexpr std::size_t maxSources = 4096;

} // namespace

Verdict UtcTime::registerSource(const Connection& connection, const tolme::dunl::RegisterUtcTimeSourceReq& request,
                                tolme::dunl::RegisterUtcTimeSourceCfm& confirm, tolme::dunl::RegisterUtcTimeSourceRej&)
{
    if (!request.has_accuracy() || m_state.sources.size() >= maxSources) {
        return Verdict::reject;
    }
    do {
        ++m_state.lastSourceRef;
    } while (m_state.lastSourceRef == 0 || m_state.sources.count(m_state.lastSourceRef) != 0);
    m_state.sources[m_state.lastSourceRef] = {connection.ref, request.accuracy()};
    confirm.set_utc_time_source_ref(m_state.lastSourceRef);
    return Verdict::confirm;
}

Verdict UtcTime::unregisterSource(const Connection& connection, const tolme::dunl::UnregisterUtcTimeSourceReq& request,
                                  tolme::dunl::UnregisterUtcTimeSourceCfm&, tolme::dunl::UnregisterUtcTimeSourceRej&)
{
    if (!isSourceOf(connection, request.utc_time_source_ref())) {
        return Verdict::reject;
    }
    m_state.sources.erase(request.utc_time_source_ref());
    return Verdict::confirm;
}

Verdict UtcTime::setTime(const Connection& connection, const tolme::dunl::SetUtcTimeReq& request,
                         tolme::dunl::SetUtcTimeCfm&, tolme::dunl::SetUtcTimeRej&)
{
    const std::uint32_t sourceRef = request.utc_time_source_ref();
    if (!request.has_utc_time() || (sourceRef != 0 && !isSourceOf(connection, sourceRef))) {
        return Verdict::reject;
    }
    m_state.time = {request.utc_time(), sourceRef};
    ++m_state.timesSet;
    return Verdict::confirm;
}

bool UtcTime::isSourceOf(const Connection& connection, std::uint32_t sourceRef) const
{
    const auto found = m_state.sources.find(sourceRef);
    return found != m_state.sources.end() && found->second.connectionRef == connection.ref;
}

void UtcTime::connectionLost(const Connection& connection)
{
    std::erase_if(m_state.sources, [&](const auto& entry) { return entry.second.connectionRef == connection.ref; });
}

void UtcTime::show(Json& server) const
{
    Json sources = Json::array();
    for (const auto& [ref, source] : m_state.sources) {
        sources.push_back({{"ref", ref}, {"connection", source.connectionRef}, {"accuracy", source.accuracy}});
    }
    Json& time = server["utcTime"];
    time["time"] = m_state.time ? Json(m_state.time->value) : Json();
    time["setBySource"] = m_state.time ? Json(m_state.time->sourceRef) : Json();
    time["timesSet"] = m_state.timesSet;
    time["sources"] = std::move(sources);
}

} // namespace boardsim
