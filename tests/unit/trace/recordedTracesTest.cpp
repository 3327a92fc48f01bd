/// The trace macros, seen through the recording implementation.
#include "trace/recordedTraces.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <thread>
#include <tuple>

using VornTrace::Event;
using VornTrace::RecordedTraces;

namespace {

struct Unprintable {
    bool outOfMemory = false;
};

} // namespace

template <>
struct fmt::formatter<Unprintable> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    template <typename Context>
    auto format(const Unprintable& value, Context& context) const -> decltype(context.out())
    {
        if (value.outOfMemory) {
            throw std::bad_alloc();
        }
        throw std::runtime_error("no such field");
    }
};

namespace {

/// Looks at the traces of its own case only.
class TraceMacros : public testing::Test
{
protected:
    const RecordedTraces::Mark start = RecordedTraces::mark();

    std::size_t recorded() const { return RecordedTraces::mark() - start; }
};

TEST_F(TraceMacros, plainEventsCarryPlaceObjectAndText)
{
    const int before = __LINE__;
    TRACE_ERROR("ABN: no session for mailbox {}", 0x10001);
    TRACE_INFO("started");
    TRACE_STATE_CHANGE("{} -> {}", "idle", "connected");
    TRACE_1("one");
    TRACE_2("two");
    TRACE_3("three");
    TRACE_4("four");
    TRACE_5("five");
    TRACE_6("six");
    TRACE_7("seven {{}}");

    using Line = std::tuple<Event, std::string, std::string>;
    const std::vector<Line> expected = {
        {Event::error, "", "ABN: no session for mailbox 65537"},
        {Event::info, "", "started"},
        {Event::stateChange, "-", "idle -> connected"},
        {Event::trace1, "-", "one"},
        {Event::trace2, "-", "two"},
        {Event::trace3, "-", "three"},
        {Event::trace4, "-", "four"},
        {Event::trace5, "-", "five"},
        {Event::trace6, "-", "six"},
        {Event::trace7, "-", "seven {}"},
    };
    std::vector<Line> lines;
    int line = before;
    for (const auto& trace : RecordedTraces::since(start)) {
        EXPECT_EQ(trace.file, "recordedTracesTest.cpp");
        EXPECT_EQ(trace.line, ++line);
        lines.emplace_back(trace.event, trace.object, trace.text);
    }
    EXPECT_EQ(lines, expected);
}

TEST_F(TraceMacros, signalEventsCarryNumberAndReceiver)
{
    TRACE_REC_SIG(0x1659100u, "OMLA_VORN_TEMP_MEAS_START_REQ{{clientRef={}}}", 7);
    TRACE_SEND_SIG(0x1659101u, 0xFFEFFFFFu, "OMLA_VORN_TEMP_MEAS_START_CFM");

    const auto traces = RecordedTraces::since(start);
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_EQ(traces[0].event, Event::recSig);
    EXPECT_EQ(traces[0].object, "-");
    EXPECT_EQ(traces[0].number, 0x1659100u);
    EXPECT_EQ(traces[0].text, "OMLA_VORN_TEMP_MEAS_START_REQ{clientRef=7}");
    EXPECT_EQ(traces[1].event, Event::sendSig);
    EXPECT_EQ(traces[1].object, "-");
    EXPECT_EQ(traces[1].number, 0x1659101u);
    EXPECT_EQ(traces[1].receiver, 0xFFEFFFFFu);
    EXPECT_EQ(traces[1].text, "OMLA_VORN_TEMP_MEAS_START_CFM");
}

TEST_F(TraceMacros, dataEventsCopyTheirBytes)
{
    std::array<std::uint8_t, 3> bytes = {1, 0, 255};
    TRACE_DATA(bytes.data(), bytes.size(), "{} bytes", bytes.size());
    TRACE_DATA(nullptr, 0, "none");
    const VornTrace::Uts uts{1700000000, 999999, "yarrowi"};
    TRACE_UTS(1, uts, bytes.data(), 2, "level {}", 1);
    TRACE_UTS(2, uts, nullptr, 0, "2");
    TRACE_UTS(3, uts, nullptr, 0, "3");
    TRACE_UTS(4, uts, nullptr, 0, "4");
    TRACE_UTS(5, uts, nullptr, 0, "5");
    TRACE_UTS(6, uts, nullptr, 0, "6");
    TRACE_UTS(7, uts, nullptr, 0, "7");
    bytes.fill(9);

    const auto traces = RecordedTraces::since(start);
    ASSERT_EQ(traces.size(), 9u);
    EXPECT_EQ(traces[0].event, Event::data);
    EXPECT_EQ(traces[0].object, "-");
    EXPECT_EQ(traces[0].text, "3 bytes");
    EXPECT_THAT(traces[0].data, testing::ElementsAre(1, 0, 255));
    EXPECT_THAT(traces[1].data, testing::IsEmpty());
    EXPECT_EQ(traces[2].text, "level 1");
    EXPECT_THAT(traces[2].data, testing::ElementsAre(1, 0));
    for (std::size_t level = 1; level <= 7; ++level) {
        const auto& trace = traces[level + 1];
        EXPECT_EQ(VornTrace::eventName(trace.event), "TRACE_UTS" + std::to_string(level));
        EXPECT_EQ(trace.sec, 1700000000u);
        EXPECT_EQ(trace.usec, 999999u);
        EXPECT_EQ(trace.process, "yarrowi");
    }
}

TEST_F(TraceMacros, aDisabledEventIsNeitherComposedNorRecorded)
{
    int evaluated = 0;
    const auto argument = [&] { return ++evaluated; };
    const VornTrace::Uts uts{0, 0, ""};
    const auto traceEach = [&] {
        TRACE_ERROR("{}", argument());
        TRACE_STATE_CHANGE("{}", argument());
        TRACE_REC_SIG(1u, "{}", argument());
        TRACE_SEND_SIG(1u, 2u, "{}", argument());
        TRACE_DATA("x", 1, "{}", argument());
        TRACE_UTS(7, uts, "x", 1, "{}", argument());
    };
    const std::array events = {Event::error,   Event::stateChange, Event::recSig,
                               Event::sendSig, Event::data,        Event::traceUts7};

    for (const Event event : events) {
        RecordedTraces::enable(event, false);
    }
    traceEach();
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(recorded(), 0u);

    TRACE_INFO("another event stays enabled");
    for (const Event event : events) {
        RecordedTraces::enable(event, true);
    }
    traceEach();
    EXPECT_EQ(evaluated, 6);
    EXPECT_EQ(recorded(), 7u);
}

TEST_F(TraceMacros, aTextThatCannotBeComposedSaysSo)
{
    TRACE_INFO("{}", Unprintable{});
    TRACE_INFO("{}", Unprintable{true});
    const auto traces = RecordedTraces::since(start);
    ASSERT_EQ(traces.size(), 2u);
    EXPECT_EQ(traces[0].text, "ABN: trace text not composed: no such field");
    EXPECT_EQ(traces[1].text, "ABN: trace text not composed: std::bad_alloc");
}

TEST_F(TraceMacros, oneMacroIsOneStatement)
{
    if (recorded() != 0)
        TRACE_INFO("then");
    else
        TRACE_INFO("else");
    EXPECT_TRUE(RecordedTraces::has("else", start));
}

TEST(RecordedTraces, onlyWhatLiesBehindTheMarkIsSeen)
{
    TRACE_INFO("before");
    const auto mark = RecordedTraces::mark();
    EXPECT_FALSE(RecordedTraces::has("before", mark));
    EXPECT_FALSE(RecordedTraces::hasPart("for", mark));
    EXPECT_TRUE(RecordedTraces::has("before"));
    EXPECT_FALSE(RecordedTraces::has("for"));
    EXPECT_TRUE(RecordedTraces::hasPart("for"));
    EXPECT_TRUE(RecordedTraces::since(mark).empty());

    TRACE_INFO("before");
    EXPECT_EQ(RecordedTraces::count("before"), 2u);
    EXPECT_EQ(RecordedTraces::count("before", mark), 1u);
    EXPECT_EQ(RecordedTraces::count("before", mark + 100), 0u);
    EXPECT_TRUE(RecordedTraces::since(mark + 100).empty());
}

TEST(RecordedTraces, waitForFindsATraceOfAnotherThread)
{
    TRACE_INFO("the answer came earlier");
    const auto mark = RecordedTraces::mark();
    std::thread tracer([] {
        for (int i = 0; i < 1000; ++i) {
            TRACE_1("noise {}", i);
        }
        TRACE_REC_SIG(42u, "the answer");
    });
    const auto found = RecordedTraces::waitFor("answer", mark);
    tracer.join();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->number, 42u);
    EXPECT_EQ(RecordedTraces::waitFor("answer")->text, "the answer came earlier");
}

TEST(RecordedTraces, waitForGivesUpAtItsDeadline)
{
    TRACE_INFO("other");
    const auto mark = RecordedTraces::mark();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(RecordedTraces::waitFor("other", mark, std::chrono::milliseconds(20)));
    EXPECT_FALSE(RecordedTraces::waitFor("other", mark + 10, std::chrono::milliseconds(20)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
}

TEST(RecordedTraces, noTraceOfManyThreadsIsLost)
{
    const auto mark = RecordedTraces::mark();
    std::vector<std::thread> tracers;
    for (int i = 0; i < 4; ++i) {
        tracers.emplace_back([i] {
            for (int j = 0; j < 500; ++j) {
                TRACE_2("thread {} trace {}", i, j);
            }
        });
    }
    for (auto& tracer : tracers) {
        tracer.join();
    }
    EXPECT_EQ(RecordedTraces::mark() - mark, 2000u);
    EXPECT_EQ(RecordedTraces::count("thread 3 trace 499", mark), 1u);
}

} // namespace
