// O&M state, the faults that a client is shown, and RHUNE clients.
#include "commandFixture.h"
#include "rhune/rhuneSignals.h"
#include "vornclient/faultView.h"
#include "vorni/access.h"
#include "vorni/faults.h"
#include "vorni/mmi.h"
#include "vorni/oamState.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>

namespace {

using namespace VornClient;
using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint32_t faultInd = OmlaVornFaultIndS::number;
constexpr std::uint32_t faultWithLabelInd = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS::number;
constexpr std::uint32_t ceaseInd = OmlaVornFaultceaseIndS::number;
constexpr std::uint32_t subscribeReq = OmlaVornSubscribeFaultsReqS::number;
constexpr std::uint32_t subscribeCfm = OmlaVornSubscribeFaultsCfmS::number;
constexpr std::uint32_t subscribeLabelReq = OmlaVornSubscribeFaultsWithHwFaultLabelReqS::number;
constexpr std::uint32_t subscribeLabelCfm = OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number;

Signal signalOf(const std::vector<std::string>& words)
{
    Signal signal;
    signal.bytes = buildSignal(words, {});
    return signal;
}

/// What stands behind the references of a signal built from words.
std::string payloadOf(const std::vector<std::string>& words)
{
    const auto bytes = buildSignal(words, {});
    return {reinterpret_cast<const char*>(bytes.data()) + 12, bytes.size() - 12};
}

TEST(FaultNames, AreTakenInAnySpellingAndAsNumbers)
{
    for (const char* word : {"SW_ERROR", "omla_const_fh_fault_id_sw_error", "0x301", "769"}) {
        EXPECT_EQ(parseFaultId(word), 0x301) << word;
    }
    for (const char* word : {"", "SW_ERR", "OMLA_CONST_FH_FAULT_ID_", "0x10000", "-1"}) {
        EXPECT_THROW(parseFaultId(word), BadUsage) << word;
    }
    for (const std::string& name : faultNames()) {
        EXPECT_THAT(printFaultId(parseFaultId(name)), testing::StartsWith(name + " (0x"));
    }
    EXPECT_EQ(printFaultId(0xFFFF), "0xffff");
}

TEST(FaultView, FaultToldAgainIsOneFault)
{
    FaultView view;
    Signal first = signalOf({"FAULT_IND", "faultId=0x301", "faultCase=1", "faultDescription=crash"});
    first.time += std::chrono::seconds(1000);
    EXPECT_EQ(view.apply(first)->event, FaultEvent::raised);
    EXPECT_FALSE(view.apply(signalOf({"FAULT_IND", "faultId=0x301", "faultCase=1", "faultDescription=crash"})));
    EXPECT_EQ(view.apply(signalOf({"FAULT_IND", "faultId=0x301", "faultCase=2"}))->event, FaultEvent::changed);
    EXPECT_EQ(view.apply(signalOf({"FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", "faultId=0x301", "faultCase=2",
                                   "recoveryTime=300"}))
                  ->event,
              FaultEvent::changed);
    ASSERT_EQ(view.faults().size(), 1U);
    const ShownFault& fault = view.faults().at(0x301);
    EXPECT_EQ(fault.faultCase, 2);
    EXPECT_EQ(fault.recoveryTime, 300U);
    EXPECT_EQ(fault.since, first.time);
}

TEST(FaultView, CeaseGoesByIdentifierAlone)
{
    FaultView view;
    view.apply(signalOf({"FAULT_IND", "faultId=0x301", "faultCase=1"}));
    EXPECT_FALSE(view.apply(signalOf({"FAULTCEASE_IND", "faultId=0x302", "faultCase=1"})));
    const auto change = view.apply(signalOf({"FAULTCEASE_IND", "faultId=0x301", "faultCase=9"}));
    ASSERT_TRUE(change);
    EXPECT_EQ(change->event, FaultEvent::ceased);
    EXPECT_EQ(change->fault.faultCase, 1); // what is told of it is what was known
    EXPECT_TRUE(view.faults().empty());
    EXPECT_FALSE(view.clear());
}

TEST(FaultView, SignalsThatAreNoRecordSayNothing)
{
    FaultView view;
    for (const auto& [name, size] : {std::pair("FAULT_IND", 143), std::pair("FAULTCEASE_IND", 27),
                                     std::pair("FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", 167)}) {
        EXPECT_FALSE(view.apply(signalOf({name, "faultId=0x301", "--size", std::to_string(size)})));
        EXPECT_FALSE(view.apply(signalOf({name, "--size", "4"})));
    }
    EXPECT_FALSE(view.apply(signalOf({"SELECT_MMI_CFM"})));
    EXPECT_TRUE(view.faults().empty());
}

TEST(FaultView, IsPrintedWithoutControlSequences)
{
    FaultView view;
    EXPECT_THAT(printFaultTable(view), ElementsAre("no faults are shown"));
    const std::string unterminated(20, 'l');
    const auto change =
        view.apply(signalOf({"FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", "faultId=0x301", "faultCase=7",
                             "faultDescription=\x1B[2J", "recoveryTime=4294967295", "hwFaultLabel=" + unterminated}));
    view.apply(signalOf({"FAULT_IND", "faultId=0x999"}));
    const auto lines = printFaultTable(view);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[1], testing::StartsWith("SW_ERROR (0x301)      7  1970-01-01T00:00:00.000Z  4294967295 s  " +
                                              unterminated + "  \\x1b[2J"));
    EXPECT_THAT(lines[2], testing::StartsWith("0x999 "));
    EXPECT_EQ(printFaultChange(*change), "raised  SW_ERROR (0x301) case=7 description=\"\\x1b[2J\" recovery=4294967295 "
                                         "label=\"" +
                                             unterminated + "\"");
}

TEST_F(VornClientCommand, AuditTellsTheStateInWordsAndHoldsItAgainstTheExpectedOne)
{
    serve([asked = std::size_t{0}](ScriptedServer& server, const kiv_msg* signal) mutable {
        constexpr std::array answers{"\0\1\0\0"sv, "\0\2\0\0"sv, "\0\7\0\0"sv};
        server.reply(signal, OmlaVornAuditCfmS::number, answers.at(asked++));
    });
    EXPECT_EQ(verdict({"audit", "operational"}), Verdict::ok);
    EXPECT_EQ(verdict({"audit", "operational"}), Verdict::failed);
    EXPECT_THAT(run({"audit", "starting"}).message, HasSubstr("expected the state starting, came: unknown (7)"));
    EXPECT_EQ(verdict({"audit", "asleep"}), Verdict::badUsage);
    EXPECT_THAT(printer.log, testing::IsSupersetOf({"state operational", "state disabled", "state unknown (7)"}));
}

TEST_F(VornClientCommand, WhenEnableIsRejectedThenReasonIsTold)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == OmlaVornDisableOperationReqS::number) {
            server.reply(signal, OmlaVornDisableOperationCfmS::number);
        } else {
            server.reply(signal, OmlaVornEnableOperationRejS::number,
                         payloadOf({"ENABLE_OPERATION_REJ", "errorCode=1", "errorText=DISABLED"}));
        }
    });
    EXPECT_EQ(verdict({"disable"}), Verdict::ok);
    EXPECT_EQ(verdict({"expect-reject", "enable", "with", "DISABLED"}), Verdict::ok);
    EXPECT_EQ(verdict({"enable"}), Verdict::rejected);
}

/// Confirms subscriptions, each followed by the same faults.
void serveFaults(ScriptedServer& server, const kiv_msg* signal)
{
    switch (signal->number) {
    case subscribeReq:
        server.reply(signal, subscribeCfm);
        server.reply(signal, faultInd, payloadOf({"FAULT_IND", "faultId=0x301"}));
        break;
    case subscribeLabelReq:
        server.reply(signal, subscribeLabelCfm);
        server.reply(signal, faultWithLabelInd,
                     payloadOf({"FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", "faultId=0x301"}));
        server.reply(signal, faultWithLabelInd,
                     payloadOf({"FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", "faultId=0x710"}));
        break;
    case OmlaVornAuditReqS::number:
        server.reply(signal, OmlaVornAuditCfmS::number, "\0\0\0\0"sv);
        break;
    default:
        server.withdraw();
        break;
    }
}

TEST_F(VornClientCommand, WhenOneShotThenFaultListWaitsForAllThatFollowsTheSubscription)
{
    options.connectsByItself = true;
    serveConnected(serveFaults);
    ASSERT_EQ(verdict({"faults"}), Verdict::ok);
    printer.log.clear();
    ASSERT_EQ(verdict({"faults", "list"}), Verdict::ok); // the second time there is nothing to fetch
    EXPECT_THAT(printer.log, ElementsAre("fault SW_ERROR (0x301)", "fault POWER_DISTURBANCE_INPUT_POWER_LOW (0x710)"));
}

TEST_F(VornClientCommand, WhenConnectionIsLostThenFaultsAreNoLongerKnown)
{
    serveConnected(serveFaults);
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"faults", "subscribe"}), Verdict::ok);
    ASSERT_EQ(verdict({"expect", "FAULT_IND"}), Verdict::ok);
    EXPECT_EQ(context().client().faults().faults().size(), 1U);
    ASSERT_EQ(verdict({"disconnect"}), Verdict::ok);
    EXPECT_TRUE(context().client().faults().faults().empty());

    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"faults", "subscribe", "label"}), Verdict::ok);
    ASSERT_EQ(verdict({"expect", "FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND", "faultId=0x301"}), Verdict::ok);
    ASSERT_EQ(verdict({"send", "0x98"}), Verdict::ok);
    EXPECT_EQ(verdict({"wait-gone"}), Verdict::ok);
    EXPECT_TRUE(context().client().faults().faults().empty());
}

TEST_F(VornClientCommand, WhenFaultsAreWatchedThenChangesAreToldUntilServerIsGone)
{
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) {
        serveFaults(server, signal);
        if (signal->number == subscribeLabelReq) {
            server.reply(signal, ceaseInd, payloadOf({"FAULTCEASE_IND", "faultId=0x301"}));
            server.reply(signal, ceaseInd, payloadOf({"FAULTCEASE_IND", "faultId=0x301"}));
            server.withdraw();
        }
    });
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"faults", "watch", "within", "10"}), Verdict::noServer);
    EXPECT_THAT(printer.log,
                testing::IsSupersetOf({"raised SW_ERROR (0x301)", "raised POWER_DISTURBANCE_INPUT_POWER_LOW (0x710)",
                                       "ceased SW_ERROR (0x301)", "cleared"}));
    EXPECT_EQ(std::count(printer.log.begin(), printer.log.end(), "ceased SW_ERROR (0x301)"), 1);
}

TEST_F(VornClientCommand, WhenFaultWatchIsInterruptedThenItEndsOrderly)
{
    options.connectsByItself = true;
    serveConnected(serveFaults);
    printer.whenFaultChanges = [] { std::raise(SIGINT); };
    EXPECT_EQ(verdict({"faults", "watch"}), Verdict::ok);
    EXPECT_FALSE(context().hub().hasInterruptFd());
}

TEST_F(VornClientCommand, WhenFaultWatchEndsByItsTimeThenOk)
{
    serveConnected(serveFaults);
    ASSERT_EQ(verdict({"connect"}), Verdict::ok);
    EXPECT_EQ(verdict({"faults", "--watch", "short", "within", "0.01"}), Verdict::ok);
    EXPECT_EQ(verdict({"faults", "watch", "long"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"faults", "unsubscribe"}), Verdict::badUsage);
}

TEST_F(VornClientCommand, WhenSubscriptionIsIgnoredThenTimeOut)
{
    options.answerTimeout = std::chrono::milliseconds(50);
    serve([](ScriptedServer&, const kiv_msg*) {});
    EXPECT_EQ(verdict({"faults", "subscribe", "label"}), Verdict::timedOut);
}

/// What a real printer writes of a watched fault.
std::string printedWatch(const PrinterSettings& settings)
{
    testing::internal::CaptureStdout();
    {
        const auto printer = Printer::create(settings);
        ClientHub hub("hub", *printer);
        Client& client = hub.addClient({.label = "", .mailboxName = "client", .references = {}});
        const FaultChange change{FaultEvent::raised,
                                 {.faultId = 0x301,
                                  .faultCase = 0,
                                  .description = "\xFF",
                                  .recoveryTime = std::nullopt,
                                  .label = "",
                                  .since = {}}};
        printer->onFaultChange(client, change);
        printer->beginWatch(client);
        printer->onReceived(client, signalOf({"FAULT_IND"}));
        printer->onFaultChange(client, change);
        printer->endWatch();
        printer->onFaultChange(client, change);
    }
    return testing::internal::GetCapturedStdout();
}

TEST(Printer, WritesALineForEachChangeOfWatchedFaultsAndNoSignals)
{
    EXPECT_EQ(printedWatch({}), "raised  SW_ERROR (0x301) case=0 description=\"\\xff\"\n");
    const std::string json = printedWatch({.json = true});
    EXPECT_THAT(json, testing::StartsWith(R"({"event":"fault","change":"raised","client":"","faultId":769,)"));
    EXPECT_EQ(std::count(json.begin(), json.end(), '\n'), 1);
    EXPECT_EQ(printedWatch({.quiet = true}), "");
}

/// A RHUNE server that remembers what it got.
class VornClientRhune : public VornClientCommand
{
protected:
    void serveRhune()
    {
        serve([log = m_log](ScriptedServer& server, const kiv_msg* signal) {
            const std::string bytes(reinterpret_cast<const char*>(signal), kiv_size(signal));
            log->add(bytes);
            if (signal->number == RhuneVornConnEstablishReqS::number) {
                establish(server, signal, bytes.substr(12));
            } else if (signal->number == RhuneVornConnCloseReqS::number) {
                server.reply(signal, RhuneVornConnCloseCfmS::number);
            } else if (signal->number == OmlaVornSelectMmiReqS::number) {
                server.withdraw();
            }
        });
    }

    /// All signals so far.
    std::vector<std::string> received() const { return m_log->signals(); }

private:
    /// Shared with the server's thread, which outlives the test's body.
    class Log
    {
    public:
        void add(const std::string& signal)
        {
            const std::lock_guard lock(m_mutex);
            m_signals.push_back(signal);
        }

        std::vector<std::string> signals()
        {
            const std::lock_guard lock(m_mutex);
            return m_signals;
        }

    private:
        std::mutex m_mutex;
        std::vector<std::string> m_signals;
    };

    static void establish(const ScriptedServer& server, const kiv_msg* signal, const std::string& revisions)
    {
        if (revisions == "\0\0\0\1\0\0\0\1"sv) {
            server.replyWithRef(signal, RhuneVornConnEstablishCfmS::number, 4096, "\0\0\0\1"sv);
        } else {
            server.reply(signal, RhuneVornConnEstablishRejS::number,
                         payloadOf({"RHUNE_VORN_CONN_ESTABLISH_REJ", "errorCode=1",
                                    "errorDescription=protocol(s) not supported: 2 3"}));
        }
    }

    const std::shared_ptr<Log> m_log = std::make_shared<Log>();
};

/// The bytes of a RHUNE signal, whose numbers differ in the last digit.
std::string rhuneSignal(char number, std::string_view rest)
{
    return std::string{number, '\x02', '\x7C', '\x01'} + std::string(rest);
}

TEST_F(VornClientRhune, WhenOneShotThenRaiseConnectsAndIsTakenBeforeItEnds)
{
    options.connectsByItself = true;
    serveRhune();
    ASSERT_EQ(verdict({"rhune", "raise", "sw_error", "description=crash", "recovery=0x102", "label=board 1"}),
              Verdict::ok);
    std::string fault(140, '\0');
    fault.replace(0, 2, "\3\1");
    fault.replace(4, 5, "crash");
    fault.replace(116, 4, "\0\0\1\2"sv);
    fault.replace(120, 7, "board 1");
    EXPECT_THAT(received(), ElementsAre(rhuneSignal(1, "\0\0\0\1\0\0\0\1\0\0\0\1\0\0\0\1"sv),
                                        rhuneSignal(4, "\0\0\0\2\0\0\x10\0"sv).append(fault),
                                        rhuneSignal(6, "\0\0\0\3\0\0\x10\0"sv)));
    EXPECT_THAT(printer.log, testing::Contains("rhune<-RHUNE_VORN_CONN_CLOSE_CFM"));
    EXPECT_FALSE(context().rhuneClient().isConnected());
}

TEST_F(VornClientRhune, WhenConnectedThenConnectionStaysUntilItIsClosed)
{
    serveRhune();
    EXPECT_EQ(verdict({"rhune", "cease", "SW_ERROR"}), Verdict::failed); // not connected, and nobody would tell
    ASSERT_EQ(verdict({"rhune", "connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"rhune", "cease", "SW_ERROR"}), Verdict::ok);
    EXPECT_TRUE(context().rhuneClient().isConnected());
    ASSERT_EQ(verdict({"rhune", "close"}), Verdict::ok);
    EXPECT_THAT(received(), testing::Contains(rhuneSignal(5, "\0\0\0\2\0\0\x10\0\3\1\0\0"sv)));
    EXPECT_EQ(verdict({"rhune", "close"}), Verdict::failed);
    ASSERT_EQ(verdict({"rhune", "connect"}), Verdict::ok);
    EXPECT_EQ(received().back().substr(8, 4), "\0\0\0\1"sv); // its own reference again
}

TEST_F(VornClientRhune, WhenRevisionsAreRefusedThenReasonIsExpectedByCommandAndByHand)
{
    serveRhune();
    const std::string text = "protocol(s) not supported: 2 3";
    EXPECT_EQ(verdict({"expect-reject", "rhune", "connect", "2", "3", "with", text}), Verdict::ok);
    EXPECT_EQ(received().back().substr(12), "\0\0\0\2\0\0\0\2\0\0\0\3"sv);
    ASSERT_EQ(verdict({"send", "RHUNE_VORN_CONN_ESTABLISH_REQ", "nbrOfSupportedProtocolRev=9", "--raw", "00000001"}),
              Verdict::ok);
    EXPECT_EQ(verdict({"expect", "RHUNE_VORN_CONN_ESTABLISH_REJ", "procedureRef=2", "errorDescription=" + text}),
              Verdict::ok);
    EXPECT_EQ(received().back().substr(12), "\0\0\0\x09\0\0\0\1"sv);
    EXPECT_EQ(verdict({"expect-none", "RHUNE_VORN_CONN_ESTABLISH_REJ", "within", "0"}), Verdict::ok);
}

TEST_F(VornClientRhune, WhenThereAreTwoThenTheOneInUseSpeaks)
{
    serveRhune();
    ASSERT_EQ(verdict({"rhune", "connect"}), Verdict::ok);
    ASSERT_EQ(verdict({"client", "other", "rhune", "connectionRef=77"}), Verdict::ok);
    ASSERT_EQ(verdict({"rhune", "connect"}), Verdict::ok);
    EXPECT_EQ(received().back().substr(8, 4), "\0\0\0\x4D"sv);
    EXPECT_EQ(context().client().settings().label, "other");
    EXPECT_EQ(verdict({"rhune", "disconnect"}), Verdict::ok);
    EXPECT_EQ(kiv_locate("client_other"), KIV_NO_MBOX);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::badUsage); // that isn't its protocol
    EXPECT_EQ(verdict({"connect"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"client", "rhune"}), Verdict::ok);
    EXPECT_TRUE(context().client().isConnected());
}

TEST_F(VornClientRhune, WhenServerGoesAwayThenConnectionIsGone)
{
    options.publishedTimeout = std::chrono::milliseconds(100);
    serveRhune();
    ASSERT_EQ(verdict({"rhune", "connect"}), Verdict::ok);
    EXPECT_EQ(verdict({"mmi", "1"}), Verdict::noServer);
    EXPECT_EQ(verdict({"rhune", "connect"}), Verdict::noServer);
    EXPECT_FALSE(context().rhuneClient().isConnected());
}

TEST_F(VornClientRhune, WhatMakesNoSenseIsntSent)
{
    options.connectsByItself = true;
    serveRhune();
    const std::vector<std::vector<std::string>> senseless{
        {"rhune"},
        {"rhune", "reopen"},
        {"rhune", "connect", "one"},
        {"rhune", "raise"},
        {"rhune", "raise", "SW_ERR"},
        {"rhune", "raise", "SW_ERROR", "crash"},
        {"rhune", "raise", "SW_ERROR", "case=1"},
        {"rhune", "raise", "SW_ERROR", "description=" + std::string(112, 'x')},
        {"rhune", "raise", "SW_ERROR", "label=" + std::string(20, 'x')},
        {"rhune", "cease", "SW_ERROR", "now"},
    };
    for (const auto& words : senseless) {
        EXPECT_EQ(verdict(words), Verdict::badUsage) << testing::PrintToString(words);
    }
    EXPECT_THAT(printer.log, Not(testing::Contains(HasSubstr("->"))));
}

} // namespace
