/// The DUNL server's faults on their way to the clients: which are shown, with which texts, and what the fault manager
/// counts.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vornServerImpl.h"
#include "vorni/faults.h"

#include <map>
#include <sstream>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

/// The DUNL server's faults by the words of the sequences, fans and power supply from 6 on.
const std::map<std::string, int> dunlFaults{{"hw", 0},    {"ltu", 1},     {"init", 2},     {"eval", 3},    {"cold", 4},
                                            {"hot", 5},   {"worn", 6},    {"fan", 7},      {"fanGone", 8}, {"poe0", 9},
                                            {"poe1", 10}, {"supply", 11}, {"hostGone", 12}};

using FanProductInfo = dunl::FaultInd::FanProductInfo;

class DunlFaultHandlerTest : public UnitTest
{
protected:
    void subscribe()
    {
        client = &unit.connect();
        client->send<OmlaVornSubscribeFaultsReqS>();
        client->expect<OmlaVornSubscribeFaultsCfmS>();
    }
    void bringUp()
    {
        unit.bringUp();
        subscribe();
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

    /// What the subscriber is told by a step: " +101/0" for a fault and its case, " -101/0" for a cease.
    std::string told()
    {
        unit.settle();
        std::string all;
        while (const auto signal = client->take()) {
            const auto* ind = viewSignal<OmlaVornFaultIndS>(signal->get());
            const auto* end = viewSignal<OmlaVornFaultceaseIndS>(signal->get());
            if (signal->number() == OmlaVornFaultIndS::number && ind != nullptr) {
                all += fmt::format(" +{:x}/{}", ind->faultId.value(), ind->faultCase.value());
            } else if (signal->number() == OmlaVornFaultceaseIndS::number && end != nullptr) {
                all += fmt::format(" -{:x}/{}", end->faultId.value(), end->faultCase.value());
            } else {
                all += " ?";
            }
        }
        return all;
    }
    /// " 704:2" for each fault that the fault manager holds, and its sources.
    std::string held()
    {
        unit.settle();
        int exitCode = -1;
        std::istringstream lines(unit.command({"vornsrv", "fm", "list"}, exitCode));
        EXPECT_EQ(exitCode, 0);
        std::string all;
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("faultId: 0x")) {
                all += ' ' + line.substr(11) + ':';
            } else if (line.starts_with("numSources: ")) {
                all += line.substr(12);
            }
        }
        return all;
    }
    /// Plays "+hw/5" a fault with its case, "-hw" its cease, and "held"; each may be followed by ": " and what the
    /// subscriber is told, or what is held.
    void play(const std::string& steps)
    {
        std::string played;
        std::istringstream in(steps);
        for (std::string step; std::getline(in, step, ';');) {
            const std::string event = step.substr(0, step.find(':'));
            const auto slash = event.find('/');
            const auto sign = event.find_first_of("+-");
            std::string result;
            if (sign == std::string::npos) {
                result = held();
            } else if (event[sign] == '-') {
                cease(dunlFaults.at(event.substr(sign + 1)));
                result = told();
            } else {
                raise(dunlFaults.at(event.substr(sign + 1, slash - sign - 1)),
                      static_cast<std::uint32_t>(std::stoul(event.substr(slash + 1))));
                result = told();
            }
            played += (played.empty() ? "" : ";") + event + (result.empty() ? "" : ":" + result);
        }
        EXPECT_EQ(played, steps);
    }
    /// The description that a fault comes with.
    std::string description(const std::string& fault, std::uint32_t faultCase = 0,
                            const std::optional<FanProductInfo>& fan = std::nullopt)
    {
        raise(dunlFaults.at(fault), faultCase, fan);
        std::string text(fieldText(client->expect<OmlaVornFaultIndS>().faultDescription));
        cease(dunlFaults.at(fault == "hostGone" ? "fanGone" : fault));
        client->expect<OmlaVornFaultceaseIndS>();
        return text;
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
    bringUp();
    play("+hw/5: +101/5; +hot/1: -101/5 +103/1");
    const std::string hot = "DunlFaultId = EXCEPTIONAL_TEMPERATURE_TOO_HIGH (5), faultId = 0x103, faultCase = 1, "
                            "priority = 0x1a00, reportState = PENDING";
    for (const std::string& text :
         {std::string("ABN:Local fault, faultId:EXCEPTIONAL_TEMPERATURE_TOO_HIGH, interface:VORNI, faultCase:1"),
          "new active fault: " + hot,
          std::string("suppressing lower priority fault by EXCEPTIONAL_TEMPERATURE_TOO_HIGH"),
          "raised fault sent to FaultManager, " + hot}) {
        EXPECT_TRUE(RecordedTraces::has(text)) << text;
    }
    EXPECT_TRUE(RecordedTraces::hasPart("ceased fault sent to FaultManager, DunlFaultId = HW_FAULT (0)"));
    play("+cold/2; +eval/3; -hot: -103/1 +104/2; -cold: -104/2 +101/5; -hw: -101/5 +300/3; -eval: -300/3; held");
}

TEST_F(DunlFaultHandlerTest, when_a_fault_is_raised_twice_or_by_two_numbers_then_it_takes_two_ceases)
{
    bringUp();
    play("+hw/1: +101/1; +hw/2; -hw: -101/1 +101/2; -hw: -101/2; -hw");
    EXPECT_TRUE(RecordedTraces::has("no active fault found, faultId =0"));
    // Different faults of one identifier and case are shown as one; its old entry comes back to life.
    play("+poe0/4: +103/4; +poe1/4; held: 103:1; -poe0; -poe1: -103/4; +poe0/4: +103/4");
}

/// They pass the coordination; the fault manager then hides those that it has shown before, and no others.
TEST_F(DunlFaultHandlerTest, when_fans_and_the_power_supply_fail_then_they_pass_whatever_else_is_there)
{
    bringUp();
    play("+fan/1: +705/1; +hot/2: -705/1 +103/2; +supply/3: +108/3; -fan: -705/1; -hot: -103/2 +108/3; "
         "-supply: -108/3; held");
}

/// Each coordination adds an entry for a fault that passes: the fault manager counts it, and the client isn't told.
TEST_F(DunlFaultHandlerTest, when_a_passing_fault_lives_through_coordinations_then_its_sources_are_counted_as_ever)
{
    bringUp();
    play("+worn/1: +704/1; held: 704:1");
    for (int i = 0; i < 3; ++i) {
        play("+hw/0: -704/1 +101/0; -hw: -101/0 +704/1; held: 704:2");
    }
    play("-worn: -704/1; held; +worn/1: +704/1; held: 704:2"); // its old entry and a new one
}

TEST_F(DunlFaultHandlerTest, when_a_fault_comes_then_its_description_tells_what_the_message_tells)
{
    bringUp();
    EXPECT_EQ(description("hw", 317), "Internal DC fault");
    EXPECT_EQ(description("hw", 318), "HW_FAULT");
    EXPECT_EQ(description("ltu", 317), "LTU Fault");
    EXPECT_EQ(description("init", 1), "Initialization failure");
    EXPECT_EQ(description("eval", 2), "Internal DC fault");
    EXPECT_EQ(description("hot"), "Temperature is too high.");
    EXPECT_EQ(description("cold"), "Temperature is too low.");
    EXPECT_EQ(description("supply"), "External power supply fault");
    EXPECT_EQ(description("fan", 1), "RU External Fan Failed");

    FanProductInfo fan;
    EXPECT_EQ(description("fan", 2, fan), "RU External Fan Failed");
    EXPECT_EQ(description("fanGone", 1, fan), "RU External Fan Disconnected");
    EXPECT_EQ(description("hostGone", 2, fan), "RU External Fan Disconnected");
    fan.set_fan_position_slot(2);
    EXPECT_EQ(description("fan", 3, fan), ", Fan Position slot 2");
    fan.set_fan_product_number("BKV 106 1");
    EXPECT_EQ(description("fan", 4, fan), "Fan product number is BKV 106 1, Fan Position slot 2");
    EXPECT_EQ(description("fanGone", 3, fan), "Fan product number is BKV 106 1");
    EXPECT_EQ(description("worn", 1, fan), "RU External Fan Degraded");
    EXPECT_EQ(description("hostGone", 4, fan), " hosting the fan (BKV 106 1) and external alarm ports");
    fan.set_fan_parent_product_number("KRC 1");
    EXPECT_EQ(description("hostGone", 5, fan),
              "Contact lost with unit (KRC 1) hosting the fan (BKV 106 1) and external alarm ports");
    fan.clear_fan_product_number();
    EXPECT_EQ(description("hostGone", 6, fan), "Contact lost with unit (KRC 1)");
    const std::string host = "EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan ";
    EXPECT_EQ(errors(), (std::vector<std::string>{"EXTERNAL_FAN_FAILED does not contain fan product number",
                                                  "EXTERNAL_FAN_FAILED does not contain fan position slot",
                                                  "EXTERNAL_FAN_DISCONNECTED does not contain fan product number",
                                                  host + "parent product number", host + "product number",
                                                  "EXTERNAL_FAN_FAILED does not contain fan product number",
                                                  host + "parent product number", host + "product number"}));

    // A fault of the same identifier and case finds its old entry, and with it the old description.
    EXPECT_EQ(description("eval", 1), "Initialization failure");
}

TEST_F(DunlFaultHandlerTest, when_a_lost_fan_host_is_taken_for_a_fan_then_only_the_fans_number_ceases_it)
{
    bringUp();
    FanProductInfo fan;
    fan.set_fan_product_number("BKV 106 1");
    raise(dunlFaults.at("hostGone"), 0, fan);
    EXPECT_EQ(told(), " +706/0");
    play("-hostGone; -fanGone: -706/0; +hostGone/0");
    EXPECT_TRUE(RecordedTraces::has("EXTERNAL_FAN_HOST_DISCONNECTED does not contain fan product info"));
    EXPECT_TRUE(RecordedTraces::has("dunlFaultId: 12 is not supported"));
}

TEST_F(DunlFaultHandlerTest, when_a_message_lacks_something_then_it_is_dropped_without_a_coordination)
{
    bringUp();
    play("+worn/1: +704/1"); // each coordination would count it once more
    dunl::FaultInd noCase;
    noCase.set_fault_id(0);
    send(dunl::MsgNo::FaultInd, noCase);
    dunl::FaultInd noId;
    noId.set_fault_case(1);
    send(dunl::MsgNo::FaultInd, noId);
    send(dunl::MsgNo::FaultCeaseInd, dunl::FaultCeaseInd());
    raise(13);
    raise(-1);
    struct {
        BoardMessageHeader header;
        std::uint8_t body[1];
    } const broken{{dunl::MsgNo::FaultInd, 0, unit.dunl.clientRef}, {0x08}};
    unit.dunl.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&broken, 1)));
    send(dunl::MsgNo::SubscribeFaultsCfm, dunl::SubscribeFaultsCfm());
    play("-hot; held: 704:1");
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
    bringUp();
    play("+fan/0: +705/0; held: 705:1; +supply/0; held: 705:2"); // no record, but a coordination
    EXPECT_TRUE(RecordedTraces::has("Fault suppressed, faultId: EXTERNAL_POWER_SUPPLY_FAULT"));
}

TEST_F(DunlFaultHandlerTest, when_clients_or_the_server_go_then_the_faults_stay)
{
    bringUp();
    unit.connect();
    client->die();
    ASSERT_TRUE(RecordedTraces::waitFor("Deleting fault subscriber using mbox = "));
    raise(dunlFaults.at("hw"));
    unit.settle();
    for (Peer* peer : std::initializer_list<Peer*>{&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        peer->discardAll();
    }
    unit.dunl.die();
    unit.connectDunl();
    play("held: 101:1");
    subscribe();
    EXPECT_EQ(told(), " +101/0");
    play("-hw: -101/0");
}

} // namespace
