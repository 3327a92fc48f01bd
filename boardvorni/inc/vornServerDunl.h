/// The connection to the DUNL server.
#pragma once

#include "tolmeConnector.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tolme::dunl {
class GetCapabilitiesCfm;
}

/// A level of one temperature sensor, cut to 16 bits.
struct temperatureLevelMeasurementParam_st {
    std::uint16_t sensorId;
    std::uint16_t upperLevel;
    std::uint16_t lowerLevel;
};

/// The range of one hot spot, cut to 16 bits.
struct hotspotParam_st {
    std::uint16_t hotspotId;
    std::uint16_t upperTemperature;
    std::uint16_t lowerTemperature;
};

/// Codes of the DUNL server's capabilities inside this server.
namespace DunlCapability {
enum Code : std::uint16_t {
    HwPid = 2,
    UnitPort = 5,
    SiteFailureNote = 6,
    EarlyPowerFailureReporting = 7,
    AlternativeLmcSupport = 9,
    UtcTime = 12,
    HwLogSupport = 13,
    ProductInventory = 14,
    ContainerPid = 15,
    IntegratedHwCategory_1 = 16,
    MarketPid = 17,
    ExtendedMarketPid = 18,
    NotifyRestart = 19,
    TemperatureLevelMeasurement = 20,
    ClimateControl = 21,
    RestartNotificationSupport = 22,
    RestartRankLabelSupport = 23,
    EventHistorySupport = 24,
    SelectiveLoadingSupport = 25,
    VornOamState = 26,
};
} // namespace DunlCapability

// The records with parameters.
struct NotifyRestartCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = DunlCapability::NotifyRestart;
    NotifyRestartCapability() : TolmeCapability(ownCode) {}
    std::uint32_t reserved = 0; ///< not filled
};
struct TemperatureLevelMeasurementCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = DunlCapability::TemperatureLevelMeasurement;
    TemperatureLevelMeasurementCapability() : TolmeCapability(ownCode) {}
    std::vector<std::shared_ptr<temperatureLevelMeasurementParam_st>> levels;
};
struct ClimateControlCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = DunlCapability::ClimateControl;
    ClimateControlCapability() : TolmeCapability(ownCode) {}
    std::vector<std::shared_ptr<hotspotParam_st>> hotspots;
};
struct RestartRankLabelCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = DunlCapability::RestartRankLabelSupport;
    explicit RestartRankLabelCapability(std::uint32_t rankLabel) : TolmeCapability(ownCode), label(rankLabel) {}
    std::uint32_t label;
};
struct AlternativeLmcCapability : TolmeCapability {
    static constexpr std::uint16_t ownCode = DunlCapability::AlternativeLmcSupport;
    explicit AlternativeLmcCapability(const std::string& lmcTag) : TolmeCapability(ownCode), tag(lmcTag) {}
    std::string tag;
};

/// Connects to the DUNL server, asks it for the first data and turns its capability list into records. The other
/// components send and receive through the same TolmeClient.
class VornServerDunl : public TolmeConnector
{
public:
    explicit VornServerDunl(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerDunl"; }

private:
    void handleServerFound(const TolmeMessagePtr& message);
    void handleConnEstablishCfm(const TolmeMessagePtr& message);
    void handleConnEstablishRej(const TolmeMessagePtr& message);
    void handleDunlGetCapabilitiesCfm(const TolmeMessagePtr& message);
    void handleDunlGetCapabilitiesRej(const TolmeMessagePtr& message);

    void addCapability(int capability, const tolme::dunl::GetCapabilitiesCfm& cfm);
    void addTemperatureLevels(const tolme::dunl::GetCapabilitiesCfm& cfm);
    void addHotspots(const tolme::dunl::GetCapabilitiesCfm& cfm);
    void addAlternativeLmc(const tolme::dunl::GetCapabilitiesCfm& cfm);
};
