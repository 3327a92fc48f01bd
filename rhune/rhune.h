/// The component of the RHUNE interface.
#pragma once

#include "vornServerComponent.h"

#include <memory>
#include <string_view>

namespace VornServer::Rhune {

/// The second, small client interface: a client on the unit connects, forwards faults to the server and closes again.
/// Its clients have no session and no forward mailbox: all their signals come to the private mailbox and are keyed by
/// the reference that the server gave out at the connection.
class Rhune : public VornServerComponent
{
public:
    explicit Rhune(VornServerCommonData& commonData);
    ~Rhune() override;

    bool init() override;
    std::string_view name() const override { return "Rhune"; }
    bool isReadyToPublish() const override;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace VornServer::Rhune
