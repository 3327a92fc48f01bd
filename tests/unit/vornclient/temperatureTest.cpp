// The temperatures of the hot spots: how they are drawn, and the measurement behind it.
#include "commandFixture.h"
#include "vornclient/temperaturePlot.h"
#include "vorni/access.h"

#include <csignal>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace VornClient;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

constexpr std::uint32_t startReq = OmlaVornTempMeasStartReqS::number;
constexpr std::uint32_t startCfm = OmlaVornTempMeasStartCfmS::number;

OmlaVornTempMeasIndS indicationOf(const std::vector<std::int16_t>& readings)
{
    OmlaVornTempMeasIndS indication{};
    indication.noOfReadings = static_cast<std::uint16_t>(readings.size());
    for (std::size_t index = 0; index < readings.size() && index < vornMaxReadings; ++index) {
        indication.readings[index] = readings[index];
    }
    return indication;
}

TEST(TemperaturePlot, HasALineForEachHotSpotWithWhatIsAndWhatWas)
{
    TemperaturePlot plot;
    EXPECT_EQ(plot.printLine(), "hot spots: none");
    for (const std::int16_t reading : std::vector<std::int16_t>{40, 47, 43}) {
        plot.apply(indicationOf({reading, static_cast<std::int16_t>(-10 * reading)}));
    }
    plot.apply(indicationOf({44}));
    EXPECT_THAT(plot.print({}), ElementsAre("SPOT  PRESENT  LOWEST  HIGHEST  LAST",
                                            "   1       44      40       47  _#~=", // a degree a step
                                            "   2        -    -470     -400  #_= "));
    EXPECT_THAT(plot.print({.width = 80, .drawsBlocks = true})[1], EndsWith("  ▁█▄▅"));
    EXPECT_EQ(plot.printLine(), "hot spots: 44 (40 to 47), - (-470 to -400)");
    const auto rows = plot.rows();
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0].size(), 4U);
    EXPECT_EQ(rows[1].size(), 3U); // nothing present
}

TEST(TemperaturePlot, StaysWithinItsWidthAndTheReadingsThatThereAre)
{
    TemperaturePlot plot;
    for (std::int16_t count = 0; count < 1000; ++count) {
        plot.apply(indicationOf(std::vector<std::int16_t>(70, count % 2 == 0 ? INT16_MIN : INT16_MAX)));
    }
    const auto lines = plot.print({.width = 60});
    ASSERT_EQ(lines.size(), 1 + vornMaxReadings);
    EXPECT_EQ(lines[10].size(), 60U);
    EXPECT_THAT(lines[10], EndsWith("_#_#_#"));
    EXPECT_THAT(plot.print({.width = 0})[1], EndsWith("  _#_#_#_#"));
    EXPECT_LT(plot.print({.width = 100000})[1].size(), 400U);
}

class VornClientTemperature : public VornClientCommand
{
protected:
    /// Confirms, and indicates so many times behind a start.
    void serveIndications(int count)
    {
        options.connectsByItself = true;
        serveConnected([count](ScriptedServer& server, const kiv_msg* signal) {
            server.reply(signal, startCfm);
            const auto* request = viewSignal<OmlaVornTempMeasStartReqS>(signal);
            for (int reading = 0; request != nullptr && request->hotSpotMeasurementPeriod != 0 && reading < count;
                 ++reading) {
                reply(server, signal, {"TEMP_MEAS_IND", "noOfReadings=1", fmt::format("readings=ff{:02x}", reading)});
            }
        });
    }

    /// Those of the requests so far.
    std::vector<int> periods() const
    {
        std::vector<int> periods;
        for (const Signal& signal : printer.sent) {
            if (signal.number() == startReq) {
                periods.push_back(recordOf<OmlaVornTempMeasStartReqS>(signal)->hotSpotMeasurementPeriod);
            }
        }
        return periods;
    }
};

TEST_F(VornClientTemperature, WhenWatchedThenShowsSoManyAndStops)
{
    serveIndications(3);
    expectAll(Verdict::ok, {"temp watch 7 --count 2", "temp 255", "temp stop"});
    EXPECT_THAT(periods(), ElementsAre(7, 0, 255, 0));
    EXPECT_THAT(printer.log,
                testing::IsSupersetOf({"hot spots: -256 (-256 to -256)", "hot spots: -255 (-256 to -255)"}));
    EXPECT_THAT(printer.log, testing::Not(testing::Contains(HasSubstr("-254"))));
}

TEST_F(VornClientTemperature, WhenInterruptedThenStopsAllTheSame)
{
    serveIndications(1);
    printer.whenLive = [] { std::raise(SIGINT); };
    expectAll(Verdict::ok, {"temp --watch"});
    printer.whenLive = {};
    EXPECT_FALSE(context().hub().hasInterruptFd());
    EXPECT_THAT(periods(), ElementsAre(1, 0));
}

TEST_F(VornClientTemperature, WhenRejectedOrServerIsGoneThenNothingIsWatched)
{
    options.connectsByItself = true;
    serveConnected([asked = 0](ScriptedServer& server, const kiv_msg* signal) mutable {
        if (asked++ == 0) {
            reply(server, signal, {"TEMP_MEAS_START_REJ", "errorCode=1", "errorText=Unknown"});
        } else {
            server.reply(signal, startCfm);
            server.withdraw();
        }
    });
    expectAll(Verdict::ok, {"expect-reject temp watch 31 with Unknown"});
    expectAll(Verdict::noServer, {"temp watch"});
    EXPECT_THAT(periods(), ElementsAre(31, 1));
}

TEST_F(VornClientTemperature, WhatMakesNoSenseIsntSent)
{
    options.connectsByItself = true;
    expectAll(Verdict::badUsage, {"temp", "temp 256", "temp warm", "temp stop 1", "temp watch 0", "temp watch 1 2",
                                  "temp watch --count", "temp watch --count 0", "temp watch --count x"});
    EXPECT_TRUE(printer.sent.empty());
}

/// What a real printer writes of a live view.
std::string printedLive(const PrinterSettings& settings)
{
    testing::internal::CaptureStdout();
    {
        const auto printer = Printer::create(settings);
        ClientHub hub("hub", *printer);
        Client& client = hub.addClient({.label = "", .mailboxName = "client", .references = {}});
        const LivePrinting live(*printer);
        printer->onReceived(client, signalOf({"TEMP_MEAS_IND"}));
        printer->live(client, {{"seen", {{"count", 1}}, "rows", {{{"name", "\xFF"}}}, {"table"}}, "title", {"news"}});
    }
    return testing::internal::GetCapturedStdout();
}

TEST(Printer, WritesALineForEachStateOfALiveViewAndNoSignals)
{
    EXPECT_EQ(printedLive({}), "news\n");
    EXPECT_THAT(printedLive({.json = true}),
                testing::StartsWith(R"({"event":"seen","client":"","count":1,"rows":[{"name":")"));
    EXPECT_EQ(printedLive({.quiet = true}), "");
}

} // namespace
