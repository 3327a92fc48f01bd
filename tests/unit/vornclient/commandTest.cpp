// The commands against a server that answers as scripted: verdicts, and what a client makes of odd answers.
#include "commandFixture.h"
#include "vorni/mmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace VornClient;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t connectReq = OmlaVornConnEstablishReqS::number;
constexpr std::uint32_t connectCfm = OmlaVornConnEstablishCfmS::number;
constexpr std::uint32_t mmiReq = OmlaVornSelectMmiReqS::number;
constexpr std::uint32_t mmiCfm = OmlaVornSelectMmiCfmS::number;
constexpr std::uint32_t mmiRej = OmlaVornSelectMmiRejS::number;

TEST_F(VornClientCommand, WhenConfirmedThenOkAndServerRefIsAdopted)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == connectReq) {
            kiv_msg* confirm = kiv_alloc(12, connectCfm);
            reinterpret_cast<unsigned char*>(confirm)[11] = 42;
            kiv_send(&confirm, kiv_sender(signal), KIV_NO_MBOX);
        } else {
            server.reply(signal, mmiCfm);
        }
    });
    EXPECT_EQ(verdict({"connect"}), Verdict::ok);
    EXPECT_TRUE(context().client().isConnected());
    const Outcome outcome = run({"mmi", "1"});
    ASSERT_EQ(outcome.verdict, Verdict::ok) << outcome.message;
    EXPECT_EQ(outcome.answer->decode().references.back().value, 42U);
}

TEST_F(VornClientCommand, WhenRejectedThenReasonIsTold)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        std::string tail(116, '\0');
        tail.replace(4, 20, "Unsupported MMI mode");
        server.reply(signal, mmiRej, tail);
    });
    const Outcome outcome = run({"mmi", "2"});
    EXPECT_EQ(outcome.verdict, Verdict::rejected);
    EXPECT_THAT(outcome.message, HasSubstr("Unsupported MMI mode"));
    EXPECT_EQ(verdict({"expect-reject", "mmi", "2", "with", "Unsupported MMI mode"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect-reject", "mmi", "2", "with", "Unsupported MMI"}), Verdict::failed);
}

TEST_F(VornClientCommand, WhenOneShotThenUsageIsCheckedBeforeAnythingIsSent)
{
    options.connectsByItself = true;
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) { server.reply(signal, mmiCfm); });
    EXPECT_EQ(verdict({"mmi"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"mmi", "1", "2"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"mmi", "4294967296"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"nonsense"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::ok);
    EXPECT_THAT(printer.log,
                ElementsAre("published", "->OMLA_VORN_CONN_ESTABLISH_REQ", "<-OMLA_VORN_CONN_ESTABLISH_CFM",
                            "->OMLA_VORN_SELECT_MMI_REQ", "<-OMLA_VORN_SELECT_MMI_CFM"));
}

TEST_F(VornClientCommand, WhenAnswersAreShortThenTheyArentConfirms)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        server.replyOfSize(signal, signal->number == mmiReq ? mmiRej : connectCfm, 4);
    });
    EXPECT_EQ(verdict({"connect"}), Verdict::failed);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::failed);
}

TEST_F(VornClientCommand, WhenNothingComesThenTimeOutTellsWhatCame)
{
    options.answerTimeout = std::chrono::milliseconds(300);
    serve([](ScriptedServer& server, const kiv_msg* signal) { server.replyOfSize(signal, 0x1234, 5); });
    const Outcome outcome = run({"mmi", "1"});
    EXPECT_EQ(outcome.verdict, Verdict::timedOut);
    EXPECT_THAT(outcome.message, HasSubstr("OMLA_VORN_SELECT_MMI_CFM or OMLA_VORN_SELECT_MMI_REJ"));
    EXPECT_THAT(outcome.message, HasSubstr("0x1234"));
}

TEST_F(VornClientCommand, WhenAnAnswerIsOldThenItDoesntAnswerTheNextRequest)
{
    options.answerTimeout = std::chrono::milliseconds(300);
    serve([asked = 0](ScriptedServer& server, const kiv_msg* signal) mutable {
        if (asked++ == 0) {
            server.reply(signal, mmiCfm);
        }
    });
    ASSERT_EQ(verdict({"send", "SELECT_MMI_REQ"}), Verdict::ok);
    context().hub().waitUntil([&] { return !context().client().inbox().signals().empty(); },
                              ClientHub::Clock::time_point::max());
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::timedOut);
}

TEST_F(VornClientCommand, WhenServerIsntPublishedOrGoesAwayThenNoServer)
{
    options.publishedTimeout = std::chrono::milliseconds(100);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::noServer);
    serve([](ScriptedServer& server, const kiv_msg*) { server.withdraw(); });
    ASSERT_EQ(verdict({"wait-published", "within", "10"}), Verdict::ok);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::noServer);
    EXPECT_EQ(verdict({"wait-gone", "within", "0"}), Verdict::ok);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::noServer);
}

TEST_F(VornClientCommand, WhenServerComesBackUnderAnotherIdThenClientFindsIt)
{
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == mmiReq) {
            server.reply(signal, mmiCfm);
        } else {
            server.withdraw();
            server.publish();
        }
    });
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    const kiv_mbox_id_t before = context().hub().server();
    ASSERT_EQ(verdict({"send", "0x99"}), Verdict::ok);
    EXPECT_EQ(verdict({"wait-gone"}), Verdict::ok); // also where it is back already
    EXPECT_FALSE(context().client().isConnected());
    EXPECT_EQ(verdict({"wait-published"}), Verdict::ok);
    EXPECT_NE(context().hub().server(), before);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::ok);
}

TEST_F(VornClientCommand, WhenSignalsAreExpectedThenTheyCountInOrder)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        for (const char status : {'\1', '\2', '\3'}) {
            std::string tail(116, '\0');
            tail[1] = status;
            server.reply(signal, 0x165A803, tail);
        }
        server.reply(signal, 0x165A801);
    });
    ASSERT_EQ(verdict({"deepsleep", "subscribe"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect", "DEEP_SLEEP_STATUS_IND", "status=1"}), Verdict::ok);
    const Outcome outOfTurn = run({"expect", "DEEP_SLEEP_STATUS_IND", "status=3"});
    EXPECT_EQ(outOfTurn.verdict, Verdict::failed);
    EXPECT_THAT(outOfTurn.message, HasSubstr("status=2"));
    EXPECT_EQ(verdict({"expect-none", "DEEP_SLEEP_STATUS_IND", "status=2", "within", "0"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect-none", "within", "0"}), Verdict::failed);
    EXPECT_EQ(verdict({"expect-none", "within", "0.01"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect", "DEEP_SLEEP_STATUS_IND", "within", "0.01"}), Verdict::timedOut);
}

TEST_F(VornClientCommand, WhenThereAreTwoClientsThenEachHasItsOwnSignals)
{
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) { server.reply(signal, mmiCfm); });
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"client", "second", "clientRef=9"}), Verdict::ok);
    ASSERT_EQ(verdict({"begin-connect"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect", "CONN_ESTABLISH_CFM", "clientRef=9"}), Verdict::ok);
    EXPECT_EQ(verdict({"disconnect"}), Verdict::ok);
    EXPECT_EQ(kiv_locate("client_second"), KIV_NO_MBOX);
    EXPECT_EQ(verdict({"client", "first"}), Verdict::ok);
    EXPECT_TRUE(context().client().isConnected());
    EXPECT_EQ(verdict({"expect-none", "within", "0"}), Verdict::ok);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::ok);
    EXPECT_EQ(verdict({"client", "second", "clientRef=1"}), Verdict::badUsage);
}

TEST_F(VornClientCommand, WhenItsMailboxNameIsTakenThenSaysSo)
{
    options.client.mailboxName = "scriptedServer";
    serve([](ScriptedServer&, const kiv_msg*) {});
    const Outcome outcome = run({"connect"});
    EXPECT_EQ(outcome.verdict, Verdict::failed);
    EXPECT_THAT(outcome.message, HasSubstr("\"scriptedServer\" can't be made"));
}

} // namespace
