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

const std::string labelInd = "FAULT_WITH_RECOVERY_TIME_AND_HW_FAULT_LABEL_IND";

using VornClientFault = VornClientCommand;

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
    EXPECT_EQ(view.apply(signalOf({labelInd, "faultId=0x301", "faultCase=2", "recoveryTime=300"}))->event,
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
    for (const auto& [name, size] :
         {std::pair<std::string, int>("FAULT_IND", 143), {"FAULTCEASE_IND", 27}, {labelInd, 167}}) {
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
    const auto change = view.apply(signalOf({labelInd, "faultId=0x301", "faultCase=7", "faultDescription=\x1B[2J",
                                             "recoveryTime=4294967295", "hwFaultLabel=" + unterminated}));
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

TEST_F(VornClientFault, AuditTellsTheStateInWordsAndHoldsItAgainstTheExpectedOne)
{
    serve([asked = std::size_t{0}](ScriptedServer& server, const kiv_msg* signal) mutable {
        constexpr std::array answers{"\0\1\0\0"sv, "\0\2\0\0"sv, "\0\7\0\0"sv};
        server.reply(signal, OmlaVornAuditCfmS::number, answers.at(asked++));
    });
    expectAll(Verdict::ok, {"audit operational"});
    expectAll(Verdict::failed, {"audit operational"});
    EXPECT_THAT(run({"audit", "starting"}).message, HasSubstr("expected the state starting, came: unknown (7)"));
    expectAll(Verdict::badUsage, {"audit asleep"});
    EXPECT_THAT(printer.log, testing::IsSupersetOf({"state operational", "state disabled", "state unknown (7)"}));
}

TEST_F(VornClientFault, WhenEnableIsRejectedThenReasonIsTold)
{
    serve([](ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == OmlaVornDisableOperationReqS::number) {
            server.reply(signal, OmlaVornDisableOperationCfmS::number);
        } else {
            reply(server, signal, {"ENABLE_OPERATION_REJ", "errorCode=1", "errorText=DISABLED"});
        }
    });
    expectAll(Verdict::ok, {"disable", "expect-reject enable with DISABLED"});
    expectAll(Verdict::rejected, {"enable"});
}

/// Confirms subscriptions, each followed by the same faults.
void serveFaults(ScriptedServer& server, const kiv_msg* signal)
{
    switch (signal->number) {
    case OmlaVornSubscribeFaultsReqS::number:
        server.reply(signal, OmlaVornSubscribeFaultsCfmS::number);
        reply(server, signal, {"FAULT_IND", "faultId=0x301"});
        break;
    case OmlaVornSubscribeFaultsWithHwFaultLabelReqS::number:
        server.reply(signal, OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number);
        reply(server, signal, {labelInd, "faultId=0x301"});
        reply(server, signal, {labelInd, "faultId=0x710"});
        break;
    case OmlaVornAuditReqS::number:
        server.reply(signal, OmlaVornAuditCfmS::number, "\0\0\0\0"sv);
        break;
    default:
        server.withdraw();
        break;
    }
}

TEST_F(VornClientFault, WhenOneShotThenFaultListWaitsForAllThatFollowsTheSubscription)
{
    options.connectsByItself = true;
    serveConnected(serveFaults);
    expectAll(Verdict::ok, {"faults"});
    printer.log.clear();
    expectAll(Verdict::ok, {"faults list"}); // subscribed already; what is on its way is waited for
    EXPECT_THAT(printer.log, ElementsAre("->OMLA_VORN_AUDIT_REQ", "<-OMLA_VORN_AUDIT_CFM", "fault SW_ERROR (0x301)",
                                         "fault POWER_DISTURBANCE_INPUT_POWER_LOW (0x710)"));
}

TEST_F(VornClientFault, WhenNotSubscribedThenFaultListSaysSoRatherThanThatThereAreNone)
{
    serveConnected(serveFaults);
    expectAll(Verdict::ok, {"connect"});
    expectAll(Verdict::failed, {"faults"});
    expectAll(Verdict::ok, {"faults subscribe", "faults"});
}

TEST_F(VornClientFault, WhenConnectionIsLostThenFaultsAreNoLongerKnown)
{
    serveConnected(serveFaults);
    expectAll(Verdict::ok, {"connect", "faults subscribe", "expect FAULT_IND"});
    EXPECT_EQ(context().client().faults().faults().size(), 1U);
    expectAll(Verdict::ok, {"disconnect"});
    EXPECT_TRUE(context().client().faults().faults().empty());

    expectAll(Verdict::ok,
              {"connect", "faults subscribe label", "expect " + labelInd + " faultId=0x301", "send 0x98", "wait-gone"});
    EXPECT_TRUE(context().client().faults().faults().empty());
}

TEST_F(VornClientFault, WhenFaultsAreWatchedThenChangesAreToldUntilServerIsGone)
{
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) {
        serveFaults(server, signal);
        if (signal->number == OmlaVornSubscribeFaultsWithHwFaultLabelReqS::number) {
            reply(server, signal, {"FAULTCEASE_IND", "faultId=0x301"});
            reply(server, signal, {"FAULTCEASE_IND", "faultId=0x301"});
            server.withdraw();
        }
    });
    expectAll(Verdict::ok, {"connect"});
    expectAll(Verdict::noServer, {"faults watch within 10"});
    EXPECT_THAT(printer.log,
                testing::IsSupersetOf({"raised SW_ERROR (0x301)", "raised POWER_DISTURBANCE_INPUT_POWER_LOW (0x710)",
                                       "ceased SW_ERROR (0x301)", "cleared"}));
    EXPECT_EQ(std::count(printer.log.begin(), printer.log.end(), "ceased SW_ERROR (0x301)"), 1);
}

TEST_F(VornClientFault, WhenFaultWatchIsInterruptedOrItsTimeIsOverThenItEndsOrderly)
{
    options.connectsByItself = true;
    serveConnected(serveFaults);
    expectAll(Verdict::ok, {"faults --watch short within 0.01"});
    printer.whenFaultChanges = [] { std::raise(SIGINT); };
    expectAll(Verdict::ok, {"faults watch"});
    printer.whenFaultChanges = {}; // what is still on its way isn't watched
    EXPECT_FALSE(context().hub().hasInterruptFd());
    expectAll(Verdict::badUsage, {"faults watch long", "faults unsubscribe"});
}

TEST_F(VornClientFault, WhenSubscriptionIsIgnoredThenTimeOut)
{
    options.answerTimeout = std::chrono::milliseconds(50);
    serve([](ScriptedServer&, const kiv_msg*) {});
    expectAll(Verdict::timedOut, {"faults subscribe label"});
}

/// What a real printer writes of a watched fault.
std::string printedWatch(const PrinterSettings& settings)
{
    testing::internal::CaptureStdout();
    {
        const auto printer = Printer::create(settings);
        ClientHub hub("hub", *printer);
        Client& client = hub.addClient({.label = "", .mailboxName = "client", .references = {}});
        FaultChange change{FaultEvent::raised, {}};
        change.fault.faultId = 0x301;
        change.fault.description = "\xFF";
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

const std::string refusal = "protocol(s) not supported: 2 3";

/// A RHUNE server that remembers what it got.
class VornClientRhune : public VornClientFault
{
protected:
    VornClientRhune()
    {
        serve([log = m_log](ScriptedServer& server, const kiv_msg* signal) {
            const std::string bytes(reinterpret_cast<const char*>(signal), kiv_size(signal));
            const std::lock_guard lock(log->mutex);
            log->signals.push_back(bytes);
            if (signal->number == RhuneVornConnCloseReqS::number) {
                server.reply(signal, RhuneVornConnCloseCfmS::number);
            } else if (signal->number == OmlaVornSelectMmiReqS::number) {
                server.withdraw();
            } else if (bytes.substr(12) == "\0\0\0\1\0\0\0\1"sv) {
                server.replyWithRef(signal, RhuneVornConnEstablishCfmS::number, 4096, "\0\0\0\1"sv);
            } else if (signal->number == RhuneVornConnEstablishReqS::number) {
                reply(server, signal, {"RHUNE_VORN_CONN_ESTABLISH_REJ", "errorCode=1", "errorDescription=" + refusal});
            }
        });
    }

    /// All signals so far.
    std::vector<std::string> received() const
    {
        const std::lock_guard lock(m_log->mutex);
        return m_log->signals;
    }

private:
    /// Shared with the server's thread, which outlives the test's body.
    struct Log {
        std::mutex mutex;
        std::vector<std::string> signals;
    };
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

TEST_F(VornClientRhune, WhenConnectedThenConnectionStaysUntilItIsClosedOrServerIsGone)
{
    options.publishedTimeout = std::chrono::milliseconds(100);
    expectAll(Verdict::failed, {"rhune cease SW_ERROR"}); // not connected, and nobody would tell
    expectAll(Verdict::ok, {"rhune connect", "rhune cease SW_ERROR"});
    EXPECT_TRUE(context().rhuneClient().isConnected());
    expectAll(Verdict::ok, {"rhune close"});
    EXPECT_THAT(received(), testing::Contains(rhuneSignal(5, "\0\0\0\2\0\0\x10\0\3\1\0\0"sv)));
    expectAll(Verdict::failed, {"rhune close"});
    expectAll(Verdict::ok, {"rhune connect"});
    EXPECT_EQ(received().back().substr(8, 4), "\0\0\0\1"sv);  // its own reference again
    expectAll(Verdict::noServer, {"mmi 1", "rhune connect"}); // the server goes away
    EXPECT_FALSE(context().rhuneClient().isConnected());
}

TEST_F(VornClientRhune, WhenRevisionsAreRefusedThenReasonIsExpectedByCommandAndByHand)
{
    EXPECT_EQ(verdict({"expect-reject", "rhune", "connect", "2", "3", "with", refusal}), Verdict::ok);
    EXPECT_EQ(received().back().substr(12), "\0\0\0\2\0\0\0\2\0\0\0\3"sv);
    ASSERT_EQ(verdict({"send", "RHUNE_VORN_CONN_ESTABLISH_REQ", "nbrOfSupportedProtocolRev=9", "--raw", "00000001"}),
              Verdict::ok);
    EXPECT_EQ(verdict({"expect", "RHUNE_VORN_CONN_ESTABLISH_REJ", "procedureRef=2", "errorDescription=" + refusal}),
              Verdict::ok);
    EXPECT_EQ(received().back().substr(12), "\0\0\0\x09\0\0\0\1"sv);
    expectAll(Verdict::ok, {"expect-none RHUNE_VORN_CONN_ESTABLISH_REJ within 0"});
}

TEST_F(VornClientRhune, WhenThereAreTwoThenTheOneInUseSpeaks)
{
    expectAll(Verdict::ok, {"rhune connect", "client other rhune connectionRef=77", "rhune connect"});
    EXPECT_EQ(received().back().substr(8, 4), "\0\0\0\x4D"sv);
    EXPECT_EQ(context().client().settings().label, "other");
    expectAll(Verdict::ok, {"rhune disconnect"});
    EXPECT_EQ(kiv_locate("client_other"), KIV_NO_MBOX);
    expectAll(Verdict::badUsage, {"mmi 1", "connect"}); // that isn't its protocol
    expectAll(Verdict::ok, {"client rhune"});
    EXPECT_TRUE(context().client().isConnected());
}

TEST_F(VornClientRhune, WhatMakesNoSenseIsntSent)
{
    options.connectsByItself = true;
    expectAll(Verdict::badUsage,
              {"rhune", "rhune reopen", "rhune connect one", "rhune raise", "rhune raise SW_ERR",
               "rhune raise SW_ERROR crash", "rhune raise SW_ERROR case=1", "rhune cease SW_ERROR now"});
    const std::string tooLong(112, 'x');
    EXPECT_EQ(verdict({"rhune", "raise", "SW_ERROR", "description=" + tooLong}), Verdict::badUsage);
    EXPECT_EQ(verdict({"rhune", "raise", "SW_ERROR", "label=" + tooLong.substr(0, 20)}), Verdict::badUsage);
    EXPECT_THAT(printer.log, Not(testing::Contains(HasSubstr("->"))));
}

} // namespace
