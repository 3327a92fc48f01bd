/// Connectivity of the DUNL server: what it has been told of its client's own clients.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <optional>

namespace boardsim {

class Connectivity : public ProtobufProcedures
{
public:
    Verdict connected(const Connection&, const tolme::dunl::ConnectivityConnectedReq&,
                      tolme::dunl::ConnectivityConnectedCfm&, tolme::dunl::ConnectivityConnectedRej&);
    Verdict notConnected(const Connection&, const tolme::dunl::ConnectivityNotConnectedReq&,
                         tolme::dunl::ConnectivityNotConnectedCfm&, tolme::dunl::ConnectivityNotConnectedRej&);
    Verdict setSupervisionTimeout(const Connection&, const tolme::dunl::ConnectivitySetSupervisionTimeoutReq& request,
                                  tolme::dunl::ConnectivitySetSupervisionTimeoutCfm&,
                                  tolme::dunl::ConnectivitySetSupervisionTimeoutRej&);

    /// Without its client there is nobody whose clients are connected.
    void connectionLost(const Connection&) override { m_state.isConnected = false; }
    void reset() override { m_state = {}; }
    void show(Json& server) const override;

private:
    struct State {
        bool isConnected = false;
        std::optional<std::uint32_t> supervisionTimeout;
    };

    State m_state;
};

} // namespace boardsim
