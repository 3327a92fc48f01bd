/// The indicators of the board's panel.
#pragma once

#include "tools/boardsim/core/protobufServer.h"
#include "tools/boardsim/fesk/mmiUsers.h"

#include "fesk/numbers.h"

#include <array>
#include <deque>
#include <optional>

namespace boardsim {

/// There are four, called first to fourth. A user's order changes the one that it is for; some orders are for something
/// that can't be read back and are merely kept. The fourth, the support unit fault indicator, changes by command alone.
/// What is absent isn't told.
class Indicators : public ProtobufProcedures
{
public:
    explicit Indicators(const MmiUsers& users) : m_users(users) {}

    Verdict set(const Connection& connection, const tolme::fesk::SetVisualIndicationReq& request,
                tolme::fesk::SetVisualIndicationCfm&, tolme::fesk::SetVisualIndicationRej&);
    Verdict get(const Connection& connection, const tolme::fesk::GetVisualIndicationReq& request,
                tolme::fesk::GetVisualIndicationCfm& confirm, tolme::fesk::GetVisualIndicationRej&);

    std::vector<CommandRow> commands() override;
    void reset() override { m_state = {}; }
    void show(Json& server) const override;

private:
    struct Order {
        std::uint32_t user;
        int visualState;
    };
    struct State {
        std::array<std::optional<int>, 4> shown{2, 5, 2, 1}; ///< as after the board's start
        std::deque<Order> orders;                            ///< the newest last
    };

    void setShown(const Words& args);

    const MmiUsers& m_users;
    State m_state;
};

} // namespace boardsim
