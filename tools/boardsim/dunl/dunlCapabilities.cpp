#include "tools/boardsim/dunl/dunlCapabilities.h"

#include "dunl/dunl.pb.h"

#include <algorithm>

namespace boardsim {

namespace {

using tolme::dunl::Capability;
using tolme::dunl::GetCapabilitiesCfm;

struct TemperatureSensor {
    std::uint32_t sensorId, lowerLevel, upperLevel;
};
struct Hotspot {
    std::uint32_t hotspotId, lowerTemperature, upperTemperature;
};

// Degrees Celsius of a board with two sensors and two hot spots.
constexpr TemperatureSensor temperatureSensors[] = {{1, 5, 85}, {2, 0, 95}};
constexpr Hotspot hotspots[] = {{1, 60, 90}, {2, 65, 100}};
constexpr std::uint32_t restartRankLabel = 1;
constexpr const char* alternativeLmcTag = "ALT_LMC";

std::vector<int> everyCapability()
{
    std::vector<int> all;
    for (int value = tolme::dunl::Capability_MIN; value <= tolme::dunl::Capability_MAX; ++value) {
        all.push_back(value);
    }
    return all;
}

void addTemperatureSensors(GetCapabilitiesCfm& confirm)
{
    for (const TemperatureSensor& sensor : temperatureSensors) {
        auto& param = *confirm.add_temperature_level_measurement_params();
        param.set_sensor_id(sensor.sensorId);
        param.set_lower_level(sensor.lowerLevel);
        param.set_upper_level(sensor.upperLevel);
    }
}

void addHotspots(GetCapabilitiesCfm& confirm)
{
    for (const Hotspot& hotspot : hotspots) {
        auto& param = *confirm.add_hotspot_params();
        param.set_hotspot_id(hotspot.hotspotId);
        param.set_lower_temperature(hotspot.lowerTemperature);
        param.set_upper_temperature(hotspot.upperTemperature);
    }
}

int parseCapability(const std::string& word)
{
    Capability capability{};
    if (tolme::dunl::Capability_Parse(word, &capability)) {
        return capability;
    }
    if (isNumber(word)) {
        return static_cast<int>(parseNumber(word, "a capability", tolme::dunl::Capability_MAX));
    }
    throw CommandError("there is no capability \"" + word + "\"");
}

} // namespace

DunlCapabilities::DunlCapabilities() : m_capabilities(everyCapability()) {}

Verdict DunlCapabilities::get(const Connection&, const tolme::dunl::GetCapabilitiesReq&, GetCapabilitiesCfm& confirm,
                              tolme::dunl::GetCapabilitiesRej&)
{
    for (const int value : m_capabilities) {
        const auto capability = static_cast<Capability>(value);
        confirm.add_capabilities(capability);
        if (capability == tolme::dunl::TEMPERATURE_LEVEL_MEASUREMENT) {
            addTemperatureSensors(confirm);
        } else if (capability == tolme::dunl::CLIMATE_CONTROL) {
            addHotspots(confirm);
        } else if (capability == tolme::dunl::RESTART_RANK_LABEL_SUPPORT) {
            confirm.set_restart_rank_label(restartRankLabel);
        } else if (capability == tolme::dunl::ALTERNATIVE_LMC_SUPPORT) {
            confirm.set_alternative_lmc_tag(alternativeLmcTag);
        }
    }
    return Verdict::confirm;
}

std::vector<CommandRow> DunlCapabilities::commands()
{
    return {{"capabilities { all | none | <name>... | +<name> | -<name> }",
             "what it can do, in this order; + and - add to it and take away",
             [this](const Words& args, std::ostream&) { set(args); }}};
}

void DunlCapabilities::set(const Words& names)
{
    expectWords(names, 1, names.size());
    const bool isChange = names[0][0] == '+' || names[0][0] == '-';
    std::vector<int> wanted = isChange ? m_capabilities : std::vector<int>();
    for (const std::string& name : names) {
        if (name == "all") {
            wanted = everyCapability();
        } else if (name[0] == '-') {
            std::erase(wanted, parseCapability(name.substr(1)));
        } else if (name != "none") {
            wanted.push_back(parseCapability(name[0] == '+' ? name.substr(1) : name));
        }
    }
    m_capabilities = std::move(wanted);
}

void DunlCapabilities::show(Json& server) const
{
    Json names = Json::array();
    for (const int value : m_capabilities) {
        names.push_back(tolme::dunl::Capability_Name(static_cast<Capability>(value)));
    }
    server["capabilities"] = std::move(names);
}

} // namespace boardsim
