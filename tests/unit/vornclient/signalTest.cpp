#include "vornclient/signal.h"
#include "vornclient/client.h"
#include "vornclient/command.h"
#include "vornclient/session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace VornClient;
using testing::HasSubstr;

std::vector<std::byte> bytesOf(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

std::vector<std::byte> build(const std::vector<std::string>& words)
{
    return buildSignal(words, {.clientRef = 7, .serverRef = 8});
}

Signal signalOf(std::vector<std::byte> bytes)
{
    Signal signal;
    signal.bytes = std::move(bytes);
    return signal;
}

SignalPattern pattern(const std::vector<std::string>& words)
{
    return SignalPattern::parse(words);
}

using namespace std::string_view_literals;

TEST(BuildSignal, FillsRecordByFieldNames)
{
    EXPECT_EQ(build({"OMLA_VORN_SELECT_MMI_REQ", "mode=0x102"}),
              bytesOf("\x12\x80\x65\x01\0\0\0\x07\0\0\0\x08\0\0\x01\x02"sv));
    EXPECT_EQ(build({"select_mmi_req", "clientRef=1", "serverRef=0xffffffff"}),
              bytesOf("\x12\x80\x65\x01\0\0\0\x01\xFF\xFF\xFF\xFF\0\0\0\0"sv));
    const auto reject = build({"OMLA_VORN_SET_UTC_TIME_REJ", "errorCode=1", "description=no time"});
    ASSERT_EQ(reject.size(), 128U);
    EXPECT_EQ(signalOf(reject).text(), "no time");
    EXPECT_EQ(build({"LOAD_LMC_INIT_REQ", "loadModule=N_R1A"}),
              bytesOf("\x03\x88\x65\x01\0\0\0\x07\0\0\0\x08N_R1A\0"sv));
}

TEST(BuildSignal, AppendsRawBytesAndCutsToSize)
{
    EXPECT_EQ(build({"0x1658777", "--raw", "0xCAfe"}), bytesOf("\x77\x87\x65\x01\0\0\0\x07\0\0\0\x08\xCA\xFE"sv));
    EXPECT_EQ(build({"OMLA_VORN_CONN_ESTABLISH_REQ", "protocolRev=3", "--raw", "01"}),
              bytesOf("\0\x80\x65\x01\0\0\0\x07\0\0\0\x08\0\x03\x01"sv));
    EXPECT_EQ(build({"OMLA_VORN_SELECT_MMI_REQ", "--size", "4"}), bytesOf("\x12\x80\x65\x01"sv));
    EXPECT_EQ(build({"1", "--size", "14"}), bytesOf("\x01\0\0\0\0\0\0\x07\0\0\0\x08\0\0"sv));
}

TEST(BuildSignal, RefusesWhatDoesntFit)
{
    const std::vector<std::vector<std::string>> senseless{
        {},
        {"OMLA_VORN_NO_SUCH_REQ"},
        {"0x100000000"},
        {"OMLA_VORN_SELECT_MMI_REQ", "mode"},
        {"OMLA_VORN_SELECT_MMI_REQ", "mood=1"},
        {"OMLA_VORN_SELECT_MMI_REQ", "mode=-1"},
        {"OMLA_VORN_SELECT_MMI_REQ", "mode=0x100000000"},
        {"OMLA_VORN_CONN_ESTABLISH_REQ", "protocolRev=65536"},
        {"OMLA_VORN_SET_UTC_TIME_REJ", "description=" + std::string(113, 'x')},
        {"0x1658777", "--raw"},
        {"0x1658777", "--raw", "abc"},
        {"0x1658777", "--size", "3"},
        {"0x1658777", "--size", "99999999"},
    };
    for (const auto& words : senseless) {
        EXPECT_THROW(build(words), BadUsage) << testing::PrintToString(words);
    }
}

TEST(SignalPattern, ComparesValuesNotSpelling)
{
    const Signal reject =
        signalOf(build({"OMLA_VORN_SELECT_MMI_REJ", "errorCode=1", "errorText=Unsupported MMI mode"}));
    EXPECT_TRUE(pattern({"SELECT_MMI_REJ"}).matchesFields(reject));
    EXPECT_TRUE(pattern({"SELECT_MMI_REJ", "errorCode=0x01", "errorText=Unsupported MMI mode", "clientRef=7"})
                    .matchesFields(reject));
    EXPECT_FALSE(pattern({"SELECT_MMI_REJ", "errorCode=2"}).matchesFields(reject));
    EXPECT_FALSE(pattern({"SELECT_MMI_REJ", "errorText=Unsupported"}).matchesFields(reject));
    EXPECT_TRUE(pattern({"9", "rest=0xCAFE"}).matchesFields(signalOf(build({"9", "--raw", "cafe"}))));
    EXPECT_THROW(pattern({"SELECT_MMI_REJ", "mode=1"}), BadUsage);
}

TEST(SignalPattern, FieldsThatAShortSignalLacksDontMatch)
{
    const Signal cut = signalOf(build({"OMLA_VORN_SELECT_MMI_REJ", "errorCode=0", "--size", "13"}));
    EXPECT_FALSE(pattern({"SELECT_MMI_REJ", "errorCode=0"}).matchesFields(cut));
    EXPECT_TRUE(pattern({"SELECT_MMI_REJ", "serverRef=8"}).matchesFields(cut));
    const Signal numberOnly = signalOf(build({"OMLA_VORN_SELECT_MMI_REJ", "--size", "4"}));
    EXPECT_FALSE(pattern({"SELECT_MMI_REJ", "serverRef=0"}).matchesFields(numberOnly));
}

TEST(Printable, LetsNoControlSequenceThrough)
{
    EXPECT_EQ(printable("grün €", 100), "grün €");
    EXPECT_EQ(printable("\x1B[2J\r\n\x7F", 100), "\\x1b[2J\\x0d\\x0a\\x7f");
    EXPECT_EQ(printable("\xC2\x9B"
                        "1m",
                        100),
              "\\xc2\\x9b1m");                           // a control character beyond ASCII
    EXPECT_EQ(printable("\xFF\xC3", 100), "\\xff\\xc3"); // no UTF-8, and cut UTF-8
    EXPECT_EQ(printable("\xE2\x28\xA1", 100), "\\xe2(\\xa1");
    EXPECT_EQ(printable("abcdef", 3), "abc... (3 bytes more)");
}

TEST(ParseSeconds, TakesFractionsAndNothingElse)
{
    EXPECT_EQ(parseSeconds("0.3").count(), 300);
    EXPECT_EQ(parseSeconds("10").count(), 10000);
    for (const char* word : {"", "-1", "1s", "nan", "inf", "1e9", "99999999"}) {
        EXPECT_THROW(parseSeconds(word), BadUsage) << word;
    }
}

TEST(Inbox, TakesInOrderAndOnlyWhatIsNewEnough)
{
    Inbox inbox;
    inbox.add(signalOf(build({"1", "clientRef=1"})));
    const auto mark = inbox.nextSequence();
    inbox.add(signalOf(build({"2"})));
    inbox.add(signalOf(build({"1", "clientRef=2"})));
    const auto isOne = [](const Signal& signal) { return signal.number() == 1; };
    EXPECT_EQ(inbox.take(isOne, mark)->decode().references.front().value, 2U);
    EXPECT_FALSE(inbox.take(isOne, mark));
    EXPECT_EQ(inbox.take(isOne)->decode().references.front().value, 1U);
    EXPECT_EQ(inbox.signals().size(), 1U);
}

TEST(Inbox, FloodPushesTheOldestOut)
{
    Inbox inbox;
    for (int count = 0; count < 20000; ++count) {
        inbox.add(signalOf(build({std::to_string(count)})));
    }
    EXPECT_EQ(inbox.signals().size(), 10000U);
    EXPECT_EQ(inbox.signals().back().number(), 19999U);
    for (int count = 0; count < 100; ++count) {
        inbox.add(signalOf(std::vector<std::byte>(1U << 20U)));
    }
    EXPECT_EQ(inbox.signals().size(), 64U);
}

TEST(ReadSession, SkipsCommentsAndKeepsQuotedWords)
{
    std::istringstream text("# a comment\n\n  connect  \r\nexpect-reject mmi 2 with \"Unsupported MMI mode\"\n");
    const auto steps = readSession(text, "a.session", allCommands());
    ASSERT_EQ(steps.size(), 2U);
    EXPECT_EQ(steps[0].line, 3);
    EXPECT_EQ(steps[0].text, "connect");
    EXPECT_THAT(steps[1].words, testing::ElementsAre("expect-reject", "mmi", "2", "with", "Unsupported MMI mode"));
}

TEST(ReadSession, NamesThePlaceOfAMistake)
{
    for (const char* mistake : {"conect", "mmi \"1"}) {
        std::istringstream text(std::string("connect\n") + mistake + "\n");
        try {
            readSession(text, "a.session", allCommands());
            FAIL() << mistake;
        } catch (const BadUsage& error) {
            EXPECT_THAT(error.what(), HasSubstr("a.session:2: "));
        }
    }
}

} // namespace
