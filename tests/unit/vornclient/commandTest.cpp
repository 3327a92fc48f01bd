// The commands against a server that answers as scripted: verdicts, and what a client makes of odd answers.
#include "vornclient/command.h"
#include "scriptedServer.h"
#include "vorni/connection.h"
#include "vorni/mmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace {

using namespace VornClient;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t connectReq = OmlaVornConnEstablishReqS::number;
constexpr std::uint32_t connectCfm = OmlaVornConnEstablishCfmS::number;
constexpr std::uint32_t mmiReq = OmlaVornSelectMmiReqS::number;
constexpr std::uint32_t mmiCfm = OmlaVornSelectMmiCfmS::number;
constexpr std::uint32_t mmiRej = OmlaVornSelectMmiRejS::number;

/// Keeps what would be printed of the signals.
class SilentPrinter : public Printer
{
public:
    SilentPrinter() : Printer(false) {}
    void onSent(const Client& client, const Signal& signal) override { note(client, "->", signal); }
    void onReceived(const Client& client, const Signal& signal) override { note(client, "<-", signal); }
    void onServerPublished(kiv_mbox_id_t) override { log.emplace_back("published"); }
    void onServerGone(kiv_mbox_id_t) override { log.emplace_back("gone"); }
    void step(const std::string&, const std::string&) override {}
    void unitOutput(const std::string&, const std::string&, int) override {}
    void status(const ClientHub&, const Client&) override {}
    void error(const std::string&) override {}

    std::vector<std::string> log;

private:
    void note(const Client& client, const char* arrow, const Signal& signal)
    {
        log.push_back(client.settings().label + arrow + Vorni::signalName(signal.number()));
    }
};

class VornClientCommand : public testing::Test
{
protected:
    void serve(ScriptedServer::Script script) { m_server = std::make_unique<ScriptedServer>(std::move(script)); }

    /// Answers connection requests; the rest is the script's.
    void serveConnected(ScriptedServer::Script script)
    {
        serve([script = std::move(script)](ScriptedServer& server, const kiv_msg* signal) {
            if (signal->number == connectReq) {
                server.reply(signal, connectCfm);
            } else {
                script(server, signal);
            }
        });
    }

    Outcome run(std::vector<std::string> words)
    {
        if (!m_context) {
            m_hub = std::make_unique<ClientHub>("hub", printer);
            m_context = std::make_unique<CommandContext>(*m_hub, printer, m_table, options);
        }
        return m_table.run(*m_context, words);
    }

    Verdict verdict(std::vector<std::string> words) { return run(std::move(words)).verdict; }

    CommandContext& context() { return *m_context; }

    SilentPrinter printer;
    Options options{.client = {.label = "", .mailboxName = "client", .references = {}, .protocolRev = 3},
                    .answerTimeout = std::chrono::milliseconds(10000),
                    .publishedTimeout = std::chrono::milliseconds(10000),
                    .connectsByItself = false};

private:
    const CommandTable m_table = allCommands();
    std::unique_ptr<ScriptedServer> m_server;
    std::unique_ptr<ClientHub> m_hub;
    std::unique_ptr<CommandContext> m_context;
};

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
    EXPECT_EQ(outcome.answer->decode().serverRef, 42U);
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
