/// What the FESK server can do.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "fesk/numbers.h"

#include <set>
#include <string>

namespace boardsim {

/// At first it can do all there is. A capability goes by the name of its field in the confirm.
class FeskCapabilities : public ProtobufProcedures
{
public:
    FeskCapabilities();

    Verdict get(const Connection&, const tolme::fesk::GetCapabilitiesReq&, tolme::fesk::GetCapabilitiesCfm& confirm,
                tolme::fesk::GetCapabilitiesRej&);

    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;

private:
    void set(const Words& names);

    std::set<std::string> m_fields; ///< a setting
};

} // namespace boardsim
