/// Faults of the board: which are active, and who is told of them.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <map>
#include <optional>
#include <vector>

namespace boardsim {

/// Faults come up and cease on command. A connection that subscribes is told of those that are active, behind its
/// confirm, and from then on of each raise and cease. A fault that is raised twice is active twice. What a client must
/// cope with can be told too: numbers that nobody knows, fields left out, the cease of a fault that isn't active.
class Faults : public ProtobufProcedures
{
public:
    explicit Faults(Indicate indicate);

    void subscribe(const Connection& connection, const tolme::dunl::SubscribeFaultsReq&,
                   tolme::dunl::SubscribeFaultsCfm&);

    std::vector<Connection> audience(const Message&) const override;
    void connectionLost(const Connection& connection) override;
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

    // What is empty below is left out of the indication.

    struct FanInfo {
        std::optional<std::string> productNumber;
        std::optional<std::string> parentProductNumber;
        std::optional<std::int32_t> slot;
    };
    struct Fault {
        std::optional<std::int32_t> id;
        std::optional<std::uint32_t> faultCase;
        std::optional<FanInfo> fan;
    };

private:
    struct Subscriber {
        Connection connection;
        bool isNew; ///< hasn't been told yet of what is active
    };
    struct State {
        std::map<std::uint32_t, Subscriber> subscribers; ///< by the server's reference
        std::vector<Fault> active;                       ///< the oldest first
        std::uint32_t timer = 0;                         ///< to tell new subscribers; 0: none
    };

    void raise(const Words& args, std::ostream& out);
    void cease(const Words& args, std::ostream& out);
    bool dropOldest(std::optional<std::int32_t> id);
    void ceaseAll(std::ostream& out);
    void tell(const Message& indication);
    void tellNewSubscribers();
    std::string audience() const;

    Indicate m_indicate;
    State m_state;
};

} // namespace boardsim
