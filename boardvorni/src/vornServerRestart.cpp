#include "vornServerRestart.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "miravi/miravi.h"
#include "vornServerDunl.h"
#include "vornServerUlmo.h"
#include "vorni/restart.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

using namespace tolme;
using RankAndLabelFwdS = OmlaVornRestartBoardWithRankAndLabelFwdS;

namespace {

constexpr std::uint16_t orderedByClient = 401; ///< the restart code of an order that has none
constexpr std::uint16_t deepSleepWakeup = 204;
constexpr std::uint16_t notSupported = 2; ///< error code

constexpr const char* restartLogCategory = "RadioApplication,RadioBoardCtrl";
constexpr const char* subscriptionNotSupported = "Restart notification subscription is not supported.";
constexpr const char* historyNotSupported = "Event history is not supported.";

namespace Originator {
constexpr std::uint16_t self = 0;
constexpr std::uint16_t other = 1;
constexpr std::uint16_t board = 2;
} // namespace Originator
constexpr std::uint32_t byBoard = 1; ///< what the board says of a restart of its own

namespace EventType {
constexpr std::uint16_t boardRestart = 0;
constexpr std::uint16_t lostClient = 1;
} // namespace EventType

/// A rank's bit in what the board says that it can do. The board numbers the ranks as the signal does.
struct Rank {
    std::uint16_t number;
    const char* name;
    std::uint16_t mask;
};
constexpr std::array ranks{Rank{dunl::Warm, "Warm", 0x01}, Rank{dunl::Cold, "Cold", 0x02},
                           Rank{dunl::ColdWithTest, "Cold with Test", 0x04}, Rank{dunl::Program, "Program", 0x10},
                           Rank{dunl::PowerCycle, "Power Cycle", 0x08}};

Rank findRank(std::uint16_t number)
{
    const auto found =
        std::find_if(ranks.begin(), ranks.end(), [&](const Rank& rank) { return rank.number == number; });
    return found != ranks.end() ? *found : Rank{number, "", 0};
}

constexpr const char* wakeupHelpForm = "wakeup { -h | --help }";
constexpr const char* wakeupHelpText = "Display wakeup command usage";
constexpr const char* wakeupForm = "wakeup deepsleep";
constexpr const char* wakeupText = "request to wakeup deepsleep";
constexpr int commandDone = 0;
constexpr int commandFailed = 20;

void printWakeupUsage(std::ostream& out)
{
    out << "Deep Sleep command usage:\n"
        << '\t' << wakeupHelpForm << "\t\t" << wakeupHelpText << '\n'
        << '\t' << wakeupForm << "\t\t" << wakeupText << '\n';
}

} // namespace

/// What is ordered of the board. An order without a rank is a cold one.
struct VornServerRestart::Order {
    std::string traceInformation;
    std::optional<std::string> label;
    std::uint16_t restartCode;
    std::uint16_t rank = dunl::Cold;
};

VornServerRestart::VornServerRestart(VornServerCommonData& commonData)
    : VornServerComponent(commonData),
      m_procedures(commonData, commonData.getDunlClient(), {"No DUNL transaction", "."})
{
}

VornServerRestart::~VornServerRestart()
{
    if (m_hasCommand) {
        VornServerUlmo::getInstance().unregisterCmdTable("wakeup");
    }
}

bool VornServerRestart::init()
{
    using Self = VornServerRestart;
    const auto onMessage = [this](std::uint32_t msgNo, auto handler) {
        m_procedures.registerHandler(msgNo, this, handler);
    };
    subscribe(OmlaVornNotifyRestartReqS::number, &Self::handleNotifyRestartReq);
    subscribe(OmlaVornRestartBoardFwdS::number, &Self::handleRestartBoardFwd);
    subscribe(RankAndLabelFwdS::number, &Self::handleRestartBoardRankLabelFwd);
    subscribe(OmlaVornSubscribeRestartNotificationReqS::number, &Self::handleSubscribeRestartNotificationReq);
    subscribe(OmlaVornGetEventHistoryReqS::number, &Self::handleGetEventHistoryReq);
    onMessage(dunl::MsgNo::SubscribeRestartBoardNotificationCfm, &Self::handleDunlSubscribeRestartBoardNotificationCfm);
    onMessage(dunl::MsgNo::SubscribeRestartBoardNotificationRej, &Self::handleDunlSubscribeRestartBoardNotificationRej);
    onMessage(dunl::MsgNo::RestartBoardNotificationInd, &Self::handleDunlRestartBoardNotificationInd);
    onMessage(dunl::MsgNo::GetRestartHistoryCfm, &Self::handleDunlGetRestartHistoryCfm);
    onMessage(dunl::MsgNo::GetRestartHistoryRej, &Self::handleDunlGetRestartHistoryRej);

    const auto wakeup = [this](const std::vector<std::string>& args, std::ostream& out) {
        return handleWakeup(args, out);
    };
    m_hasCommand = VornServerUlmo::getInstance().registerCmdTable(
        "wakeup", {{wakeupHelpForm, wakeupHelpText, wakeup}, {wakeupForm, wakeupText, wakeup}});
    return true;
}

// --- A client announces a restart

void VornServerRestart::handleNotifyRestartReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornNotifyRestartReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornSession* session = m_commonData.findVornSession(kiv_sender(msg.get()));
    if (session == nullptr) {
        TRACE_INFO("ABN: No session for this client exists. Ignoring REQ!");
        return;
    }
    if (!notifyRestartReqReceived) {
        TRACE_ERROR("Missing callback function for notify restart.");
        return;
    }
    const std::uint32_t value = signal->value;
    m_pendingNotifyRestarts[session->getClientRef()] = {session->getMboxId(), value,
                                                        std::string(fieldText(signal->text))};
    if (isMoreThanGranted(value)) {
        notifyRestartReqReceived(*session, value);
    } else {
        onSupervisionTimeoutResult(*session, true);
    }
}

bool VornServerRestart::isMoreThanGranted(std::uint32_t value) const
{
    std::uint32_t greatest = 0;
    for (const auto& [clientRef, granted] : m_grantedNotifyRestarts) {
        greatest = std::max(greatest, granted);
    }
    return value > greatest;
}

/// A client that announces twice has one pending value, which the first result takes.
void VornServerRestart::onSupervisionTimeoutResult(const VornSession& session, bool accepted)
{
    const std::uint32_t clientRef = session.getClientRef();
    const auto pending = m_pendingNotifyRestarts.find(clientRef);
    const bool isPending = pending != m_pendingNotifyRestarts.end();
    if (accepted) {
        sendSignal<OmlaVornNotifyRestartCfmS>(session.getMboxId(), clientRef, session.getServerRef());
        if (isPending) {
            m_grantedNotifyRestarts[clientRef] = pending->second.value;
            TRACE_1("OMLA_VORN_NOTIFY_RESTART_REQ, {}, {}", pending->second.value, pending->second.text);
        }
    } else {
        sendReject<OmlaVornNotifyRestartRejS>(session.getMboxId(), clientRef, session.getServerRef(), 1, "");
    }
    if (isPending) {
        m_pendingNotifyRestarts.erase(pending);
    }
}

/// What this client was granted counts no more for the others.
void VornServerRestart::onVornSessionLost(const VornSession& session)
{
    m_grantedNotifyRestarts.erase(session.getClientRef());
    const auto pending = m_pendingNotifyRestarts.find(session.getClientRef());
    if (pending != m_pendingNotifyRestarts.end() && pending->second.mboxId == session.getMboxId()) {
        m_pendingNotifyRestarts.erase(pending); // its result finds no session
    }
}

// --- A restart is ordered: the answer is the restart

void VornServerRestart::handleRestartBoardFwd(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornRestartBoardFwdS>(msg);
    if (signal == nullptr) {
        return;
    }
    if (m_commonData.getSelectLoadModule().empty()) {
        TRACE_INFO("VornServerRestart::handleRestartBoardFwd() 'm_selectLoadModule' is empty.");
    }
    const std::string traceInformation(textBehind<OmlaVornRestartBoardFwdS>(*msg));
    TRACE_INFO("VornServerRestart:handleRestartBoardFwd() OMLA_VORN_RESTART_BOARD_FWD Trace information: {}",
               traceInformation);
    m_orderedRestarts.insert({signal->header.clientRef, signal->header.serverRef, orderedByClient});
    sendRestartBoardFwd({.traceInformation = traceInformation, .label = std::nullopt, .restartCode = orderedByClient});
}

void VornServerRestart::handleRestartBoardRankLabelFwd(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<RankAndLabelFwdS>(msg);
    if (signal == nullptr) {
        return;
    }
    if (m_commonData.getSelectLoadModule().empty()) {
        TRACE_INFO("VornServerRestart::handleRestartBoardRankLabelFwd() 'm_selectLoadModule' is empty.");
    }
    const auto texts = bytesBehind<RankAndLabelFwdS>(*msg);
    const std::size_t textSize = std::min(texts.size(), RankAndLabelFwdS::traceInformationSize);
    const Order order{.traceInformation = std::string(textUntilZero(texts.first(textSize))),
                      .label = std::string(textUntilZero(texts.subspan(textSize))),
                      .restartCode = signal->restartCode,
                      .rank = signal->restartRank};
    TRACE_INFO("VornServerRestart::handleRestartBoardRankLabelFwd() "
               "OMLA_VORN_RESTART_BOARD_WITH_RANK_AND_LABEL_FWD Trace information: {}",
               order.traceInformation);
    if (!m_commonData.getDunlClient().hasCapability(DunlCapability::RestartRankLabelSupport)) {
        return;
    }
    const Rank rank = findRank(order.rank);
    if ((rank.mask & supportedRanks()) == 0) {
        TRACE_ERROR("ABN: Requested restart rank {} in restart signal "
                    "OMLA_VORN_RESTART_BOARD_WITH_RANK_AND_LABEL_FWD is not supported!",
                    rank.name);
        return;
    }
    const std::uint32_t clientRef = signal->header.clientRef;
    const std::uint32_t serverRef = signal->header.serverRef;
    m_orderedRestarts.insert({clientRef, serverRef, order.restartCode});
    miravi_log(restartLogCategory, fmt::format("Ordered Restart Received, RANK={}, clientRef={}, serverRef={}",
                                               rank.name, clientRef, serverRef));
    sendRestartBoardFwd(order);
}

/// The mask of the capability; of its value the upper half isn't used.
std::uint16_t VornServerRestart::supportedRanks() const
{
    std::vector<std::shared_ptr<const TolmeCapability>> capabilities;
    m_commonData.getDunlClient().getCapabilities(capabilities);
    for (const auto& capability : capabilities) {
        if (const auto* rankLabel = capabilityAs<RestartRankLabelCapability>(*capability)) {
            return static_cast<std::uint16_t>(rankLabel->label);
        }
    }
    return 0;
}

std::uint32_t VornServerRestart::sendRestartBoardFwd(const Order& order) const
{
    dunl::RestartBoardFwd message;
    message.set_load_module(m_commonData.getSelectLoadModule());
    message.set_trace_information(order.traceInformation);
    if (order.label) {
        message.set_label(*order.label);
    }
    message.set_restart_code(order.restartCode);
    message.set_restart_rank_v2(static_cast<dunl::RestartRankE>(order.rank));
    return m_commonData.getDunlClient().send(dunl::MsgNo::RestartBoardFwd, message);
}

int VornServerRestart::handleWakeup(const std::vector<std::string>& args, std::ostream& out) const
{
    if (args.size() > 2) {
        out << "arguments exceed parameter size range:\n";
        return commandFailed;
    }
    const std::string argument = args.size() == 2 ? args[1] : "";
    if (argument == "deepsleep") {
        if (sendRestartBoardFwd(
                {.traceInformation = "Deep Sleep Wakeup", .label = std::nullopt, .restartCode = deepSleepWakeup}) ==
            0) {
            out << "The board can't be reached\n";
            return commandFailed;
        }
        return commandDone;
    }
    printWakeupUsage(out);
    return argument == "-h" || argument == "--help" ? commandDone : commandFailed;
}

// --- Restarts are notified

void VornServerRestart::handleSubscribeRestartNotificationReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSubscribeRestartNotificationReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, dunl::MsgNo::SubscribeRestartBoardNotificationReq);
    if (!m_commonData.getDunlClient().hasCapability(DunlCapability::RestartNotificationSupport)) {
        rejectSubscription(client);
        return;
    }
    const Subscriber subscriber{client.clientRef, client.serverRef, client.mboxId};
    if (std::find(m_subscribers.begin(), m_subscribers.end(), subscriber) == m_subscribers.end()) {
        m_subscribers.push_back(subscriber);
    }
    m_procedures.requestFor(client, dunl::MsgNo::SubscribeRestartBoardNotificationReq,
                            dunl::SubscribeRestartBoardNotificationReq());
}

void VornServerRestart::handleDunlSubscribeRestartBoardNotificationCfm(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<dunl::SubscribeRestartBoardNotificationCfm>(message)) {
        const Client& client = answer->transaction;
        sendSignal<OmlaVornSubscribeRestartNotificationCfmS>(client);
    }
}

void VornServerRestart::handleDunlSubscribeRestartBoardNotificationRej(const TolmeMessagePtr& message)
{
    if (const auto answer = m_procedures.take<dunl::SubscribeRestartBoardNotificationRej>(message)) {
        const Client& client = answer->transaction;
        rejectSubscription(client);
        std::erase(m_subscribers, Subscriber{client.clientRef, client.serverRef, client.mboxId});
    }
}

void VornServerRestart::rejectSubscription(const Client& client) const
{
    sendReject<OmlaVornSubscribeRestartNotificationRejS>(client, notSupported, subscriptionNotSupported);
}

void VornServerRestart::handleDunlRestartBoardNotificationInd(const TolmeMessagePtr& message)
{
    const auto received = m_procedures.decode<dunl::RestartBoardNotificationInd>(message);
    if (!received) {
        return;
    }
    const dunl::RestartBoardNotificationInd& ind = received->message;
    TRACE_INFO("VornServerRestart:handleDunlRestartBoardNotificationInd() Trace information: {}",
               ind.trace_information());
    for (const Subscriber& subscriber : m_subscribers) {
        const std::uint16_t originator = ind.originator() == byBoard                  ? Originator::board
                                         : hasOrdered(subscriber, ind.restart_code()) ? Originator::self
                                                                                      : Originator::other;
        sendSignal<OmlaVornRestartNotificationIndS>(subscriber, [&](auto& signal) {
            signal.restartCode = static_cast<std::uint16_t>(ind.restart_code());
            signal.restartType = static_cast<std::uint16_t>(ind.restart_type());
            signal.originator = originator;
            signal.restartRank = static_cast<std::uint16_t>(ind.restart_rank());
            fillText(signal.traceInformation, ind.trace_information());
            fillText(signal.label, ind.label());
        });
    }
}

bool VornServerRestart::hasOrdered(const Subscriber& subscriber, std::uint32_t restartCode) const
{
    return m_orderedRestarts.count({subscriber.clientRef, subscriber.serverRef, restartCode}) != 0;
}

// --- The history of restarts and lost clients

void VornServerRestart::handleGetEventHistoryReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornGetEventHistoryReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const Client client = clientOf(*msg, dunl::MsgNo::GetRestartHistoryReq);
    if (!m_commonData.getDunlClient().hasCapability(DunlCapability::EventHistorySupport)) {
        rejectHistory(client);
        return;
    }
    dunl::GetRestartHistoryReq request;
    request.set_number_of_events(signal->noOfEvents);
    const std::uint32_t procedureRef = m_procedures.requestFor(client, dunl::MsgNo::GetRestartHistoryReq, request);
    if (procedureRef != 0) { // no answer comes under 0
        m_pendingHistoryRequests.push_back({procedureRef, signal->noOfEvents});
    }
}

/// How many events were wanted in that procedure; 0 where nothing is known of it.
std::uint16_t VornServerRestart::takeHistoryRequest(std::uint32_t procedureRef)
{
    const auto found =
        std::find_if(m_pendingHistoryRequests.begin(), m_pendingHistoryRequests.end(),
                     [&](const HistoryRequest& request) { return request.procedureRef == procedureRef; });
    if (found == m_pendingHistoryRequests.end()) {
        return 0;
    }
    const std::uint16_t noOfEvents = found->noOfEvents;
    m_pendingHistoryRequests.erase(found);
    return noOfEvents;
}

void VornServerRestart::handleDunlGetRestartHistoryCfm(const TolmeMessagePtr& message)
{
    auto received = m_procedures.takeTransaction<dunl::GetRestartHistoryCfm>(message);
    const std::uint16_t wanted = received ? takeHistoryRequest(received->transaction.procedureRef) : 0;
    const auto answer = m_procedures.withSession(std::move(received));
    if (!answer) {
        return;
    }
    constexpr std::size_t mostEvents = std::numeric_limits<std::uint16_t>::max();
    const auto& items = answer->message.history_item();
    const std::size_t restarts = std::min(static_cast<std::size_t>(items.size()), mostEvents);
    const std::size_t lostClients = std::min<std::size_t>(wanted, m_commonData.getLostClientCount());
    const std::size_t events = std::min(restarts + lostClients, mostEvents);
    const std::size_t eventsBehind = events > 1 ? events - 1 : 0;
    const auto fill = [&](OmlaVornGetEventHistoryCfmS& signal) {
        signal.noOfEvents = static_cast<std::uint16_t>(events);
        auto* event = reinterpret_cast<VornHistoryEventS*>(reinterpret_cast<std::byte*>(&signal) +
                                                           offsetof(OmlaVornGetEventHistoryCfmS, events));
        for (std::size_t i = 0; i < events; ++i, ++event) {
            event->length = static_cast<std::uint16_t>(sizeof(*event));
            event->type = i < restarts ? EventType::boardRestart : EventType::lostClient;
            if (i < restarts) {
                const auto& item = items[static_cast<int>(i)];
                event->restartCode = static_cast<std::uint16_t>(item.restart_code());
                event->restartRank = static_cast<std::uint16_t>(item.restart_rank());
                fillText(event->traceInformation, item.trace_information());
                fillText(event->label, item.label());
            }
        }
    };
    const Client& client = answer->transaction;
    sendSignal<OmlaVornGetEventHistoryCfmS>(client, fill, eventsBehind * sizeof(VornHistoryEventS));
}

void VornServerRestart::handleDunlGetRestartHistoryRej(const TolmeMessagePtr& message)
{
    auto received = m_procedures.takeTransaction<dunl::GetRestartHistoryRej>(message);
    if (received) {
        takeHistoryRequest(received->transaction.procedureRef);
    }
    if (const auto answer = m_procedures.withSession(std::move(received))) {
        rejectHistory(answer->transaction);
    }
}

void VornServerRestart::rejectHistory(const Client& client) const
{
    sendReject<OmlaVornGetEventHistoryRejS>(client, notSupported, historyNotSupported);
}
