#include "vorni/signalTable.h"

#include "rhune/rhuneSignals.h"
#include "vorni/access.h"
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
#include <array>
#include <cstring>
#include <fmt/format.h>
#include <string_view>

namespace Vorni {

namespace {

template <typename Record, typename Field>
constexpr FieldKind kindOf()
{
    if constexpr (std::is_array_v<Field>) {
        return std::is_same_v<std::remove_extent_t<Field>, char> ? FieldKind::text : FieldKind::bytes;
    } else {
        return FieldKind::number;
    }
}

#define VORN_FIELD(record_, member_, meaning_)                                                                         \
    FieldInfo                                                                                                          \
    {                                                                                                                  \
#member_, static_cast < std::uint16_t>(offsetof(record_, member_)),                                            \
            static_cast < std::uint16_t>(sizeof(record_::member_)), kindOf < record_, decltype(record_::member_)>(),   \
            meaning_                                                                                                   \
    }

/// A text that follows the record.
template <typename Record>
constexpr FieldInfo textBehindRecord(const char* name, const char* meaning)
{
    return {name, static_cast<std::uint16_t>(sizeof(Record)), 0, FieldKind::text, meaning};
}

constexpr std::span<const FieldInfo> noFields;

// Every reject of the usual form has the fields of this one.
using AnyReject = VornRejectSignal<0>;
constexpr std::array rejectFields{VORN_FIELD(AnyReject, errorCode, ""), VORN_FIELD(AnyReject, errorText, "")};

using AnyDescribedReject = VornDescribedRejectSignal<0>;
constexpr std::array describedRejectFields{VORN_FIELD(AnyDescribedReject, errorCode, "1"),
                                           VORN_FIELD(AnyDescribedReject, description, "")};

constexpr std::array connEstablishReqFields{
    VORN_FIELD(OmlaVornConnEstablishReqS, protocolRev, "the client's protocol revision")};
constexpr std::array selectMmiReqFields{VORN_FIELD(OmlaVornSelectMmiReqS, mode, "1 is supported")};
constexpr std::array setUtcTimeReqFields{VORN_FIELD(OmlaVornSetUtcTimeReqS, utcTime, "passed on untouched")};
constexpr std::array auditCfmFields{VORN_FIELD(OmlaVornAuditCfmS, state, "0 starting, 1 operational, 2 disabled")};
constexpr std::array faultIndFields{VORN_FIELD(OmlaVornFaultIndS, faultId, ""),
                                    VORN_FIELD(OmlaVornFaultIndS, faultDescription, ""),
                                    VORN_FIELD(OmlaVornFaultIndS, faultCase, "the producer's sub-code")};
constexpr std::array faultceaseIndFields{VORN_FIELD(OmlaVornFaultceaseIndS, faultId, ""),
                                         VORN_FIELD(OmlaVornFaultceaseIndS, faultCase, "of the fault that was raised")};
using FaultWithLabelIndS = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;
constexpr std::array faultWithLabelIndFields{VORN_FIELD(FaultWithLabelIndS, faultId, ""),
                                             VORN_FIELD(FaultWithLabelIndS, faultDescription, ""),
                                             VORN_FIELD(FaultWithLabelIndS, faultCase, "the producer's sub-code"),
                                             VORN_FIELD(FaultWithLabelIndS, recoveryTime, "seconds, 300 at least"),
                                             VORN_FIELD(FaultWithLabelIndS, hwFaultLabel, "may be empty")};
constexpr std::array loadModuleFields{textBehindRecord<OmlaVornLoadLmcInitReqS>("loadModule", "its name")};
constexpr std::array loadLmcInitCfmFields{
    VORN_FIELD(OmlaVornLoadLmcInitCfmS, loadInitResult, "0 data may follow, 1 already loaded, 2 running")};
constexpr std::array loadLmcDataFields{VORN_FIELD(OmlaVornLoadLmcDataS, lmSeqNr, "the block's number"),
                                       VORN_FIELD(OmlaVornLoadLmcDataS, noOfBytes, "of the block, which follows")};
constexpr std::array loadLmcAckFields{VORN_FIELD(OmlaVornLoadLmcAckS, lmSeqNr, "of the block")};
constexpr std::array loadLmcEndCfmFields{VORN_FIELD(OmlaVornLoadLmcEndCfmS, loadResult, "0 completed, 1 failed")};
constexpr std::array swCompListDataFields{VORN_FIELD(OmlaVornSwCompListDataS, endFlag, "1 in the last part"),
                                          VORN_FIELD(OmlaVornSwCompListDataS, noOfBytes, "of the text"),
                                          textBehindRecord<OmlaVornSwCompListDataS>("text", "a part of the list")};
constexpr std::array swCompListAckFields{VORN_FIELD(OmlaVornSwCompListAckS, abort, "not 0: no more")};
constexpr std::array getRunningLmcCfmFields{VORN_FIELD(OmlaVornGetRunningLmcCfmS, loadModule, "its name")};
using AnyResource = VornResourceSignal<0>;
constexpr std::array resourceFields{VORN_FIELD(AnyResource, resource, "")};
using AnyResourceReject = VornResourceRejectSignal<0>;
constexpr std::array resourceRejectFields{VORN_FIELD(AnyResourceReject, resource, ""),
                                          VORN_FIELD(AnyResourceReject, errorCode, "1"),
                                          VORN_FIELD(AnyResourceReject, description, "")};
constexpr std::array getCapabilitiesCfmFields{
    VORN_FIELD(OmlaVornGetCapabilitiesCfmS, noOfRecords, "records that are filled; they follow, 220 bytes each")};
constexpr std::array getHwPidCfmFields{
    VORN_FIELD(OmlaVornGetHwPidCfmS, productionDate, ""), VORN_FIELD(OmlaVornGetHwPidCfmS, productName, ""),
    VORN_FIELD(OmlaVornGetHwPidCfmS, productNumber, ""), VORN_FIELD(OmlaVornGetHwPidCfmS, productRevision, ""),
    VORN_FIELD(OmlaVornGetHwPidCfmS, serialNumber, "")};
constexpr std::array getContainerPidCfmFields{VORN_FIELD(OmlaVornGetContainerPidCfmS, productionDate, ""),
                                              VORN_FIELD(OmlaVornGetContainerPidCfmS, productName, ""),
                                              VORN_FIELD(OmlaVornGetContainerPidCfmS, productNumber, ""),
                                              VORN_FIELD(OmlaVornGetContainerPidCfmS, productRevision, ""),
                                              VORN_FIELD(OmlaVornGetContainerPidCfmS, serialNumber, "")};
constexpr std::array getMarketNamePidCfmFields{VORN_FIELD(OmlaVornGetMarketNamePidCfmS, productionDate, ""),
                                               VORN_FIELD(OmlaVornGetMarketNamePidCfmS, productName, ""),
                                               VORN_FIELD(OmlaVornGetMarketNamePidCfmS, marketName, ""),
                                               VORN_FIELD(OmlaVornGetMarketNamePidCfmS, productNumber, ""),
                                               VORN_FIELD(OmlaVornGetMarketNamePidCfmS, productRevision, ""),
                                               VORN_FIELD(OmlaVornGetMarketNamePidCfmS, serialNumber, "")};
constexpr std::array getExtendedMarketNameCfmFields{VORN_FIELD(OmlaVornGetExtendedMarketNameCfmS, marketName, "")};
constexpr std::array hwlogSetReqFields{
    VORN_FIELD(OmlaVornHwLogSetReqS, label, ""),
    VORN_FIELD(OmlaVornHwLogSetReqS, logId, "0 to 999; 2 is the node configuration log"),
    VORN_FIELD(OmlaVornHwLogSetReqS, length, "number of entries"),
    VORN_FIELD(OmlaVornHwLogSetReqS, entries, "zero-terminated texts, one behind the other")};
constexpr std::array hwlogSetRejFields{VORN_FIELD(AnyDescribedReject, errorCode, "1 failed, 2 no such log"),
                                       VORN_FIELD(AnyDescribedReject, description, "")};
constexpr std::array hwlogGetReqFields{VORN_FIELD(OmlaVornHwLogGetReqS, logId, "")};
constexpr std::array hwlogGetCfmFields{
    VORN_FIELD(OmlaVornHwLogGetCfmS, length, "number of entries"),
    VORN_FIELD(OmlaVornHwLogGetCfmS, entries, "zero-terminated texts, one behind the other")};
constexpr std::array getFruDescFileReqFields{textBehindRecord<OmlaVornGetFruDescFileReqS>("fdfId", "")};
constexpr std::array fruDescFileDataFields{VORN_FIELD(OmlaVornFruDescFileDataS, noOfBytes, "of the text"),
                                           VORN_FIELD(OmlaVornFruDescFileDataS, endFlag, "1 in the last part"),
                                           textBehindRecord<OmlaVornFruDescFileDataS>("text", "a part of the file")};
constexpr std::array setVisualIndicationReqFields{
    VORN_FIELD(OmlaVornSetVisualIndicationReqS, visualState, "code of indicator and state")};
constexpr std::array getVisualIndicationCfmFields{
    VORN_FIELD(OmlaVornGetVisualIndicationCfmS, firstIndication, "code; 255 unknown"),
    VORN_FIELD(OmlaVornGetVisualIndicationCfmS, secondIndication, "code; 255 unknown"),
    VORN_FIELD(OmlaVornGetVisualIndicationCfmS, fourthIndication, "code; 255 unknown"),
    VORN_FIELD(OmlaVornGetVisualIndicationCfmS, thirdIndication, "code; 255 unknown")};
constexpr std::array getSpecialIndicatorCfmFields{
    VORN_FIELD(OmlaVornGetSpecialIndicatorCfmS, noOfIndicators, "they follow, 132 bytes each")};
constexpr std::array maintStateReqFields{
    VORN_FIELD(OmlaVornSetMaintStateReqS, maintState, "0, 2, 3 or 4; 1 can be told, not asked for")};
constexpr std::array maintStateIndFields{VORN_FIELD(OmlaVornSetMaintStateIndS, maintState, "0 to 4")};
constexpr std::array restartBoardFwdFields{textBehindRecord<OmlaVornRestartBoardFwdS>("traceInformation", "")};
constexpr std::array notifyRestartReqFields{
    VORN_FIELD(OmlaVornNotifyRestartReqS, value, "the supervision time-out that the client needs"),
    VORN_FIELD(OmlaVornNotifyRestartReqS, text, "why")};
constexpr std::array restartNotificationIndFields{
    VORN_FIELD(OmlaVornRestartNotificationIndS, restartCode, ""),
    VORN_FIELD(OmlaVornRestartNotificationIndS, restartType, ""),
    VORN_FIELD(OmlaVornRestartNotificationIndS, originator, "0 this client, 1 another, 2 the board"),
    VORN_FIELD(OmlaVornRestartNotificationIndS, restartRank, ""),
    VORN_FIELD(OmlaVornRestartNotificationIndS, traceInformation, ""),
    VORN_FIELD(OmlaVornRestartNotificationIndS, label, "")};
using RankAndLabelFwdS = OmlaVornRestartBoardWithRankAndLabelFwdS;
constexpr std::array rankAndLabelFwdFields{
    VORN_FIELD(RankAndLabelFwdS, restartCode, ""),
    VORN_FIELD(RankAndLabelFwdS, restartRank, "1 warm, 2 cold, 3 cold with test, 4 program, 5 power cycle"),
    FieldInfo{"traceInformation", sizeof(RankAndLabelFwdS), RankAndLabelFwdS::traceInformationSize, FieldKind::text,
              ""},
    FieldInfo{"label", RankAndLabelFwdS::labelOffset, 0, FieldKind::text, ""}};
constexpr std::array getEventHistoryReqFields{
    VORN_FIELD(OmlaVornGetEventHistoryReqS, noOfEvents, "of each kind, at most")};
constexpr std::array getEventHistoryCfmFields{
    VORN_FIELD(OmlaVornGetEventHistoryCfmS, noOfEvents, ""),
    FieldInfo{"events", offsetof(OmlaVornGetEventHistoryCfmS, events), 0, FieldKind::bytes, "168 bytes each"}};
constexpr std::array tempMeasStartReqFields{
    VORN_FIELD(OmlaVornTempMeasStartReqS, hotSpotMeasurementPeriod, "seconds, 1 to 30; 0 asks for a stop")};
constexpr std::array tempMeasIndFields{
    VORN_FIELD(OmlaVornTempMeasIndS, noOfReadings, "at most 10"),
    VORN_FIELD(OmlaVornTempMeasIndS, readings, "degrees Celsius, two bytes each, signed")};
constexpr std::array orderHereIAmReqFields{VORN_FIELD(OmlaVornOrderHereIAmReqS, order, "1 or 2")};
constexpr std::array orderHereIAmCfmFields{VORN_FIELD(OmlaVornOrderHereIAmCfmS, state, "the board's"),
                                           VORN_FIELD(OmlaVornOrderHereIAmCfmS, description, "the board's")};
constexpr std::array hereIAmStateIndFields{VORN_FIELD(OmlaVornHereIAmStateIndS, state, "the board's")};
constexpr std::array opticalStatusChangeIndFields{
    VORN_FIELD(OmlaVornOpticalIndicatorControlStatusChangeIndS, state, "the board's")};
constexpr std::array opticalActivateWithDurationReqFields{
    VORN_FIELD(OmlaVornOpticalIndicatorControlActivateWithDurationReqS, duration, "seconds")};
constexpr std::array rhuneConnEstablishReqFields{
    VORN_FIELD(RhuneVornConnEstablishReqS, nbrOfSupportedProtocolRev, "the revisions follow, 4 bytes each")};
constexpr std::array rhuneConnEstablishCfmFields{VORN_FIELD(RhuneVornConnEstablishCfmS, selectedProtocolRevision, "1")};
constexpr std::array rhuneConnEstablishRejFields{VORN_FIELD(RhuneVornConnEstablishRejS, errorCode, "1"),
                                                 VORN_FIELD(RhuneVornConnEstablishRejS, errorDescription, "")};
constexpr std::array rhuneFaultFwdFields{VORN_FIELD(RhuneVornFaultFwdS, faultId, ""),
                                         VORN_FIELD(RhuneVornFaultFwdS, faultDescription, ""),
                                         VORN_FIELD(RhuneVornFaultFwdS, recoveryTime, "seconds"),
                                         VORN_FIELD(RhuneVornFaultFwdS, hwFaultLabel, "may be empty")};
constexpr std::array rhuneFaultceaseFwdFields{VORN_FIELD(RhuneVornFaultceaseFwdS, faultId, "")};
constexpr std::array deepSleepStatusIndFields{
    VORN_FIELD(OmlaVornDeepSleepStatusIndS, status, "0 inactive, 1 pre-active, 2 activating, 3 active, 4 failure"),
    VORN_FIELD(OmlaVornDeepSleepStatusIndS, statusText, "")};

template <typename Record>
constexpr SignalInfo row(const char* name, Direction direction, const char* answeredBy,
                         std::span<const FieldInfo> fields = noFields, bool openEnded = false)
{
    const Protocol protocol = std::string_view(name).starts_with("RHUNE") ? Protocol::rhune : Protocol::vorni;
    return {Record::number, protocol, name, sizeof(Record), openEnded, direction, answeredBy, fields};
}

constexpr auto toServer = Direction::toServer;
constexpr auto toClient = Direction::toClient;
constexpr bool openEnded = true;

const std::array table{
    row<OmlaVornConnEstablishReqS>("OMLA_VORN_CONN_ESTABLISH_REQ", toServer, "VornServerImpl", connEstablishReqFields,
                                   openEnded),
    row<OmlaVornConnEstablishCfmS>("OMLA_VORN_CONN_ESTABLISH_CFM", toClient, "VornServerImpl", noFields, openEnded),
    row<OmlaVornConnEstablishRejS>("OMLA_VORN_CONN_ESTABLISH_REJ", toClient, "VornServerImpl", noFields, openEnded),
    row<OmlaVornRestartBoardFwdS>("OMLA_VORN_RESTART_BOARD_FWD", toServer, "VornServerRestart", restartBoardFwdFields,
                                  openEnded),
    row<OmlaVornSetVisualIndicationReqS>("OMLA_VORN_SET_VISUAL_INDICATION_REQ", toServer, "VornServerVisual",
                                         setVisualIndicationReqFields, openEnded),
    row<OmlaVornSetVisualIndicationCfmS>("OMLA_VORN_SET_VISUAL_INDICATION_CFM", toClient, "VornServerVisual"),
    row<OmlaVornSetVisualIndicationRejS>("OMLA_VORN_SET_VISUAL_INDICATION_REJ", toClient, "VornServerVisual",
                                         rejectFields),
    row<OmlaVornGetCapabilitiesReqS>("OMLA_VORN_GET_CAPABILITIES_REQ", toServer, "VornServerCapabilities"),
    row<OmlaVornGetCapabilitiesCfmS>("OMLA_VORN_GET_CAPABILITIES_CFM", toClient, "VornServerCapabilities",
                                     getCapabilitiesCfmFields, openEnded),
    row<OmlaVornSubscribeFaultsReqS>("OMLA_VORN_SUBSCRIBE_FAULTS_REQ", toServer, "VornServerFaultHandling"),
    row<OmlaVornSubscribeFaultsCfmS>("OMLA_VORN_SUBSCRIBE_FAULTS_CFM", toClient, "VornServerFaultHandling"),
    row<OmlaVornFaultIndS>("OMLA_VORN_FAULT_IND", toClient, "VornServerFaultHandling", faultIndFields),
    row<OmlaVornFaultceaseIndS>("OMLA_VORN_FAULTCEASE_IND", toClient, "VornServerFaultHandling", faultceaseIndFields),
    row<OmlaVornGetVisualIndicationReqS>("OMLA_VORN_GET_VISUAL_INDICATION_REQ", toServer, "VornServerVisual"),
    row<OmlaVornGetVisualIndicationCfmS>("OMLA_VORN_GET_VISUAL_INDICATION_CFM", toClient, "VornServerVisual",
                                         getVisualIndicationCfmFields),
    row<OmlaVornGetVisualIndicationRejS>("OMLA_VORN_GET_VISUAL_INDICATION_REJ", toClient, "VornServerVisual",
                                         rejectFields),
    row<OmlaVornSelectMmiReqS>("OMLA_VORN_SELECT_MMI_REQ", toServer, "VornServerMmiHandling", selectMmiReqFields),
    row<OmlaVornSelectMmiCfmS>("OMLA_VORN_SELECT_MMI_CFM", toClient, "VornServerMmiHandling"),
    row<OmlaVornSelectMmiRejS>("OMLA_VORN_SELECT_MMI_REJ", toClient, "VornServerMmiHandling", rejectFields),
    row<OmlaVornSubscribeMaintStateReqS>("OMLA_VORN_SUBSCRIBE_MAINT_STATE_REQ", toServer, "VornServerMaintState"),
    row<OmlaVornSubscribeMaintStateCfmS>("OMLA_VORN_SUBSCRIBE_MAINT_STATE_CFM", toClient, "VornServerMaintState"),
    row<OmlaVornSubscribeMaintStateRejS>("OMLA_VORN_SUBSCRIBE_MAINT_STATE_REJ", toClient, "VornServerMaintState",
                                         rejectFields),
    row<OmlaVornSetMaintStateIndS>("OMLA_VORN_SET_MAINT_STATE_IND", toClient, "VornServerMaintState",
                                   maintStateIndFields),
    row<OmlaVornSetMaintStateReqS>("OMLA_VORN_SET_MAINT_STATE_REQ", toServer, "VornServerMaintState",
                                   maintStateReqFields),
    row<OmlaVornSetMaintStateCfmS>("OMLA_VORN_SET_MAINT_STATE_CFM", toClient, "VornServerMaintState"),
    row<OmlaVornSetMaintStateRejS>("OMLA_VORN_SET_MAINT_STATE_REJ", toClient, "VornServerMaintState", rejectFields),
    row<OmlaVornLinkSupervisionReqS>("OMLA_VORN_LINK_SUPERVISION_REQ", toServer, "VornServerLinkSupervision", noFields,
                                     openEnded),
    row<OmlaVornLinkSupervisionRejS>("OMLA_VORN_LINK_SUPERVISION_REJ", toClient, "VornServerLinkSupervision",
                                     rejectFields),
    row<OmlaVornGetHwPidReqS>("OMLA_VORN_GET_HW_PID_REQ", toServer, "VornServerPid"),
    row<OmlaVornGetHwPidCfmS>("OMLA_VORN_GET_HW_PID_CFM", toClient, "VornServerPid", getHwPidCfmFields),
    row<OmlaVornGetHwPidRejS>("OMLA_VORN_GET_HW_PID_REJ", toClient, "VornServerPid", describedRejectFields),
    row<OmlaVornGetContainerPidReqS>("OMLA_VORN_GET_CONTAINER_PID_REQ", toServer, "VornServerPid"),
    row<OmlaVornGetContainerPidCfmS>("OMLA_VORN_GET_CONTAINER_PID_CFM", toClient, "VornServerPid",
                                     getContainerPidCfmFields),
    row<OmlaVornGetContainerPidRejS>("OMLA_VORN_GET_CONTAINER_PID_REJ", toClient, "VornServerPid",
                                     describedRejectFields),
    row<OmlaVornGetMarketNamePidReqS>("OMLA_VORN_GET_MARKET_NAME_PID_REQ", toServer, "VornServerPid"),
    row<OmlaVornGetMarketNamePidCfmS>("OMLA_VORN_GET_MARKET_NAME_PID_CFM", toClient, "VornServerPid",
                                      getMarketNamePidCfmFields),
    row<OmlaVornGetMarketNamePidRejS>("OMLA_VORN_GET_MARKET_NAME_PID_REJ", toClient, "VornServerPid",
                                      describedRejectFields),
    row<OmlaVornGetExtendedMarketNameReqS>("OMLA_VORN_GET_EXTENDED_MARKET_NAME_REQ", toServer, "VornServerPid"),
    row<OmlaVornGetExtendedMarketNameCfmS>("OMLA_VORN_GET_EXTENDED_MARKET_NAME_CFM", toClient, "VornServerPid",
                                           getExtendedMarketNameCfmFields),
    row<OmlaVornGetExtendedMarketNameRejS>("OMLA_VORN_GET_EXTENDED_MARKET_NAME_REJ", toClient, "VornServerPid",
                                           describedRejectFields),
    row<OmlaVornAuditReqS>("OMLA_VORN_AUDIT_REQ", toServer, "VornServerState"),
    row<OmlaVornAuditCfmS>("OMLA_VORN_AUDIT_CFM", toClient, "VornServerState", auditCfmFields),
    row<OmlaVornEnableOperationReqS>("OMLA_VORN_ENABLE_OPERATION_REQ", toServer, "VornServerState"),
    row<OmlaVornEnableOperationCfmS>("OMLA_VORN_ENABLE_OPERATION_CFM", toClient, "VornServerState"),
    row<OmlaVornEnableOperationRejS>("OMLA_VORN_ENABLE_OPERATION_REJ", toClient, "VornServerState", rejectFields),
    row<OmlaVornDisableOperationReqS>("OMLA_VORN_DISABLE_OPERATION_REQ", toServer, "VornServerState"),
    row<OmlaVornDisableOperationCfmS>("OMLA_VORN_DISABLE_OPERATION_CFM", toClient, "VornServerState"),
    row<OmlaVornDisableOperationRejS>("OMLA_VORN_DISABLE_OPERATION_REJ", toClient, "VornServerState", rejectFields),
    row<OmlaVornLoadLmcInitReqS>("OMLA_VORN_LOAD_LMC_INIT_REQ", toServer, "VornServerGanti", loadModuleFields,
                                 openEnded),
    row<OmlaVornLoadLmcInitCfmS>("OMLA_VORN_LOAD_LMC_INIT_CFM", toClient, "VornServerGanti", loadLmcInitCfmFields),
    row<OmlaVornLoadLmcInitRejS>("OMLA_VORN_LOAD_LMC_INIT_REJ", toClient, "VornServerGanti", describedRejectFields),
    row<OmlaVornLoadLmcDataS>("OMLA_VORN_LOAD_LMC_DATA", toServer, "VornServerGanti", loadLmcDataFields, openEnded),
    row<OmlaVornLoadLmcAckS>("OMLA_VORN_LOAD_LMC_ACK", toClient, "VornServerGanti", loadLmcAckFields),
    row<OmlaVornLoadLmcEndReqS>("OMLA_VORN_LOAD_LMC_END_REQ", toServer, "VornServerGanti"),
    row<OmlaVornLoadLmcEndCfmS>("OMLA_VORN_LOAD_LMC_END_CFM", toClient, "VornServerGanti", loadLmcEndCfmFields),
    row<OmlaVornLoadLmcEndRejS>("OMLA_VORN_LOAD_LMC_END_REJ", toClient, "VornServerGanti", describedRejectFields),
    row<OmlaVornSelectLmcReqS>("OMLA_VORN_SELECT_LMC_REQ", toServer, "VornServerGanti", loadModuleFields, openEnded),
    row<OmlaVornSelectLmcCfmS>("OMLA_VORN_SELECT_LMC_CFM", toClient, "VornServerGanti"),
    row<OmlaVornSelectLmcRejS>("OMLA_VORN_SELECT_LMC_REJ", toClient, "VornServerGanti", describedRejectFields),
    row<OmlaVornSwCompListReqS>("OMLA_VORN_SW_COMP_LIST_REQ", toServer, "VornServerGanti"),
    row<OmlaVornSwCompListCfmS>("OMLA_VORN_SW_COMP_LIST_CFM", toClient, "VornServerGanti"),
    row<OmlaVornSwCompListRejS>("OMLA_VORN_SW_COMP_LIST_REJ", toClient, "VornServerGanti", describedRejectFields),
    row<OmlaVornSwCompListDataS>("OMLA_VORN_SW_COMP_LIST_DATA", toClient, "VornServerGanti", swCompListDataFields,
                                 openEnded),
    row<OmlaVornSwCompListAckS>("OMLA_VORN_SW_COMP_LIST_ACK", toServer, "VornServerGanti", swCompListAckFields),
    row<OmlaVornGetRunningLmcReqS>("OMLA_VORN_GET_RUNNING_LMC_REQ", toServer, "VornServerGanti"),
    row<OmlaVornGetRunningLmcCfmS>("OMLA_VORN_GET_RUNNING_LMC_CFM", toClient, "VornServerGanti",
                                   getRunningLmcCfmFields),
    row<OmlaVornGetRunningLmcRejS>("OMLA_VORN_GET_RUNNING_LMC_REJ", toClient, "VornServerGanti", describedRejectFields),
    row<OmlaVornNotifyRestartReqS>("OMLA_VORN_NOTIFY_RESTART_REQ", toServer, "VornServerRestart",
                                   notifyRestartReqFields),
    row<OmlaVornNotifyRestartCfmS>("OMLA_VORN_NOTIFY_RESTART_CFM", toClient, "VornServerRestart"),
    row<OmlaVornNotifyRestartRejS>("OMLA_VORN_NOTIFY_RESTART_REJ", toClient, "VornServerRestart", rejectFields),
    row<OmlaVornTempMeasStartReqS>("OMLA_VORN_TEMP_MEAS_START_REQ", toServer, "VornServerTemperature",
                                   tempMeasStartReqFields, openEnded),
    row<OmlaVornTempMeasStartCfmS>("OMLA_VORN_TEMP_MEAS_START_CFM", toClient, "VornServerTemperature"),
    row<OmlaVornTempMeasStartRejS>("OMLA_VORN_TEMP_MEAS_START_REJ", toClient, "VornServerTemperature", rejectFields),
    row<OmlaVornTempMeasIndS>("OMLA_VORN_TEMP_MEAS_IND", toClient, "VornServerTemperature", tempMeasIndFields),
    row<OmlaVornHwLogSetReqS>("OMLA_VORN_HWLOG_SET_REQ", toServer, "VornServerHwLog", hwlogSetReqFields, openEnded),
    row<OmlaVornHwLogSetCfmS>("OMLA_VORN_HWLOG_SET_CFM", toClient, "VornServerHwLog"),
    row<OmlaVornHwLogSetRejS>("OMLA_VORN_HWLOG_SET_REJ", toClient, "VornServerHwLog", hwlogSetRejFields),
    row<OmlaVornHwLogGetReqS>("OMLA_VORN_HWLOG_GET_REQ", toServer, "VornServerHwLog", hwlogGetReqFields),
    row<OmlaVornHwLogGetCfmS>("OMLA_VORN_HWLOG_GET_CFM", toClient, "VornServerHwLog", hwlogGetCfmFields),
    row<OmlaVornHwLogGetRejS>("OMLA_VORN_HWLOG_GET_REJ", toClient, "VornServerHwLog", hwlogSetRejFields),
    row<OmlaVornSetUtcTimeReqS>("OMLA_VORN_SET_UTC_TIME_REQ", toServer, "VornServerTime", setUtcTimeReqFields),
    row<OmlaVornSetUtcTimeCfmS>("OMLA_VORN_SET_UTC_TIME_CFM", toClient, "VornServerTime"),
    row<OmlaVornSetUtcTimeRejS>("OMLA_VORN_SET_UTC_TIME_REJ", toClient, "VornServerTime", describedRejectFields),
    row<OmlaVornAcquireResourceReqS>("OMLA_VORN_ACQUIRE_RESOURCE_REQ", toServer, "VornServerGanti", resourceFields),
    row<OmlaVornAcquireResourceCfmS>("OMLA_VORN_ACQUIRE_RESOURCE_CFM", toClient, "VornServerGanti", resourceFields),
    row<OmlaVornAcquireResourceRejS>("OMLA_VORN_ACQUIRE_RESOURCE_REJ", toClient, "VornServerGanti",
                                     resourceRejectFields),
    row<OmlaVornReleaseResourceReqS>("OMLA_VORN_RELEASE_RESOURCE_REQ", toServer, "VornServerGanti", resourceFields),
    row<OmlaVornReleaseResourceCfmS>("OMLA_VORN_RELEASE_RESOURCE_CFM", toClient, "VornServerGanti", resourceFields),
    row<OmlaVornReleaseResourceRejS>("OMLA_VORN_RELEASE_RESOURCE_REJ", toClient, "VornServerGanti",
                                     resourceRejectFields),
    row<OmlaVornGetSpecialIndicatorReqS>("OMLA_VORN_GET_SPECIAL_INDICATOR_REQ", toServer, "VornServerVisual"),
    row<OmlaVornGetSpecialIndicatorCfmS>("OMLA_VORN_GET_SPECIAL_INDICATOR_CFM", toClient, "VornServerVisual",
                                         getSpecialIndicatorCfmFields, openEnded),
    row<OmlaVornGetSpecialIndicatorRejS>("OMLA_VORN_GET_SPECIAL_INDICATOR_REJ", toClient, "VornServerVisual",
                                         rejectFields),
    row<OmlaVornSubscribeRestartNotificationReqS>("OMLA_VORN_SUBSCRIBE_RESTART_NOTIFICATION_REQ", toServer,
                                                  "VornServerRestart"),
    row<OmlaVornSubscribeRestartNotificationCfmS>("OMLA_VORN_SUBSCRIBE_RESTART_NOTIFICATION_CFM", toClient,
                                                  "VornServerRestart"),
    row<OmlaVornSubscribeRestartNotificationRejS>("OMLA_VORN_SUBSCRIBE_RESTART_NOTIFICATION_REJ", toClient,
                                                  "VornServerRestart", rejectFields),
    row<OmlaVornRestartNotificationIndS>("OMLA_VORN_RESTART_NOTIFICATION_IND", toClient, "VornServerRestart",
                                         restartNotificationIndFields),
    row<RankAndLabelFwdS>("OMLA_VORN_RESTART_BOARD_WITH_RANK_AND_LABEL_FWD", toServer, "VornServerRestart",
                          rankAndLabelFwdFields, openEnded),
    row<OmlaVornGetEventHistoryReqS>("OMLA_VORN_GET_EVENT_HISTORY_REQ", toServer, "VornServerRestart",
                                     getEventHistoryReqFields),
    row<OmlaVornGetEventHistoryCfmS>("OMLA_VORN_GET_EVENT_HISTORY_CFM", toClient, "VornServerRestart",
                                     getEventHistoryCfmFields, openEnded),
    row<OmlaVornGetEventHistoryRejS>("OMLA_VORN_GET_EVENT_HISTORY_REJ", toClient, "VornServerRestart", rejectFields),
    row<FaultWithLabelIndS>("OMLA_VORN_FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", toClient,
                            "VornServerFaultHandling", faultWithLabelIndFields),
    row<OmlaVornSubscribeFaultsWithHwFaultLabelCfmS>("OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_CFM", toClient,
                                                     "VornServerFaultHandling"),
    row<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>("OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ", toServer,
                                                     "VornServerFaultHandling"),
    row<OmlaVornOrderHereIAmReqS>("OMLA_VORN_ORDER_HERE_I_AM_REQ", toServer, "VornServerHereIAm", orderHereIAmReqFields,
                                  openEnded),
    row<OmlaVornOrderHereIAmCfmS>("OMLA_VORN_ORDER_HERE_I_AM_CFM", toClient, "VornServerHereIAm",
                                  orderHereIAmCfmFields),
    row<OmlaVornOrderHereIAmRejS>("OMLA_VORN_ORDER_HERE_I_AM_REJ", toClient, "VornServerHereIAm", rejectFields),
    row<OmlaVornSubscribeHereIAmStateReqS>("OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ", toServer, "VornServerHereIAm"),
    row<OmlaVornSubscribeHereIAmStateCfmS>("OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_CFM", toClient, "VornServerHereIAm"),
    row<OmlaVornSubscribeHereIAmStateRejS>("OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REJ", toClient, "VornServerHereIAm",
                                           rejectFields),
    row<OmlaVornHereIAmStateIndS>("OMLA_VORN_HERE_I_AM_STATE_IND", toClient, "VornServerHereIAm",
                                  hereIAmStateIndFields),
    row<OmlaVornGetFruDescFileReqS>("OMLA_VORN_GET_FRU_DESC_FILE_REQ", toServer, "VornServerFdf",
                                    getFruDescFileReqFields, openEnded),
    row<OmlaVornGetFruDescFileCfmS>("OMLA_VORN_GET_FRU_DESC_FILE_CFM", toClient, "VornServerFdf"),
    row<OmlaVornGetFruDescFileRejS>("OMLA_VORN_GET_FRU_DESC_FILE_REJ", toClient, "VornServerFdf",
                                    describedRejectFields),
    row<OmlaVornFruDescFileDataS>("OMLA_VORN_FRU_DESC_FILE_DATA", toClient, "VornServerFdf", fruDescFileDataFields,
                                  openEnded),
    row<OmlaVornFruDescFileAckS>("OMLA_VORN_FRU_DESC_FILE_ACK", toServer, "VornServerFdf"),
    row<OmlaVornSubscribeDeepSleepStatusReqS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REQ", toServer,
                                              "VornServerYarrowI"),
    row<OmlaVornSubscribeDeepSleepStatusCfmS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_CFM", toClient,
                                              "VornServerYarrowI"),
    row<OmlaVornSubscribeDeepSleepStatusRejS>("OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REJ", toClient,
                                              "VornServerYarrowI", rejectFields),
    row<OmlaVornDeepSleepStatusIndS>("OMLA_VORN_DEEP_SLEEP_STATUS_IND", toClient, "VornServerYarrowI",
                                     deepSleepStatusIndFields),
    row<OmlaVornActivateDeepSleepReqS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_REQ", toServer, "VornServerYarrowI"),
    row<OmlaVornActivateDeepSleepCfmS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_CFM", toClient, "VornServerYarrowI"),
    row<OmlaVornActivateDeepSleepRejS>("OMLA_VORN_ACTIVATE_DEEP_SLEEP_REJ", toClient, "VornServerYarrowI",
                                       rejectFields),
    row<OmlaVornDeactivateDeepSleepReqS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REQ", toServer, "VornServerYarrowI"),
    row<OmlaVornDeactivateDeepSleepCfmS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_CFM", toClient, "VornServerYarrowI"),
    row<OmlaVornDeactivateDeepSleepRejS>("OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REJ", toClient, "VornServerYarrowI",
                                         rejectFields),
    row<OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_SUBSCRIBE_STATUS_CHANGE_REQ", toServer,
        "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_SUBSCRIBE_STATUS_CHANGE_CFM", toClient,
        "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_SUBSCRIBE_STATUS_CHANGE_REJ", toClient,
        "VornServerOpticalIndicatorControl", rejectFields),
    row<OmlaVornOpticalIndicatorControlStatusChangeIndS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_STATUS_CHANGE_IND",
                                                         toClient, "VornServerOpticalIndicatorControl",
                                                         opticalStatusChangeIndFields),
    row<OmlaVornOpticalIndicatorControlActivateReqS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_REQ", toServer,
                                                     "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlActivateCfmS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_CFM", toClient,
                                                     "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlActivateRejS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_REJ", toClient,
                                                     "VornServerOpticalIndicatorControl", rejectFields),
    row<OmlaVornOpticalIndicatorControlDeactivateReqS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_DEACTIVATE_REQ", toServer,
                                                       "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlDeactivateCfmS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_DEACTIVATE_CFM", toClient,
                                                       "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlDeactivateRejS>("OMLA_VORN_OPTICAL_INDICATOR_CONTROL_DEACTIVATE_REJ", toClient,
                                                       "VornServerOpticalIndicatorControl", rejectFields),
    row<OmlaVornOpticalIndicatorControlActivateWithDurationReqS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_WITH_DURATION_REQ", toServer, "VornServerOpticalIndicatorControl",
        opticalActivateWithDurationReqFields),
    row<OmlaVornOpticalIndicatorControlActivateWithDurationCfmS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_WITH_DURATION_CFM", toClient,
        "VornServerOpticalIndicatorControl"),
    row<OmlaVornOpticalIndicatorControlActivateWithDurationRejS>(
        "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_WITH_DURATION_REJ", toClient, "VornServerOpticalIndicatorControl",
        rejectFields),
    row<RhuneVornConnEstablishReqS>("RHUNE_VORN_CONN_ESTABLISH_REQ", toServer, "RhuneConnEstablish",
                                    rhuneConnEstablishReqFields, openEnded),
    row<RhuneVornConnEstablishCfmS>("RHUNE_VORN_CONN_ESTABLISH_CFM", toClient, "RhuneConnEstablish",
                                    rhuneConnEstablishCfmFields),
    row<RhuneVornConnEstablishRejS>("RHUNE_VORN_CONN_ESTABLISH_REJ", toClient, "RhuneConnEstablish",
                                    rhuneConnEstablishRejFields),
    row<RhuneVornFaultFwdS>("RHUNE_VORN_FAULT_FWD", toServer, "RhuneFaultFwd", rhuneFaultFwdFields),
    row<RhuneVornFaultceaseFwdS>("RHUNE_VORN_FAULTCEASE_FWD", toServer, "RhuneFaultFwd", rhuneFaultceaseFwdFields),
    row<RhuneVornConnCloseReqS>("RHUNE_VORN_CONN_CLOSE_REQ", toServer, "RhuneConnClose"),
    row<RhuneVornConnCloseCfmS>("RHUNE_VORN_CONN_CLOSE_CFM", toClient, "RhuneConnClose"),
};

std::uint64_t bigEndian(std::span<const std::byte> bytes)
{
    std::uint64_t value = 0;
    for (const std::byte byte : bytes) {
        value = value << 8 | std::to_integer<std::uint64_t>(byte);
    }
    return value;
}

std::string hexDigits(std::span<const std::byte> bytes)
{
    std::string digits;
    for (const std::byte byte : bytes) {
        fmt::format_to(std::back_inserter(digits), "{:02x}", std::to_integer<unsigned>(byte));
    }
    return digits;
}

bool isToTheEnd(const FieldInfo& info)
{
    return info.size == 0;
}

FieldValue decodeField(const FieldInfo& info, std::span<const std::byte> signal, std::size_t maxRest)
{
    const std::size_t left = signal.size() - info.offset;
    const auto bytes = signal.subspan(info.offset, isToTheEnd(info) ? left : std::min<std::size_t>(info.size, left));
    FieldValue value{.info = &info, .number = 0, .text = {}, .isCut = false};
    switch (info.kind) {
    case FieldKind::number:
        value.number = bigEndian(bytes);
        break;
    case FieldKind::text:
        value.text = textUntilZero(bytes);
        break;
    case FieldKind::bytes:
        value.isCut = isToTheEnd(info) && bytes.size() > maxRest;
        value.text = hexDigits(value.isCut ? bytes.first(maxRest) : bytes);
        break;
    }
    return value;
}

/// A number that is cut in two says nothing; a text or a run of bytes that is cut still does.
bool isIn(const FieldInfo& info, std::size_t size)
{
    return info.kind == FieldKind::number ? info.offset + std::size_t{info.size} <= size : info.offset < size;
}

/// Where a field ends in a signal of that size; it may reach over the record.
std::size_t endOf(const FieldInfo& info, std::size_t size)
{
    return isToTheEnd(info) ? size : std::min(info.offset + std::size_t{info.size}, size);
}

std::string printField(const FieldValue& field)
{
    switch (field.info->kind) {
    case FieldKind::number:
        return fmt::format("{}={}", field.info->name, field.number);
    case FieldKind::text:
        return fmt::format("{}=\"{}\"", field.info->name, field.text);
    case FieldKind::bytes:
        break;
    }
    return fmt::format("{}=0x{}{}", field.info->name, field.text, field.isCut ? "..." : "");
}

} // namespace

std::array<const char*, 2> referenceNames(Protocol protocol)
{
    return protocol == Protocol::rhune ? std::array{"procedureRef", "connectionRef"}
                                       : std::array{"clientRef", "serverRef"};
}

std::span<const SignalInfo> signals()
{
    return table;
}

const SignalInfo* findSignal(std::uint32_t number)
{
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const auto& info) { return info.number == number; });
    return found == table.end() ? nullptr : &*found;
}

const SignalInfo* findSignal(std::string_view name)
{
    const auto found = std::find_if(table.begin(), table.end(), [&](const auto& info) { return info.name == name; });
    return found == table.end() ? nullptr : &*found;
}

std::string signalName(std::uint32_t number)
{
    const SignalInfo* info = findSignal(number);
    return info != nullptr ? info->name : fmt::format("{:#x}", number);
}

DecodedSignal decodeSignal(std::span<const std::byte> bytes, std::size_t maxRest)
{
    DecodedSignal decoded;
    if (bytes.size() >= sizeof(decoded.number)) {
        std::memcpy(&decoded.number, bytes.data(), sizeof(decoded.number));
    }
    decoded.info = findSignal(decoded.number);
    if (bytes.size() >= sizeof(VornSignalHeader)) {
        std::size_t offset = offsetof(VornSignalHeader, clientRef);
        for (const char* name : referenceNames(decoded.info != nullptr ? decoded.info->protocol : Protocol::vorni)) {
            decoded.references.push_back({name, static_cast<std::uint32_t>(bigEndian(bytes.subspan(offset, 4)))});
            offset += 4;
        }
    }
    std::size_t known = sizeof(VornSignalHeader);
    if (decoded.info != nullptr) {
        known = decoded.info->size;
        for (const FieldInfo& field : decoded.info->fields) {
            if (isIn(field, bytes.size())) {
                decoded.fields.push_back(decodeField(field, bytes, maxRest));
                known = std::max(known, endOf(field, bytes.size()));
            }
        }
    }
    decoded.truncated = bytes.size() < known;
    if (bytes.size() > known) {
        decoded.restSize = bytes.size() - known;
        decoded.rest = hexDigits(bytes.subspan(known, std::min(decoded.restSize, maxRest)));
    }
    return decoded;
}

std::string printSignal(std::span<const std::byte> bytes)
{
    constexpr std::size_t shownRest = 64;
    const DecodedSignal decoded = decodeSignal(bytes, shownRest);
    std::vector<std::string> parts;
    for (const ReferenceValue& reference : decoded.references) {
        parts.push_back(fmt::format("{}={}", reference.name, reference.value));
    }
    for (const FieldValue& field : decoded.fields) {
        parts.push_back(printField(field));
    }
    if (!decoded.rest.empty()) {
        parts.push_back("rest=0x" + decoded.rest);
        if (decoded.restSize > shownRest) {
            parts.back() += fmt::format("... ({} bytes)", decoded.restSize);
        }
    }
    if (decoded.truncated) {
        parts.push_back("truncated");
    }
    return fmt::format("{}{{{}}}", signalName(decoded.number), fmt::join(parts, ", "));
}

} // namespace Vorni
