/// UTC time of the DUNL server: its time sources and the clock that they set.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <map>
#include <optional>

namespace boardsim {

/// A source belongs to the connection that registered it. A time is taken from any registered source, and from source
/// 0, a client that was refused as one.
class UtcTime : public ProtobufProcedures
{
public:
    Verdict registerSource(const Connection& connection, const tolme::dunl::RegisterUtcTimeSourceReq& request,
                           tolme::dunl::RegisterUtcTimeSourceCfm& confirm, tolme::dunl::RegisterUtcTimeSourceRej&);
    Verdict unregisterSource(const Connection& connection, const tolme::dunl::UnregisterUtcTimeSourceReq& request,
                             tolme::dunl::UnregisterUtcTimeSourceCfm&, tolme::dunl::UnregisterUtcTimeSourceRej&);
    Verdict setTime(const Connection& connection, const tolme::dunl::SetUtcTimeReq& request,
                    tolme::dunl::SetUtcTimeCfm&, tolme::dunl::SetUtcTimeRej&);

    void connectionLost(const Connection& connection) override;
    void reset() override { m_state = {}; }
    void show(Json& server) const override;

private:
    struct Source {
        std::uint32_t connectionRef;
        int accuracy;
    };
    struct Time {
        std::uint32_t value;
        std::uint32_t sourceRef;
    };
    struct State {
        std::map<std::uint32_t, Source> sources; ///< by the reference given out
        std::uint32_t lastSourceRef = 0;
        std::optional<Time> time;
        std::uint64_t timesSet = 0;
    };

    bool isSourceOf(const Connection& connection, std::uint32_t sourceRef) const;

    State m_state;
};

} // namespace boardsim
