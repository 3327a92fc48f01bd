#include "procedures.h"

#include "ledger.h"
#include "vorni/capabilities.h"
#include "vorni/connection.h"
#include "vorni/deepSleep.h"
#include "vorni/faults.h"
#include "vorni/fruDescription.h"
#include "vorni/hereIAm.h"
#include "vorni/hwLog.h"
#include "vorni/linkSupervision.h"
#include "vorni/maintenanceState.h"
#include "vorni/mmi.h"
#include "vorni/oamState.h"
#include "vorni/opticalIndicator.h"
#include "vorni/productIdentity.h"
#include "vorni/restart.h"
#include "vorni/software.h"
#include "vorni/temperature.h"
#include "vorni/utc.h"
#include "vorni/visualIndication.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <string>

namespace Endurance {

namespace {

constexpr BackEnds none = 0;
constexpr BackEnds board = only(dunl) | only(fesk) | only(yarrowi); ///< what a connection asks of each
constexpr BackEnds software = only(ganti) | only(dunl);             ///< software is checked against the hardware

template <typename Record>
void plain(const Way& way, Random&)
{
    way.send<Record>([](Record&) {});
}

template <std::size_t Size>
void put(char (&field)[Size], const std::string& text)
{
    text.copy(field, Size - 1);
}

void sendForeign(const Way& way, Random& random)
{
    way.send<ForeignSignal>([&](auto& signal) { signal.payload = pick(random, 0, 1000); });
}

void sendSelectMmi(const Way& way, Random& random)
{
    way.send<OmlaVornSelectMmiReqS>([&](auto& request) { request.mode = pick(random, 1, 2); });
}

void sendSetUtcTime(const Way& way, Random& random)
{
    way.send<OmlaVornSetUtcTimeReqS>([&](auto& request) { request.utcTime = pick(random, 1, 2'000'000'000); });
}

void sendGetFruDescription(const Way& way, Random& random)
{
    const std::string id = pick(random, 0, 1) == 0 ? "TVM1614472-3_R3B" : "NO_SUCH_FILE";
    way.send<OmlaVornGetFruDescFileReqS>(
        [&](auto& request) { id.copy(reinterpret_cast<char*>(&request) + sizeof(request), id.size()); }, id.size() + 1);
}

void sendWriteHwLog(const Way& way, Random& random)
{
    way.send<OmlaVornHwLogSetReqS>([&](auto& request) {
        const std::string entry = fmt::format("entry {}", pick(random, 0, 1000));
        put(request.label, "ENDURANCE");
        request.logId = pick(random, 0, 4) == 0 ? 2000 : pick(random, 0, 9); // some that there aren't
        request.length = 1;
        entry.copy(reinterpret_cast<char*>(request.entries), entry.size());
    });
}

void sendReadHwLog(const Way& way, Random& random)
{
    way.send<OmlaVornHwLogGetReqS>([&](auto& request) { request.logId = pick(random, 0, 9); });
}

void sendMeasureTemperature(const Way& way, Random& random)
{
    way.send<OmlaVornTempMeasStartReqS>([&](auto& request) {
        request.hotSpotMeasurementPeriod = static_cast<std::uint8_t>(pick(random, 0, 2) == 0 ? 0 : pick(random, 1, 31));
    });
}

void sendGetRestartHistory(const Way& way, Random& random)
{
    way.send<OmlaVornGetEventHistoryReqS>(
        [&](auto& request) { request.noOfEvents = static_cast<std::uint16_t>(pick(random, 0, 20)); });
}

void sendNotifyRestart(const Way& way, Random& random)
{
    way.send<OmlaVornNotifyRestartReqS>([&](auto& request) {
        request.value = pick(random, 0, 600);
        put(request.text, "endurance");
    });
}

void sendOrderRestart(const Way& way, Random&)
{
    const std::string text = "ordered by a client";
    way.send<OmlaVornRestartBoardFwdS>(
        [&](auto& order) { text.copy(reinterpret_cast<char*>(&order) + sizeof(order), text.size()); }, text.size() + 1);
}

void sendOrderRestartWithRank(const Way& way, Random& random)
{
    using Order = OmlaVornRestartBoardWithRankAndLabelFwdS;
    constexpr std::size_t labelSize = 8;
    way.send<Order>(
        [&](Order& order) {
            order.restartCode = static_cast<std::uint16_t>(pick(random, 1, 500));
            order.restartRank = static_cast<std::uint16_t>(pick(random, 0, 6)); // some that there aren't
            auto* bytes = reinterpret_cast<char*>(&order);
            std::strcpy(bytes + sizeof(order), "with rank");
            std::strcpy(bytes + Order::labelOffset, "LABEL");
        },
        Order::labelOffset - sizeof(Order) + labelSize);
}

void sendSetVisualIndication(const Way& way, Random& random)
{
    constexpr std::array<std::uint16_t, 8> codes{0x110, 0x111, 0x130, 0x310, 0x410, 0x210, 0x211, 0x999};
    const std::uint16_t code = codes[pick(random, 0, codes.size() - 1)];
    way.send<OmlaVornSetVisualIndicationReqS>([code](auto& request) { request.visualState = code; });
}

void sendSetMaintState(const Way& way, Random& random)
{
    way.send<OmlaVornSetMaintStateReqS>([&](auto& request) { request.maintState = pick(random, 0, 5); });
}

void sendOrderHereIAm(const Way& way, Random& random)
{
    way.send<OmlaVornOrderHereIAmReqS>(
        [&](auto& request) { request.order = static_cast<std::int16_t>(pick(random, 0, 2)); });
}

void sendActivateOpticalIndicatorFor(const Way& way, Random& random)
{
    way.send<OmlaVornOpticalIndicatorControlActivateWithDurationReqS>(
        [&](auto& request) { request.duration = pick(random, 0, 3); });
}

template <typename Cfm, typename Rej>
constexpr Procedure answered(ProcedureId id, const char* name, BackEnds needs, unsigned weight,
                             void (*send)(const Way&, Random&))
{
    return {id, name, Cfm::number, Rej::number, needs, weight, send};
}

template <typename Cfm>
constexpr Procedure confirmed(ProcedureId id, const char* name, BackEnds needs, unsigned weight,
                              void (*send)(const Way&, Random&))
{
    return {id, name, Cfm::number, 0, needs, weight, send};
}

constexpr std::array table{
    answered<OmlaVornConnEstablishCfmS, OmlaVornConnEstablishRejS>(connect, "connect", board, 0, nullptr),
    Procedure{proxied, "a signal of no component", ForeignSignal::number + 1, 0, none, 12, sendForeign},
    confirmed<OmlaVornGetCapabilitiesCfmS>(getCapabilities, "capabilities", none, 12,
                                           plain<OmlaVornGetCapabilitiesReqS>),
    answered<OmlaVornSelectMmiCfmS, OmlaVornSelectMmiRejS>(selectMmi, "select MMI", none, 8, sendSelectMmi),
    confirmed<OmlaVornLinkSupervisionRejS>(linkSupervision, "link supervision", none, 8,
                                           plain<OmlaVornLinkSupervisionReqS>),
    answered<OmlaVornGetFruDescFileCfmS, OmlaVornGetFruDescFileRejS>(getFruDescription, "FRU description", none, 6,
                                                                     sendGetFruDescription),
    confirmed<OmlaVornAuditCfmS>(audit, "audit", none, 12, plain<OmlaVornAuditReqS>),
    answered<OmlaVornEnableOperationCfmS, OmlaVornEnableOperationRejS>(enableOperation, "enable operation", none, 6,
                                                                       plain<OmlaVornEnableOperationReqS>),
    answered<OmlaVornDisableOperationCfmS, OmlaVornDisableOperationRejS>(disableOperation, "disable operation", none, 2,
                                                                         plain<OmlaVornDisableOperationReqS>),
    confirmed<OmlaVornSubscribeFaultsCfmS>(subscribeFaults, "subscribe to faults", none, 4,
                                           plain<OmlaVornSubscribeFaultsReqS>),
    confirmed<OmlaVornSubscribeFaultsWithHwFaultLabelCfmS>(subscribeFaultsWithLabel, "subscribe to faults with label",
                                                           none, 4, plain<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>),
    answered<OmlaVornSetUtcTimeCfmS, OmlaVornSetUtcTimeRejS>(setUtcTime, "set UTC time", only(dunl), 16,
                                                             sendSetUtcTime),
    answered<OmlaVornGetHwPidCfmS, OmlaVornGetHwPidRejS>(getHwPid, "hardware PID", only(dunl), 8,
                                                         plain<OmlaVornGetHwPidReqS>),
    answered<OmlaVornGetContainerPidCfmS, OmlaVornGetContainerPidRejS>(getContainerPid, "container PID", only(dunl), 8,
                                                                       plain<OmlaVornGetContainerPidReqS>),
    answered<OmlaVornGetMarketNamePidCfmS, OmlaVornGetMarketNamePidRejS>(
        getMarketNamePid, "PID with market name", only(dunl), 8, plain<OmlaVornGetMarketNamePidReqS>),
    answered<OmlaVornGetExtendedMarketNameCfmS, OmlaVornGetExtendedMarketNameRejS>(
        getExtendedMarketName, "extended market name", only(dunl), 8, plain<OmlaVornGetExtendedMarketNameReqS>),
    answered<OmlaVornHwLogSetCfmS, OmlaVornHwLogSetRejS>(writeHwLog, "write hardware log", only(dunl), 6,
                                                         sendWriteHwLog),
    answered<OmlaVornHwLogGetCfmS, OmlaVornHwLogGetRejS>(readHwLog, "read hardware log", only(dunl), 8, sendReadHwLog),
    answered<OmlaVornTempMeasStartCfmS, OmlaVornTempMeasStartRejS>(measureTemperature, "temperature measurement",
                                                                   only(dunl), 8, sendMeasureTemperature),
    answered<OmlaVornSubscribeRestartNotificationCfmS, OmlaVornSubscribeRestartNotificationRejS>(
        subscribeRestarts, "subscribe to restarts", only(dunl), 0, plain<OmlaVornSubscribeRestartNotificationReqS>),
    answered<OmlaVornGetEventHistoryCfmS, OmlaVornGetEventHistoryRejS>(getRestartHistory, "event history", only(dunl),
                                                                       6, sendGetRestartHistory),
    answered<OmlaVornNotifyRestartCfmS, OmlaVornNotifyRestartRejS>(notifyRestart, "notify restart", only(dunl), 4,
                                                                   sendNotifyRestart),
    Procedure{orderRestart, "order restart", 0, 0, only(dunl), 0, sendOrderRestart},
    Procedure{orderRestartWithRank, "order restart with rank", 0, 0, only(dunl), 0, sendOrderRestartWithRank},
    answered<OmlaVornSetVisualIndicationCfmS, OmlaVornSetVisualIndicationRejS>(
        setVisualIndication, "set visual indication", only(fesk), 10, sendSetVisualIndication),
    answered<OmlaVornGetVisualIndicationCfmS, OmlaVornGetVisualIndicationRejS>(
        getVisualIndication, "get visual indication", only(fesk), 10, plain<OmlaVornGetVisualIndicationReqS>),
    answered<OmlaVornGetSpecialIndicatorCfmS, OmlaVornGetSpecialIndicatorRejS>(
        getSpecialIndicator, "get special indicator", only(fesk), 6, plain<OmlaVornGetSpecialIndicatorReqS>),
    answered<OmlaVornSetMaintStateCfmS, OmlaVornSetMaintStateRejS>(setMaintState, "set maintenance state", only(fesk),
                                                                   8, sendSetMaintState),
    answered<OmlaVornSubscribeMaintStateCfmS, OmlaVornSubscribeMaintStateRejS>(
        subscribeMaintState, "subscribe to maintenance state", only(fesk), 1, plain<OmlaVornSubscribeMaintStateReqS>),
    answered<OmlaVornOrderHereIAmCfmS, OmlaVornOrderHereIAmRejS>(orderHereIAm, "order Here-I-Am", only(fesk), 6,
                                                                 sendOrderHereIAm),
    answered<OmlaVornSubscribeHereIAmStateCfmS, OmlaVornSubscribeHereIAmStateRejS>(
        subscribeHereIAm, "subscribe to Here-I-Am", only(fesk), 1, plain<OmlaVornSubscribeHereIAmStateReqS>),
    answered<OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS,
             OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS>(
        subscribeOpticalIndicator, "subscribe to optical indicator", only(fesk), 1,
        plain<OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS>),
    answered<OmlaVornOpticalIndicatorControlActivateCfmS, OmlaVornOpticalIndicatorControlActivateRejS>(
        activateOpticalIndicator, "activate optical indicator", only(fesk), 1,
        plain<OmlaVornOpticalIndicatorControlActivateReqS>),
    answered<OmlaVornOpticalIndicatorControlActivateWithDurationCfmS,
             OmlaVornOpticalIndicatorControlActivateWithDurationRejS>(activateOpticalIndicatorFor,
                                                                      "activate optical indicator for a time",
                                                                      only(fesk), 2, sendActivateOpticalIndicatorFor),
    answered<OmlaVornOpticalIndicatorControlDeactivateCfmS, OmlaVornOpticalIndicatorControlDeactivateRejS>(
        deactivateOpticalIndicator, "deactivate optical indicator", only(fesk), 1,
        plain<OmlaVornOpticalIndicatorControlDeactivateReqS>),
    answered<OmlaVornSubscribeDeepSleepStatusCfmS, OmlaVornSubscribeDeepSleepStatusRejS>(
        subscribeDeepSleep, "subscribe to deep sleep", only(yarrowi), 4, plain<OmlaVornSubscribeDeepSleepStatusReqS>),
    answered<OmlaVornActivateDeepSleepCfmS, OmlaVornActivateDeepSleepRejS>(
        activateDeepSleep, "activate deep sleep", only(yarrowi), 4, plain<OmlaVornActivateDeepSleepReqS>),
    answered<OmlaVornDeactivateDeepSleepCfmS, OmlaVornDeactivateDeepSleepRejS>(
        deactivateDeepSleep, "deactivate deep sleep", only(yarrowi), 4, plain<OmlaVornDeactivateDeepSleepReqS>),
    answered<OmlaVornGetRunningLmcCfmS, OmlaVornGetRunningLmcRejS>(getRunningLmc, "running LMC", software, 6,
                                                                   plain<OmlaVornGetRunningLmcReqS>),
    answered<OmlaVornAcquireResourceCfmS, OmlaVornAcquireResourceRejS>(acquireResource, "acquire the software store",
                                                                       software, 0, nullptr),
    answered<OmlaVornReleaseResourceCfmS, OmlaVornReleaseResourceRejS>(releaseResource, "release the software store",
                                                                       software, 0, nullptr),
    answered<OmlaVornLoadLmcInitCfmS, OmlaVornLoadLmcInitRejS>(beginLoad, "begin a load", software, 0, nullptr),
    confirmed<OmlaVornLoadLmcAckS>(loadBlock, "load a block", software, 0, nullptr),
    answered<OmlaVornLoadLmcEndCfmS, OmlaVornLoadLmcEndRejS>(endLoad, "end a load", software, 0, nullptr),
    answered<OmlaVornSelectLmcCfmS, OmlaVornSelectLmcRejS>(selectLmc, "select an LMC", software, 0, nullptr),
    answered<OmlaVornSwCompListCfmS, OmlaVornSwCompListRejS>(listSoftware, "list software", software, 0, nullptr),
};

constexpr bool isInOrder()
{
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (table[i].id != i) {
            return false;
        }
    }
    return table.size() == procedureCount;
}
static_assert(isInOrder());

} // namespace

std::span<const Procedure> procedures()
{
    return table;
}

std::int64_t timeForAnswer(std::uint32_t id)
{
    constexpr std::int64_t usual = 10 * second;
    constexpr std::int64_t ofTicket = 60 * second;
    return id == acquireResource ? ofTicket : usual;
}

} // namespace Endurance
