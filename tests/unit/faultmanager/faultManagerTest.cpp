/// The fault manager: what the clients and the callbacks are told, in which order, and what isn't smoothed over.
#include "faultmanager/faultManager.h"
#include "trace/recordedTraces.h"
#include "vornServerUlmo.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

using namespace VornServer;
using VornTrace::Event;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint16_t hwFault = OMLA_CONST_FH_FAULT_ID_HW_FAULT;
constexpr std::uint16_t tooHot = OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH;
constexpr std::uint16_t tooCold = OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_LOW;
constexpr std::uint16_t powerFailure = OMLA_CONST_FH_FAULT_ID_POWER_FAILURE;
constexpr std::uint16_t forEvaluation = OMLA_CONST_FH_FAULT_ID_HWF_FOR_EVALUATION;
constexpr std::uint16_t swError = OMLA_CONST_FH_FAULT_ID_SW_ERROR;
constexpr std::uint16_t linkError = OMLA_CONST_FH_FAULT_ID_LINK_ERROR;
constexpr std::uint16_t warm = OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED;
constexpr std::uint16_t degraded = OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION;
constexpr std::uint16_t swPartial = OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL;
constexpr std::uint16_t internal = OMLA_CONST_FH_FAULT_ID_INTERNAL_RESOURCE_FAILURE;
constexpr std::uint16_t fanDegraded = OMLA_CONST_FH_FAULT_ID_FAN_DEGRADED;
constexpr std::uint16_t fanFailed = OMLA_CONST_FH_FAULT_ID_FAN_FAILED;
constexpr std::uint16_t powerLow = OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW;
constexpr std::uint16_t powerLimit = OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED;
constexpr std::uint16_t unknownFault = 0x0999;

constexpr std::uint32_t lateSubscriber = 0x20003;

using Calls = std::vector<std::string>;

std::string raised(std::uint16_t faultId, std::uint32_t target = 0xFFFFFFFF)
{
    return fmt::format("raised 0x{:x} to 0x{:x}", faultId, target);
}

std::string ceased(std::uint16_t faultId)
{
    return fmt::format("ceased 0x{:x}", faultId);
}

std::string replayed(std::uint16_t faultId)
{
    return raised(faultId, lateSubscriber);
}

const std::string alarm = "temperature raised";
const std::string allClear = "temperature ceased";

FaultData faultOf(std::uint16_t faultId, FaultSource source = FaultSource::DUNL)
{
    FaultData fault;
    fault.source = source;
    fault.faultId = faultId;
    return fault;
}

/// One event of a sequence and the calls that it makes, in order.
struct Step {
    enum class Kind { add, refusedAdd, remove, replay } kind;
    std::uint16_t faultId;
    FaultSource source;
    Calls calls;
};

Step add(std::uint16_t faultId, Calls calls, FaultSource source = FaultSource::DUNL)
{
    return {Step::Kind::add, faultId, source, std::move(calls)};
}

Step refuse(std::uint16_t faultId, FaultSource source)
{
    return {Step::Kind::refusedAdd, faultId, source, {}};
}

Step remove(std::uint16_t faultId, Calls calls)
{
    return {Step::Kind::remove, faultId, FaultSource::NONE, std::move(calls)};
}

Step replay(Calls calls)
{
    return {Step::Kind::replay, 0, FaultSource::NONE, std::move(calls)};
}

/// A manager whose subscribers and callbacks write down that they were called.
struct ObservedManager {
    const RecordedTraces::Mark start = RecordedTraces::mark();
    Calls calls;
    FaultManager manager;

    ObservedManager()
    {
        manager.setSubscribers(
            [this](const FaultData& fault, std::uint32_t target) { calls.push_back(raised(fault.faultId, target)); },
            [this](const FaultData& fault) { calls.push_back(ceased(fault.faultId)); });
        manager.addExceptionalTemperatureCallback(
            [this](bool isRaised) { calls.push_back(isRaised ? alarm : allClear); });
        manager.setVisualIndicationCallback([this](bool) { calls.push_back("visual indication"); });
    }

    bool add(std::uint16_t faultId, FaultSource source = FaultSource::DUNL)
    {
        FaultData fault = faultOf(faultId, source);
        return manager.addFault(fault);
    }

    std::string list()
    {
        std::ostringstream out;
        EXPECT_TRUE(manager.handleCommand({"vornsrv", "fm", "list"}, out));
        return out.str();
    }

    bool hasError(const std::string& text) const
    {
        const auto traces = RecordedTraces::since(start);
        return std::any_of(traces.begin(), traces.end(), [&](const VornTrace::RecordedTrace& trace) {
            return trace.event == Event::error && trace.text == text;
        });
    }
};

struct Sequence {
    const char* name;
    std::vector<Step> steps;
};

std::ostream& operator<<(std::ostream& out, const Sequence& sequence)
{
    return out << sequence.name;
}

class FaultSequence : public testing::TestWithParam<Sequence>, public ObservedManager
{
protected:
    void apply(const Step& step)
    {
        switch (step.kind) {
        case Step::Kind::add:
            EXPECT_TRUE(add(step.faultId, step.source));
            break;
        case Step::Kind::refusedAdd:
            EXPECT_FALSE(add(step.faultId, step.source));
            break;
        case Step::Kind::remove:
            manager.removeFault(step.faultId);
            break;
        case Step::Kind::replay:
            manager.reportActiveFaults(lateSubscriber);
            break;
        }
    }
};

TEST_P(FaultSequence, callsInOrder)
{
    for (std::size_t index = 0; index < GetParam().steps.size(); ++index) {
        const Step& step = GetParam().steps[index];
        calls.clear();
        apply(step);
        EXPECT_EQ(calls, step.calls) << "step " << index + 1 << ", fault " << manager.faultIdText(step.faultId);
    }
}

const Sequence counting[]{
    {"faultIsToldOncePerLife",
     {add(warm, {raised(warm)}), add(warm, {}), remove(warm, {}), remove(warm, {ceased(warm)}), remove(warm, {}),
      add(warm, {raised(warm)})}},
    {"sourcesOfOneFaultAreCountedTogether",
     {add(hwFault, {raised(hwFault)}), add(hwFault, {}, FaultSource::RHUNE), remove(hwFault, {}),
      remove(hwFault, {ceased(hwFault)})}},
    {"linkErrorIsASecondSourceOfTheSoftwareError",
     {add(swError, {raised(swError)}), add(linkError, {}), remove(linkError, {}), remove(swError, {ceased(swError)})}},
    {"linkErrorIsToldAsSoftwareError",
     {add(linkError, {raised(swError)}, FaultSource::RHUNE), remove(swError, {ceased(swError)}),
      remove(linkError, {})}},
    {"hiddenFaultIsCountedToo",
     {add(hwFault, {raised(hwFault)}), add(warm, {}), add(warm, {}), remove(warm, {}), remove(warm, {ceased(warm)})}},
};

const Sequence support[]{
    {"withoutPriorityOnlyFromBoard",
     {refuse(fanFailed, FaultSource::RHUNE), refuse(fanFailed, FaultSource::BB_VORNI),
      refuse(powerFailure, FaultSource::XCS), refuse(fanFailed, FaultSource::NONE), refuse(fanFailed, FaultSource{7}),
      add(fanFailed, {raised(fanFailed)}), refuse(fanFailed, FaultSource::RHUNE),
      remove(fanFailed, {ceased(fanFailed)})}},
    {"unknownFaultOnlyFromBoard",
     {refuse(unknownFault, FaultSource::RHUNE), add(unknownFault, {raised(unknownFault)}),
      remove(unknownFault, {ceased(unknownFault)})}},
    {"withPriorityFromAnySource",
     {add(internal, {raised(internal)}, FaultSource::RHUNE), add(powerLimit, {raised(powerLimit)}, FaultSource::XCS),
      add(swPartial, {raised(swPartial)}, FaultSource{7}),
      add(warm, {ceased(internal), raised(warm)}, FaultSource::BB_VORNI)}},
    {"removalOfWhatIsntThereTellsNobody", {remove(tooHot, {}), remove(unknownFault, {})}},
    {"withoutSourceIsToldButNeverFoundAgain",
     {add(hwFault, {raised(hwFault)}, FaultSource::NONE), remove(hwFault, {}), add(hwFault, {raised(hwFault)}),
      remove(hwFault, {}), replay({replayed(hwFault), replayed(hwFault)})}},
    {"withoutSourceStillHidesOthers", {add(tooHot, {raised(tooHot), alarm}, FaultSource::NONE), add(hwFault, {})}},
    {"withoutSourceIsNoPartnerOfAPair",
     {add(hwFault, {raised(hwFault)}, FaultSource::NONE), add(forEvaluation, {raised(forEvaluation)}),
      remove(forEvaluation, {ceased(forEvaluation)})}},
    {"withoutSourceIsCountedOnceTheFaultIsActive",
     {add(hwFault, {raised(hwFault)}), add(hwFault, {}, FaultSource::NONE), remove(hwFault, {}),
      remove(hwFault, {ceased(hwFault)})}},
};

const Sequence hiding[]{
    {"higherPriorityCeasesFromTheLowestUp",
     {add(warm, {raised(warm)}), add(degraded, {raised(degraded)}), add(internal, {raised(internal)}),
      add(fanFailed, {raised(fanFailed)}),
      add(hwFault, {ceased(fanFailed), ceased(internal), ceased(warm), ceased(degraded), raised(hwFault)}),
      add(tooHot, {ceased(hwFault), raised(tooHot), alarm})}},
    {"lowPrioritiesAreNotHiddenWhenTheyComeLater",
     {add(tooHot, {raised(tooHot), alarm}), add(internal, {raised(internal)}), add(fanFailed, {raised(fanFailed)}),
      replay({replayed(tooHot), replayed(internal), replayed(fanFailed)})}},
    {"lowPrioritiesAreCeasedWhenTheyCameBefore",
     {add(fanFailed, {raised(fanFailed)}), add(warm, {ceased(fanFailed), raised(warm)})}},
    {"lowPrioritiesHideNothing",
     {add(internal, {raised(internal)}), add(fanFailed, {raised(fanFailed)}), remove(internal, {ceased(internal)}),
      replay({replayed(fanFailed)})}},
    {"samePriorityHidesNothing", {add(warm, {raised(warm)}), add(degraded, {raised(degraded)})}},
    {"hiddenFaultCeasesAllTheSame",
     {add(tooHot, {raised(tooHot), alarm}), add(hwFault, {}), remove(hwFault, {ceased(hwFault)})}},
    {"hiddenTemperatureFaultCallsBackOnCease",
     {add(tooHot, {raised(tooHot), alarm}), add(tooCold, {}),
      remove(tooCold, {allClear, ceased(tooCold), raised(tooHot), alarm})}},
    {"listsDontHideEachOther",
     {add(tooHot, {raised(tooHot), alarm}), add(swPartial, {raised(swPartial)}), add(powerLimit, {raised(powerLimit)}),
      add(swError, {ceased(swPartial), raised(swError)}), add(powerLow, {ceased(powerLimit), raised(powerLow)})}},
    {"emptyBucketHidesNothing",
     {add(tooHot, {raised(tooHot), alarm}), remove(tooHot, {allClear, ceased(tooHot)}), add(warm, {raised(warm)})}},
};

const Sequence bringingBack[]{
    {"nextLowerPriorityComesBackWhole",
     {add(tooHot, {raised(tooHot), alarm}), add(warm, {}), add(degraded, {}),
      remove(tooHot, {allClear, ceased(tooHot), raised(warm), raised(degraded)})}},
    {"onlyTheHighestLowerPriorityComesBack",
     {add(warm, {raised(warm)}), add(hwFault, {ceased(warm), raised(hwFault)}),
      add(tooHot, {ceased(hwFault), raised(tooHot), alarm}),
      remove(tooHot, {allClear, ceased(tooHot), raised(hwFault)}), remove(hwFault, {ceased(hwFault), raised(warm)})}},
    {"emptyBucketIsPassedOver",
     {add(hwFault, {raised(hwFault)}), remove(hwFault, {ceased(hwFault)}), add(warm, {raised(warm)}),
      add(tooHot, {ceased(warm), raised(tooHot), alarm}), remove(tooHot, {allClear, ceased(tooHot), raised(warm)})}},
    {"comesBackThoughAHigherOneStillHidesIt",
     {add(tooHot, {raised(tooHot), alarm}), add(hwFault, {}), add(warm, {}),
      remove(hwFault, {ceased(hwFault), raised(warm)}), replay({replayed(tooHot), replayed(warm)})}},
    {"shownFaultIsToldAgain",
     {add(hwFault, {raised(hwFault)}), add(fanFailed, {raised(fanFailed)}),
      remove(hwFault, {ceased(hwFault), raised(fanFailed)})}},
    {"lowestComesBackBeforeThoseWithoutPriority",
     {add(fanFailed, {raised(fanFailed)}), add(internal, {raised(internal)}),
      add(warm, {ceased(fanFailed), ceased(internal), raised(warm)}), remove(warm, {ceased(warm), raised(internal)}),
      replay({replayed(internal)})}},
    {"lowPriorityBringsNothingBack",
     {add(internal, {raised(internal)}), add(warm, {ceased(internal), raised(warm)}),
      add(fanFailed, {raised(fanFailed)}), remove(internal, {ceased(internal)})}},
    {"softwareErrorBringsThePartialBack",
     {add(swError, {raised(swError)}), add(swPartial, {}), remove(linkError, {ceased(swError), raised(swPartial)})}},
    {"powerLimitComesBack",
     {add(powerLow, {raised(powerLow)}), add(powerLimit, {}),
      remove(powerLow, {ceased(powerLow), raised(powerLimit)})}},
};

const Sequence pairs[]{
    {"secondOfThePairWaits",
     {add(forEvaluation, {raised(forEvaluation)}), add(hwFault, {}),
      remove(forEvaluation, {ceased(forEvaluation), raised(hwFault)})}},
    {"waitingOneLeavesLowerFaultsAlone",
     {add(hwFault, {raised(hwFault)}), add(internal, {raised(internal)}), add(forEvaluation, {}),
      replay({replayed(hwFault), replayed(internal)})}},
    {"waitingOneCeasesAndItsPartnerIsToldAgain",
     {add(hwFault, {raised(hwFault)}), add(forEvaluation, {}),
      remove(forEvaluation, {ceased(forEvaluation), raised(hwFault)})}},
    {"temperaturePairKeepsTheAlarmInOrder",
     {add(tooCold, {raised(tooCold), alarm}), add(tooHot, {}),
      remove(tooCold, {allClear, ceased(tooCold), raised(tooHot), alarm})}},
    {"partnerComesBackBeforeLowerFaultsAndBothAreShown",
     {add(warm, {raised(warm)}), add(hwFault, {ceased(warm), raised(hwFault)}), add(forEvaluation, {}),
      remove(hwFault, {ceased(hwFault), raised(forEvaluation), raised(warm)}),
      replay({replayed(forEvaluation), replayed(warm)})}},
    {"partnerComesBackThoughAHigherOneHidesIt",
     {add(tooHot, {raised(tooHot), alarm}), add(hwFault, {}), add(forEvaluation, {}),
      remove(hwFault, {ceased(hwFault), raised(forEvaluation)}), replay({replayed(tooHot), replayed(forEvaluation)})}},
    {"bothOfThePairComeBackTogether",
     {add(tooHot, {raised(tooHot), alarm}), add(hwFault, {}), add(forEvaluation, {}),
      remove(tooHot, {allClear, ceased(tooHot), raised(hwFault), raised(forEvaluation)})}},
    {"pairFormsWithOneThatCameBack",
     {add(tooHot, {raised(tooHot), alarm}), add(hwFault, {}), add(degraded, {}),
      remove(tooHot, {allClear, ceased(tooHot), raised(hwFault)}), add(forEvaluation, {}),
      remove(hwFault, {ceased(hwFault), raised(forEvaluation), raised(degraded)})}},
};

const Sequence replays[]{
    {"replayIsInOrderOfPriorityNotOfTime",
     {add(fanFailed, {raised(fanFailed)}), add(swPartial, {raised(swPartial)}, FaultSource::RHUNE),
      add(tooHot, {ceased(fanFailed), raised(tooHot), alarm}), add(internal, {raised(internal)}),
      add(fanDegraded, {raised(fanDegraded)}),
      replay({replayed(tooHot), replayed(internal), replayed(fanDegraded), replayed(swPartial)})}},
    {"replayLeavesPowerDisturbanceOut", {add(powerLow, {raised(powerLow)}), replay({})}},
    {"replayLeavesHiddenFaultsOut", {add(swError, {raised(swError)}), add(swPartial, {}), replay({replayed(swError)})}},
    {"replayCallsNoTemperatureCallback", {add(tooCold, {raised(tooCold), alarm}), replay({replayed(tooCold)})}},
    {"replayOfNothing", {replay({})}},
};

const auto sequenceName = [](const auto& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(Counting, FaultSequence, testing::ValuesIn(counting), sequenceName);
INSTANTIATE_TEST_SUITE_P(Support, FaultSequence, testing::ValuesIn(support), sequenceName);
INSTANTIATE_TEST_SUITE_P(Hiding, FaultSequence, testing::ValuesIn(hiding), sequenceName);
INSTANTIATE_TEST_SUITE_P(BringingBack, FaultSequence, testing::ValuesIn(bringingBack), sequenceName);
INSTANTIATE_TEST_SUITE_P(Pairs, FaultSequence, testing::ValuesIn(pairs), sequenceName);
INSTANTIATE_TEST_SUITE_P(Replays, FaultSequence, testing::ValuesIn(replays), sequenceName);

class FaultManagerTest : public testing::Test, public ObservedManager
{
};

TEST_F(FaultManagerTest, linkErrorIsRemappedInTheCallersRecord)
{
    FaultData fault = faultOf(linkError, FaultSource::XCS);
    EXPECT_TRUE(manager.addFault(fault));
    EXPECT_EQ(fault.faultId, swError);
    EXPECT_TRUE(
        RecordedTraces::has("remap OMLA_CONST_FH_FAULT_ID_LINK_ERROR to OMLA_CONST_FH_FAULT_ID_SW_ERROR!", start));
    manager.removeFault(linkError);
    EXPECT_TRUE(
        RecordedTraces::has("remap OMLA_CONST_FH_FAULT_ID_LINK_ERROR to OMLA_CONST_FH_FAULT_ID_SW_ERROR", start));
}

TEST_F(FaultManagerTest, subscribersGetTheFirstRecordWhole)
{
    std::vector<FaultData> told;
    manager.setSubscribers([&told](const FaultData& fault, std::uint32_t) { told.push_back(fault); },
                           [&told](const FaultData& fault) { told.push_back(fault); });
    FaultData fault = faultOf(warm, FaultSource::RHUNE);
    fault.faultCase = 17;
    fault.faultDescription = "inlet too warm";
    fault.recoveryTime = 300;
    fault.hwFaultLabel = "INLET";
    manager.addFault(fault);
    FaultData second = faultOf(warm);
    second.faultDescription = "dropped";
    manager.addFault(second);
    manager.reportActiveFaults(lateSubscriber);
    manager.removeFault(warm);
    manager.removeFault(warm);

    ASSERT_EQ(told.size(), 3U);
    for (const FaultData& seen : told) {
        EXPECT_EQ(seen.source, FaultSource::RHUNE);
        EXPECT_EQ(seen.faultId, warm);
        EXPECT_EQ(seen.faultCase, 17);
        EXPECT_EQ(seen.faultDescription, "inlet too warm");
        EXPECT_EQ(seen.recoveryTime, 300U);
        EXPECT_EQ(seen.hwFaultLabel, "INLET");
    }
    EXPECT_THAT(calls, testing::IsEmpty()) << "the subscribers before were replaced";
}

TEST_F(FaultManagerTest, temperatureCallbacksRunInOrderOfRegistration)
{
    manager.addExceptionalTemperatureCallback(
        [this](bool isRaised) { calls.push_back(isRaised ? "second 1" : "second 0"); });
    add(tooHot);
    manager.removeFault(tooHot);
    EXPECT_EQ(calls, (Calls{raised(tooHot), alarm, "second 1", allClear, "second 0", ceased(tooHot)}));
    EXPECT_EQ(RecordedTraces::count("Executing exceptional temperature fault raised callback", start), 2U);
    EXPECT_EQ(RecordedTraces::count("Executing exceptional temperature fault ceased callback", start), 2U);
}

TEST_F(FaultManagerTest, withoutSubscribersFaultsCountAsTold)
{
    manager.setSubscribers(nullptr, nullptr);
    FaultData fault = faultOf(tooHot);
    fault.faultCase = 5;
    EXPECT_TRUE(manager.addFault(fault));
    EXPECT_EQ(calls, Calls{alarm});
    EXPECT_THAT(list(), testing::HasSubstr("isReported: true\n"));
    EXPECT_TRUE(hasError("No subscriber for raised fault, faultId: "
                         "OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH (0x103), faultCase: 5"));
    manager.reportActiveFaults(lateSubscriber);
    manager.removeFault(tooHot);
    EXPECT_EQ(calls, (Calls{alarm, allClear}));
    EXPECT_TRUE(hasError("No subscriber for ceased fault, faultId: "
                         "OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH (0x103), faultCase: 5"));
    EXPECT_EQ(list(), "");
}

TEST_F(FaultManagerTest, refusalsAndOdditiesAreErrorTraces)
{
    add(fanFailed, FaultSource::RHUNE);
    EXPECT_TRUE(hasError("Unsupported faultId = OMLA_CONST_FH_FAULT_ID_FAN_FAILED (0x705), fault source = RHUNE"));
    add(unknownFault, FaultSource{12});
    EXPECT_TRUE(hasError("Unsupported faultId = UNKNOWN_FAULT_ID (0x999), fault source = INVALID_VALUE(12)"));
    add(linkError, FaultSource::NONE);
    EXPECT_TRUE(hasError("ABN: faultId: 0x302, source = FaultSource::NONE")) << "told before the remap";
    manager.removeFault(warm);
    EXPECT_TRUE(hasError("faultId = OMLA_CONST_FH_FAULT_ID_NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED (0x502), has not been "
                         "activated"));
}

TEST_F(FaultManagerTest, decisionsAreTraced)
{
    const auto has = [this](const std::string& text) { return RecordedTraces::has(text, start); };
    const std::string noImpact =
        "faultId = OMLA_CONST_FH_FAULT_ID_INTERNAL_RESOURCE_FAILURE (0x703), priority = LOWEST, "
        "has no impact on other faults";
    add(internal);
    EXPECT_EQ(RecordedTraces::count(noImpact, start), 1U);
    manager.removeFault(internal);
    EXPECT_EQ(RecordedTraces::count(noImpact, start), 2U);
    add(hwFault);
    EXPECT_TRUE(has("faultListPriority = SECOND, no more faults with priority lower than SECOND"));
    add(hwFault);
    EXPECT_TRUE(has("faultId = OMLA_CONST_FH_FAULT_ID_HW_FAULT (0x101) is already active"));
    manager.removeFault(hwFault);
    EXPECT_TRUE(has("faultId: OMLA_CONST_FH_FAULT_ID_HW_FAULT (0x101), cannot be ceased, numOfSources = 1"));
    add(degraded);
    EXPECT_TRUE(has("faultId = OMLA_CONST_FH_FAULT_ID_HWF_DEGRADED_FOR_EVALUATION (0x521), was suppressed by higher "
                    "priority fault"));
}

TEST_F(FaultManagerTest, listShowsEveryFaultOfTheThreeLists)
{
    FaultData limit = faultOf(powerLimit, FaultSource::XCS);
    manager.addFault(limit);
    FaultData partial = faultOf(swPartial, FaultSource::RHUNE);
    partial.faultDescription = "process restarted";
    partial.faultCase = 65535;
    partial.recoveryTime = 4294967295;
    manager.addFault(partial);
    manager.addFault(partial);
    FaultData hidden = faultOf(hwFault);
    hidden.hwFaultLabel = "PSU";
    add(tooHot);
    manager.addFault(hidden);
    add(0x0ABC);

    EXPECT_EQ(list(), "OMLA_CONST_FH_FAULT_ID_EXCEPTIONAL_TEMPERATURE_TOO_HIGH\n"
                      "faultId: 0x103\nfaultDescription: \nfaultCase: 0\nrecoveryTime: 0\nhwFaultLabel: none\n"
                      "numSources: 1\nisReported: true\n\n"
                      "OMLA_CONST_FH_FAULT_ID_HW_FAULT\n"
                      "faultId: 0x101\nfaultDescription: \nfaultCase: 0\nrecoveryTime: 0\nhwFaultLabel: PSU\n"
                      "numSources: 1\nisReported: false\n\n"
                      "UNKNOWN_FAULT_ID\n"
                      "faultId: 0xabc\nfaultDescription: \nfaultCase: 0\nrecoveryTime: 0\nhwFaultLabel: none\n"
                      "numSources: 1\nisReported: true\n\n"
                      "OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL\n"
                      "faultId: 0x522\nfaultDescription: process restarted\nfaultCase: 65535\n"
                      "recoveryTime: 4294967295\nhwFaultLabel: none\nnumSources: 2\nisReported: true\n\n"
                      "OMLA_CONST_FH_FAULT_ID_POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED\n"
                      "faultId: 0x711\nfaultDescription: \nfaultCase: 0\nrecoveryTime: 0\nhwFaultLabel: none\n"
                      "numSources: 1\nisReported: true\n\n");
}

TEST_F(FaultManagerTest, listOfNothingIsEmptyAndOtherCommandsAreInvalid)
{
    EXPECT_EQ(list(), "");
    add(tooHot);
    for (const std::vector<std::string>& line : {std::vector<std::string>{},
                                                 {"vornsrv", "fm"},
                                                 {"vornsrv", "fm", "lists"},
                                                 {"vornsrv", "fm", "LIST"},
                                                 {"vornsrv", "fm", "list", "all"},
                                                 {"vornsrv", "list", "fm"},
                                                 {"list"}}) {
        std::ostringstream out;
        EXPECT_FALSE(manager.handleCommand(line, out)) << testing::PrintToString(line);
        EXPECT_EQ(out.str(), "invalid fm command\n");
    }
}

TEST_F(FaultManagerTest, namesAndTexts)
{
    const std::pair<std::uint16_t, std::string> names[]{
        {0x0101, "HW_FAULT"},
        {0x0103, "EXCEPTIONAL_TEMPERATURE_TOO_HIGH"},
        {0x0104, "EXCEPTIONAL_TEMPERATURE_TOO_LOW"},
        {0x0108, "POWER_FAILURE"},
        {0x0300, "HWF_FOR_EVALUATION"},
        {0x0301, "SW_ERROR"},
        {0x0302, "LINK_ERROR"},
        {0x0502, "NORMAL_TEMPERATURE_TOO_HIGH_DEGRADED"},
        {0x0521, "HWF_DEGRADED_FOR_EVALUATION"},
        {0x0522, "SW_ERROR_PARTIAL"},
        {0x0703, "INTERNAL_RESOURCE_FAILURE"},
        {0x0704, "FAN_DEGRADED"},
        {0x0705, "FAN_FAILED"},
        {0x0706, "FAN_DISCONNECTED"},
        {0x0710, "POWER_DISTURBANCE_INPUT_POWER_LOW"},
        {0x0711, "POWER_DISTURBANCE_INPUT_POWER_LOW_LIMIT_EXCEEDED"},
    };
    for (const auto& [number, name] : names) {
        EXPECT_EQ(manager.faultIdName(number), "OMLA_CONST_FH_FAULT_ID_" + name);
        EXPECT_EQ(manager.faultIdText(number), fmt::format("OMLA_CONST_FH_FAULT_ID_{} (0x{:x})", name, number));
    }
    EXPECT_EQ(manager.faultIdName(0x0102), "UNKNOWN_FAULT_ID");
    EXPECT_EQ(manager.faultIdText(0xABCD), "UNKNOWN_FAULT_ID (0xabcd)");

    EXPECT_EQ(faultSourceText(FaultSource::DUNL), "DUNL");
    EXPECT_EQ(faultSourceText(FaultSource::BB_VORNI), "BB_VORNI");
    EXPECT_EQ(faultSourceText(FaultSource::RHUNE), "RHUNE");
    EXPECT_EQ(faultSourceText(FaultSource::XCS), "XCS");
    EXPECT_EQ(faultSourceText(FaultSource::NONE), "NONE");
    EXPECT_STREQ(priorityText(Priority::FIRST), "FIRST");
    EXPECT_STREQ(priorityText(Priority::SECOND), "SECOND");
    EXPECT_STREQ(priorityText(Priority::THIRD), "THIRD");
    EXPECT_STREQ(priorityText(Priority::LOWEST), "LOWEST");
    EXPECT_STREQ(priorityText(Priority::NONE), "NONE");
    EXPECT_STREQ(priorityText(Priority{5}), "Unknown priority");
}

TEST(FaultManagerCommand, nameIsTakenOnceAndFreedWithItsOwner)
{
    auto first = std::make_unique<FaultManager>();
    EXPECT_TRUE(first->init());
    {
        FaultManager second;
        EXPECT_FALSE(second.init());
    }
    FaultManager third;
    EXPECT_FALSE(third.init()) << "who didn't get the name doesn't free it";
    first.reset();
    EXPECT_TRUE(third.init());
}

} // namespace
