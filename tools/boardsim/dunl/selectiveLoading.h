/// What selective loading asks of the DUNL server: whether the connected devices are up, and whether a software fits.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include "dunl/numbers.h"

#include <optional>
#include <string>
#include <vector>

namespace boardsim {

/// A question for the devices is confirmed, and answered by an indication with the question's procedureRef: behind the
/// confirm, or where the devices are down, when they come up. Any software fits, under the name that it is asked by,
/// unless a command says otherwise.
class SelectiveLoading : public ProtobufProcedures
{
public:
    explicit SelectiveLoading(Indicate indicate) : m_indicate(std::move(indicate)) {}

    void devicesInitialized(const Connection& connection, const tolme::dunl::ConnectedDevicesInitializedReq&,
                            tolme::dunl::ConnectedDevicesInitializedCfm&);
    Verdict validate(const Connection&, const tolme::dunl::ValidateHwSwCompatibilityReq& request,
                     tolme::dunl::ValidateHwSwCompatibilityCfm& confirm, tolme::dunl::ValidateHwSwCompatibilityRej&);

    std::vector<Connection> audience(const Message&) const override { return m_waiting; }
    void prepareReject(Message& reject) const override;
    void connectionLost(const Connection& connection) override;
    std::vector<CommandRow> commands() override;
    void reset() override;
    void show(Json& server) const override;

private:
    void tellSoon();
    void tell();

    Indicate m_indicate;

    // Settings.
    bool m_areDevicesUp = true;
    bool m_isCompatible = true;
    std::string m_name; ///< that confirms tell; empty: the request's

    // State.
    std::vector<Connection> m_waiting; ///< the oldest first
    std::uint32_t m_timer = 0;
};

} // namespace boardsim
