/// What the unit can do, for the clients.
#pragma once

#include "vornServerComponent.h"

/// Gathers what the board's servers and the unit itself have said that they can do, and answers with a record for each
/// that clients know. Each request builds the answer anew.
class VornServerCapabilities : public VornServerComponent
{
public:
    using VornServerComponent::VornServerComponent;

    bool init() override;
    std::string_view name() const override { return "VornServerCapabilities"; }

private:
    struct Sources;
    struct Asker;
    class Writer;

    void handleGetCapabilitiesReq(const MessagePtr& msg);
    Sources collect() const;
    Asker describeAsker(const MessagePtr& msg) const;
    static void addBaseband(const Sources& sources, Writer& writer);
    static bool addSoftwareManager(const Sources& sources, const Asker& asker, Writer& writer);
    static void addFruDescription(const Sources& sources, Writer& writer);
    static void addBoard(const Sources& sources, const Asker& asker, Writer& writer);
};
