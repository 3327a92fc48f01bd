/// The clients' view of the unit's faults.
#pragma once

#include "faultmanager/faultData.h"
#include "vornServerCmdHandler.h"
#include "vornServerComponent.h"

#include <vector>

/// A client that wants to hear of faults.
struct VornFaultSubscriber {
    std::uint32_t mboxId;
    std::uint32_t clientRef; ///< of the client's first request
    std::uint32_t serverRef; ///< of the client's first request
};

/// Tells the clients of the faults that the fault manager shows, each in the form that it has subscribed to, the short
/// one or the one with recovery time and label; a cease has one form. It adds nothing to the fault logic. Speaks with
/// the FESK server for the visual indication of faults, which nothing orders yet.
class VornServerFaultHandling : public VornServerComponent, public VornServerCmdHandler
{
public:
    explicit VornServerFaultHandling(VornServerCommonData& commonData) : VornServerComponent(commonData) {}
    ~VornServerFaultHandling() override;

    bool init() override;
    std::string_view name() const override { return "VornServerFaultHandling"; }
    void onVornSessionLost(const VornSession& session) override;
    /// "vornsrv fault subscriber": the subscribers of both forms.
    bool handleCommand(const std::vector<std::string>& args, std::ostream& out) override;

    // What the fault manager calls.
    void handleRaisedFault(const VornServer::FaultData& fault, std::uint32_t target);
    void handleCeasedFault(const VornServer::FaultData& fault);
    void setVisualIndication(bool isOn);

private:
    /// In the order of subscription, a mailbox once.
    using Subscribers = std::vector<VornFaultSubscriber>;

    void handleSubscribeFaultsReq(const MessagePtr& msg);
    void handleSubscribeFaultsWithHwFaultLabelReq(const MessagePtr& msg);

    template <typename Cfm>
    void addSubscriber(Subscribers& subscribers, const VornFaultSubscriber& subscriber, const MessagePtr& request);
    bool add(Subscribers& subscribers, const VornFaultSubscriber& subscriber) const;
    template <typename Ind, typename Fill>
    void sendFaultSignal(const VornFaultSubscriber& subscriber, const VornServer::FaultData& fault, Fill&& fill) const;
    void traceFaultSignal(const kiv_msg& signal) const;

    Subscribers m_subscribers;
    Subscribers m_hwFaultLabelSubscribers;
};
