/// The faults of the DUNL server on their way to the fault manager.
#pragma once

#include "dunlfaulthandler/dunlCurrentFaults.h"
#include "tolmeClient.h"
#include "vornServerComponent.h"

namespace tolme::dunl {
class FaultInd;
}

/// Keeps the faults that the DUNL server has raised and not yet ceased. Each time they change it chooses those that may
/// be shown and hands the difference on: an exceptional temperature hides hardware faults, of the faults of either kind
/// one is shown, and faults of fans and of the power supply go their own way. The fault manager then coordinates the
/// result with the faults of other sources. Speaks with the DUNL server.
class DunlFaultHandler : public VornServerComponent
{
public:
    explicit DunlFaultHandler(VornServerCommonData& commonData) : VornServerComponent(commonData) {}

    bool init() override;
    std::string_view name() const override { return "DunlFaultHandler"; }

    /// Whether a fault of this number is raised, by the DUNL server's number.
    bool isFaultActive(std::int32_t faultId) const { return m_faults.isFaultActive(faultId); }

private:
    void handleSubscribeFaultsCfm(const TolmeMessagePtr& message);
    void handleFaultInd(const TolmeMessagePtr& message);
    void handleFaultCeaseInd(const TolmeMessagePtr& message);

    bool takeIn(const tolme::dunl::FaultInd& ind);

    void runFaultCoordination();
    void mergeFaults();
    void chooseFaults();
    void reportNotReportedFaults();
    void reportRaisedFault(const DunlActiveFault& fault);
    void reportCeasedFault(const DunlActiveFault& fault);

    DunlCurrentFaults m_faults;
};
