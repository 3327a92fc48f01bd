// The indicators, one by one and as a panel.
#include "commandFixture.h"
#include "vorni/access.h"
#include "vorni/hereIAm.h"
#include "vorni/maintenanceState.h"
#include "vorni/opticalIndicator.h"
#include "vorni/visualIndication.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace VornClient;
using testing::ElementsAre;
using testing::HasSubstr;

using OpticalSubscribeReq = OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS;
using OpticalSubscribeCfm = OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS;

const std::string opticalInd = "OPTICAL_INDICATOR_CONTROL_STATUS_CHANGE_IND";

/// Confirms what is asked; each subscription is followed by an indication, but that to Here-I-Am is refused.
void serveIndicators(ScriptedServer& server, const kiv_msg* signal)
{
    switch (signal->number) {
    case OmlaVornGetVisualIndicationReqS::number:
        reply(server, signal,
              {"GET_VISUAL_INDICATION_CFM", "firstIndication=0x411", "secondIndication=0xff", "thirdIndication=0x313",
               "fourthIndication=4"});
        break;
    case OmlaVornGetSpecialIndicatorReqS::number: {
        std::string name(256, '0');
        name.replace(0, 6, "466e1b"); // "Fn" and an escape
        reply(server, signal, {"GET_SPECIAL_INDICATOR_CFM", "noOfIndicators=1", "--raw", name + "00040000"});
        break;
    }
    case OmlaVornSubscribeMaintStateReqS::number:
        server.reply(signal, OmlaVornSubscribeMaintStateCfmS::number);
        reply(server, signal, {"SET_MAINT_STATE_IND", "maintState=2"});
        break;
    case OmlaVornSubscribeHereIAmStateReqS::number:
        reply(server, signal, {"SUBSCRIBE_HERE_I_AM_STATE_REJ", "errorCode=1"});
        break;
    case OpticalSubscribeReq::number:
        server.reply(signal, OpticalSubscribeCfm::number);
        break;
    case OmlaVornOpticalIndicatorControlActivateReqS::number:
        server.reply(signal, OmlaVornOpticalIndicatorControlActivateCfmS::number);
        reply(server, signal, {opticalInd, "state=1"});
        break;
    default:
        server.withdraw();
        break;
    }
}

class VornClientPanel : public VornClientCommand
{
protected:
    /// The requests so far, without references.
    std::vector<std::string> sent() const
    {
        std::vector<std::string> lines;
        for (const Signal& signal : printer.sent) {
            std::string line = Vorni::signalName(signal.number());
            for (const Vorni::FieldValue& field : signal.decode().fields) {
                line += " " + std::to_string(field.number);
            }
            lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(VornClientPanel, EachOrderIsItsOwnRequest)
{
    options.answerTimeout = std::chrono::milliseconds(1);
    serve([](ScriptedServer&, const kiv_msg*) {});
    expectAll(Verdict::ok, {"wait-published within 10"});
    expectAll(Verdict::timedOut,
              {"indicator set 0x410", "indicator set 1040", "maintenance set 1", "maintenance subscribe",
               "here-i-am on", "here-i-am off", "here-i-am 3", "here-i-am -1", "here-i-am subscribe", "optical on",
               "optical on 0", "optical off", "optical subscribe"});
    EXPECT_THAT(sent(), ElementsAre("OMLA_VORN_SET_VISUAL_INDICATION_REQ 1040",
                                    "OMLA_VORN_SET_VISUAL_INDICATION_REQ 1040", "OMLA_VORN_SET_MAINT_STATE_REQ 1",
                                    "OMLA_VORN_SUBSCRIBE_MAINT_STATE_REQ", "OMLA_VORN_ORDER_HERE_I_AM_REQ 1",
                                    "OMLA_VORN_ORDER_HERE_I_AM_REQ 2", "OMLA_VORN_ORDER_HERE_I_AM_REQ 3",
                                    "OMLA_VORN_ORDER_HERE_I_AM_REQ 65535", "OMLA_VORN_SUBSCRIBE_HERE_I_AM_STATE_REQ",
                                    "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_REQ",
                                    "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_ACTIVATE_WITH_DURATION_REQ 0",
                                    "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_DEACTIVATE_REQ",
                                    "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_SUBSCRIBE_STATUS_CHANGE_REQ"));
}

TEST_F(VornClientPanel, WhatMakesNoSenseIsntSent)
{
    options.connectsByItself = true;
    expectAll(Verdict::badUsage,
              {"indicator", "indicator set", "indicator set 65536", "indicator show nonsense=1", "indicator special Fn",
               "indicator blink", "maintenance", "maintenance set", "maintenance subscribe 1", "here-i-am",
               "here-i-am 32768", "here-i-am -32769", "here-i-am on off", "optical", "optical on long", "optical off 1",
               "panel maintState", "panel brightness=1", "panel watch 1"});
    EXPECT_TRUE(printer.sent.empty());
}

TEST_F(VornClientPanel, IndicatorsAreHeldAgainstExpectedOnes)
{
    serve(serveIndicators);
    expectAll(Verdict::ok, {"indicator show firstIndication=0x411 fourthIndication=4"});
    EXPECT_EQ(std::vector(printer.log.end() - 4, printer.log.end()),
              (std::vector<std::string>{"first:  0x0411", "second: -", "third:  0x0313", "fourth: 0x0004"}));
    expectAll(Verdict::failed, {"indicator show firstIndication=0x410", "indicator special Fan=4"});
    EXPECT_EQ(verdict({"indicator", "special", "Fn\x1B=4"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "Fn\\x1b: 4");
}

TEST_F(VornClientPanel, WhenOneShotThenPanelSubscribesOnceAndShowsAll)
{
    options.connectsByItself = true;
    serveConnected(serveIndicators);
    expectAll(Verdict::ok, {"panel firstIndication=0x411 secondIndication=- maintState=2 opticalIndicator=-"});
    std::vector<std::string> table(printer.log.end() - 9, printer.log.end());
    EXPECT_THAT(table,
                ElementsAre("INDICATOR          STATE   SINCE", //
                            HasSubstr("first indication   0x0411  20"), "second indication  -       -",
                            HasSubstr("third indication   0x0313  20"), HasSubstr("fourth indication  0x0004  20"),
                            HasSubstr("maintenance state  2       20"), //
                            "Here-I-Am          -       not subscribed",
                            "optical indicator  -       not indicated yet", //
                            "Fn\\x1b             4       -"));
    expectAll(Verdict::failed, {"panel maintState=3", "panel secondIndication=1"});
    EXPECT_THAT(sent(), testing::Contains("OMLA_VORN_SUBSCRIBE_MAINT_STATE_REQ").Times(1));
}

TEST_F(VornClientPanel, WhenConnectionIsLostThenNothingIsKnown)
{
    serveConnected(serveIndicators);
    expectAll(Verdict::ok, {"connect", "maintenance subscribe", "expect SET_MAINT_STATE_IND"});
    EXPECT_TRUE(context().client().panel().isSubscribed(PanelItem::maintenance));
    expectAll(Verdict::ok, {"send 0x99", "wait-gone"});
    EXPECT_FALSE(context().client().panel().isSubscribed(PanelItem::maintenance));
    EXPECT_TRUE(context().client().panel().fields().empty());
}

TEST_F(VornClientPanel, WhenWatchedThenIndicationsAreNewsUntilCtrlC)
{
    options.connectsByItself = true;
    serveConnected([](ScriptedServer& server, const kiv_msg* signal) {
        serveIndicators(server, signal);
        if (signal->number == OmlaVornGetSpecialIndicatorReqS::number) {
            reply(server, signal, {"HERE_I_AM_STATE_IND", "state=1"});
        }
    });
    printer.whenLive = [this] {
        if (printer.log.back() == "Here-I-Am: 1") {
            std::raise(SIGINT);
        }
    };
    expectAll(Verdict::ok, {"panel --watch"});
    EXPECT_THAT(printer.log,
                testing::IsSupersetOf({"first indication: 0x0411", "maintenance state: 2", "Here-I-Am: 1"}));
    EXPECT_THAT(printer.log, testing::Contains("first indication: 0x0411").Times(1));
    printer.whenLive = {};
    expectAll(Verdict::ok, {"panel watch within 0"});
    expectAll(Verdict::noServer, {"optical off"});
}

TEST(PanelView, SignalsThatAreTooShortSayNothing)
{
    PanelView view;
    const unsigned before = view.version();
    for (const std::string& name : {std::string("GET_VISUAL_INDICATION_CFM"), std::string("SET_MAINT_STATE_IND"),
                                    std::string("HERE_I_AM_STATE_IND"), opticalInd}) {
        view.apply(signalOf({name, "--size", "15"}));
    }
    view.apply(signalOf({"GET_SPECIAL_INDICATOR_CFM", "noOfIndicators=4294967295", "--raw", "00"}));
    view.apply(signalOf({"SELECT_MMI_CFM"}));
    EXPECT_EQ(view.version(), before);
    EXPECT_TRUE(view.fields().empty());
}

TEST(PanelView, TellsWhatHasChanged)
{
    PanelView view;
    const auto codes = [](const std::string& first) {
        return signalOf({"GET_VISUAL_INDICATION_CFM", "firstIndication=" + first, "secondIndication=0xff",
                         "thirdIndication=0xff", "fourthIndication=0xff"});
    };
    view.apply(codes("0x411"));
    PanelView before = view;
    view.apply(codes("0x411"));
    EXPECT_THAT(view.printNews(before), ElementsAre());
    view.apply(codes("0xff"));
    view.apply(signalOf({opticalInd, "state=3"}));
    EXPECT_THAT(view.printNews(before), ElementsAre("first indication: -", "optical indicator: 3"));
    before = view;
    view.apply(signalOf({"GET_SPECIAL_INDICATOR_CFM", "noOfIndicators=1", "--raw", "46" + std::string(262, '0')}));
    EXPECT_THAT(view.printNews(before), ElementsAre("F: 0"));
    EXPECT_THAT(before.printNews(view), ElementsAre("F: -"));
}

} // namespace
