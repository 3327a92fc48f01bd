/// Measurements of the hot spots' temperatures.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/dunl/hotSpots.h"

#include "dunl/numbers.h"

#include <chrono>
#include <map>
#include <vector>

namespace boardsim {

/// A measurement tells the readings every so many seconds in the procedure that started it, until it is stopped or its
/// connection goes; a connection may have several. A new period counts from the moment it is given.
class Temperatures : public ProtobufProcedures
{
public:
    /// `indicate`: of messages that belong to a request.
    explicit Temperatures(Indicate indicate) : m_indicate(std::move(indicate)) {}

    Verdict start(const Connection& connection, const tolme::dunl::TempMeasStartReq& request,
                  tolme::dunl::TempMeasStartCfm& confirm, tolme::dunl::TempMeasStartRej& reject);
    Verdict restart(const Connection& connection, const tolme::dunl::TempMeasRestartReq& request,
                    tolme::dunl::TempMeasRestartCfm&, tolme::dunl::TempMeasRestartRej& reject);
    Verdict stop(const Connection& connection, const tolme::dunl::TempMeasStopReq& request,
                 tolme::dunl::TempMeasStopCfm&, tolme::dunl::TempMeasStopRej& reject);

    std::vector<Connection> audience(const Message&) const override;
    void prepareIndication(Message& indication) const override;
    void prepareReject(Message& reject) const override;
    void connectionLost(const Connection& connection) override;
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    struct Measurement {
        Connection connection; ///< with the procedure that started it
        std::chrono::seconds period;
        std::uint32_t timer;
    };
    struct State {
        std::map<std::uint32_t, Measurement> measurements; ///< by the reference given out
        std::uint32_t lastRef = 0;
    };

    Measurement* find(const Connection& connection, std::uint32_t ref);
    std::uint32_t startTimer(std::uint32_t ref, std::chrono::seconds period);
    void measure(std::uint32_t ref);
    void setTemperature(const Words& args);

    Indicate m_indicate;
    HotSpots m_hotSpots; ///< a setting
    State m_state;
};

} // namespace boardsim
