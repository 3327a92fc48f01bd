/// Messages that are right in form and larger than anyone expects: what is too much is cut or refused, and what comes
/// of it is whole.

#include "badInput.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "unit.h"
#include "vorni/hereIAm.h"
#include "vorni/restart.h"
#include "vorni/temperature.h"

#include <algorithm>
#include <string>

using namespace tolme;
using namespace TestUnit;

namespace {

const std::string longText(10'000, 'x');

class LargeInputTest : public UnitTest
{
protected:
    LargeInputTest()
    {
        supportEverything(unit);
        unit.bringUp();
        client = &unit.connect();
    }

    Client* client = nullptr;
};

TEST_F(LargeInputTest, when_a_restart_order_has_no_zero_then_its_texts_end_with_the_message)
{
    using OrderS = OmlaVornRestartBoardWithRankAndLabelFwdS;
    for (std::size_t size = sizeof(OrderS); size <= 300; ++size) {
        std::vector<std::byte> bytes(size, std::byte{'x'});
        *reinterpret_cast<OrderS*>(bytes.data()) = {{OrderS::number, client->clientRef, client->serverRef}, 1, 2};
        client->sendBytes(client->publicMbox(), bytes);
        const auto order = unit.dunl.expect<dunl::RestartBoardFwd>(dunl::MsgNo::RestartBoardFwd);
        const std::string label(size - std::min(size, OrderS::labelOffset), 'x');
        EXPECT_EQ(order.body.label(), label) << size;
        EXPECT_LE(order.body.trace_information().size(), size - sizeof(OrderS));
        EXPECT_EQ(order.body.trace_information().find_first_not_of('x'), std::string::npos);

        std::fill(bytes.begin() + sizeof(VornSignalHeader), bytes.end(), std::byte{0xFF}); // a rank that isn't one
        client->sendBytes(client->publicMbox(), bytes);
    }
    unit.settle();
    unit.dunl.expectNothing();
}

TEST_F(LargeInputTest, when_the_history_is_long_then_its_confirm_is_whole)
{
    for (const int items : {0, 1, 5'000}) {
        client->send<OmlaVornGetEventHistoryReqS>([](auto& request) { request.noOfEvents = 0xFFFF; });
        const auto request = unit.dunl.expect<dunl::GetRestartHistoryReq>(dunl::MsgNo::GetRestartHistoryReq);
        EXPECT_EQ(request.body.number_of_events(), 0xFFFFU);
        dunl::GetRestartHistoryCfm cfm;
        for (int i = 0; i < items; ++i) {
            auto& item = *cfm.add_history_item();
            item.set_restart_code(static_cast<std::uint32_t>(i));
            item.set_trace_information(i % 1000 == 0 ? longText : "text");
            item.set_label(i % 1000 == 0 ? longText : "label");
        }
        request.reply(dunl::MsgNo::GetRestartHistoryCfm, cfm);
        unit.settle();
        const auto answer = client->take();
        ASSERT_TRUE(answer) << items;
        const auto* history = viewSignal<OmlaVornGetEventHistoryCfmS>(answer->get());
        ASSERT_TRUE(history != nullptr && history->header.sigNo == OmlaVornGetEventHistoryCfmS::number);
        const std::size_t count = history->noOfEvents;
        EXPECT_EQ(count, static_cast<std::size_t>(items));
        ASSERT_EQ(answer->size(), 16 + std::max<std::size_t>(count, 1) * sizeof(VornHistoryEventS));
        const VornHistoryEventS* events = history->events;
        for (std::size_t i = 0; i < count; ++i) {
            const VornHistoryEventS& event = *(events + i);
            ASSERT_EQ(event.length, sizeof(event));
            ASSERT_EQ(event.restartCode, i);
            ASSERT_EQ(fieldText(event.traceInformation), i % 1000 == 0 ? longText.substr(0, 137) : "text");
            ASSERT_EQ(fieldText(event.label), i % 1000 == 0 ? longText.substr(0, 19) : "label");
        }
    }
}

TEST_F(LargeInputTest, when_there_are_a_thousand_readings_then_the_client_gets_the_first_ten)
{
    client->send<OmlaVornTempMeasStartReqS>([](auto& request) { request.hotSpotMeasurementPeriod = 1; });
    const auto request = unit.dunl.expect<dunl::TempMeasStartReq>(dunl::MsgNo::TempMeasStartReq);
    request.reply(dunl::MsgNo::TempMeasStartCfm, dunl::TempMeasStartCfm());
    client->expect<OmlaVornTempMeasStartCfmS>();
    dunl::TempMeasInd ind;
    for (int i = 0; i < 1000; ++i) {
        ind.add_reading(i - 5);
    }
    request.reply(dunl::MsgNo::TempMeasInd, ind);
    const auto told = client->expect<OmlaVornTempMeasIndS>();
    EXPECT_EQ(told.noOfReadings, vornMaxReadings);
    for (std::size_t i = 0; i < vornMaxReadings; ++i) {
        EXPECT_EQ(told.readings[i], static_cast<int>(i) - 5);
    }
}

TEST_F(LargeInputTest, when_a_text_is_long_then_it_is_cut_to_its_field)
{
    client->send<OmlaVornSubscribeHereIAmStateReqS>();
    const auto subscription = unit.fesk.expect<fesk::SubscribeHereIAmStateReq>(fesk::MsgNo::SubscribeHereIAmStateReq);
    subscription.reply(fesk::MsgNo::SubscribeHereIAmStateCfm, fesk::SubscribeHereIAmStateCfm());
    client->expect<OmlaVornSubscribeHereIAmStateCfmS>();
    fesk::OrderHereIAmCfm taken;
    taken.set_description(longText);
    subscription.reply(fesk::MsgNo::OrderHereIAmCfm, taken);
    EXPECT_EQ(fieldText(client->expect<OmlaVornOrderHereIAmCfmS>().description), longText.substr(0, 127));

    client->send<OmlaVornSubscribeRestartNotificationReqS>();
    unit.dunl.expect<dunl::SubscribeRestartBoardNotificationReq>(dunl::MsgNo::SubscribeRestartBoardNotificationReq)
        .reply(dunl::MsgNo::SubscribeRestartBoardNotificationCfm, dunl::SubscribeRestartBoardNotificationCfm());
    client->expect<OmlaVornSubscribeRestartNotificationCfmS>();
    dunl::RestartBoardNotificationInd restart;
    restart.set_trace_information(longText);
    restart.set_label(longText);
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::RestartBoardNotificationInd, 0, unit.dunl.clientRef,
                          restart);
    const auto told = client->expect<OmlaVornRestartNotificationIndS>();
    EXPECT_EQ(fieldText(told.traceInformation), longText.substr(0, 137));
    EXPECT_EQ(fieldText(told.label), longText.substr(0, 19));
}

} // namespace
