// Faults of the simulated board: who is told of them, in which order, and with which fields.

#include "boardSimFixture.h"

#include <utility>

namespace {

using namespace boardsim;
using tolme::dunl::FaultCeaseInd;
using tolme::dunl::FaultInd;
namespace MsgNo = tolme::dunl::MsgNo;

class BoardSimFaultsTest : public BoardSimTest
{
protected:
    void subscribe(std::uint32_t connection)
    {
        send("DunlServer", MsgNo::SubscribeFaultsReq, 5, connection);
        EXPECT_EQ(expect<tolme::dunl::SubscribeFaultsCfm>(MsgNo::SubscribeFaultsCfm).procedureRef, 5U);
    }

    /// The next faults, or ceases, of these clients, which must be the same.
    template <typename Ind = FaultInd>
    std::string raised(std::initializer_list<std::uint32_t> clientRefs = {100})
    {
        std::string text;
        for (const std::uint32_t clientRef : clientRefs) {
            const auto indication = expect<Ind>(std::is_same_v<Ind, FaultInd> ? MsgNo::FaultInd : MsgNo::FaultCeaseInd);
            EXPECT_EQ(indication.connectionRef, clientRef);
            EXPECT_EQ(indication.procedureRef, 0U);
            EXPECT_TRUE(text.empty() || text == indication.body.ShortDebugString());
            text = indication.body.ShortDebugString();
        }
        return text;
    }

    std::string ceased(std::initializer_list<std::uint32_t> clientRefs = {100})
    {
        return raised<FaultCeaseInd>(clientRefs);
    }

    std::string output(const std::string& line)
    {
        std::string text;
        EXPECT_EQ(run(line, &text), 0) << line << ": " << text;
        return text;
    }

    std::string activeNames()
    {
        std::string names;
        const Json server = show("dunl");
        for (const Json& fault : server["faults"]["active"]) {
            names += fault["name"].dump() + ' ';
        }
        return names;
    }
};

TEST_F(BoardSimFaultsTest, a_new_subscriber_is_told_of_what_is_active_behind_its_confirm_and_then_of_each_change)
{
    output("dunl raise hw_fault case=317");
    output("dunl raise 5");
    const std::uint32_t connection = connectDunl();
    send("DunlServer", MsgNo::SubscribeFaultsReq, 5, connection);
    const std::uint32_t anyOfThem[] = {2, MsgNo::SubscribeFaultsCfm, MsgNo::FaultInd};
    const std::shared_ptr<kiv_msg> first(kiv_receive(anyOfThem, patience, KIV_ANY_SENDER), kiv_free);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->number, MsgNo::SubscribeFaultsCfm);
    EXPECT_EQ(raised(), "fault_id: 0 fault_case: 317");
    EXPECT_EQ(raised(), "fault_id: 5 fault_case: 0");

    subscribe(connectDunl(200));
    EXPECT_EQ(raised({200}), "fault_id: 0 fault_case: 317");
    EXPECT_EQ(raised({200}), "fault_id: 5 fault_case: 0");
    subscribe(connection); // again: it is told nothing anew

    EXPECT_EQ(output("dunl raise External_Fan_Degraded"), "EXTERNAL_FAN_DEGRADED raised; subscribers: 2\n");
    EXPECT_EQ(raised({100, 200}), "fault_id: 6 fault_case: 0");
    output("dunl cease 0");
    EXPECT_EQ(ceased({100, 200}), "fault_id: 0");
    EXPECT_FALSE(anyOf(MsgNo::FaultInd));
    EXPECT_EQ(activeNames(), R"("EXCEPTIONAL_TEMPERATURE_TOO_HIGH" "EXTERNAL_FAN_DEGRADED" )");
}

TEST_F(BoardSimFaultsTest, a_fault_is_active_as_often_as_it_was_raised_and_a_cease_is_always_told)
{
    subscribe(connectDunl());
    for (const char* line : {"raise 3 case=1", "raise 3 case=2", "raise 11", "raise 99"}) {
        output(std::string("dunl ") + line);
        raised();
    }
    EXPECT_EQ(output("dunl cease 3"), "HW_FAULT_FOR_EVALUATION ceased; subscribers: 1\n");
    EXPECT_EQ(show("dunl")["faults"]["active"][0]["case"], 2); // the oldest has gone
    EXPECT_EQ(output("dunl cease 12"),
              "EXTERNAL_FAN_HOST_DISCONNECTED wasn't active, its cease is told; subscribers: 1\n");
    EXPECT_EQ(activeNames(), R"("HW_FAULT_FOR_EVALUATION" "EXTERNAL_POWER_SUPPLY_FAULT" null )");
    EXPECT_EQ(output("dunl cease all"), "3 faults ceased; subscribers: 1\n");
    for (const char* id : {"3", "12", "3", "11", "99"}) {
        EXPECT_EQ(ceased(), std::string("fault_id: ") + id);
    }
    EXPECT_EQ(activeNames(), "");
}

TEST_F(BoardSimFaultsTest, an_indication_has_the_fields_that_are_given_and_no_others)
{
    subscribe(connectDunl());
    const std::pair<const char*, const char*> raises[] = {
        {"EXTERNAL_FAN_FAILED fan=KDU1 slot=3",
         R"(fault_id: 7 fault_case: 0 fan_product_info { fan_product_number: "KDU1" fan_position_slot: 3 })"},
        {"12 case=0x10 parent=KRC/1=2",
         R"(fault_id: 12 fault_case: 16 fan_product_info { fan_parent_product_number: "KRC/1=2" })"},
        {"8 fan-info=empty case=absent", "fault_id: 8 fan_product_info { }"},
        {"absent case=4294967295 slot=-1", "fault_case: 4294967295 fan_product_info { fan_position_slot: -1 }"},
        {"4294967295 fan=", R"(fault_id: -1 fault_case: 0 fan_product_info { fan_product_number: "" })"},
        {"-2147483648", "fault_id: -2147483648 fault_case: 0"}};
    for (const auto& [words, indication] : raises) {
        output(std::string("dunl raise ") + words);
        EXPECT_EQ(raised(), indication);
    }
    const Json active = show("dunl")["faults"]["active"];
    EXPECT_EQ(active[0].dump(), R"({"name":"EXTERNAL_FAN_FAILED","id":7,"case":0,)"
                                R"("fanInfo":{"fan":"KDU1","parent":null,"slot":3}})");
    EXPECT_EQ(active[3]["id"], nullptr);
    EXPECT_EQ(active[5]["fanInfo"], nullptr);
    EXPECT_NE(output("show dunl").find("name=EXTERNAL_FAN_FAILED id=7 case=0 fanInfo=fan=KDU1 parent=- slot=3"),
              std::string::npos);
    output("dunl cease absent");
    EXPECT_EQ(ceased(), "");
}

TEST_F(BoardSimFaultsTest, a_lost_connection_is_no_subscriber_and_a_stop_drops_faults_and_subscribers)
{
    const std::uint32_t connection = connectDunl();
    subscribe(connection);
    subscribe(connectDunl(200));
    connectDunl(100); // anew: the earlier one has gone
    EXPECT_EQ(output("dunl raise 1"), "HW_FAULT_FOR_EVALUATION_LTU_FAULT raised; subscribers: 1\n");
    raised({200});
    EXPECT_FALSE(anyOf(MsgNo::FaultInd));

    output("dunl restart");
    EXPECT_TRUE(show("dunl")["faults"]["subscribers"].empty());
    subscribe(connectDunl());
    EXPECT_EQ(output("dunl raise 2"), "HW_FAULT_FOR_EVALUATION_INIT_FAULT raised; subscribers: 1\n");
    EXPECT_EQ(raised(), "fault_id: 2 fault_case: 0"); // and nothing of the first life ahead of it

    kiv_delete_mailbox(m_mailbox);
    EXPECT_TRUE(eventually([&] { return show("dunl")["faults"]["subscribers"].empty(); }));
    EXPECT_EQ(activeNames(), R"("HW_FAULT_FOR_EVALUATION_INIT_FAULT" )"); // they are the board's
}

TEST_F(BoardSimFaultsTest, rules_hold_for_the_subscription_and_for_the_indications)
{
    const std::uint32_t connection = connectDunl();
    output("dunl silent SubscribeFaultsReq 1");
    output("dunl raise 0");
    send("DunlServer", MsgNo::SubscribeFaultsReq, 1, connection);
    ASSERT_EQ(run("dunl wait SubscribeFaultsReq 1"), 0);
    EXPECT_TRUE(show("dunl")["faults"]["subscribers"].empty());
    EXPECT_EQ(run("dunl reject SubscribeFaultsReq"), 1); // there is no such message
    output("dunl hold FaultInd");
    subscribe(connection);
    output("dunl raise 4");
    output("dunl silent FaultCeaseInd 1");
    output("dunl cease 0");
    output("dunl cease 4");
    EXPECT_EQ(ceased(), "fault_id: 4");
    EXPECT_FALSE(anyOf(MsgNo::FaultInd));
    output("dunl release");
    EXPECT_EQ(raised(), "fault_id: 0 fault_case: 0");
    EXPECT_EQ(raised(), "fault_id: 4 fault_case: 0");
}

TEST_F(BoardSimFaultsTest, a_command_with_bad_words_says_which_and_raises_nothing)
{
    for (const std::string line :
         {"raise; missing", "raise NO_SUCH; \"NO_SUCH\"", "raise all; \"all\"", "raise 4294967296; \"4294967296\"",
          "raise -2147483649; \"2147483649\"", "raise 1x; \"1x\"", "raise 0 case=; the case",
          "raise 0 case=two; \"two\"", "raise 0 case; \"case\"", "raise 0 fan; \"fan\"", "raise 0 slot=x; the slot",
          "raise 0 fan-info=full; \"fan-info=full\"", "raise 0 colour=red; \"colour=red\"", "cease; missing",
          "cease 1 2; \"2\"", "cease -; the fault"}) {
        std::string text;
        EXPECT_EQ(run("dunl " + line.substr(0, line.find(';')), &text), 1) << line;
        EXPECT_NE(text.find(line.substr(line.find(';') + 2)), std::string::npos) << line << ": " << text;
    }
    EXPECT_EQ(activeNames(), "");
}

} // namespace
