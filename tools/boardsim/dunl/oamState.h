/// O&M state of the board: what the server has been told of it.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <deque>
#include <optional>
#include <string>

namespace boardsim {

/// Takes every state that the interface has; a request without one, or with an unknown one, is rejected. The last
/// requests are kept, so that whoever drives the board can check each step.
class OamState : public ProtobufProcedures
{
public:
    Verdict setState(const Connection&, const tolme::dunl::SetOamStateReq& request, tolme::dunl::SetOamStateCfm&,
                     tolme::dunl::SetOamStateRej&);

    std::vector<CommandRow> commands() override;
    void reset() override { m_state = {}; }
    void show(Json& server) const override;

private:
    struct State {
        std::optional<std::string> name;
        std::uint64_t requests = 0;
        std::deque<std::string> history; ///< what each request told, the newest last
    };

    State m_state;
};

} // namespace boardsim
