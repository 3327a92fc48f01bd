/// Users of the FESK server's man-machine interface.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "fesk/numbers.h"

#include <map>

namespace boardsim {

/// A user belongs to the connection that registered it.
class MmiUsers : public ProtobufProcedures
{
public:
    Verdict registerUser(const Connection& connection, const tolme::fesk::RegisterMmiUserReq& request,
                         tolme::fesk::RegisterMmiUserCfm& confirm, tolme::fesk::RegisterMmiUserRej&);
    Verdict unregisterUser(const Connection& connection, const tolme::fesk::UnregisterMmiUserReq& request,
                           tolme::fesk::UnregisterMmiUserCfm&, tolme::fesk::UnregisterMmiUserRej&);

    bool isUserOf(const Connection& connection, std::uint32_t id) const;

    void connectionLost(const Connection& connection) override;
    void reset() override { m_state = {}; }
    void show(Json& server) const override;

private:
    struct User {
        std::uint32_t connectionRef;
        int priority;
    };
    struct State {
        std::map<std::uint32_t, User> users; ///< by the id given out
        std::uint32_t lastId = 0;
    };

    State m_state;
};

} // namespace boardsim
