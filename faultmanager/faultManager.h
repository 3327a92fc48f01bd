/// The fault manager.
#pragma once

#include "faultmanager/activeFaultList.h"
#include "faultmanager/faultManagerIf.h"
#include "vornServerCmdHandler.h"

#include <array>
#include <cstdint>
#include <vector>

namespace VornServer {

/// Keeps the active faults in three lists, which are coordinated each by itself. In a list, a fault hides those of a
/// strictly lower priority: they stay active, unreported, until the fault that hides them is removed. Faults of
/// priority LOWEST and NONE hide nothing and are shown when they come, whatever is active; only a higher fault that
/// comes later hides them. Some hardware faults come in pairs, of which one is shown.
///
/// The rules are asymmetric on purpose; the clients rely on them as they are. In particular a fault's removal
/// - is told to the clients also where the fault was hidden,
/// - brings back the pair's other fault and the next lower priority without a look at what still hides them,
/// - tells a fault again that is shown already.
class FaultManager : public FaultManagerIf, public VornServerCmdHandler
{
public:
    FaultManager() = default;
    ~FaultManager() override;
    FaultManager(const FaultManager&) = delete;
    FaultManager& operator=(const FaultManager&) = delete;

    bool init() override;
    void setSubscribers(RaisedSubscriber raised, CeasedSubscriber ceased) override;
    void setVisualIndicationCallback(IndicationCallback callback) override;
    void addExceptionalTemperatureCallback(TemperatureCallback callback) override;
    bool addFault(FaultData& fault) override;
    void removeFault(std::uint16_t faultId) override;
    void reportActiveFaults(std::uint32_t target) override;
    const std::string& faultIdName(std::uint16_t faultId) const override;
    std::string faultIdText(std::uint16_t faultId) const override;
    /// "vornsrv fm list": the three lists, a few lines a record.
    bool handleCommand(const std::vector<std::string>& args, std::ostream& out) override;

private:
    ActiveFaultList& listOf(std::uint16_t faultId);
    bool handleAddFault(const FaultData& fault, ActiveFaultList& list);
    void handleRemoveFault(std::uint16_t faultId, ActiveFaultList& list);
    void ceaseLowerPriorityFaults(ActiveFaultList& list, Priority priority);
    void reportLowerPriorityFaults(ActiveFaultList& list, Priority priority);
    void report(ActiveFault& fault);
    void sendFault(const FaultData& fault);
    void sendCease(const FaultData& fault);
    void callTemperatureCallbacks(bool isRaised);
    static void onHardwareFault(bool isRaised);
    void printList(const ActiveFaultList& list, std::ostream& out) const;

    RaisedSubscriber m_raisedSubscriber;
    CeasedSubscriber m_ceasedSubscriber;
    IndicationCallback m_visualIndicationCallback;
    std::vector<TemperatureCallback> m_temperatureCallbacks;
    /// Hardware and environment, software, power disturbance.
    std::array<ActiveFaultList, 3> m_lists{ActiveFaultList(0), ActiveFaultList(1), ActiveFaultList(2)};
};

} // namespace VornServer
