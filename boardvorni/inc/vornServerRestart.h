/// Restarts of the board.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

#include <compare>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// Takes the clients' restart orders to the board, tells those who have subscribed of its restarts and gives their
/// history. A client that announces a restart gets the supervision time-out that it needs, which link supervision has
/// granted or has to ask for. Has the debug command "wakeup". Speaks with the DUNL server.
class VornServerRestart : public VornServerComponent
{
public:
    explicit VornServerRestart(VornServerCommonData& commonData);
    ~VornServerRestart() override;

    bool init() override;
    std::string_view name() const override { return "VornServerRestart"; }
    void onVornSessionLost(const VornSession& session) override;
    void onSupervisionTimeoutResult(const VornSession& session, bool accepted) override;
    // For whoever counts what is kept.
    std::size_t orderedRestartCount() const { return m_orderedRestarts.size(); }
    std::size_t subscriberCount() const { return m_subscribers.size(); }
    std::size_t pendingHistoryRequestCount() const { return m_pendingHistoryRequests.size(); }
    std::size_t grantedNotifyRestartCount() const { return m_grantedNotifyRestarts.size(); }
    std::size_t pendingNotifyRestartCount() const { return m_pendingNotifyRestarts.size(); }

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    struct OrderedRestart {
        std::uint32_t clientRef;
        std::uint32_t serverRef;
        std::uint32_t restartCode;
        auto operator<=>(const OrderedRestart&) const = default;
    };
    struct Subscriber {
        std::uint32_t clientRef;
        std::uint32_t serverRef;
        std::uint32_t mboxId;
        bool operator==(const Subscriber&) const = default;
    };
    struct HistoryRequest {
        std::uint32_t procedureRef;
        std::uint16_t noOfEvents;
    };
    struct PendingNotifyRestart {
        std::uint32_t mboxId;
        std::uint32_t value;
        std::string text;
    };
    struct Order;

    void handleNotifyRestartReq(const MessagePtr& msg);
    bool isMoreThanGranted(std::uint32_t value) const;

    void handleRestartBoardFwd(const MessagePtr& msg);
    void handleRestartBoardRankLabelFwd(const MessagePtr& msg);
    std::uint16_t supportedRanks() const;
    std::uint32_t sendRestartBoardFwd(const Order& order) const;
    int handleWakeup(const std::vector<std::string>& args, std::ostream& out) const;

    void handleSubscribeRestartNotificationReq(const MessagePtr& msg);
    void handleDunlSubscribeRestartBoardNotificationCfm(const TolmeMessagePtr& message);
    void handleDunlSubscribeRestartBoardNotificationRej(const TolmeMessagePtr& message);
    void handleDunlRestartBoardNotificationInd(const TolmeMessagePtr& message);
    bool hasOrdered(const Subscriber& subscriber, std::uint32_t restartCode) const;
    void rejectSubscription(const Client& client) const;

    void handleGetEventHistoryReq(const MessagePtr& msg);
    void handleDunlGetRestartHistoryCfm(const TolmeMessagePtr& message);
    void handleDunlGetRestartHistoryRej(const TolmeMessagePtr& message);
    std::uint16_t takeHistoryRequest(std::uint32_t procedureRef);
    void rejectHistory(const Client& client) const;

    TolmeProcedures m_procedures;
    bool m_hasCommand = false;

    std::set<OrderedRestart> m_orderedRestarts; ///< all of the process's life: who has ordered is told so for good
    std::vector<Subscriber> m_subscribers;      ///< a client that has gone stays
    std::vector<HistoryRequest> m_pendingHistoryRequests;
    // By the clientRef of the session.
    std::map<std::uint32_t, std::uint32_t> m_grantedNotifyRestarts;
    std::map<std::uint32_t, PendingNotifyRestart> m_pendingNotifyRestarts;
};
