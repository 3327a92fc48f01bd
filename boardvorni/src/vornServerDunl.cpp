#include "vornServerDunl.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"

using namespace tolme;

namespace {

/// Capabilities that are a code and nothing else.
struct PlainCapability {
    dunl::Capability capability;
    std::uint16_t code;
    const char* text; ///< traced; null for none
};

constexpr PlainCapability plainCapabilities[] = {
    {dunl::UTC_TIME, DunlCapability::UtcTime, "adding 'Utc Time' Capability"},
    {dunl::HW_LOG_SUPPORT, DunlCapability::HwLogSupport, "adding 'Hw Log' Capability"},
    {dunl::PRODUCT_INVENTORY, DunlCapability::ProductInventory, "adding 'Product Inventory' Capability"},
    {dunl::CONTAINER_PID, DunlCapability::ContainerPid, "adding 'ContainerPid' Capability"},
    {dunl::INTEGRATED_HW_CATEGORY_1, DunlCapability::IntegratedHwCategory_1,
     "adding 'IntegratedHwCategory_1' Capability"},
    {dunl::MARKET_PID, DunlCapability::MarketPid, "adding 'MarketPid' Capability"},
    {dunl::EXTENDED_MARKET_PID, DunlCapability::ExtendedMarketPid, "adding 'ExtendedMarketPid' Capability"},
    {dunl::RESTART_NOTIFICATION_SUPPORT, DunlCapability::RestartNotificationSupport,
     "adding 'RestartNotification' Capability"},
    {dunl::EVENT_HISTORY_SUPPORT, DunlCapability::EventHistorySupport, nullptr},
    {dunl::SELECTIVE_LOADING_SUPPORT, DunlCapability::SelectiveLoadingSupport, "adding 'SelectiveLoading' Capability"},
    {dunl::VORN_OAM_STATE, DunlCapability::VornOamState, "adding 'Oam State' Capability"},
    {dunl::HW_PID, DunlCapability::HwPid, nullptr},
    {dunl::UNIT_PORT, DunlCapability::UnitPort, nullptr},
    {dunl::SITE_FAILURE_NOTE, DunlCapability::SiteFailureNote, nullptr},
    {dunl::EARLY_POWER_FAILURE_REPORTING, DunlCapability::EarlyPowerFailureReporting, nullptr},
};

std::uint16_t cut(std::uint32_t value)
{
    return static_cast<std::uint16_t>(value);
}

} // namespace

VornServerDunl::VornServerDunl(VornServerCommonData& commonData)
    : TolmeConnector(commonData, commonData.getDunlClient())
{
}

bool VornServerDunl::init()
{
    const std::string server = dunl::DunlServerMetadata().name();
    TRACE_1("VORN Server is locating {}", server);
    m_client.start<dunl::ConnEstablishCfm>(dunl::MsgNo::ConnEstablishCfm, server);
    m_client.registerHandler(TolmeClient::serverFound, [this](const auto& m) { handleServerFound(m); });
    m_client.registerHandler(dunl::MsgNo::ConnEstablishCfm, [this](const auto& m) { handleConnEstablishCfm(m); });
    m_client.registerHandler(dunl::MsgNo::ConnEstablishRej, [this](const auto& m) { handleConnEstablishRej(m); });
    m_client.registerHandler(dunl::MsgNo::GetCapabilitiesCfm,
                             [this](const auto& m) { handleDunlGetCapabilitiesCfm(m); });
    m_client.registerHandler(dunl::MsgNo::GetCapabilitiesRej,
                             [this](const auto& m) { handleDunlGetCapabilitiesRej(m); });
    return true;
}

void VornServerDunl::handleServerFound(const TolmeMessagePtr& /*message*/)
{
    TRACE_INFO("DUNL Server has come online : sending request to establish connection");
    dunl::ConnEstablishReq request;
    request.add_protocol_revision(1);
    m_client.sendConnEstablishReq(dunl::MsgNo::ConnEstablishReq, request);
}

void VornServerDunl::handleConnEstablishCfm(const TolmeMessagePtr& /*message*/)
{
    TRACE_1("dunl::ConnEstablishCfm from DUNL server has selected protocol revision #{}",
            m_client.getSelectedProtocolRev());
    m_client.send(dunl::MsgNo::GetProductInfoReq, dunl::GetProductInfoReq());
    m_client.send(dunl::MsgNo::GetContainerPidReq, dunl::GetContainerPidReq());
    m_client.send(dunl::MsgNo::GetCapabilitiesReq, dunl::GetCapabilitiesReq());
    m_client.send(dunl::MsgNo::SubscribeFaultsReq, dunl::SubscribeFaultsReq());
}

void VornServerDunl::handleConnEstablishRej(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    dunl::ConnEstablishRej rej;
    if (!TolmeClient::decode(message, envelope, rej)) {
        return;
    }
    if (!rej.has_reject_reason()) {
        TRACE_INFO("ABN: dunl::ConnEstablishRej provided no reason");
        return;
    }
    TRACE_INFO("ABN: VornServer connection to the DUNL Server has been rejected: {}",
               dunl::ConnEstablishRej::RejectReason_Name(rej.reject_reason()));
}

void VornServerDunl::handleDunlGetCapabilitiesCfm(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    dunl::GetCapabilitiesCfm cfm;
    if (!TolmeClient::decode(message, envelope, cfm)) {
        return;
    }
    TRACE_REC_SIG(envelope.msgNo, "handleDunlGetCapabilitiesCfm({{{}}})", printMessage(envelope, cfm));
    for (const int capability : cfm.capabilities()) {
        addCapability(capability, cfm);
    }
    // Capabilities of a newer server.
    for (const int capability : unknownEnumValues(cfm, dunl::GetCapabilitiesCfm::kCapabilitiesFieldNumber)) {
        TRACE_INFO("VornServerDunl::handleDunlGetCapabilitiesCfm got unhandled CAP: {}", capability);
    }
    completeCapabilities();
}

void VornServerDunl::addCapability(int capability, const dunl::GetCapabilitiesCfm& cfm)
{
    switch (capability) {
    case dunl::NOTIFY_RESTART:
        TRACE_1("adding 'NotifyRestart' Capability");
        m_client.addCapability(std::make_shared<NotifyRestartCapability>());
        return;
    case dunl::TEMPERATURE_LEVEL_MEASUREMENT:
        addTemperatureLevels(cfm);
        return;
    case dunl::CLIMATE_CONTROL:
        addHotspots(cfm);
        return;
    case dunl::RESTART_RANK_LABEL_SUPPORT:
        TRACE_1("adding 'RestartRankLabel' Capability");
        m_client.addCapability(std::make_shared<RestartRankLabelCapability>(cfm.restart_rank_label()));
        return;
    case dunl::ALTERNATIVE_LMC_SUPPORT:
        addAlternativeLmc(cfm);
        return;
    default:
        break;
    }
    for (const PlainCapability& plain : plainCapabilities) {
        if (plain.capability == capability) {
            addPlainCapability(plain.code, plain.text);
        }
    }
}

void VornServerDunl::addTemperatureLevels(const dunl::GetCapabilitiesCfm& cfm)
{
    TRACE_1("adding 'TemperatureLevelMeasurement' Capability");
    auto record = std::make_shared<TemperatureLevelMeasurementCapability>();
    for (const auto& level : cfm.temperature_level_measurement_params()) {
        record->levels.push_back(
            std::make_shared<temperatureLevelMeasurementParam_st>(temperatureLevelMeasurementParam_st{
                cut(level.sensor_id()), cut(level.upper_level()), cut(level.lower_level())}));
    }
    m_client.addCapability(record);
}

void VornServerDunl::addHotspots(const dunl::GetCapabilitiesCfm& cfm)
{
    TRACE_1("adding 'ClimateControl' Capability");
    auto record = std::make_shared<ClimateControlCapability>();
    for (const auto& hotspot : cfm.hotspot_params()) {
        record->hotspots.push_back(std::make_shared<hotspotParam_st>(hotspotParam_st{
            cut(hotspot.hotspot_id()), cut(hotspot.upper_temperature()), cut(hotspot.lower_temperature())}));
    }
    m_client.addCapability(record);
}

void VornServerDunl::addAlternativeLmc(const dunl::GetCapabilitiesCfm& cfm)
{
    if (!cfm.has_alternative_lmc_tag()) {
        TRACE_INFO("ABN: No alternative_lmc_tag received for DUNL capability ALTERNATIVE_LMC_SUPPORT");
        return;
    }
    m_client.addCapability(std::make_shared<AlternativeLmcCapability>(cfm.alternative_lmc_tag()));
}

void VornServerDunl::handleDunlGetCapabilitiesRej(const TolmeMessagePtr& /*message*/)
{
    TRACE_ERROR("VornServerDunl::handleDunlGetCapabilitiesRej(), Unable to get DunlServer Capabilities");
}
