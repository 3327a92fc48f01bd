#include "tools/boardsim/yarrowi/deepSleep.h"

#include "ostinel/eventLoop.h"

#include "yarrowi/yarrowi.pb.h"

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

using yarrowi::DeepSleepState;

} // namespace

DeepSleep::DeepSleep(Indicate indicate) : m_indicate(std::move(indicate)) {}

Verdict DeepSleep::exchangeCapability(const Connection&, const yarrowi::CapabilityExchangeReq&,
                                      yarrowi::CapabilityExchangeCfm& confirm, yarrowi::CapabilityExchangeRej&)
{
    if (m_settings.isSupported) {
        confirm.set_deep_sleep_supported(*m_settings.isSupported);
    }
    if (m_settings.wakeUpTime) {
        confirm.set_wake_up_time(*m_settings.wakeUpTime);
    }
    return Verdict::confirm;
}

Verdict DeepSleep::subscribe(const Connection& connection, const yarrowi::SubscribeDeepSleepStatusReq&,
                             yarrowi::SubscribeDeepSleepStatusCfm&, yarrowi::SubscribeDeepSleepStatusRej&)
{
    return m_state.subscribers.emplace(connection.ref, connection).second ? Verdict::confirm : Verdict::reject;
}

Verdict DeepSleep::activate(const Connection&, const yarrowi::ActivateDeepSleepReq&, yarrowi::ActivateDeepSleepCfm&,
                            yarrowi::ActivateDeepSleepRej&)
{
    if (m_state.state != yarrowi::INACTIVE || !m_settings.isSupported.value_or(false)) {
        return Verdict::reject;
    }
    enter(yarrowi::PRE_ACTIVE);
    return Verdict::confirm;
}

Verdict DeepSleep::deactivate(const Connection&, const yarrowi::DeactivateDeepSleepReq&,
                              yarrowi::DeactivateDeepSleepCfm&, yarrowi::DeactivateDeepSleepRej&)
{
    if (m_state.state != yarrowi::ACTIVE && m_state.state != yarrowi::FAILURE) {
        return Verdict::reject;
    }
    enter(yarrowi::INACTIVE);
    return Verdict::confirm;
}

/// Takes the state at once, so that the next request finds it; the loop tells of it when the answer is out.
void DeepSleep::enter(int state)
{
    m_state.state = state;
    after(std::chrono::milliseconds(0), &DeepSleep::tell);
}

void DeepSleep::tell()
{
    yarrowi::DeepSleepStatusInd indication;
    prepareIndication(indication);
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        m_indicate(subscriber, indication);
    }
    if (m_state.state == yarrowi::PRE_ACTIVE || m_state.state == yarrowi::ACTIVATING) {
        after(m_state.state == yarrowi::PRE_ACTIVE ? m_settings.preActive : m_settings.activating,
              &DeepSleep::nextStep);
    }
}

void DeepSleep::nextStep()
{
    ++m_state.state;
    tell();
}

void DeepSleep::after(std::chrono::milliseconds delay, void (DeepSleep::*step)())
{
    cancelStep();
    m_state.timer = EventLoopIf::getInstance().addTimer(delay, [this, step] {
        m_state.timer = 0;
        (this->*step)();
    });
}

void DeepSleep::cancelStep()
{
    EventLoopIf::getInstance().removeTimer(m_state.timer);
    m_state.timer = 0;
}

void DeepSleep::prepareReject(Message& reject) const
{
    const auto state = static_cast<DeepSleepState>(m_state.state);
    if (auto* activation = dynamic_cast<yarrowi::ActivateDeepSleepRej*>(&reject)) {
        activation->set_deep_sleep_state(state);
    } else if (auto* deactivation = dynamic_cast<yarrowi::DeactivateDeepSleepRej*>(&reject)) {
        deactivation->set_deep_sleep_state(state);
    }
}

std::vector<Connection> DeepSleep::audience(const Message&) const
{
    std::vector<Connection> audience;
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        audience.push_back(subscriber);
        audience.back().procedureRef = 0;
    }
    return audience;
}

void DeepSleep::prepareIndication(Message& indication) const
{
    static_cast<yarrowi::DeepSleepStatusInd&>(indication)
        .set_deep_sleep_status(static_cast<DeepSleepState>(m_state.state));
}

void DeepSleep::connectionLost(const Connection& connection)
{
    m_state.subscribers.erase(connection.ref);
}

void DeepSleep::reset()
{
    cancelStep();
    m_state = {};
}

std::vector<CommandRow> DeepSleep::commands()
{
    return {
        {"supported { yes | no | absent }", "whether the board supports deep sleep",
         [this](const Words& args, std::ostream&) { setSupported(args); }},
        {"wakeup { <seconds> | absent }", "the wake-up time",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_settings.wakeUpTime = parseOptionalNumber(args[0], "the wake-up time");
         }},
        {"step <ms> [<ms>]", "time that an activation is in PRE_ACTIVE, and in ACTIVATING; one number is for both",
         [this](const Words& args, std::ostream&) { setSteps(args); }},
        {"wake", "as an order to wake up does: out of any other state to INACTIVE, and the subscribers are told",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 0, 0);
             wake();
         }},
        {"state <name>", "go to this state and tell the subscribers; an activation goes on from there",
         [this](const Words& args, std::ostream&) { forceState(args); }},
    };
}

void DeepSleep::wake()
{
    if (m_state.state != yarrowi::INACTIVE) {
        enter(yarrowi::INACTIVE);
    }
}

void DeepSleep::setSteps(const Words& args)
{
    expectWords(args, 1, 2);
    const std::chrono::milliseconds preActive(parseNumber(args.front(), "the step"));
    m_settings.activating = std::chrono::milliseconds(parseNumber(args.back(), "the step"));
    m_settings.preActive = preActive;
}

void DeepSleep::setSupported(const Words& args)
{
    expectWords(args, 1, 1);
    if (args[0] != "yes" && args[0] != "no" && args[0] != "absent") {
        throw CommandError("yes, no or absent");
    }
    m_settings.isSupported = args[0] == "absent" ? std::nullopt : std::optional(args[0] == "yes");
}

void DeepSleep::forceState(const Words& args)
{
    expectWords(args, 1, 1);
    DeepSleepState state{};
    if (!yarrowi::DeepSleepState_Parse(args[0], &state)) {
        throw CommandError("INACTIVE, PRE_ACTIVE, ACTIVATING, ACTIVE or FAILURE");
    }
    enter(state);
}

void DeepSleep::show(Json& server) const
{
    Json& deepSleep = server["deepSleep"];
    deepSleep["supported"] = m_settings.isSupported ? Json(*m_settings.isSupported) : Json();
    deepSleep["wakeUpTime"] = m_settings.wakeUpTime ? Json(*m_settings.wakeUpTime) : Json();
    deepSleep["steps"] = {m_settings.preActive.count(), m_settings.activating.count()};
    deepSleep["state"] = yarrowi::DeepSleepState_Name(static_cast<DeepSleepState>(m_state.state));
    Json subscribers = Json::array();
    for (const auto& [ref, subscriber] : m_state.subscribers) {
        subscribers.push_back(ref);
    }
    deepSleep["subscribers"] = std::move(subscribers);
}

} // namespace boardsim
