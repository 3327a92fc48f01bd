// Orders to restart the board, announcements, the history.
#include "vorni/restart.h"
#include "commandFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace VornClient;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

using VornClientRestart = VornClientCommand;

/// Behind the header.
std::string payloadOf(const Signal& signal)
{
    return {reinterpret_cast<const char*>(signal.bytes.data()) + sizeof(VornSignalHeader),
            signal.bytes.size() - sizeof(VornSignalHeader)};
}

TEST_F(VornClientRestart, AnOrderIsSentAndNotWaitedFor)
{
    serve([](ScriptedServer&, const kiv_msg*) {});
    ASSERT_EQ(verdict({"restart"}), Verdict::ok);
    ASSERT_EQ(verdict({"restart", "a text"}), Verdict::ok);
    ASSERT_EQ(verdict({"restart", "--rank", "power-cycle", "--code", "0x102", "--label", "L1", "a text"}), Verdict::ok);
    ASSERT_EQ(verdict({"restart", std::string(139, 'x'), "--rank", "77"}), Verdict::ok);
    ASSERT_EQ(printer.sent.size(), 4U);
    EXPECT_EQ(payloadOf(printer.sent[0]), "\0"s);
    EXPECT_EQ(payloadOf(printer.sent[1]), "a text\0"s);
    EXPECT_EQ(payloadOf(printer.sent[2]), "\1\2\0\5a text"s + std::string(134, '\0') + "L1\0"s);
    EXPECT_EQ(payloadOf(printer.sent[3]), "\1\x91\0\x4D"s + std::string(139, 'x') + std::string(2, '\0'));
    EXPECT_THAT(printer.log, testing::Contains(HasSubstr("no answer but the restart")).Times(4));
}

TEST_F(VornClientRestart, WhatMakesNoSenseIsntSent)
{
    options.connectsByItself = true;
    expectAll(Verdict::badUsage,
              {"restart --rank", "restart --rank lukewarm", "restart --rank 65536", "restart --code 1",
               "restart --label L", "restart two words", "restart --now", "restart --rank 1 " + std::string(140, 'x'),
               "notify-restart", "notify-restart 4294967296", "notify-restart 1 " + std::string(128, 'x'),
               "notify-restart 1 a b", "subscribe-restarts now", "restart-history 65536", "restart-history 1 2"});
    EXPECT_TRUE(printer.sent.empty());
}

TEST_F(VornClientRestart, AnnouncementsAndSubscriptionsAreAnswered)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == OmlaVornNotifyRestartReqS::number) {
            reply(server, signal, {"NOTIFY_RESTART_REJ", "errorCode=1"});
            return;
        }
        server.reply(signal, OmlaVornSubscribeRestartNotificationCfmS::number);
        reply(server, signal, {"RESTART_NOTIFICATION_IND", "restartCode=401", "originator=1", "label=L1"});
    });
    ASSERT_EQ(verdict({"notify-restart", "30", "upgrade"}), Verdict::rejected);
    EXPECT_EQ(payloadOf(printer.sent[0]).substr(0, 12), "\0\0\0\x1Eupgrade\0"s);
    expectAll(Verdict::ok, {"subscribe-restarts", "expect RESTART_NOTIFICATION_IND restartCode=401 label=L1"});
}

VornHistoryEventS restartEvent(std::uint16_t rank, std::string_view text, std::string_view label)
{
    VornHistoryEventS event{};
    event.length = sizeof(event);
    event.restartCode = 401;
    event.restartRank = rank;
    text.copy(event.traceInformation, sizeof(event.traceInformation));
    label.copy(event.label, sizeof(event.label));
    return event;
}

/// A history that says that it has so many events.
std::string historyOf(std::uint16_t said, const std::vector<VornHistoryEventS>& events)
{
    const VornU16 count(said);
    std::string payload(reinterpret_cast<const char*>(&count), sizeof(count));
    payload += std::string(2, '\0');
    for (const VornHistoryEventS& event : events) {
        payload.append(reinterpret_cast<const char*>(&event), sizeof(event));
    }
    return payload;
}

TEST_F(VornClientRestart, HistoryIsATableOfAllThatHasCome)
{
    VornHistoryEventS lost{};
    lost.type = 1;
    VornHistoryEventS unknown = restartEvent(9, std::string(138, 'x'), std::string(20, 'l')); // without their zeros
    unknown.type = 7;
    serve([=](ScriptedServer& server, const kiv_msg* signal) {
        server.reply(signal, OmlaVornGetEventHistoryCfmS::number,
                     historyOf(3, {restartEvent(5, "tour\x1B", "L1"), unknown, lost}));
    });
    ASSERT_EQ(verdict({"restart-history", "with", "tour\x1B"}), Verdict::ok);
    EXPECT_EQ(payloadOf(printer.sent[0]), "\0\x0A"s);
    printer.log.erase(printer.log.begin(), printer.log.begin() + 3); // published, request and answer
    EXPECT_THAT(printer.log,
                ElementsAre("EVENT        CODE  RANK         LABEL                 TEXT",
                            "restart      401   power-cycle  L1                    tour\\x1b",
                            "type 7       401   9            llllllllllllllllllll  " + std::string(138, 'x'),
                            "lost client  -     -            -                     -"));
    EXPECT_THAT(run({"restart-history", "3", "with", "tour"}).message, HasSubstr("no event has the text \"tour\""));
}

TEST_F(VornClientRestart, WhenHistorySaysMoreThanItHasThenThatIsAFailure)
{
    serve([asked = 0](ScriptedServer& server, const kiv_msg* signal) mutable {
        const auto said = static_cast<std::uint16_t>(asked++ == 0 ? 0 : UINT16_MAX);
        server.reply(signal, OmlaVornGetEventHistoryCfmS::number, historyOf(said, {restartEvent(1, "", "")}));
    });
    expectAll(Verdict::ok, {"restart-history 0"});
    EXPECT_EQ(printer.log.back(), "the history is empty");
    EXPECT_THAT(run({"restart-history"}).message, HasSubstr("says that it has 65535 events and has 1"));
}

} // namespace
