/// What the DUNL server can do.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <vector>

namespace boardsim {

/// At first it can do all there is. A set of capabilities on command keeps the parameters; whoever needs others gives
/// the whole confirm by a rule.
class DunlCapabilities : public ProtobufProcedures
{
public:
    DunlCapabilities();

    Verdict get(const Connection&, const tolme::dunl::GetCapabilitiesReq&, tolme::dunl::GetCapabilitiesCfm& confirm,
                tolme::dunl::GetCapabilitiesRej&);

    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;

private:
    void set(const Words& names);

    std::vector<int> m_capabilities; ///< a setting, in the order in which they are told
};

} // namespace boardsim
