// Measurements of the simulated board's hot spots: who is told which temperatures, and when.

#include "boardSimFixture.h"

#include "tools/boardsim/dunl/hotSpots.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace {

using namespace boardsim;
using namespace tolme::dunl;

class BoardSimTemperaturesTest : public BoardSimTest
{
protected:
    std::uint32_t start(std::uint32_t procedureRef, std::uint32_t connection, std::uint32_t period)
    {
        TempMeasStartReq request;
        request.set_hot_spot_measurement_period(period);
        sendDunl(procedureRef, connection, request);
        const auto confirm = expect<TempMeasStartCfm>();
        EXPECT_EQ(confirm.procedureRef, procedureRef);
        return confirm.body.temp_meas_ref();
    }

    void restart(std::uint32_t connection, std::uint32_t ref, std::uint32_t period)
    {
        TempMeasRestartReq request;
        request.set_temp_meas_ref(ref);
        request.set_hot_spot_measurement_period(period);
        sendDunl(8, connection, request);
    }

    void stop(std::uint32_t connection, std::uint32_t ref)
    {
        TempMeasStopReq request;
        request.set_temp_meas_ref(ref);
        sendDunl(9, connection, request);
    }

    Json measurements() { return show("dunl")["temperatures"]["measurements"]; }
};

TEST_F(BoardSimTemperaturesTest, readings_are_told_in_the_procedure_of_the_start_until_the_measurement_is_stopped)
{
    const std::uint32_t connection = connectDunl();
    const std::uint32_t first = start(5, connection, 30);
    const std::uint32_t second = start(6, connection, 1 + 29);
    EXPECT_NE(first, 0U);
    EXPECT_NE(first, second);

    run("dunl indicate TempMeasInd");
    for (const std::uint32_t procedureRef : {5U, 6U}) {
        const auto indication = expect<TempMeasInd>();
        EXPECT_EQ(indication.procedureRef, procedureRef);
        EXPECT_EQ(indication.connectionRef, 100U);
        ASSERT_EQ(indication.body.reading_size(), 4);
        for (const std::int32_t degrees : indication.body.reading()) {
            EXPECT_GE(degrees, HotSpots::lowest);
            EXPECT_LE(degrees, HotSpots::highest);
        }
    }

    stop(connection, first);
    EXPECT_EQ(expect<TempMeasStopCfm>().procedureRef, 9U);
    run("dunl indicate TempMeasInd reading: 1 reading: -2");
    const auto indication = expect<TempMeasInd>();
    EXPECT_EQ(indication.procedureRef, 6U);
    EXPECT_EQ(indication.body.ShortDebugString(), "reading: 1 reading: -2");
    EXPECT_FALSE(anyOf<TempMeasInd>());

    connectDunl(); // anew: the earlier connection has gone
    EXPECT_TRUE(measurements().empty());
}

TEST_F(BoardSimTemperaturesTest, the_hot_spots_are_as_many_and_as_hot_as_set)
{
    const std::uint32_t connection = connectDunl();
    start(5, connection, 30);
    run("dunl hot-spots 12");
    run("dunl temperature 1 -40");
    run("dunl temperature 12 100000");
    run("dunl indicate TempMeasInd");
    const auto many = expect<TempMeasInd>().body;
    ASSERT_EQ(many.reading_size(), 12);
    EXPECT_EQ(many.reading(0), -40);
    EXPECT_EQ(many.reading(11), 100000);

    run("dunl temperature 1 wander");
    run("dunl restart"); // settings stay
    EXPECT_TRUE(measurements().empty());
    const Json shown = show("dunl")["temperatures"]["hotSpots"];
    ASSERT_EQ(shown.size(), 12U);
    EXPECT_GE(shown[0]["degrees"], HotSpots::lowest);
    EXPECT_EQ(shown[11].dump(), R"({"hotSpot":12,"degrees":100000,"mode":"set"})");

    for (const char* line :
         {"hot-spots 33", "hot-spots", "temperature 0 1", "temperature 33 1", "temperature 1", "temperature 1 warm",
          "temperature 1 2147483648x", "indicate TempMeasStartReq", "indicate TempMeasInd degrees: 1"}) {
        EXPECT_EQ(run(std::string("dunl ") + line), 1) << line;
    }
}

TEST_F(BoardSimTemperaturesTest, what_cant_be_measured_is_rejected_with_the_cause)
{
    const std::uint32_t connection = connectDunl();
    const std::uint32_t others = connectDunl(200);
    for (const std::uint32_t period : {0U, 31U, 0xFFFFFFFFU}) {
        TempMeasStartReq request;
        request.set_hot_spot_measurement_period(period);
        sendDunl(5, connection, request);
        EXPECT_EQ(expect<TempMeasStartRej>().body.ShortDebugString(), "reject_cause: 0") << period;
    }
    sendDunl(5, connection, TempMeasStartReq());
    EXPECT_EQ(expect<TempMeasStartRej>().body.reject_cause(), 0U);

    const std::uint32_t ref = start(6, connection, 30);
    restart(others, ref, 10);
    EXPECT_EQ(expect<TempMeasRestartRej>().body.ShortDebugString(), "reject_cause: 2");
    restart(connection, ref, 31);
    EXPECT_EQ(expect<TempMeasRestartRej>().body.ShortDebugString(), "reject_cause: 0");
    stop(others, ref);
    EXPECT_EQ(expect<TempMeasStopRej>().body.ShortDebugString(), "reject_cause: 0");
    run("dunl reject TempMeasStopReq 1");
    stop(connection, ref);
    EXPECT_EQ(expect<TempMeasStopRej>().body.ShortDebugString(), "reject_cause: 1");
    run("dunl reject TempMeasStopReq reject_cause: 7");
    stop(connection, ref);
    EXPECT_EQ(expect<TempMeasStopRej>().body.ShortDebugString(), "reject_cause: 7");
    EXPECT_EQ(measurements()[0]["period"], 30);
}

TEST(HotSpotsTest, a_hot_spot_wanders_slowly_between_its_bounds_and_unlike_the_others)
{
    HotSpots hotSpots;
    hotSpots.setCount(HotSpots::max);
    using Clock = std::chrono::steady_clock;
    std::vector<std::int32_t> before = hotSpots.readings(Clock::time_point());
    std::vector<std::int32_t> least = before;
    std::vector<std::int32_t> most = before;
    EXPECT_NE(std::count(before.begin(), before.end(), before[0]), HotSpots::max);
    for (std::chrono::seconds second(1); second < std::chrono::hours(2); ++second) {
        const auto now = hotSpots.readings(Clock::time_point(second));
        for (std::size_t i = 0; i < now.size(); ++i) {
            ASSERT_LE(std::abs(now[i] - before[i]), 1) << i << " at " << second.count();
            least[i] = std::min(least[i], now[i]);
            most[i] = std::max(most[i], now[i]);
        }
        before = now;
    }
    for (std::size_t i = 0; i < before.size(); ++i) {
        EXPECT_GE(least[i], HotSpots::lowest);
        EXPECT_LE(most[i], HotSpots::highest);
        EXPECT_GT(most[i] - least[i], 15);
    }
}

// The one test that lets a second go by, for all that goes by the clock.
TEST_F(BoardSimTemperaturesTest, a_new_period_and_a_duration_are_seconds_of_the_clock)
{
    const std::uint32_t connection = connectDunl();
    const auto begin = std::chrono::steady_clock::now();
    restart(connection, start(5, connection, 30), 1);
    expect<TempMeasRestartCfm>();

    const std::uint32_t fesk = connectFesk();
    tolme::fesk::RegisterMmiUserReq registration;
    registration.set_priority(tolme::fesk::RegisterMmiUserReq::PRIORITY_CLIENT);
    sendFesk(1, fesk, registration);
    const std::uint32_t user = expect<tolme::fesk::RegisterMmiUserCfm>().body.mmi_user_id();
    tolme::fesk::OpticalIndicatorControlSubscribeStatusChangeReq subscription;
    subscription.set_mmi_user_id(user);
    sendFesk(2, fesk, subscription);
    tolme::fesk::OpticalIndicatorControlActivateWithDurationReq activation;
    activation.set_mmi_user_id(user);
    activation.set_duration(1);
    sendFesk(3, fesk, activation);
    using StatusChangeInd = tolme::fesk::OpticalIndicatorControlStatusChangeInd;
    EXPECT_EQ(expect<StatusChangeInd>().body.state(), 1U);
    EXPECT_EQ(show("fesk")["panel"]["opticalIndicator"]["secondsLeft"], 1);

    EXPECT_EQ(expect<TempMeasInd>().procedureRef, 5U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_EQ(expect<StatusChangeInd>().body.state(), 0U);
    EXPECT_TRUE(show("fesk")["panel"]["opticalIndicator"]["secondsLeft"].is_null());
}

} // namespace
