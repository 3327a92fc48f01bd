/// The DUNL server's faults on their way to the clients: which are shown, with which texts, and what the fault manager
/// counts.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vornServerImpl.h"
#include "vorni/faults.h"

#include <sstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

// The DUNL server's numbers.
constexpr int hwFault = 0;
constexpr int ltuFault = 1;
constexpr int initFault = 2;
constexpr int hwFaultForEvaluation = 3;
constexpr int tooLow = 4;
constexpr int tooHigh = 5;
constexpr int fanDegraded = 6;
constexpr int fanFailed = 7;
constexpr int fanDisconnected = 8;
constexpr int poeDevice0 = 9;
constexpr int poeDevice1 = 10;
constexpr int powerSupply = 11;
constexpr int fanHostDisconnected = 12;

using FanProductInfo = dunl::FaultInd::FanProductInfo;

class DunlFaultHandlerTest : public UnitTest
{
protected:
    Client& subscribe()
    {
        Client& subscriber = unit.connect();
        subscriber.send<OmlaVornSubscribeFaultsReqS>();
        subscriber.expect<OmlaVornSubscribeFaultsCfmS>();
        client = &subscriber;
        return subscriber;
    }
    void send(std::uint32_t msgNo, const google::protobuf::Message& message)
    {
        unit.dunl.sendMessage(unit.privateMbox(), msgNo, 0, unit.dunl.clientRef, message);
    }
    void raise(int faultId, std::uint32_t faultCase = 0, const std::optional<FanProductInfo>& fan = std::nullopt)
    {
        dunl::FaultInd ind;
        ind.set_fault_id(faultId);
        ind.set_fault_case(faultCase);
        if (fan) {
            *ind.mutable_fan_product_info() = *fan;
        }
        send(dunl::MsgNo::FaultInd, ind);
    }
    void cease(int faultId)
    {
        dunl::FaultCeaseInd ind;
        ind.set_fault_id(faultId);
        send(dunl::MsgNo::FaultCeaseInd, ind);
    }

    /// What the subscriber is told by a step: "+101/0" for a fault and its case, "-101/0" for a cease.
    std::string told()
    {
        unit.settle();
        std::string all;
        while (const auto signal = unit.post.next(client->mbox(), std::chrono::milliseconds(0))) {
            if (const auto* ind = viewSignal<OmlaVornFaultIndS>(signal->get());
                signal->number() == OmlaVornFaultIndS::number && ind != nullptr) {
                all += fmt::format("+{:x}/{} ", ind->faultId.value(), ind->faultCase.value());
            } else if (const auto* end = viewSignal<OmlaVornFaultceaseIndS>(signal->get());
                       signal->number() == OmlaVornFaultceaseIndS::number && end != nullptr) {
                all += fmt::format("-{:x}/{} ", end->faultId.value(), end->faultCase.value());
            } else {
                all += "? ";
            }
        }
        return all;
    }
    /// The description that a fault comes with.
    std::string description(int faultId, std::uint32_t faultCase = 0,
                            const std::optional<FanProductInfo>& fan = std::nullopt)
    {
        raise(faultId, faultCase, fan);
        std::string text(fieldText(client->expect<OmlaVornFaultIndS>().faultDescription));
        cease(faultId == fanHostDisconnected ? fanDisconnected : faultId);
        client->expect<OmlaVornFaultceaseIndS>();
        return text;
    }
    /// "704:2" for each fault that the fault manager holds, and its sources.
    std::string held()
    {
        unit.settle();
        int exitCode = -1;
        const std::string list = unit.command({"vornsrv", "fm", "list"}, exitCode);
        EXPECT_EQ(exitCode, 0);
        std::string all;
        std::istringstream lines(list);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("faultId: 0x")) {
                all += line.substr(std::string("faultId: 0x").size()) + ":";
            } else if (line.starts_with("numSources: ")) {
                all += line.substr(std::string("numSources: ").size()) + " ";
            }
        }
        return all;
    }

    /// The error traces so far.
    static std::vector<std::string> errors()
    {
        std::vector<std::string> texts;
        for (const auto& trace : RecordedTraces::since()) {
            if (trace.event == VornTrace::Event::error) {
                texts.push_back(trace.text);
            }
        }
        return texts;
    }

    Client* client = nullptr;
};

TEST_F(DunlFaultHandlerTest, when_faults_come_and_go_then_the_one_that_hides_the_others_is_shown)
{
    unit.bringUp();
    subscribe();
    raise(hwFault, 5);
    EXPECT_EQ(told(), "+101/5 ");
    raise(tooHigh, 1);
    EXPECT_EQ(told(), "-101/5 +103/1 ");
    const std::string tooHighText =
        "DunlFaultId = EXCEPTIONAL_TEMPERATURE_TOO_HIGH (5), faultId = 0x103, faultCase = 1, "
        "priority = 0x1a00, reportState = PENDING";
    for (const std::string& text :
         {std::string("ABN:Local fault, faultId:EXCEPTIONAL_TEMPERATURE_TOO_HIGH, interface:VORNI, faultCase:1"),
          "new active fault: " + tooHighText,
          std::string("suppressing lower priority fault by EXCEPTIONAL_TEMPERATURE_TOO_HIGH"),
          "raised fault sent to FaultManager, " + tooHighText}) {
        EXPECT_TRUE(RecordedTraces::has(text)) << text;
    }
    EXPECT_TRUE(RecordedTraces::hasPart("ceased fault sent to FaultManager, DunlFaultId = HW_FAULT (0)"));
    raise(tooLow, 2);
    raise(hwFaultForEvaluation, 3);
    EXPECT_EQ(told(), "");
    cease(tooHigh);
    EXPECT_EQ(told(), "-103/1 +104/2 ");
    cease(tooLow);
    EXPECT_EQ(told(), "-104/2 +101/5 ");
    cease(hwFault);
    EXPECT_EQ(told(), "-101/5 +300/3 ");
    cease(hwFaultForEvaluation);
    EXPECT_EQ(told(), "-300/3 ");
    EXPECT_EQ(held(), "");
}

TEST_F(DunlFaultHandlerTest, when_a_fault_is_raised_twice_then_it_takes_two_ceases)
{
    unit.bringUp();
    subscribe();
    raise(hwFault, 1);
    raise(hwFault, 2); // the same fault with another case is hidden
    EXPECT_EQ(told(), "+101/1 ");
    cease(hwFault);
    EXPECT_EQ(told(), "-101/1 +101/2 ");
    cease(hwFault);
    EXPECT_EQ(told(), "-101/2 ");
    cease(hwFault);
    EXPECT_EQ(told(), "");
    EXPECT_TRUE(RecordedTraces::has("no active fault found, faultId =0"));
}

TEST_F(DunlFaultHandlerTest, when_different_faults_have_one_identifier_and_case_then_they_are_shown_as_one)
{
    unit.bringUp();
    subscribe();
    raise(poeDevice0, 4);
    EXPECT_EQ(told(), "+103/4 ");
    raise(poeDevice1, 4);
    EXPECT_EQ(held(), "103:1 ");
    cease(poeDevice0);
    EXPECT_EQ(told(), "");
    cease(poeDevice1);
    EXPECT_EQ(told(), "-103/4 ");
    raise(poeDevice0, 4); // an old entry comes back to life
    EXPECT_EQ(told(), "+103/4 ");
}

/// They pass the coordination; the fault manager then hides those that it has shown before, and no others.
TEST_F(DunlFaultHandlerTest, when_fans_and_the_power_supply_fail_then_they_pass_whatever_else_is_there)
{
    unit.bringUp();
    subscribe();
    raise(fanFailed, 1);
    EXPECT_EQ(told(), "+705/1 ");
    raise(tooHigh, 2);
    EXPECT_EQ(told(), "-705/1 +103/2 ");
    raise(powerSupply, 3);
    EXPECT_EQ(told(), "+108/3 ");
    cease(fanFailed);
    EXPECT_EQ(told(), "-705/1 ");
    cease(tooHigh);
    EXPECT_EQ(told(), "-103/2 +108/3 ");
    cease(powerSupply);
    EXPECT_EQ(told(), "-108/3 ");
    EXPECT_EQ(held(), "");
}

/// Each coordination adds an entry for a fault that passes: the fault manager counts it, and the client isn't told.
TEST_F(DunlFaultHandlerTest, when_a_passing_fault_lives_through_coordinations_then_its_sources_are_counted_as_ever)
{
    unit.bringUp();
    subscribe();
    raise(fanDegraded, 1);
    EXPECT_EQ(held(), "704:1 ");
    for (int i = 0; i < 3; ++i) {
        raise(hwFault);
        cease(hwFault);
        EXPECT_EQ(held(), "704:2 ");
    }
    EXPECT_EQ(told(), "+704/1 -704/1 +101/0 -101/0 +704/1 -704/1 +101/0 -101/0 +704/1 -704/1 +101/0 -101/0 +704/1 ");
    cease(fanDegraded);
    EXPECT_EQ(told(), "-704/1 ");
    EXPECT_EQ(held(), "");
    raise(fanDegraded, 1); // its old entry and a new one
    EXPECT_EQ(held(), "704:2 ");
    EXPECT_EQ(told(), "+704/1 ");
}

TEST_F(DunlFaultHandlerTest, when_a_fault_comes_then_its_description_tells_what_the_message_tells)
{
    unit.bringUp();
    subscribe();
    EXPECT_EQ(description(hwFault, 317), "Internal DC fault");
    EXPECT_EQ(description(hwFault, 318), "HW_FAULT");
    EXPECT_EQ(description(ltuFault, 317), "LTU Fault");
    EXPECT_EQ(description(initFault, 1), "Initialization failure");
    EXPECT_EQ(description(hwFaultForEvaluation, 2), "Internal DC fault");
    EXPECT_EQ(description(tooHigh), "Temperature is too high.");
    EXPECT_EQ(description(tooLow), "Temperature is too low.");
    EXPECT_EQ(description(powerSupply), "External power supply fault");
    EXPECT_EQ(description(fanFailed, 1), "RU External Fan Failed");

    FanProductInfo fan;
    EXPECT_EQ(description(fanFailed, 2, fan), "RU External Fan Failed");
    EXPECT_EQ(description(fanDisconnected, 1, fan), "RU External Fan Disconnected");
    EXPECT_EQ(description(fanHostDisconnected, 2, fan), "RU External Fan Disconnected");
    fan.set_fan_position_slot(2);
    EXPECT_EQ(description(fanFailed, 3, fan), ", Fan Position slot 2");
    fan.set_fan_product_number("BKV 106 1");
    EXPECT_EQ(description(fanFailed, 4, fan), "Fan product number is BKV 106 1, Fan Position slot 2");
    EXPECT_EQ(description(fanDisconnected, 3, fan), "Fan product number is BKV 106 1");
    EXPECT_EQ(description(fanDegraded, 1, fan), "RU External Fan Degraded");
    EXPECT_EQ(description(fanHostDisconnected, 4, fan), " hosting the fan (BKV 106 1) and external alarm ports");
    fan.set_fan_parent_product_number("KRC 1");
    EXPECT_EQ(description(fanHostDisconnected, 5, fan),
              "Contact lost with unit (KRC 1) hosting the fan (BKV 106 1) and external alarm ports");
    fan.clear_fan_product_number();
    EXPECT_EQ(description(fanHostDisconnected, 6, fan), "Contact lost with unit (KRC 1)");
    const std::string host = "EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan ";
    EXPECT_EQ(errors(), (std::vector<std::string>{"EXTERNAL_FAN_FAILED does not contain fan product number",
                                                  "EXTERNAL_FAN_FAILED does not contain fan position slot",
                                                  "EXTERNAL_FAN_DISCONNECTED does not contain fan product number",
                                                  host + "parent product number", host + "product number",
                                                  "EXTERNAL_FAN_FAILED does not contain fan product number",
                                                  host + "parent product number", host + "product number"}));

    // A fault of the same identifier and case finds its old entry, and with it the old description.
    EXPECT_EQ(description(hwFaultForEvaluation, 1), "Initialization failure");
}

TEST_F(DunlFaultHandlerTest, when_a_lost_fan_host_is_taken_for_a_fan_then_only_the_fans_number_ceases_it)
{
    unit.bringUp();
    subscribe();
    FanProductInfo fan;
    fan.set_fan_product_number("BKV 106 1");
    raise(fanHostDisconnected, 0, fan);
    EXPECT_EQ(told(), "+706/0 ");
    cease(fanHostDisconnected);
    EXPECT_EQ(told(), "");
    cease(fanDisconnected);
    EXPECT_EQ(told(), "-706/0 ");

    raise(fanHostDisconnected);
    EXPECT_EQ(told(), "");
    EXPECT_TRUE(RecordedTraces::has("EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan product info"));
    EXPECT_TRUE(RecordedTraces::has("dunlFaultId: 12 is not supported"));
}

TEST_F(DunlFaultHandlerTest, when_a_message_lacks_something_then_it_is_dropped_without_a_coordination)
{
    unit.bringUp();
    subscribe();
    raise(fanDegraded, 1); // each coordination would count it once more
    dunl::FaultInd noCase;
    noCase.set_fault_id(hwFault);
    send(dunl::MsgNo::FaultInd, noCase);
    dunl::FaultInd noId;
    noId.set_fault_case(1);
    send(dunl::MsgNo::FaultInd, noId);
    send(dunl::MsgNo::FaultCeaseInd, dunl::FaultCeaseInd());
    raise(13);
    raise(-1);
    cease(tooHigh);
    struct {
        BoardMessageHeader header;
        std::uint8_t body[1];
    } const broken{{dunl::MsgNo::FaultInd, 0, unit.dunl.clientRef}, {0x08}};
    unit.dunl.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&broken, 1)));
    send(dunl::MsgNo::SubscribeFaultsCfm, dunl::SubscribeFaultsCfm());
    EXPECT_EQ(told(), "+704/1 ");
    EXPECT_EQ(held(), "704:1 ");
    EXPECT_EQ(errors(), (std::vector<std::string>{
                            "dunl::FaultInd does not contain fault_case", "dunl::FaultInd does not contain fault_id",
                            "dunl::FaultCeaseInd does not contain fault_id", "dunlFaultId: 13 is not supported",
                            "dunlFaultId: -1 is not supported", "Failed to decode message: dunl::FaultInd"}));
    EXPECT_TRUE(RecordedTraces::has("no active fault found, faultId =5"));
    EXPECT_TRUE(RecordedTraces::has("dunl::SubscribeFaultsCfm"));
}

TEST_F(DunlFaultHandlerTest, when_the_fault_filter_is_active_then_the_power_supply_is_not_heard)
{
    unit.server->updateFaultFilterCount(true); // ahead of the server's thread
    unit.bringUp();
    subscribe();
    raise(fanFailed);
    EXPECT_EQ(held(), "705:1 ");
    raise(powerSupply); // makes no record, but a coordination
    EXPECT_EQ(held(), "705:2 ");
    EXPECT_EQ(told(), "+705/0 ");
    EXPECT_TRUE(RecordedTraces::has("Fault suppressed, faultId: EXTERNAL_POWER_SUPPLY_FAULT"));
}

TEST_F(DunlFaultHandlerTest, when_clients_or_the_server_go_then_the_faults_stay)
{
    unit.bringUp();
    unit.connect();
    subscribe().die();
    ASSERT_TRUE(RecordedTraces::waitFor("Deleting fault subscriber using mbox = "));
    raise(hwFault);
    unit.settle();
    for (Peer* peer : std::initializer_list<Peer*>{&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        peer->discardAll();
    }
    unit.dunl.die();
    unit.connectDunl();
    EXPECT_EQ(held(), "101:1 ");
    subscribe();
    EXPECT_EQ(told(), "+101/0 ");
    cease(hwFault);
    EXPECT_EQ(told(), "-101/0 ");
}

} // namespace
