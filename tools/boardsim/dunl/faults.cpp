#include "tools/boardsim/dunl/faults.h"

#include "ostinel/eventLoop.h"

#include "dunl/dunl.pb.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <strings.h>
#include <utility>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

using tolme::dunl::FaultCeaseInd;
using tolme::dunl::FaultInd;

/// The unit's faults; the index is the number that goes over the wire.
constexpr std::array names{
    "HW_FAULT",
    "HW_FAULT_FOR_EVALUATION_LTU_FAULT",
    "HW_FAULT_FOR_EVALUATION_INIT_FAULT",
    "HW_FAULT_FOR_EVALUATION",
    "EXCEPTIONAL_TEMPERATURE_TOO_LOW",
    "EXCEPTIONAL_TEMPERATURE_TOO_HIGH",
    "EXTERNAL_FAN_DEGRADED",
    "EXTERNAL_FAN_FAILED",
    "EXTERNAL_FAN_DISCONNECTED",
    "POE_DEVICE_0_TEMP_EXC_HIGH",
    "POE_DEVICE_1_TEMP_EXC_HIGH",
    "EXTERNAL_POWER_SUPPLY_FAULT",
    "EXTERNAL_FAN_HOST_DISCONNECTED",
};

bool hasName(std::optional<std::int32_t> id)
{
    return id && *id >= 0 && static_cast<std::size_t>(*id) < names.size();
}

std::string nameOf(std::optional<std::int32_t> id)
{
    if (!id) {
        return "a fault without id";
    }
    return hasName(id) ? names[static_cast<std::size_t>(*id)] : fmt::format("fault {}", *id);
}

std::optional<std::int32_t> parseId(const std::string& word)
{
    if (word == "absent") {
        return std::nullopt;
    }
    if (word.find_first_of("-0123456789") == 0) {
        return parseSigned(word, "the fault");
    }
    const auto* found =
        std::find_if(names.begin(), names.end(), [&](const char* name) { return strcasecmp(name, word.c_str()) == 0; });
    if (found == names.end()) {
        throw CommandError(fmt::format("there is no fault \"{}\"; a number, or one of: {}", word,
                                       fmt::join(names.begin(), names.end(), ", ")));
    }
    return static_cast<std::int32_t>(found - names.begin());
}

/// Sets what a word "<field>=<value>" tells.
void setField(Faults::Fault& fault, const std::string& word)
{
    const std::size_t behindField = word.find('=') + 1; // 0: there is none
    const std::string field = word.substr(0, behindField);
    const std::string value = word.substr(behindField);
    if (field == "case=") {
        fault.faultCase = parseOptionalNumber(value, "the case");
        return;
    }
    if (!fault.fan) {
        fault.fan.emplace();
    }
    if (field == "fan=") {
        fault.fan->productNumber = value;
    } else if (field == "parent=") {
        fault.fan->parentProductNumber = value;
    } else if (field == "slot=") {
        fault.fan->slot = parseSigned(value, "the slot");
    } else if (word != "fan-info=empty") {
        throw CommandError(fmt::format("what does \"{}\" mean? case=, fan=, parent=, slot= or fan-info=empty", word));
    }
}

Faults::Fault parseFault(const Words& args)
{
    expectWords(args, 1, args.size());
    Faults::Fault fault{parseId(args[0]), 0, std::nullopt};
    for (std::size_t i = 1; i < args.size(); ++i) {
        setField(fault, args[i]);
    }
    return fault;
}

FaultInd raiseOf(const Faults::Fault& fault)
{
    FaultInd indication;
    if (fault.id) {
        indication.set_fault_id(*fault.id);
    }
    if (fault.faultCase) {
        indication.set_fault_case(*fault.faultCase);
    }
    if (fault.fan) {
        auto& fan = *indication.mutable_fan_product_info();
        if (fault.fan->productNumber) {
            fan.set_fan_product_number(*fault.fan->productNumber);
        }
        if (fault.fan->parentProductNumber) {
            fan.set_fan_parent_product_number(*fault.fan->parentProductNumber);
        }
        if (fault.fan->slot) {
            fan.set_fan_position_slot(*fault.fan->slot);
        }
    }
    return indication;
}

FaultCeaseInd ceaseOf(std::optional<std::int32_t> id)
{
    FaultCeaseInd indication;
    if (id) {
        indication.set_fault_id(*id);
    }
    return indication;
}

template <typename Value>
Json orNull(const std::optional<Value>& value)
{
    return value ? Json(*value) : Json();
}

Json described(const Faults::Fault& fault)
{
    Json described;
    described["name"] = hasName(fault.id) ? Json(nameOf(fault.id)) : Json();
    described["id"] = orNull(fault.id);
    described["case"] = orNull(fault.faultCase);
    Json& info = described["fanInfo"];
    if (fault.fan) {
        info["fan"] = orNull(fault.fan->productNumber);
        info["parent"] = orNull(fault.fan->parentProductNumber);
        info["slot"] = orNull(fault.fan->slot);
    }
    return described;
}

} // namespace

Faults::Faults(Indicate indicate) : m_indicate(std::move(indicate)) {}

void Faults::subscribe(const Connection& connection, const tolme::dunl::SubscribeFaultsReq&,
                       tolme::dunl::SubscribeFaultsCfm&)
{
    const bool isNew = m_state.subscribers.emplace(connection.ref, Subscriber{connection, true}).second;
    if (isNew && m_state.timer == 0) {
        // From the loop: the confirm goes first.
        m_state.timer = EventLoopIf::getInstance().addTimer(std::chrono::milliseconds(0), [this] {
            m_state.timer = 0;
            tellNewSubscribers();
        });
    }
}

void Faults::tellNewSubscribers()
{
    for (auto& [ref, subscriber] : m_state.subscribers) {
        if (std::exchange(subscriber.isNew, false)) {
            for (const Fault& fault : m_state.active) {
                m_indicate(subscriber.connection, raiseOf(fault));
            }
        }
    }
}

void Faults::tell(const Message& indication)
{
    tellNewSubscribers(); // those that the loop hasn't come to yet
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        m_indicate(subscriber.connection, indication);
    }
}

std::vector<Connection> Faults::audience(const Message&) const
{
    std::vector<Connection> audience;
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        audience.push_back(subscriber.connection);
        audience.back().procedureRef = 0;
    }
    return audience;
}

void Faults::connectionLost(const Connection& connection)
{
    m_state.subscribers.erase(connection.ref);
}

void Faults::reset()
{
    EventLoopIf::getInstance().removeTimer(m_state.timer);
    m_state = {};
}

std::vector<CommandRow> Faults::commands()
{
    return {
        {"raise { <name> | <id> | absent } [case={<n>|absent}] [fan=<product>] [parent=<product>] [slot=<n>] "
         "[fan-info=empty]",
         "a fault comes up, case 0 unless given; a fan's word brings its product information along",
         [this](const Words& args, std::ostream& out) { raise(args, out); }},
        {"cease { <name> | <id> | absent | all }", "a fault ceases, of several the oldest; or each that is active",
         [this](const Words& args, std::ostream& out) { cease(args, out); }},
    };
}

std::string Faults::audience() const
{
    return fmt::format("; subscribers: {}\n", m_state.subscribers.size());
}

void Faults::raise(const Words& args, std::ostream& out)
{
    Fault fault = parseFault(args);
    tell(raiseOf(fault));
    out << nameOf(fault.id) << " raised" << audience();
    m_state.active.push_back(std::move(fault));
}

void Faults::cease(const Words& args, std::ostream& out)
{
    expectWords(args, 1, 1);
    if (args[0] == "all") {
        ceaseAll(out);
        return;
    }
    const auto id = parseId(args[0]);
    tell(ceaseOf(id));
    out << nameOf(id) << (dropOldest(id) ? " ceased" : " wasn't active, its cease is told") << audience();
}

bool Faults::dropOldest(std::optional<std::int32_t> id)
{
    const auto found =
        std::find_if(m_state.active.begin(), m_state.active.end(), [&](const Fault& fault) { return fault.id == id; });
    if (found == m_state.active.end()) {
        return false;
    }
    m_state.active.erase(found);
    return true;
}

void Faults::ceaseAll(std::ostream& out)
{
    for (const Fault& fault : m_state.active) {
        tell(ceaseOf(fault.id));
    }
    out << m_state.active.size() << " faults ceased" << audience();
    m_state.active.clear();
}

void Faults::show(Json& server) const
{
    Json subscribers = Json::array();
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        subscribers.push_back(ref);
    }
    Json active = Json::array();
    for (const Fault& fault : m_state.active) {
        active.push_back(described(fault));
    }
    server["faults"]["subscribers"] = std::move(subscribers);
    server["faults"]["active"] = std::move(active);
}

} // namespace boardsim
