/// The connection to the FESK server.
#pragma once

#include "tolmeConnector.h"
#include "tolmeProcedures.h"

#include <cstdint>
#include <string>
#include <vector>

/// Codes of the FESK server's capabilities inside this server.
namespace FeskCapability {
enum Code : std::uint16_t {
    CommonMmi = 3,
    SpecialIndicator = 4,
    HereIAm = 8,
    OpticalIndicatorControl = 27,
};
} // namespace FeskCapability

/// The special indicators by their names.
struct SpecialIndicatorCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = FeskCapability::SpecialIndicator;
    SpecialIndicatorCapability() : TolmeCapability(ownCode) {}
    std::vector<std::string> indicators{"Support Unit Fault Indicator"};
};

/// Connects to the FESK server, registers the unit's own MMI user with it and turns its capabilities into records.
class VornServerFesk : public TolmeConnector
{
public:
    explicit VornServerFesk(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerFesk"; }

private:
    void handleServerFound(const TolmeMessagePtr& message);
    void handleConnEstablishCfm(const TolmeMessagePtr& message);
    void handleConnEstablishRej(const TolmeMessagePtr& message);
    void handleFeskGetCapabilitiesCfm(const TolmeMessagePtr& message);
    void handleFeskGetCapabilitiesRej(const TolmeMessagePtr& message);

    void registerInternalMmiUser();

    TolmeProcedures m_procedures;
};
