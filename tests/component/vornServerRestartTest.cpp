/// Restarts: announced, ordered, notified, remembered.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "unit.h"
#include "vorni/connection.h"
#include "vorni/restart.h"
#include "vorni/software.h"

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;
using RankAndLabelFwdS = OmlaVornRestartBoardWithRankAndLabelFwdS;

namespace {

constexpr const char* noSubscription = "Restart notification subscription is not supported.";
constexpr const char* noHistory = "Event history is not supported.";

class VornServerRestartTest : public UnitTest
{
protected:
    VornServerRestartTest()
    {
        unit.dunlCapabilities = {dunl::RESTART_NOTIFICATION_SUPPORT, dunl::RESTART_RANK_LABEL_SUPPORT,
                                 dunl::EVENT_HISTORY_SUPPORT};
        unit.restartRanks = 0x0A; // cold, power cycle
        unit.bringUp();
    }

    /// A client with a clientRef of its own, when there is one already.
    Client& connectSecond()
    {
        Client& client = unit.addClient(8);
        client.clientRef = 2;
        unit.requestConnection(client);
        unit.registerTimeSource(2);
        unit.registerMmiUser(2);
        unit.connectDeepSleep(70);
        client.expect<OmlaVornConnEstablishCfmS>();
        return client;
    }

    // --- Announcing
    static void announce(Client& client, std::uint32_t value)
    {
        client.send<OmlaVornNotifyRestartReqS>([&](auto& req) {
            req.value = value;
            std::memset(req.text, 'x', sizeof(req.text)); // no zero
        });
    }
    void answerTimeout(std::uint32_t value, bool isAccepted)
    {
        const auto request = unit.dunl.expect<dunl::ConnectivitySetSupervisionTimeoutReq>(
            dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq);
        EXPECT_EQ(request.body.supervision_timeout(), value);
        if (isAccepted) {
            request.reply(dunl::MsgNo::ConnectivitySetSupervisionTimeoutCfm,
                          dunl::ConnectivitySetSupervisionTimeoutCfm());
        } else {
            request.reply(dunl::MsgNo::ConnectivitySetSupervisionTimeoutRej,
                          dunl::ConnectivitySetSupervisionTimeoutRej());
        }
    }
    /// Confirmed without a question to the board.
    void expectGranted(Client& client)
    {
        client.expect<OmlaVornNotifyRestartCfmS>();
        unit.settle();
        unit.dunl.expectNothing();
    }
    void lose(Client& client)
    {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
        for (auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
            server->discardAll();
        }
    }

    // --- Ordering
    static void order(Client& client, std::uint16_t code, std::uint16_t rank, const std::string& texts)
    {
        NewSignal<RankAndLabelFwdS> signal(client.clientRef, client.serverRef, texts.size());
        signal->restartCode = code;
        signal->restartRank = rank;
        std::memcpy(&*signal + 1, texts.data(), texts.size());
        client.sendSignal(client.publicMbox(), signal);
    }
    static std::string restartLog()
    {
        std::ifstream log(std::filesystem::path(std::getenv("RU_DIR")) / "log" / "miravi.log");
        std::stringstream text;
        text << log.rdbuf();
        return text.str();
    }
    auto expectOrder() { return unit.dunl.expect<dunl::RestartBoardFwd>(dunl::MsgNo::RestartBoardFwd).body; }

    // --- Notification
    auto subscribe(Client& client)
    {
        client.send<OmlaVornSubscribeRestartNotificationReqS>();
        return unit.dunl.expect<dunl::SubscribeRestartBoardNotificationReq>(
            dunl::MsgNo::SubscribeRestartBoardNotificationReq);
    }
    void notify(std::uint32_t code, std::uint32_t originator)
    {
        dunl::RestartBoardNotificationInd ind;
        ind.set_trace_information(std::string(200, 't'));
        ind.set_label("a label of more than 20");
        ind.set_restart_code(code);
        ind.set_restart_rank(2);
        ind.set_restart_type(3);
        ind.set_originator(originator);
        unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::RestartBoardNotificationInd, 0, unit.dunl.clientRef,
                              ind);
    }
    static std::uint16_t originatorToldTo(Client& client)
    {
        const auto ind = client.expect<OmlaVornRestartNotificationIndS>();
        EXPECT_EQ(ind.header.clientRef, client.clientRef);
        EXPECT_EQ(ind.header.serverRef, client.serverRef);
        EXPECT_EQ(client.lastSender, client.publicMbox());
        return ind.originator;
    }

    // --- History
    auto askHistory(Client& client, std::uint16_t number)
    {
        client.send<OmlaVornGetEventHistoryReqS>([&](auto& req) { req.noOfEvents = number; });
        const auto request = unit.dunl.expect<dunl::GetRestartHistoryReq>(dunl::MsgNo::GetRestartHistoryReq);
        EXPECT_EQ(request.body.number_of_events(), number);
        return request;
    }
    /// The history as a text: the number of events, then each as "type,length,code,rank,text,label".
    static std::string history(Client& client)
    {
        const Received received = client.expectNumber(OmlaVornGetEventHistoryCfmS::number);
        const auto& cfm = *viewSignal<OmlaVornGetEventHistoryCfmS>(received.get());
        std::ostringstream text;
        text << cfm.noOfEvents;
        EXPECT_EQ(received.size(), 16 + 168 * std::max<std::size_t>(1, cfm.noOfEvents));
        const auto bytes = received.bytes().subspan(16);
        for (std::size_t i = 0; i < cfm.noOfEvents; ++i) {
            VornHistoryEventS event;
            std::memcpy(&event, bytes.subspan(i * sizeof(event)).data(), sizeof(event));
            text << ' ' << event.type << ',' << event.length << ',' << event.restartCode << ',' << event.restartRank
                 << ',' << fieldText(event.traceInformation) << ',' << fieldText(event.label);
        }
        return text.str();
    }
};

TEST_F(VornServerRestartTest, when_a_restart_is_announced_then_the_board_is_asked_for_more_than_is_granted_only)
{
    Client& first = unit.connect();
    Client& second = connectSecond();
    announce(first, 0);
    expectGranted(first); // nothing is granted yet, and nothing is needed
    announce(first, 10);
    answerTimeout(10, true);
    const auto cfm = first.expect<OmlaVornNotifyRestartCfmS>();
    EXPECT_EQ(cfm.header.clientRef, first.clientRef);
    EXPECT_EQ(cfm.header.serverRef, first.serverRef);
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("OMLA_VORN_NOTIFY_RESTART_REQ, 10, " + std::string(128, 'x')));
    announce(second, 10);
    expectGranted(second);
    announce(second, 11);
    answerTimeout(11, false);
    const auto rej = second.expect<OmlaVornNotifyRestartRejS>();
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.errorText), "");
    EXPECT_EQ(rej.header.clientRef, 2U);
    EXPECT_EQ(rej.header.serverRef, 8U);
    announce(second, 11); // a reject grants nothing
    answerTimeout(11, true);
    second.expect<OmlaVornNotifyRestartCfmS>();
    announce(first, 3);
    expectGranted(first);
}

TEST_F(VornServerRestartTest, when_a_client_announces_less_or_goes_then_what_is_granted_falls)
{
    Client& first = unit.connect();
    Client& second = connectSecond();
    announce(first, 10);
    answerTimeout(10, true);
    first.expect<OmlaVornNotifyRestartCfmS>();
    announce(second, 4);
    expectGranted(second);
    announce(first, 5); // replaces its 10
    expectGranted(first);
    announce(second, 6);
    answerTimeout(6, true);
    second.expect<OmlaVornNotifyRestartCfmS>();
    lose(second);
    announce(first, 6);
    answerTimeout(6, true);
    first.expect<OmlaVornNotifyRestartCfmS>();

    Client& stranger = unit.addClient();
    announce(stranger, 100);
    unit.settle();
    stranger.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: No session for this client exists. Ignoring REQ!"));
}

TEST_F(VornServerRestartTest, when_a_restart_is_ordered_then_it_is_a_cold_one_with_code_401)
{
    Client& stranger = unit.addClient(); // no session is needed
    NewSignal<OmlaVornRestartBoardFwdS> signal(1, 2, 6);
    std::memcpy(&*signal + 1, "why not", 6); // no zero
    stranger.sendSignal(stranger.publicMbox(), signal);
    const auto order = expectOrder();
    EXPECT_EQ(order.trace_information(), "why no");
    EXPECT_TRUE(order.has_load_module());
    EXPECT_EQ(order.load_module(), "");
    EXPECT_FALSE(order.has_label());
    EXPECT_EQ(order.restart_code(), 401);
    EXPECT_EQ(order.restart_rank_v2(), dunl::Cold);
    EXPECT_TRUE(RecordedTraces::has("VornServerRestart::handleRestartBoardFwd() 'm_selectLoadModule' is empty."));
    unit.settle();
    stranger.expectNothing();
}

TEST_F(VornServerRestartTest, when_a_module_is_selected_then_all_orders_name_it)
{
    Client& client = unit.connect();
    unit.giveTicket(client, 5);
    NewSignal<OmlaVornSelectLmcReqS> selection(client.clientRef, client.serverRef, 4);
    std::memcpy(&*selection + 1, "CXP", 4);
    client.sendSignal(client.publicMbox(), selection);
    gant::GetSwProductInvCfm inventory;
    inventory.set_ticket_number(5);
    inventory.add_product_inventory()->set_product_number("CXP");
    unit.ganti.expect<gant::GetSwProductInvReq>().reply(inventory);
    client.expect<OmlaVornSelectLmcCfmS>();

    client.send<OmlaVornRestartBoardFwdS>();
    EXPECT_EQ(expectOrder().load_module(), "CXP");
    order(client, 1, 2, "");
    EXPECT_EQ(expectOrder().load_module(), "CXP");
    int exitCode = -1;
    unit.command({"wakeup", "deepsleep"}, exitCode);
    EXPECT_EQ(expectOrder().load_module(), "CXP");
    EXPECT_FALSE(RecordedTraces::hasPart("'m_selectLoadModule' is empty."));
}

TEST_F(VornServerRestartTest, when_a_rank_is_ordered_then_it_must_be_one_of_the_boards)
{
    Client& client = unit.connect();
    std::string texts = "full";
    texts.resize(140, 'f');
    order(client, 7, 5, texts + "label");
    auto ordered = expectOrder();
    EXPECT_EQ(ordered.trace_information(), texts);
    EXPECT_EQ(ordered.label(), "label");
    EXPECT_EQ(ordered.restart_code(), 7);
    EXPECT_EQ(ordered.restart_rank_v2(), dunl::PowerCycle);
    order(client, 0xFFFF, 2, ""); // no text at all
    ordered = expectOrder();
    EXPECT_EQ(ordered.trace_information() + ordered.label(), "");
    EXPECT_EQ(ordered.restart_code(), 0xFFFF);
    EXPECT_NE(
        restartLog().find(fmt::format("RadioApplication,RadioBoardCtrl Ordered Restart Received, RANK=Power Cycle, "
                                      "clientRef={}, serverRef=7",
                                      client.clientRef)),
        std::string::npos)
        << restartLog();

    order(client, 9, 1, "");
    unit.settle();
    unit.dunl.expectNothing();
    EXPECT_EQ(restartLog().find("RANK=Warm"), std::string::npos) << "refused";
    EXPECT_TRUE(
        RecordedTraces::has("VornServerRestart::handleRestartBoardRankLabelFwd() 'm_selectLoadModule' is empty."));

    // Only what went to the board counts as ordered.
    subscribe(client).reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm,
                            dunl::SubscribeRestartBoardNotificationCfm());
    client.expect<OmlaVornSubscribeRestartNotificationCfmS>();
    client.serverRef = 8; // the same mailbox with other references is another subscriber
    subscribe(client).reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm,
                            dunl::SubscribeRestartBoardNotificationCfm());
    client.expect<OmlaVornSubscribeRestartNotificationCfmS>();
    for (const auto& [code, toFirst] : {std::pair{7U, 0}, {9U, 1}}) {
        notify(code, 0);
        client.serverRef = 7;
        EXPECT_EQ(originatorToldTo(client), toFirst) << code;
        client.serverRef = 8;
        EXPECT_EQ(originatorToldTo(client), 1) << code;
    }
}

TEST(VornServerRestartRankTest, when_the_board_takes_one_rank_then_all_others_are_refused_by_name)
{
    const std::tuple<std::uint32_t, int, const char*> ranks[] = {{0x01, 1, "Warm"},
                                                                 {0x02, 2, "Cold"},
                                                                 {0x04, 3, "Cold with Test"},
                                                                 {0x10, 4, "Program"},
                                                                 {0x08, 5, "Power Cycle"}};
    for (const auto& [mask, taken, takenName] : ranks) {
        Unit unit;
        unit.dunlCapabilities = {dunl::RESTART_RANK_LABEL_SUPPORT};
        unit.restartRanks = mask | 0xFFFFFFE0; // what isn't a rank's
        unit.bringUp();
        Client& client = unit.addClient();
        for (int rank = 0; rank <= 6; ++rank) {
            const auto mark = RecordedTraces::mark();
            client.send<RankAndLabelFwdS>(
                [rank](auto& order) { order.restartRank = static_cast<std::uint16_t>(rank); });
            unit.settle();
            if (rank == taken) {
                const auto order = unit.dunl.expect<dunl::RestartBoardFwd>(dunl::MsgNo::RestartBoardFwd).body;
                EXPECT_EQ(order.restart_rank_v2(), rank);
                continue;
            }
            const char* name = rank == 0 || rank == 6 ? "" : std::get<2>(ranks[rank - 1]);
            EXPECT_TRUE(
                RecordedTraces::has(fmt::format("ABN: Requested restart rank {} in restart signal "
                                                "OMLA_VORN_RESTART_BOARD_WITH_RANK_AND_LABEL_FWD is not supported!",
                                                name),
                                    mark))
                << takenName << ' ' << rank;
        }
        unit.dunl.expectNothing();
    }
}

TEST_F(VornServerRestartTest, when_the_board_restarts_then_each_subscriber_is_told_whether_it_was_its_order)
{
    Client& first = unit.connect();
    Client& second = connectSecond();
    for (Client* client : {&first, &second, &first}) { // the third makes no second subscriber
        subscribe(*client).reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm,
                                 dunl::SubscribeRestartBoardNotificationCfm());
        const auto cfm = client->expect<OmlaVornSubscribeRestartNotificationCfmS>();
        EXPECT_EQ(cfm.header.clientRef, client->clientRef);
    }
    first.send<OmlaVornRestartBoardFwdS>();
    expectOrder();
    notify(401, 0);
    const auto ind = first.expect<OmlaVornRestartNotificationIndS>();
    EXPECT_EQ(ind.restartCode, 401);
    EXPECT_EQ(ind.restartRank, 2);
    EXPECT_EQ(ind.restartType, 3);
    EXPECT_EQ(ind.originator, 0);
    EXPECT_EQ(fieldText(ind.traceInformation), std::string(137, 't'));
    EXPECT_EQ(fieldText(ind.label), "a label of more tha");
    EXPECT_EQ(originatorToldTo(second), 1);

    notify(402, 0);
    EXPECT_EQ(originatorToldTo(first), 1);
    EXPECT_EQ(originatorToldTo(second), 1);
    notify(401, 1);
    EXPECT_EQ(originatorToldTo(first), 2);
    EXPECT_EQ(originatorToldTo(second), 2);
    unit.settle();
    first.expectNothing();
}

TEST_F(VornServerRestartTest, when_a_subscription_is_rejected_then_its_client_is_no_subscriber)
{
    Client& client = unit.connect();
    const auto request = subscribe(client);
    notify(1, 0); // a subscriber from the request on
    EXPECT_EQ(originatorToldTo(client), 1);
    request.reply(dunl::MsgNo::SubscribeRestartBoardNotificationRej, dunl::SubscribeRestartBoardNotificationRej());
    const auto rej = client.expect<OmlaVornSubscribeRestartNotificationRejS>();
    EXPECT_EQ(rej.errorCode, 2);
    EXPECT_EQ(fieldText(rej.errorText), noSubscription);
    notify(1, 0);
    request.reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm, dunl::SubscribeRestartBoardNotificationCfm());
    unit.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has(fmt::format("No DUNL transaction was found for procedureRef: {}. Ignoring "
                                                "SubscribeRestartBoardNotificationCfm.",
                                                request.procedureRef)));
}

TEST_F(VornServerRestartTest, when_the_history_is_asked_for_then_it_has_restarts_and_as_many_lost_clients_as_wanted)
{
    Client& client = unit.connect();
    dunl::GetRestartHistoryCfm cfm;
    askHistory(client, 5).reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
    EXPECT_EQ(history(client), "0");

    for (const int i : {1, 2}) {
        auto& item = *cfm.add_history_item();
        item.set_trace_information("text " + std::to_string(i));
        item.set_label("label " + std::to_string(i));
        item.set_restart_code(static_cast<std::uint32_t>(400 + i));
        item.set_restart_rank(static_cast<std::uint32_t>(i));
        lose(unit.connect());
    }
    const std::string restarts = " 0,168,401,1,text 1,label 1 0,168,402,2,text 2,label 2";
    askHistory(client, 0).reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
    EXPECT_EQ(history(client), "2" + restarts) << "all items, and no lost client";
    const auto one = askHistory(client, 1);
    const auto many = askHistory(client, 65535);
    many.reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
    EXPECT_EQ(history(client), "4" + restarts + " 1,168,0,0,, 1,168,0,0,,");
    one.reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
    EXPECT_EQ(history(client), "3" + restarts + " 1,168,0,0,,");

    const auto rejected = askHistory(client, 1);
    rejected.reply(dunl::MsgNo::GetRestartHistoryRej, dunl::GetRestartHistoryRej());
    const auto rej = client.expect<OmlaVornGetEventHistoryRejS>();
    EXPECT_EQ(rej.errorCode, 2);
    EXPECT_EQ(fieldText(rej.errorText), noHistory);
    rejected.reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
    unit.settle();
    client.expectNothing();
}

TEST_F(VornServerRestartTest, when_the_client_has_gone_then_answers_are_dropped_once)
{
    Client& client = unit.connect();
    const auto id = client.mbox();
    const auto subscription = subscribe(client);
    const auto asked = askHistory(client, 3);
    lose(client);
    for (int i = 0; i < 2; ++i) {
        subscription.reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm,
                           dunl::SubscribeRestartBoardNotificationCfm());
        asked.reply(dunl::MsgNo::GetRestartHistoryRej, dunl::GetRestartHistoryRej());
    }
    notify(1, 0); // to nobody
    unit.settle();
    for (const char* name : {"SubscribeRestartBoardNotificationCfm", "GetRestartHistoryRej"}) {
        EXPECT_EQ(
            RecordedTraces::count(fmt::format("ABN: No VORN session found for mailbox ID: {}. Ignoring {}.", id, name)),
            1U);
    }
}

TEST_F(VornServerRestartTest, when_the_wakeup_command_is_given_then_the_board_gets_its_order)
{
    const std::string usage = "Deep Sleep command usage:\n"
                              "\twakeup { -h | --help }\t\tDisplay wakeup command usage\n"
                              "\twakeup deepsleep\t\trequest to wakeup deepsleep\n";
    int exitCode = -1;
    EXPECT_EQ(unit.command({"wakeup", "deepsleep"}, exitCode), "");
    EXPECT_EQ(exitCode, 0);
    const auto order = expectOrder();
    EXPECT_EQ(order.trace_information(), "Deep Sleep Wakeup");
    EXPECT_EQ(order.restart_code(), 204);
    EXPECT_EQ(order.restart_rank_v2(), dunl::Cold);
    EXPECT_FALSE(order.has_label());

    EXPECT_EQ(unit.command({"wakeup", "--help"}, exitCode), usage);
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(unit.command({"wakeup", "deepsleep", "now"}, exitCode), "arguments exceed parameter size range:\n");
    EXPECT_NE(exitCode, 0);
    EXPECT_EQ(unit.command({"wakeup", "everything"}, exitCode), usage);
    EXPECT_NE(exitCode, 0);
    unit.settle();
    unit.dunl.expectNothing();
}

TEST_F(UnitTest, when_the_board_can_do_nothing_with_restarts_then_orders_are_dropped_and_requests_rejected)
{
    unit.bringUp();
    Client& stranger = unit.addClient();
    NewSignal<RankAndLabelFwdS> order(1, 2);
    order->restartRank = dunl::Cold;
    stranger.sendSignal(stranger.publicMbox(), order);
    stranger.send<OmlaVornSubscribeRestartNotificationReqS>();
    const auto subscription = stranger.expect<OmlaVornSubscribeRestartNotificationRejS>();
    EXPECT_EQ(subscription.errorCode, 2);
    EXPECT_EQ(fieldText(subscription.errorText), noSubscription);
    stranger.send<OmlaVornGetEventHistoryReqS>();
    const auto history = stranger.expect<OmlaVornGetEventHistoryRejS>();
    EXPECT_EQ(history.errorCode, 2);
    EXPECT_EQ(fieldText(history.errorText), noHistory);
    unit.settle();
    unit.dunl.expectNothing();
}

} // namespace
