#include "tools/boardsim/dunl/dunlCapabilities.h"

#include "dunl/dunl.pb.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <span>
#include <sstream>

namespace boardsim {

namespace {

using tolme::dunl::Capability;
using tolme::dunl::GetCapabilitiesCfm;

using Levels = DunlCapabilities::Levels;

// Degrees Celsius of a board with two sensors and two hot spots.
constexpr Levels boardTemperatureLevels[] = {{1, 5, 85}, {2, 0, 95}};
constexpr Levels boardHotspots[] = {{1, 60, 90}, {2, 65, 100}};

std::vector<int> everyCapability()
{
    std::vector<int> all;
    for (int value = tolme::dunl::Capability_MIN; value <= tolme::dunl::Capability_MAX; ++value) {
        all.push_back(value);
    }
    return all;
}

void addTemperatureLevels(GetCapabilitiesCfm& confirm, const Levels& levels)
{
    auto& param = *confirm.add_temperature_level_measurement_params();
    if (levels.id) {
        param.set_sensor_id(*levels.id);
    }
    if (levels.lower) {
        param.set_lower_level(*levels.lower);
    }
    if (levels.upper) {
        param.set_upper_level(*levels.upper);
    }
}

void addHotspot(GetCapabilitiesCfm& confirm, const Levels& levels)
{
    auto& param = *confirm.add_hotspot_params();
    if (levels.id) {
        param.set_hotspot_id(*levels.id);
    }
    if (levels.lower) {
        param.set_lower_temperature(*levels.lower);
    }
    if (levels.upper) {
        param.set_upper_temperature(*levels.upper);
    }
}

/// "<id>:<lower>:<upper>", each of them a number or "absent".
Levels parseLevels(const std::string& word)
{
    std::istringstream parts(word);
    Words values;
    for (std::string part; std::getline(parts, part, ':');) {
        values.push_back(part);
    }
    if (values.size() != 3) {
        throw CommandError(fmt::format("<id>:<lower>:<upper>, not \"{}\"", word));
    }
    return {parseOptionalNumber(values[0], "the id"), parseOptionalNumber(values[1], "the lower level"),
            parseOptionalNumber(values[2], "the upper level")};
}

std::vector<Levels> parseList(const Words& args, std::span<const Levels> ofTheBoard)
{
    expectWords(args, 1, args.size());
    if (args == Words{"default"}) {
        return {ofTheBoard.begin(), ofTheBoard.end()};
    }
    std::vector<Levels> list;
    if (args != Words{"none"}) {
        std::transform(args.begin(), args.end(), std::back_inserter(list), parseLevels);
    }
    return list;
}

Json shown(const std::vector<Levels>& list)
{
    const auto text = [](const auto& value) { return value ? std::to_string(*value) : "absent"; };
    Json all = Json::array();
    for (const Levels& levels : list) {
        all.push_back(fmt::format("{}:{}:{}", text(levels.id), text(levels.lower), text(levels.upper)));
    }
    return all;
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

DunlCapabilities::DunlCapabilities()
    : m_capabilities(everyCapability()),
      m_temperatureLevels(std::begin(boardTemperatureLevels), std::end(boardTemperatureLevels)),
      m_hotspots(std::begin(boardHotspots), std::end(boardHotspots))
{
}

Verdict DunlCapabilities::get(const Connection&, const tolme::dunl::GetCapabilitiesReq&, GetCapabilitiesCfm& confirm,
                              tolme::dunl::GetCapabilitiesRej&)
{
    for (const int value : m_capabilities) {
        const auto capability = static_cast<Capability>(value);
        confirm.add_capabilities(capability);
        if (capability == tolme::dunl::TEMPERATURE_LEVEL_MEASUREMENT) {
            for (const Levels& levels : m_temperatureLevels) {
                addTemperatureLevels(confirm, levels);
            }
        } else if (capability == tolme::dunl::CLIMATE_CONTROL) {
            for (const Levels& levels : m_hotspots) {
                addHotspot(confirm, levels);
            }
        } else if (capability == tolme::dunl::RESTART_RANK_LABEL_SUPPORT && m_restartRankLabel) {
            confirm.set_restart_rank_label(*m_restartRankLabel);
        } else if (capability == tolme::dunl::ALTERNATIVE_LMC_SUPPORT && m_alternativeLmcTag) {
            confirm.set_alternative_lmc_tag(*m_alternativeLmcTag);
        }
    }
    return Verdict::confirm;
}

std::vector<CommandRow> DunlCapabilities::commands()
{
    return {
        {"capabilities { all | none | <name>... | +<name> | -<name> }",
         "what it can do, in this order; + and - add to it and take away",
         [this](const Words& args, std::ostream&) { set(args); }},
        {"temperature-levels { default | none | <sensor>:<lower>:<upper>... }",
         "told with TEMPERATURE_LEVEL_MEASUREMENT; each number can be \"absent\"",
         [this](const Words& args, std::ostream&) { m_temperatureLevels = parseList(args, boardTemperatureLevels); }},
        {"hotspots { default | none | <hotspot>:<lower>:<upper>... }",
         "told with CLIMATE_CONTROL; each number can be \"absent\"",
         [this](const Words& args, std::ostream&) { m_hotspots = parseList(args, boardHotspots); }},
        {"rank-label { <n> | absent }",
         "told with RESTART_RANK_LABEL_SUPPORT: 1 warm, 2 cold, 4 cold with test, 8 power cycle, 16 program; all at "
         "first",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_restartRankLabel = parseOptionalNumber(args[0], "the rank label");
         }},
        {"lmc-tag { <text> | absent }", "told with ALTERNATIVE_LMC_SUPPORT",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, args.size());
             const std::string tag = joinWords(args, 0);
             m_alternativeLmcTag = tag == "absent" ? std::nullopt : std::optional(tag);
         }},
    };
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
    Json& parameters = server["capabilityParameters"];
    parameters["temperatureLevels"] = shown(m_temperatureLevels);
    parameters["hotspots"] = shown(m_hotspots);
    parameters["rankLabel"] = m_restartRankLabel ? Json(*m_restartRankLabel) : Json();
    parameters["lmcTag"] = m_alternativeLmcTag ? Json(*m_alternativeLmcTag) : Json();
}

} // namespace boardsim
