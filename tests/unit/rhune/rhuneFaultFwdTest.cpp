/// What the fault manager gets of a forwarded fault, and what is told where it refuses one.

#include "rhune/rhuneFaultFwd.h"

#include "faultmanager/faultManagerIf.h"
#include "ostinel/kivMessageSubscription.h"
#include "rhune/rhuneSignals.h"
#include "trace/recordedTraces.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

using namespace VornServer;
using VornTrace::RecordedTraces;

namespace {

/// Refuses every fault.
class RefusingManager final : public FaultManagerIf
{
public:
    bool init() override { return true; }
    void setSubscribers(RaisedSubscriber, CeasedSubscriber) override {}
    void setVisualIndicationCallback(IndicationCallback) override {}
    void addExceptionalTemperatureCallback(TemperatureCallback) override {}
    bool addFault(FaultData& fault) override
    {
        offered.push_back(fault);
        return false;
    }
    void removeFault(std::uint16_t) override {}
    void reportActiveFaults(std::uint32_t) override {}
    const std::string& faultIdName(std::uint16_t) const override { return m_noName; }
    std::string faultIdText(std::uint16_t) const override { return {}; }

    std::vector<FaultData> offered;

private:
    std::string m_noName;
};

TEST(RhuneFaultFwd, when_the_fault_manager_refuses_a_fault_then_that_is_an_error_trace)
{
    constexpr std::uint32_t serverRef = 4096;
    const std::uint32_t mbox = kiv_create_mailbox("rhuneFaultFwdTest");
    RefusingManager manager;
    Rhune::RhuneClient clients;
    clients.registerClient(serverRef, 1, mbox);
    Rhune::RhuneFaultFwd faultFwd(clients, manager);

    kiv_msg* msg = kiv_alloc(sizeof(RhuneVornFaultFwdS), RhuneVornFaultFwdS::number);
    auto* signal = viewSignal<RhuneVornFaultFwdS>(msg);
    signal->header.setReferences(1, serverRef);
    signal->faultId = OMLA_CONST_FH_FAULT_ID_SW_ERROR;
    faultFwd.handleFaultFwd(Ostinel::KivMessageSubscription::V1::makeShared(msg));

    ASSERT_EQ(manager.offered.size(), 1U);
    EXPECT_EQ(manager.offered[0].source, FaultSource::RHUNE);
    const auto traces = RecordedTraces::since();
    EXPECT_TRUE(std::any_of(traces.begin(), traces.end(), [](const VornTrace::RecordedTrace& trace) {
        return trace.event == VornTrace::Event::error &&
               trace.text == "active fault 0x301 from VORN-RHUNE added failed";
    }));
    kiv_delete_mailbox(mbox);
}

} // namespace
