#include "tools/boardsim/fesk/mmiUsers.h"

#include "fesk/fesk.pb.h"

namespace boardsim {

namespace {

constexpr std::size_t maxUsers = 4096;

} // namespace

Verdict MmiUsers::registerUser(const Connection& connection, const tolme::fesk::RegisterMmiUserReq& request,
                               tolme::fesk::RegisterMmiUserCfm& confirm, tolme::fesk::RegisterMmiUserRej&)
{
    if (!request.has_priority() || m_state.users.size() >= maxUsers) {
        return Verdict::reject;
    }
    do {
        ++m_state.lastId;
    } while (m_state.lastId == 0 || m_state.users.count(m_state.lastId) != 0);
    m_state.users[m_state.lastId] = {connection.ref, request.priority()};
    confirm.set_mmi_user_id(m_state.lastId);
    return Verdict::confirm;
}

Verdict MmiUsers::unregisterUser(const Connection& connection, const tolme::fesk::UnregisterMmiUserReq& request,
                                 tolme::fesk::UnregisterMmiUserCfm&, tolme::fesk::UnregisterMmiUserRej&)
{
    if (!isUserOf(connection, request.mmi_user_id())) {
        return Verdict::reject;
    }
    m_state.users.erase(request.mmi_user_id());
    return Verdict::confirm;
}

bool MmiUsers::isUserOf(const Connection& connection, std::uint32_t id) const
{
    const auto found = m_state.users.find(id);
    return found != m_state.users.end() && found->second.connectionRef == connection.ref;
}

void MmiUsers::connectionLost(const Connection& connection)
{
    std::erase_if(m_state.users, [&](const auto& entry) { return entry.second.connectionRef == connection.ref; });
}

void MmiUsers::show(Json& server) const
{
    Json users = Json::array();
    for (const auto& [id, user] : m_state.users) {
        users.push_back({{"id", id}, {"connection", user.connectionRef}, {"priority", user.priority}});
    }
    server["mmiUsers"] = std::move(users);
}

} // namespace boardsim
