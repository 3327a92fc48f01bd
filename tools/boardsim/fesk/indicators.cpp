#include "tools/boardsim/fesk/indicators.h"

#include "fesk/fesk.pb.h"

#include <algorithm>
#include <fmt/format.h>

namespace boardsim {

namespace {

using tolme::fesk::GetVisualIndicationCfm;

constexpr std::size_t ordersKept = 16;

constexpr std::array indicatorNames{"first", "second", "third", "fourth"};

/// What an order makes an indicator show.
struct Effect {
    int visualState;
    std::size_t indicator;
    int value;
};
constexpr Effect effects[] = {
    {1, 1, 5},  {3, 1, 1},  {4, 1, 2},  {5, 1, 3},  {7, 1, 4},  {9, 0, 2},
    {10, 0, 1}, {11, 2, 2}, {12, 2, 1}, {13, 2, 4}, {15, 2, 3},
};

const google::protobuf::FieldDescriptor* fieldOf(std::size_t indicator)
{
    return GetVisualIndicationCfm::descriptor()->field(static_cast<int>(indicator));
}

} // namespace

Verdict Indicators::set(const Connection& connection, const tolme::fesk::SetVisualIndicationReq& request,
                        tolme::fesk::SetVisualIndicationCfm&, tolme::fesk::SetVisualIndicationRej&)
{
    if (!m_users.isUserOf(connection, request.mmi_user_id()) || !request.has_visual_state()) {
        return Verdict::reject;
    }
    m_state.orders.push_back({request.mmi_user_id(), request.visual_state()});
    if (m_state.orders.size() > ordersKept) {
        m_state.orders.pop_front();
    }
    for (const Effect& effect : effects) {
        if (effect.visualState == request.visual_state()) {
            m_state.shown.at(effect.indicator) = effect.value;
        }
    }
    return Verdict::confirm;
}

Verdict Indicators::get(const Connection& connection, const tolme::fesk::GetVisualIndicationReq& request,
                        GetVisualIndicationCfm& confirm, tolme::fesk::GetVisualIndicationRej&)
{
    if (!m_users.isUserOf(connection, request.mmi_user_id())) {
        return Verdict::reject;
    }
    for (std::size_t indicator = 0; indicator < m_state.shown.size(); ++indicator) {
        if (const auto value = m_state.shown.at(indicator)) {
            confirm.GetReflection()->SetEnumValue(&confirm, fieldOf(indicator), *value);
        }
    }
    return Verdict::confirm;
}

std::vector<CommandRow> Indicators::commands()
{
    return {{"indicator { first | second | third | fourth } { <number> | absent }",
             "what an indicator shows, until an order or a restart changes it",
             [this](const Words& args, std::ostream&) { setShown(args); }}};
}

void Indicators::setShown(const Words& args)
{
    expectWords(args, 2, 2);
    const auto* name = std::find(indicatorNames.begin(), indicatorNames.end(), args[0]);
    if (name == indicatorNames.end()) {
        throw CommandError("first, second, third or fourth");
    }
    const auto indicator = static_cast<std::size_t>(name - indicatorNames.begin());
    const auto* values = fieldOf(indicator)->enum_type();
    const auto value = parseOptionalNumber(args[1], "the indication");
    if (value && (*value > 0x7FFFFFFFU || values->FindValueByNumber(static_cast<int>(*value)) == nullptr)) {
        throw CommandError(fmt::format("the {} indicator shows 1 to {}", args[0], values->value_count()));
    }
    m_state.shown.at(indicator) = value ? std::optional(static_cast<int>(*value)) : std::nullopt;
}

void Indicators::show(Json& server) const
{
    Json& panel = server["panel"];
    for (std::size_t indicator = 0; indicator < m_state.shown.size(); ++indicator) {
        const auto value = m_state.shown.at(indicator);
        panel["indicators"][indicatorNames.at(indicator)] = value ? Json(*value) : Json("absent");
    }
    Json orders = Json::array();
    for (const Order& order : m_state.orders) {
        orders.push_back({{"user", order.user}, {"visualState", order.visualState}});
    }
    panel["lastOrder"] = orders.empty() ? Json() : orders.back();
    server["indicatorOrders"] = std::move(orders);
}

} // namespace boardsim
