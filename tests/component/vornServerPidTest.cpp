/// Product identity: four requests, one cache, the temporary product number.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "nonVolatile.h"
#include "unit.h"
#include "vorni/productIdentity.h"

using namespace TestUnit;
using namespace tolme;
using VornTrace::RecordedTraces;

namespace {

constexpr const char* refusal = "Failed to retrieve all PID data";

dunl::GetProductInfoCfm productInfo(const std::string& name = "RRUS 12")
{
    dunl::GetProductInfoCfm cfm;
    cfm.set_product_revision("R123/ABC");
    cfm.set_product_name(name);
    cfm.set_product_number("KRC 161 282/2");
    cfm.set_production_date("20260101");
    cfm.set_manufacturer("not for clients");
    cfm.set_serial_number("CB4W123456789");
    cfm.set_market_name("Radio 4415");
    return cfm;
}

class VornServerPidTest : public UnitTest
{
protected:
    VornServerPidTest() { unit.bringUp(); }

    auto expectInfoRequest() { return unit.dunl.expect<dunl::GetProductInfoReq>(dunl::MsgNo::GetProductInfoReq); }
    auto expectContainerRequest()
    {
        return unit.dunl.expect<dunl::GetContainerPidReq>(dunl::MsgNo::GetContainerPidReq);
    }
    void answerInfo(const dunl::GetProductInfoCfm& cfm)
    {
        expectInfoRequest().reply(dunl::MsgNo::GetProductInfoCfm, cfm);
    }
    template <typename Reject>
    static void expectRefused(Client& client)
    {
        const auto rej = client.expect<Reject>();
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(fieldText(rej.description), refusal);
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(rej.header.serverRef, client.serverRef);
    }
    void expectNothingAsked()
    {
        unit.settle();
        unit.dunl.expectNothing();
    }
};

TEST_F(VornServerPidTest, when_a_client_asks_then_the_board_is_asked_once_and_all_later_answers_come_from_the_cache)
{
    Client& client = unit.connect();
    client.send<OmlaVornGetHwPidReqS>();
    answerInfo(productInfo());
    const auto pid = client.expect<OmlaVornGetHwPidCfmS>();
    EXPECT_EQ(pid.header.clientRef, client.clientRef);
    EXPECT_EQ(pid.header.serverRef, client.serverRef);
    EXPECT_EQ(fieldText(pid.productRevision), "R123/AB") << "one more than the field holds";
    EXPECT_EQ(fieldText(pid.productName), "RRUS 12");
    EXPECT_EQ(fieldText(pid.productNumber), "KRC 161 282/2");
    EXPECT_EQ(fieldText(pid.productionDate), "20260101");
    EXPECT_EQ(fieldText(pid.serialNumber), "CB4W123456789");

    client.send<OmlaVornGetMarketNamePidReqS>();
    const auto market = client.expect<OmlaVornGetMarketNamePidCfmS>();
    EXPECT_EQ(fieldText(market.productName), "RRUS 12");
    EXPECT_EQ(fieldText(market.marketName), "Radio 4415");
    EXPECT_EQ(fieldText(market.productNumber), "KRC 161 282/2");
    EXPECT_EQ(fieldText(market.serialNumber), "CB4W123456789");
    client.send<OmlaVornGetExtendedMarketNameReqS>();
    EXPECT_EQ(fieldText(client.expect<OmlaVornGetExtendedMarketNameCfmS>().marketName), "Radio 4415");
    expectNothingAsked();
}

TEST_F(VornServerPidTest, when_the_container_is_asked_for_then_its_data_comes_from_a_cache_of_its_own)
{
    Client& client = unit.connect();
    client.send<OmlaVornGetContainerPidReqS>();
    const auto request = expectContainerRequest();
    dunl::GetContainerPidCfm cfm;
    cfm.set_product_revision("R2B");
    cfm.set_product_name("a name of 21 characters");
    cfm.set_product_number("SEB 1");
    cfm.set_production_date("2026");
    request.reply(dunl::MsgNo::GetContainerPidCfm, cfm);
    expectRefused<OmlaVornGetContainerPidRejS>(client);

    client.send<OmlaVornGetContainerPidReqS>();
    dunl::GetContainerPidCfm serial;
    serial.set_serial_number("S1");
    expectContainerRequest().reply(dunl::MsgNo::GetContainerPidCfm, serial);
    expectRefused<OmlaVornGetContainerPidRejS>(client); // the flag is that of the last message
    client.send<OmlaVornGetContainerPidReqS>();
    cfm.set_serial_number("S2");
    cfm.set_product_number("SEB 2");
    expectContainerRequest().reply(dunl::MsgNo::GetContainerPidCfm, cfm);
    for (int i = 0; i < 2; ++i) {
        const auto pid = client.expect<OmlaVornGetContainerPidCfmS>();
        EXPECT_EQ(fieldText(pid.productRevision), "R2B");
        EXPECT_EQ(fieldText(pid.productName), "a name of 21 charact");
        EXPECT_EQ(fieldText(pid.productNumber), "SEB 2");
        EXPECT_EQ(fieldText(pid.productionDate), "2026");
        EXPECT_EQ(fieldText(pid.serialNumber), "S2");
        client.send<OmlaVornGetContainerPidReqS>();
    }
    client.expect<OmlaVornGetContainerPidCfmS>();
    expectNothingAsked();
}

TEST_F(VornServerPidTest, when_a_field_is_missing_then_who_needs_it_is_refused_and_asks_again)
{
    Client& client = unit.connect();
    auto withoutMarket = productInfo();
    withoutMarket.clear_market_name();
    client.send<OmlaVornGetMarketNamePidReqS>();
    answerInfo(withoutMarket);
    expectRefused<OmlaVornGetMarketNamePidRejS>(client);
    client.send<OmlaVornGetHwPidReqS>();
    client.expect<OmlaVornGetHwPidCfmS>();
    client.send<OmlaVornGetExtendedMarketNameReqS>();
    answerInfo(withoutMarket);
    expectRefused<OmlaVornGetExtendedMarketNameRejS>(client);

    client.send<OmlaVornGetExtendedMarketNameReqS>();
    auto withoutSerial = productInfo();
    withoutSerial.clear_serial_number();
    answerInfo(withoutSerial);
    client.expect<OmlaVornGetExtendedMarketNameCfmS>();
    client.send<OmlaVornGetHwPidReqS>();
    answerInfo(withoutSerial);
    expectRefused<OmlaVornGetHwPidRejS>(client);
    auto withoutUnread = productInfo();
    withoutUnread.clear_manufacturer();
    client.send<OmlaVornGetHwPidReqS>();
    answerInfo(withoutUnread);
    client.expect<OmlaVornGetHwPidCfmS>();
}

TEST_F(VornServerPidTest, when_any_of_the_five_fields_is_missing_then_the_data_is_not_complete)
{
    Client& client = unit.connect();
    dunl::GetContainerPidCfm container;
    ASSERT_TRUE(container.ParseFromString(productInfo().SerializeAsString())); // the same fields but one
    for (const int field : {1, 2, 3, 4, 6}) {
        const auto without = [field](auto message) {
            message.GetReflection()->ClearField(&message, message.GetDescriptor()->FindFieldByNumber(field));
            return message;
        };
        client.send<OmlaVornGetHwPidReqS>();
        answerInfo(without(productInfo()));
        expectRefused<OmlaVornGetHwPidRejS>(client);
        client.send<OmlaVornGetContainerPidReqS>();
        expectContainerRequest().reply(dunl::MsgNo::GetContainerPidCfm, without(container));
        expectRefused<OmlaVornGetContainerPidRejS>(client);
    }
    sarnaStorePid("KRC 999");
    auto withoutNumber = productInfo();
    withoutNumber.clear_product_number();
    client.send<OmlaVornGetHwPidReqS>();
    answerInfo(withoutNumber);
    expectRefused<OmlaVornGetHwPidRejS>(client); // the temporary number completes nothing
}

TEST_F(VornServerPidTest, when_the_client_has_gone_or_the_board_refuses_then_that_is_the_end_of_its_question)
{
    Client& witness = unit.connect(9);
    Client& client = unit.connect();
    client.send<OmlaVornGetContainerPidReqS>();
    expectContainerRequest().reply(dunl::MsgNo::GetContainerPidRej, dunl::GetContainerPidRej());
    expectRefused<OmlaVornGetContainerPidRejS>(client);

    client.send<OmlaVornGetHwPidReqS>();
    const auto info = expectInfoRequest();
    client.send<OmlaVornGetContainerPidReqS>();
    const auto container = expectContainerRequest();
    const std::string gone = std::to_string(client.mbox());
    client.die();
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    info.reply(dunl::MsgNo::GetProductInfoCfm, productInfo());
    container.reply(dunl::MsgNo::GetContainerPidRej, dunl::GetContainerPidRej());
    unit.settle();
    for (const char* name : {"GetProductInfoCfm", "GetContainerPidRej"}) {
        EXPECT_TRUE(
            RecordedTraces::has("ABN: No VORN session found for mailbox ID: " + gone + ". Ignoring " + name + "."));
    }
    witness.send<OmlaVornGetHwPidReqS>();
    witness.expect<OmlaVornGetHwPidCfmS>();
}

TEST_F(VornServerPidTest, when_a_gsm_client_asks_on_an_iru_then_it_is_told_another_name)
{
    Client& gsm = unit.connect(100);
    Client& other = unit.connect(99);
    gsm.send<OmlaVornGetHwPidReqS>();
    answerInfo(productInfo("IRU 2242"));
    EXPECT_EQ(fieldText(gsm.expect<OmlaVornGetHwPidCfmS>().productName), "TMPX 47 D6");
    gsm.send<OmlaVornGetMarketNamePidReqS>();
    EXPECT_EQ(fieldText(gsm.expect<OmlaVornGetMarketNamePidCfmS>().productName), "TMPX 47 D6");
    other.send<OmlaVornGetHwPidReqS>();
    EXPECT_EQ(fieldText(other.expect<OmlaVornGetHwPidCfmS>().productName), "IRU 2242");
    unit.dunl.sendMessage(unit.privateMbox(), dunl::MsgNo::GetProductInfoCfm, 0, unit.dunl.clientRef,
                          productInfo("X IRU"));
    unit.settle();
    gsm.send<OmlaVornGetHwPidReqS>();
    EXPECT_EQ(fieldText(gsm.expect<OmlaVornGetHwPidCfmS>().productName), "X IRU");
}

TEST_F(VornServerPidTest, when_two_clients_ask_at_once_then_each_gets_the_answer_to_its_own_question)
{
    Client& first = unit.connect();
    Client& second = unit.connect(8);
    first.send<OmlaVornGetHwPidReqS>();
    const auto firstRequest = expectInfoRequest();
    second.send<OmlaVornGetMarketNamePidReqS>();
    const auto secondRequest = expectInfoRequest();
    secondRequest.reply(dunl::MsgNo::GetProductInfoRej, dunl::GetProductInfoRej());
    expectRefused<OmlaVornGetMarketNamePidRejS>(second);
    firstRequest.reply(dunl::MsgNo::GetProductInfoCfm, productInfo());
    first.expect<OmlaVornGetHwPidCfmS>();

    first.send<OmlaVornGetContainerPidReqS>();
    const auto container = expectContainerRequest();
    container.reply(dunl::MsgNo::GetProductInfoRej, dunl::GetProductInfoRej());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: Unknown signal number in transaction! Ignoring signal!"));
    container.reply(dunl::MsgNo::GetContainerPidRej, dunl::GetContainerPidRej()); // taken by the wrong answer
    unit.settle();
    first.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("No DUNL transaction was found for procedureRef: " +
                                    std::to_string(container.procedureRef) + ". Ignoring GetContainerPidRej."));
}

TEST_F(VornServerPidTest, when_nobody_waits_for_an_answer_then_the_cache_is_filled_all_the_same)
{
    Client& client = unit.connect();
    client.send<OmlaVornGetHwPidReqS>();
    const auto request = expectInfoRequest();
    const auto mark = RecordedTraces::mark();
    unit.dunl.sendMessage(request.sender, dunl::MsgNo::GetProductInfoCfm, request.procedureRef + 7, unit.dunl.clientRef,
                          productInfo());
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("No DUNL transaction was found for procedureRef: " +
                                        std::to_string(request.procedureRef + 7) + " but the cache has been updated.",
                                    mark));
    client.send<OmlaVornGetMarketNamePidReqS>();
    client.expect<OmlaVornGetMarketNamePidCfmS>();
}

TEST_F(VornServerPidTest, when_a_mailbox_without_a_session_asks_then_it_is_ignored_in_the_words_of_each_request)
{
    Client& stranger = unit.addClient();
    const std::string mbox = std::to_string(stranger.mbox());
    stranger.send<OmlaVornGetHwPidReqS>();
    stranger.send<OmlaVornGetContainerPidReqS>();
    stranger.send<OmlaVornGetMarketNamePidReqS>();
    stranger.send<OmlaVornGetExtendedMarketNameReqS>();
    unit.settle();
    stranger.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: No VORN session found for mailbox ID: " + mbox +
                                    ". Ignoring OMLA_VORN_GET_HW_PID_REQ."));
    for (const char* name : {"CONTAINER_PID", "MARKET_NAME_PID", "EXTENDED_MARKET_NAME"}) {
        EXPECT_TRUE(RecordedTraces::has("ABN: VornServer has no session for mailbox " + mbox +
                                        ". Ignoring OMLA_VORN_GET_" + name + "_REQ."));
    }
}

TEST_F(VornServerPidTest, when_a_temporary_product_number_is_set_then_clients_are_told_it_until_it_is_deleted)
{
    Client& client = unit.connect();
    const auto run = [&](const std::vector<std::string>& words, int expectedCode, const std::string& expectedText) {
        int exitCode = -1;
        EXPECT_EQ(unit.command(words, exitCode), expectedText);
        EXPECT_EQ(exitCode, expectedCode);
    };
    const auto askedNumber = [&] {
        client.send<OmlaVornGetHwPidReqS>();
        answerInfo(productInfo());
        return std::string(fieldText(client.expect<OmlaVornGetHwPidCfmS>().productNumber));
    };
    EXPECT_EQ(askedNumber(), "KRC 161 282/2");
    run({"pid_manipulation", "--add", "KRC 999"}, 0, "");
    EXPECT_EQ(askedNumber(), "KRC 999");
    EXPECT_TRUE(RecordedTraces::has("Fetching Manipulated PID: product number: KRC 999"));
    EXPECT_EQ(sarnaReadPid(), "KRC 999");
    run({"pid_manipulation", "-a"}, 2, "");
    run({"pid_manipulation", "-a", "KRC", "1"}, 2, "");
    EXPECT_EQ(sarnaReadPid(), "KRC 999");
    client.send<OmlaVornGetHwPidReqS>();
    client.expect<OmlaVornGetHwPidCfmS>(); // what has failed has left the cache
    run({"pid_manipulation", "-d"}, 0, "");
    EXPECT_EQ(askedNumber(), "KRC 161 282/2");
}

} // namespace
