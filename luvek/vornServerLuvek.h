/// The LUVEK function.
#pragma once

#include "vornServerCmdHandler.h"
#include "vornServerComponent.h"

/// Keeps the place of the function on units that have none.
class VornServerLuvek : public VornServerComponent, public VornServerCmdHandler
{
public:
    using VornServerComponent::VornServerComponent;

    bool init() override;
    std::string_view name() const override { return "VornServerLuvek Dummy"; }
    bool isReadyToPublish() const override { return true; }
    bool handleCommand(const std::vector<std::string>&, std::ostream&) override { return true; }
};
