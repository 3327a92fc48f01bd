/// VORNI signals of restarts of the board.
#pragma once

#include "vorni/header.h"

#include <cstddef>

/// OMLA_VORN_RESTART_BOARD_FWD: a client orders a restart, which is the answer to it.
struct OmlaVornRestartBoardFwdS {
    static constexpr std::uint32_t number = 0x1658003;
    VornSignalHeader header; ///< the trace information follows, zero-terminated
};

/// OMLA_VORN_NOTIFY_RESTART_REQ: a client announces a restart.
struct OmlaVornNotifyRestartReqS {
    static constexpr std::uint32_t number = 0x1658816;
    VornSignalHeader header;
    VornU32 value;  ///< what the client needs: the supervision time-out that has to be granted
    char text[128]; ///< why
};
static_assert(sizeof(OmlaVornNotifyRestartReqS) == 144 && offsetof(OmlaVornNotifyRestartReqS, value) == 12 &&
              offsetof(OmlaVornNotifyRestartReqS, text) == 16);

using OmlaVornNotifyRestartCfmS = VornPlainSignal<0x1658817>;
using OmlaVornNotifyRestartRejS = VornRejectSignal<0x1658818>;

/// OMLA_VORN_SUBSCRIBE_RESTART_NOTIFICATION_REQ: a client wants to be told of restarts.
using OmlaVornSubscribeRestartNotificationReqS = VornPlainSignal<0x1659B00>;
using OmlaVornSubscribeRestartNotificationCfmS = VornPlainSignal<0x1659B01>;

/// OMLA_VORN_SUBSCRIBE_RESTART_NOTIFICATION_REJ: errorCode 2: the board can't tell.
using OmlaVornSubscribeRestartNotificationRejS = VornRejectSignal<0x1659B02>;

/// OMLA_VORN_RESTART_NOTIFICATION_IND: the board restarts.
struct OmlaVornRestartNotificationIndS {
    static constexpr std::uint32_t number = 0x1659B03;
    VornSignalHeader header;
    VornU16 restartCode;
    VornU16 restartType;
    VornU16 originator; ///< 0 this client, 1 another client or cause, 2 the board itself
    VornU16 restartRank;
    char traceInformation[138]; ///< zero-terminated
    std::uint8_t reserved[2];
    char label[20]; ///< zero-terminated
};
static_assert(sizeof(OmlaVornRestartNotificationIndS) == 180 &&
              offsetof(OmlaVornRestartNotificationIndS, restartCode) == 12 &&
              offsetof(OmlaVornRestartNotificationIndS, restartType) == 14 &&
              offsetof(OmlaVornRestartNotificationIndS, originator) == 16 &&
              offsetof(OmlaVornRestartNotificationIndS, restartRank) == 18 &&
              offsetof(OmlaVornRestartNotificationIndS, traceInformation) == 20 &&
              offsetof(OmlaVornRestartNotificationIndS, label) == 160);

/// OMLA_VORN_RESTART_BOARD_WITH_RANK_AND_LABEL_FWD: a client orders a restart of a certain rank. The trace information
/// follows, zero-terminated, and at `labelOffset` the label, zero-terminated; both may be left out.
struct OmlaVornRestartBoardWithRankAndLabelFwdS {
    static constexpr std::uint32_t number = 0x1659B04;
    static constexpr std::size_t traceInformationSize = 140; ///< its room, bytes
    static constexpr std::size_t labelOffset = 16 + traceInformationSize;
    VornSignalHeader header;
    VornU16 restartCode;
    VornU16 restartRank; ///< 1 warm, 2 cold, 3 cold with test, 4 program, 5 power cycle
};
static_assert(sizeof(OmlaVornRestartBoardWithRankAndLabelFwdS) == 16 &&
              offsetof(OmlaVornRestartBoardWithRankAndLabelFwdS, restartCode) == 12 &&
              offsetof(OmlaVornRestartBoardWithRankAndLabelFwdS, restartRank) == 14);

/// OMLA_VORN_GET_EVENT_HISTORY_REQ: a client asks for the history.
struct OmlaVornGetEventHistoryReqS {
    static constexpr std::uint32_t number = 0x1659B05;
    VornSignalHeader header;
    VornU16 noOfEvents; ///< of each kind, at most
};
static_assert(sizeof(OmlaVornGetEventHistoryReqS) == 14 && offsetof(OmlaVornGetEventHistoryReqS, noOfEvents) == 12);

/// An event of the history.
struct VornHistoryEventS {
    VornU16 type;   ///< 0 a restart of the board, 1 a lost client, of which nothing more is told
    VornU16 length; ///< of the event, bytes
    VornU16 restartCode;
    VornU16 restartRank;
    char traceInformation[138]; ///< zero-terminated
    std::uint8_t reserved[2];
    char label[20]; ///< zero-terminated
};
static_assert(sizeof(VornHistoryEventS) == 168 && offsetof(VornHistoryEventS, length) == 2 &&
              offsetof(VornHistoryEventS, restartCode) == 4 && offsetof(VornHistoryEventS, restartRank) == 6 &&
              offsetof(VornHistoryEventS, traceInformation) == 8 && offsetof(VornHistoryEventS, label) == 148);

/// OMLA_VORN_GET_EVENT_HISTORY_CFM: the history; the events from the second on follow.
struct OmlaVornGetEventHistoryCfmS {
    static constexpr std::uint32_t number = 0x1659B06;
    VornSignalHeader header;
    VornU16 noOfEvents;
    std::uint8_t reserved[2];
    VornHistoryEventS events[1]; ///< there also where the history is empty
};
static_assert(sizeof(OmlaVornGetEventHistoryCfmS) == 184 && offsetof(OmlaVornGetEventHistoryCfmS, noOfEvents) == 12 &&
              offsetof(OmlaVornGetEventHistoryCfmS, events) == 16);

/// OMLA_VORN_GET_EVENT_HISTORY_REJ: errorCode 2: the board keeps none.
using OmlaVornGetEventHistoryRejS = VornRejectSignal<0x1659B07>;
