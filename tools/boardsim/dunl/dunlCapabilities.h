/// What the DUNL server can do.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <optional>
#include <string>
#include <vector>

namespace boardsim {

/// At first it can do all there is. Capabilities and their parameters are set apart: parameters are told with their
/// capability and kept without it.
class DunlCapabilities : public ProtobufProcedures
{
public:
    DunlCapabilities();

    Verdict get(const Connection&, const tolme::dunl::GetCapabilitiesReq&, tolme::dunl::GetCapabilitiesCfm& confirm,
                tolme::dunl::GetCapabilitiesRej&);

    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;

    /// What a sensor or a hot spot tells; what is empty is left out.
    struct Levels {
        std::optional<std::uint32_t> id, lower, upper;
    };

private:
    void set(const Words& names);

    // Settings.
    std::vector<int> m_capabilities; ///< in the order in which they are told
    std::vector<Levels> m_temperatureLevels;
    std::vector<Levels> m_hotspots;
    std::optional<std::uint32_t> m_restartRankLabel = 0x1F; ///< all ranks
    std::optional<std::string> m_alternativeLmcTag = "ALT_LMC";
};

} // namespace boardsim
