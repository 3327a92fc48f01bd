#include "tools/boardsim/fesk/maintenanceState.h"

#include "fesk/fesk.pb.h"

#include <fmt/format.h>

namespace boardsim {

namespace {

constexpr std::uint32_t normal = 0;
constexpr std::uint32_t button = 4;

// Why a state isn't set.
constexpr std::uint32_t noCause = 0;
constexpr std::uint32_t notHandled = 1;
constexpr std::uint32_t noSuchStep = 2;
constexpr std::uint32_t serviceManPresent = 3;
constexpr std::uint32_t notRefused = 0xFFFFFFFF;

} // namespace

Verdict MaintenanceState::set(const Connection& connection, const tolme::fesk::SetMaintStateReq& request,
                              tolme::fesk::SetMaintStateCfm&, tolme::fesk::SetMaintStateRej& reject)
{
    const std::uint32_t refusal = refusalOf(connection, request);
    if (refusal != notRefused) {
        reject.set_error_code(refusal);
        return Verdict::reject;
    }
    enter(static_cast<std::uint32_t>(request.maint_state()), fmt::format("user {}", request.mmi_user_id()));
    return Verdict::confirm;
}

std::uint32_t MaintenanceState::refusalOf(const Connection& connection,
                                          const tolme::fesk::SetMaintStateReq& request) const
{
    if (!m_users.isUserOf(connection, request.mmi_user_id()) || !request.has_maint_state()) {
        return noCause;
    }
    if (!m_settings.isHandled) {
        return notHandled;
    }
    if (m_settings.isServiceManPresent) {
        return serviceManPresent;
    }
    const auto wanted = static_cast<std::uint32_t>(request.maint_state());
    return m_state.state == button && wanted != normal ? noSuchStep : notRefused;
}

void MaintenanceState::enter(std::uint32_t state, std::string setBy)
{
    if (state == m_state.state) {
        return;
    }
    m_state = {state, std::move(setBy)};
    tolme::fesk::MaintStateInd indication;
    prepareIndication(indication);
    m_subscriptions.tellSoon(indication);
}

Verdict MaintenanceState::subscribe(const Connection& connection, const tolme::fesk::SubscribeMaintStateReq& request,
                                    tolme::fesk::SubscribeMaintStateCfm&, tolme::fesk::SubscribeMaintStateRej&)
{
    const bool isUser = m_users.isUserOf(connection, request.mmi_user_id());
    return isUser && m_subscriptions.add(connection) ? Verdict::confirm : Verdict::reject;
}

void MaintenanceState::prepareIndication(Message& indication) const
{
    static_cast<tolme::fesk::MaintStateInd&>(indication).set_maint_state(m_state.state);
}

std::vector<CommandRow> MaintenanceState::commands()
{
    return {
        {"maintenance-state <n>", "0 to 3, or 4 as the button sets it; told like any change",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             const std::uint32_t state = parseNumber(args[0], "the state", button);
             enter(state, state == button ? "button" : "command");
         }},
        {"service-man { present | absent }", "while he is present, no user sets the maintenance state",
         [this](const Words& args, std::ostream&) {
             m_settings.isServiceManPresent = isFirstWord(args, "present", "absent");
         }},
        {"maintenance-handling { on | off }", "while it is off, no user sets the maintenance state",
         [this](const Words& args, std::ostream&) { m_settings.isHandled = isFirstWord(args, "on", "off"); }},
    };
}

void MaintenanceState::reset()
{
    m_subscriptions.clear();
    m_state = {};
}

void MaintenanceState::show(Json& server) const
{
    Json& shown = server["panel"]["maintenanceState"];
    shown["state"] = m_state.state;
    shown["setBy"] = m_state.setBy;
    shown["handling"] = m_settings.isHandled ? "on" : "off";
    shown["serviceMan"] = m_settings.isServiceManPresent ? "present" : "absent";
    server["subscriptions"]["maintenanceState"] = m_subscriptions.shown();
}

} // namespace boardsim
