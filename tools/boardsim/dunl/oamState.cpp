#include "tools/boardsim/dunl/oamState.h"

#include "dunl/dunl.pb.h"

#include <cstring>
#include <google/protobuf/unknown_field_set.h>

namespace boardsim {

namespace {

using tolme::dunl::SetOamStateReq;

constexpr std::size_t historyLength = 16;

std::string nameOf(tolme::dunl::OamState state)
{
    return tolme::dunl::OamState_Name(state).substr(std::strlen("OAM_"));
}

/// What a request without a state tells: a number that the interface doesn't have ends up with the unknown fields.
std::string unknownState(const SetOamStateReq& request)
{
    const google::protobuf::UnknownFieldSet& fields = request.unknown_fields();
    for (int i = 0; i < fields.field_count(); ++i) {
        const google::protobuf::UnknownField& field = fields.field(i);
        if (field.number() == SetOamStateReq::kStateFieldNumber &&
            field.type() == google::protobuf::UnknownField::TYPE_VARINT) {
            return std::to_string(static_cast<std::int32_t>(field.varint()));
        }
    }
    return "absent";
}

} // namespace

Verdict OamState::setState(const Connection&, const SetOamStateReq& request, tolme::dunl::SetOamStateCfm&,
                           tolme::dunl::SetOamStateRej&)
{
    ++m_state.requests;
    m_state.history.push_back(request.has_state() ? nameOf(request.state()) : unknownState(request));
    if (m_state.history.size() > historyLength) {
        m_state.history.pop_front();
    }
    if (!request.has_state()) {
        return Verdict::reject;
    }
    m_state.name = m_state.history.back();
    return Verdict::confirm;
}

std::vector<CommandRow> OamState::commands()
{
    return {
        {"oam-state", "the O&M state that it was last given, or none", [this](const Words& args, std::ostream& out) {
             expectWords(args, 0, 0);
             out << m_state.name.value_or("none") << '\n';
         }}};
}

void OamState::show(Json& server) const
{
    Json& oamState = server["oamState"];
    oamState["state"] = m_state.name ? Json(*m_state.name) : Json();
    oamState["requests"] = m_state.requests;
    oamState["history"] = m_state.history;
}

} // namespace boardsim
