#include "tools/boardsim/fesk/hereIAm.h"

#include "fesk/fesk.pb.h"

namespace boardsim {

namespace {

using tolme::fesk::OrderHereIAmReq;

constexpr auto on = OrderHereIAmReq::ORDER_1;
constexpr auto off = OrderHereIAmReq::ORDER_2;

} // namespace

Verdict HereIAm::order(const Connection& connection, const OrderHereIAmReq& request,
                       tolme::fesk::OrderHereIAmCfm& confirm, tolme::fesk::OrderHereIAmRej&)
{
    const bool isUser = m_users.isUserOf(connection, request.mmi_user_id());
    if (!isUser || !m_subscriptions.has(connection) || !request.has_order_here_i_am()) {
        return Verdict::reject;
    }
    enter(request.order_here_i_am() == on);
    confirm.set_description(m_isOn ? "Here-I-Am is on" : "Here-I-Am is off");
    confirm.set_state(state());
    return Verdict::confirm;
}

Verdict HereIAm::subscribe(const Connection& connection, const tolme::fesk::SubscribeHereIAmStateReq& request,
                           tolme::fesk::SubscribeHereIAmStateCfm&, tolme::fesk::SubscribeHereIAmStateRej&)
{
    const bool isUser = m_users.isUserOf(connection, request.mmi_user_id());
    return isUser && m_subscriptions.add(connection) ? Verdict::confirm : Verdict::reject;
}

std::uint32_t HereIAm::state() const
{
    return m_isOn ? on : off;
}

void HereIAm::enter(bool isOn)
{
    if (isOn == m_isOn) {
        return;
    }
    m_isOn = isOn;
    tolme::fesk::HereIAmStateInd indication;
    prepareIndication(indication);
    m_subscriptions.tellSoon(indication);
}

void HereIAm::prepareIndication(Message& indication) const
{
    static_cast<tolme::fesk::HereIAmStateInd&>(indication).set_state(state());
}

std::vector<CommandRow> HereIAm::commands()
{
    return {{"here-i-am { on | off }", "as by an order",
             [this](const Words& args, std::ostream&) { enter(isFirstWord(args, "on", "off")); }}};
}

void HereIAm::reset()
{
    m_subscriptions.clear();
    m_isOn = false;
}

void HereIAm::show(Json& server) const
{
    server["panel"]["hereIAm"] = m_isOn ? "on" : "off";
    server["subscriptions"]["hereIAm"] = m_subscriptions.shown();
}

} // namespace boardsim
