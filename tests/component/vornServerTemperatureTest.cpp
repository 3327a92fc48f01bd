/// Temperature measurement: one signal of the client is three requests of the board.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vorni/temperature.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr const char* invalidPeriod = "Invalid hotSpotMeasurementPeriod: exp: 1 - 30";

class VornServerTemperatureTest : public UnitTest
{
protected:
    VornServerTemperatureTest()
    {
        unit.dunlCapabilities.push_back(dunl::TEMPERATURE_LEVEL_MEASUREMENT);
        unit.bringUp();
    }

    static void order(Client& client, std::uint8_t period)
    {
        client.send<OmlaVornTempMeasStartReqS>([&](auto& req) { req.hotSpotMeasurementPeriod = period; });
    }
    auto expectStart() { return unit.dunl.expect<dunl::TempMeasStartReq>(dunl::MsgNo::TempMeasStartReq); }
    auto expectRestart() { return unit.dunl.expect<dunl::TempMeasRestartReq>(dunl::MsgNo::TempMeasRestartReq); }
    auto expectStop() { return unit.dunl.expect<dunl::TempMeasStopReq>(dunl::MsgNo::TempMeasStopReq); }

    /// A measurement that runs.
    Request<dunl::TempMeasStartReq> start(Client& client, std::uint32_t reference)
    {
        order(client, 5);
        const auto request = expectStart();
        EXPECT_EQ(request.body.hot_spot_measurement_period(), 5U);
        dunl::TempMeasStartCfm cfm;
        cfm.set_temp_meas_ref(reference);
        request.reply(dunl::MsgNo::TempMeasStartCfm, cfm);
        expectConfirmed(client);
        return request;
    }
    static void expectConfirmed(Client& client)
    {
        const auto cfm = client.expect<OmlaVornTempMeasStartCfmS>();
        EXPECT_EQ(client.lastSender, client.publicMbox());
        EXPECT_EQ(cfm.header.clientRef, client.clientRef);
        EXPECT_EQ(cfm.header.serverRef, client.serverRef);
    }
    static void expectRejected(Client& client, const std::string& text)
    {
        const auto rej = client.expect<OmlaVornTempMeasStartRejS>();
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(fieldText(rej.errorText), text);
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(rej.header.serverRef, client.serverRef);
    }
    template <typename Rej>
    static Rej refusal(std::uint32_t cause)
    {
        Rej rej;
        rej.set_reject_cause(cause);
        return rej;
    }
    static dunl::TempMeasInd readings(int count)
    {
        dunl::TempMeasInd ind;
        for (int i = 0; i < count; ++i) {
            ind.add_reading(i == 0 ? -40 : 65536 + i); // the second and all others lose their upper half
        }
        return ind;
    }
    void lose(Client& client)
    {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
        unit.settle();
        unit.dunl.expectNumber(dunl::MsgNo::ConnectivityNotConnectedReq); // of the last client
    }
};

TEST_F(VornServerTemperatureTest, when_a_measurement_runs_then_the_signal_retunes_and_stops_it_in_its_procedure)
{
    Client& client = unit.connect();
    const auto running = start(client, 77);

    client.clientRef += 100; // the references of the start are those of all that follows
    order(client, 30);
    client.clientRef -= 100;
    const auto restart = expectRestart();
    EXPECT_EQ(restart.procedureRef, running.procedureRef);
    EXPECT_EQ(restart.body.temp_meas_ref(), 77U);
    EXPECT_EQ(restart.body.hot_spot_measurement_period(), 30U);
    restart.reply(dunl::MsgNo::TempMeasRestartCfm, dunl::TempMeasRestartCfm());
    expectConfirmed(client);

    order(client, 0);
    const auto stop = expectStop();
    EXPECT_EQ(stop.procedureRef, running.procedureRef);
    EXPECT_EQ(stop.body.temp_meas_ref(), 77U);
    stop.reply(dunl::MsgNo::TempMeasStopRej, refusal<dunl::TempMeasStopRej>(1));
    expectRejected(client, "Internal error UNABLE_TO_STOP_TIMER");
    order(client, 0); // it counts as running
    expectStop().reply(dunl::MsgNo::TempMeasStopCfm, dunl::TempMeasStopCfm());
    expectConfirmed(client);
    running.reply(dunl::MsgNo::TempMeasInd, readings(1));
    unit.settle();
    client.expectNothing();

    order(client, 0); // nothing runs: the board is asked all the same
    const auto zero = expectStart();
    EXPECT_NE(zero.procedureRef, running.procedureRef);
    EXPECT_EQ(zero.body.hot_spot_measurement_period(), 0U);
    zero.reply(dunl::MsgNo::TempMeasStartRej, refusal<dunl::TempMeasStartRej>(0));
    expectRejected(client, invalidPeriod);
}

TEST_F(VornServerTemperatureTest, when_the_board_rejects_then_the_client_is_told_why)
{
    Client& client = unit.connect();
    for (const auto& [cause, text] :
         {std::pair{0U, invalidPeriod}, {1U, "Unable to start hotSpot timer"}, {2U, "Unknown"}, {77U, "Unknown"}}) {
        order(client, 99);
        const auto request = expectStart();
        request.reply(dunl::MsgNo::TempMeasStartRej, refusal<dunl::TempMeasStartRej>(cause));
        expectRejected(client, text);
        request.reply(dunl::MsgNo::TempMeasStartRej, refusal<dunl::TempMeasStartRej>(cause)); // it is gone
    }
    const auto running = start(client, 3);
    for (const auto& [cause, text] : {std::pair{0U, invalidPeriod},
                                      {1U, "Unable to restart hotSpot timer"},
                                      {2U, "Internal error INVALID_TEMP_MEAS_REF"},
                                      {9U, ""}}) {
        order(client, 99);
        expectRestart().reply(dunl::MsgNo::TempMeasRestartRej, refusal<dunl::TempMeasRestartRej>(cause));
        expectRejected(client, text);
    }
    EXPECT_TRUE(RecordedTraces::has("VornServerTemperature:handleTempMeasRestartRej() reject_cause 9"));
    for (const auto& [cause, text] : {std::pair{0U, "Internal error INVALID_TEMP_MEAS_REF"}, {5U, "Unknown"}}) {
        order(client, 0);
        expectStop().reply(dunl::MsgNo::TempMeasStopRej, refusal<dunl::TempMeasStopRej>(cause));
        expectRejected(client, text);
    }
    running.reply(dunl::MsgNo::TempMeasInd, readings(2)); // none of them has ended the measurement
    client.expect<OmlaVornTempMeasIndS>();
}

TEST_F(VornServerTemperatureTest, when_readings_come_then_the_client_gets_ten_at_most_and_zeros_behind)
{
    Client& client = unit.connect();
    const auto running = start(client, 3);
    for (const int count : {0, 3, 10, 12}) {
        running.reply(dunl::MsgNo::TempMeasInd, readings(count));
        const auto ind = client.expect<OmlaVornTempMeasIndS>();
        const int told = std::min(count, 10);
        EXPECT_EQ(ind.header.clientRef, client.clientRef);
        EXPECT_EQ(ind.header.serverRef, client.serverRef);
        EXPECT_EQ(ind.noOfReadings, told);
        for (int i = 0; i < 10; ++i) {
            EXPECT_EQ(ind.readings[i], i >= told ? 0 : i == 0 ? -40 : i) << count << ' ' << i;
        }
    }
}

TEST_F(VornServerTemperatureTest, when_two_requests_are_on_their_way_then_the_first_confirmed_is_the_measurement)
{
    Client& client = unit.connect();
    order(client, 1);
    order(client, 2);
    const auto first = expectStart();
    const auto second = expectStart();
    EXPECT_NE(first.procedureRef, second.procedureRef);
    dunl::TempMeasStartCfm cfm;
    cfm.set_temp_meas_ref(11);
    first.reply(dunl::MsgNo::TempMeasStartCfm, cfm);
    expectConfirmed(client);
    cfm.set_temp_meas_ref(12);
    second.reply(dunl::MsgNo::TempMeasStartCfm, cfm);
    expectConfirmed(client);
    order(client, 0);
    const auto stop = expectStop();
    EXPECT_EQ(stop.procedureRef, first.procedureRef);
    EXPECT_EQ(stop.body.temp_meas_ref(), 12U) << "the reference is that of the last";
}

TEST_F(VornServerTemperatureTest, when_the_session_is_lost_then_its_measurement_is_stopped)
{
    Client& client = unit.connect();
    const auto running = start(client, 5);
    const auto id = client.mbox();
    lose(client);
    const auto stop = expectStop(); // before what the later components send
    EXPECT_EQ(stop.procedureRef, running.procedureRef);
    EXPECT_EQ(stop.body.temp_meas_ref(), 5U);
    unit.dunl.discardAll();
    running.reply(dunl::MsgNo::TempMeasInd, readings(1));
    running.reply(dunl::MsgNo::TempMeasRestartCfm, dunl::TempMeasRestartCfm());
    running.reply(dunl::MsgNo::TempMeasStopRej, refusal<dunl::TempMeasStopRej>(0));
    running.reply(dunl::MsgNo::TempMeasStopCfm, dunl::TempMeasStopCfm());
    running.reply(dunl::MsgNo::TempMeasStopCfm, dunl::TempMeasStopCfm());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("ABN: The client session for mailbox {} does not exist. Ignoring dunl::TempMeasInd", id)));
    EXPECT_TRUE(RecordedTraces::has(fmt::format("ABN: VORN session for mailboxID {}not found, ignore signal", id)));
    EXPECT_TRUE(RecordedTraces::has(fmt::format("VornServerTemperature:handleTempMeasStopRej() received "
                                                "DUNL_TEMP_MEAS_STOP_CFM, session was deleted for procedureRef({}",
                                                running.procedureRef)));
    EXPECT_EQ(RecordedTraces::count(fmt::format("VornServerTemperature:handleTempMeasStopCfm() received "
                                                "DUNL_TEMP_MEAS_STOP_CFM, session was deleted for procedureRef({}",
                                                running.procedureRef)),
              1U);
    EXPECT_EQ(RecordedTraces::count("ABN: DUNL_TEMP_MEAS_STOP_CFM, no matching DUNL_TEMP_MEAS_STOP_REQ procedureRef "
                                    "was found"),
              1U);
}

TEST_F(VornServerTemperatureTest, when_the_session_is_lost_before_the_confirm_then_nothing_stops_the_measurement)
{
    Client& client = unit.connect();
    order(client, 5);
    const auto request = expectStart();
    order(client, 0);
    const auto second = expectStart();
    lose(client);
    unit.dunl.expectNumber(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    request.reply(dunl::MsgNo::TempMeasStartCfm, dunl::TempMeasStartCfm());
    request.reply(dunl::MsgNo::TempMeasInd, readings(1));
    unit.settle();
    EXPECT_TRUE(RecordedTraces::hasPart("not found, ignore signal"));
    EXPECT_TRUE(RecordedTraces::hasPart(" does not exist. Ignoring dunl::TempMeasInd")) << "the transaction stays";
    for (int i = 0; i < 2; ++i) { // a rejected one goes
        second.reply(dunl::MsgNo::TempMeasStartRej, dunl::TempMeasStartRej());
    }
    unit.settle();
    EXPECT_EQ(RecordedTraces::count(fmt::format("VornServerTemperature:handleTempMeasStartRej() received "
                                                "DUNL_TEMP_MEAS_START_REJ, session was deleted for procedureRef({}",
                                                second.procedureRef)),
              1U);
}

TEST_F(VornServerTemperatureTest, when_an_answer_has_no_transaction_then_a_trace_names_it_and_an_indication_none)
{
    unit.connect();
    const auto send = [this](std::uint32_t msgNo, const google::protobuf::Message& body) {
        const auto mark = RecordedTraces::mark();
        unit.dunl.sendMessage(unit.privateMbox(), msgNo, 4711, unit.dunl.clientRef, body);
        unit.settle();
        return mark;
    };
    const auto isTraced = [](const char* text, RecordedTraces::Mark mark) {
        return RecordedTraces::has(fmt::format("ABN: {} procedureRef was found", text), mark);
    };
    EXPECT_TRUE(isTraced("DUNL_TEMP_MEAS_START_CFM, no matching DUNL_TEMP_MEAS_START_REQ",
                         send(dunl::MsgNo::TempMeasStartCfm, dunl::TempMeasStartCfm())));
    EXPECT_TRUE(isTraced("DUNL_TEMP_MEAS_START_REJ, no matching DUNL_TEMP_MEAS_START_REQ",
                         send(dunl::MsgNo::TempMeasStartRej, dunl::TempMeasStartRej())));
    EXPECT_TRUE(isTraced("DUNL_TEMP_MEAS_RESTART_CFM, no matching DUNL_TEMP_MEAS_RESTART_REQ",
                         send(dunl::MsgNo::TempMeasRestartCfm, dunl::TempMeasRestartCfm())));
    EXPECT_TRUE(isTraced("DUNL_TEMP_MEAS_STOP_REJ, no matching DUNL_TEMP_MEAS_RESTART_REQ",
                         send(dunl::MsgNo::TempMeasRestartRej, dunl::TempMeasRestartRej())));
    EXPECT_TRUE(isTraced("DUNL_TEMP_MEAS_STOP_REJ, no matching DUNL_TEMP_MEAS_STOP_REQ",
                         send(dunl::MsgNo::TempMeasStopRej, dunl::TempMeasStopRej())));
    EXPECT_FALSE(RecordedTraces::hasPart("ABN:", send(dunl::MsgNo::TempMeasInd, readings(1))));
}

TEST_F(VornServerTemperatureTest, when_there_is_no_session_then_there_is_no_answer)
{
    Client& stranger = unit.addClient();
    order(stranger, 5);
    unit.settle();
    stranger.expectNothing();
    unit.dunl.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: No session for this client exists. Ignoring OmlaVornTempMeasStartReq!"));
}

TEST_F(UnitTest, when_the_board_has_no_hot_spots_then_everyone_is_rejected)
{
    unit.bringUp();
    Client& stranger = unit.addClient(0x80000001);
    stranger.send<OmlaVornTempMeasStartReqS>();
    const auto rej = stranger.expect<OmlaVornTempMeasStartRejS>();
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.errorText), "Hotspots not supported");
    EXPECT_EQ(rej.header.serverRef, 0x80000001U);
    EXPECT_FALSE(RecordedTraces::hasPart("OmlaVornTempMeasStartReq!"));
}

} // namespace
