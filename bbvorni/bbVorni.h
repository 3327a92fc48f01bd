/// The baseband side of the VORNI interface.
#pragma once

#include "bbvorni/bbVorniClient.h"
#include "vornServerComponent.h"

namespace VornServer::BbVorni {

/// Keeps the place of the baseband side on units that have none: it offers nothing and holds nothing back.
class BbVorni : public VornServerComponent, public Client
{
public:
    using VornServerComponent::VornServerComponent;
    ~BbVorni() override;

    bool init() override;
    std::string_view name() const override { return "BbVorni Dummy"; }
    bool isReadyToPublish() const override;
    const std::vector<std::uint32_t>& getCapabilities() const override;
};

} // namespace VornServer::BbVorni
