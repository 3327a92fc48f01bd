#include "tools/boardsim/fesk/opticalIndicator.h"

#include "ostinel/eventLoop.h"

#include "fesk/fesk.pb.h"

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

using namespace tolme::fesk;

constexpr std::chrono::seconds noEnd(0);

} // namespace

Verdict OpticalIndicator::subscribe(const Connection& connection,
                                    const OpticalIndicatorControlSubscribeStatusChangeReq& request,
                                    OpticalIndicatorControlSubscribeStatusChangeCfm&,
                                    OpticalIndicatorControlSubscribeStatusChangeRej&)
{
    const bool isUser = m_users.isUserOf(connection, request.mmi_user_id());
    return isUser && m_subscriptions.add(connection) ? Verdict::confirm : Verdict::reject;
}

Verdict OpticalIndicator::activate(const Connection& connection, const OpticalIndicatorControlActivateReq& request,
                                   OpticalIndicatorControlActivateCfm&, OpticalIndicatorControlActivateRej&)
{
    return switchOn(connection, request.mmi_user_id(), noEnd);
}

Verdict OpticalIndicator::activateWithDuration(const Connection& connection,
                                               const OpticalIndicatorControlActivateWithDurationReq& request,
                                               OpticalIndicatorControlActivateWithDurationCfm&,
                                               OpticalIndicatorControlActivateWithDurationRej&)
{
    return request.has_duration()
               ? switchOn(connection, request.mmi_user_id(), std::chrono::seconds(request.duration()))
               : Verdict::reject;
}

Verdict OpticalIndicator::deactivate(const Connection& connection, const OpticalIndicatorControlDeactivateReq& request,
                                     OpticalIndicatorControlDeactivateCfm&, OpticalIndicatorControlDeactivateRej&)
{
    if (!m_users.isUserOf(connection, request.mmi_user_id())) {
        return Verdict::reject;
    }
    enter(false, std::nullopt);
    return Verdict::confirm;
}

Verdict OpticalIndicator::switchOn(const Connection& connection, std::uint32_t user, std::chrono::seconds duration)
{
    if (!m_users.isUserOf(connection, user)) {
        return Verdict::reject;
    }
    enter(true, user);
    if (duration != noEnd) {
        m_state.end = std::chrono::steady_clock::now() + duration;
        m_state.timer = EventLoopIf::getInstance().addTimer(duration, [this] {
            m_state.timer = 0;
            enter(false, std::nullopt);
        });
    }
    return Verdict::confirm;
}

void OpticalIndicator::enter(bool isOn, std::optional<std::uint32_t> user)
{
    cancelTimer();
    m_state.user = user;
    if (isOn == m_state.isOn) {
        return;
    }
    m_state.isOn = isOn;
    OpticalIndicatorControlStatusChangeInd indication;
    prepareIndication(indication);
    m_subscriptions.tellSoon(indication);
}

void OpticalIndicator::cancelTimer()
{
    EventLoopIf::getInstance().removeTimer(m_state.timer);
    m_state.timer = 0;
}

void OpticalIndicator::prepareIndication(Message& indication) const
{
    static_cast<OpticalIndicatorControlStatusChangeInd&>(indication).set_state(m_state.isOn ? 1 : 0);
}

std::vector<CommandRow> OpticalIndicator::commands()
{
    return {{"optical-indicator { on | off }", "as by a request, on without end",
             [this](const Words& args, std::ostream&) { enter(isFirstWord(args, "on", "off"), std::nullopt); }}};
}

void OpticalIndicator::reset()
{
    cancelTimer();
    m_subscriptions.clear();
    m_state = {};
}

void OpticalIndicator::show(Json& server) const
{
    Json& shown = server["panel"]["opticalIndicator"];
    shown["state"] = m_state.isOn ? "on" : "off";
    shown["user"] = m_state.user ? Json(*m_state.user) : Json();
    shown["secondsLeft"] = Json();
    if (m_state.timer != 0) {
        const auto left = m_state.end - std::chrono::steady_clock::now();
        shown["secondsLeft"] = std::chrono::ceil<std::chrono::seconds>(left).count();
    }
    server["subscriptions"]["opticalIndicator"] = m_subscriptions.shown();
}

} // namespace boardsim
