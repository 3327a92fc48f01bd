/// Indicators: set and read by clients in codes that the board doesn't know.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "mmiUserTest.h"
#include "vorni/productIdentity.h"
#include "vorni/visualIndication.h"

#include <array>
#include <map>

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

using ReadCfm = fesk::GetVisualIndicationCfm;

class VornServerVisualTest : public MmiUserTest
{
protected:
    static void set(const Client& client, std::uint32_t code)
    {
        client.send<OmlaVornSetVisualIndicationReqS>(
            [code](auto& request) { request.visualState = static_cast<std::uint16_t>(code); });
    }
    auto askSet(const Client& client, std::uint32_t code = 0x110)
    {
        set(client, code);
        return expectAsked<fesk::SetVisualIndicationReq>(fesk::MsgNo::SetVisualIndicationReq);
    }
    template <typename Record>
    auto askRead(const Client& client)
    {
        client.send<Record>();
        return expectAsked<fesk::GetVisualIndicationReq>(fesk::MsgNo::GetVisualIndicationReq);
    }
    static void expectInvalid(Client& client, std::uint32_t code)
    {
        set(client, code);
        expectReject<OmlaVornSetVisualIndicationRejS>(client,
                                                      fmt::format("Invalid parameter VisualizedState: {}", code));
    }
    /// The codes at offsets 12, 14, 16 and 18.
    std::array<int, 4> read(Client& client, const ReadCfm& cfm)
    {
        askRead<OmlaVornGetVisualIndicationReqS>(client).confirm(cfm);
        const auto got = expectAt<OmlaVornGetVisualIndicationCfmS>(client);
        return {got.firstIndication, got.secondIndication, got.fourthIndication, got.thirdIndication};
    }
    /// The special indicators, as "name=state ".
    std::string readSpecial(Client& client, const ReadCfm& cfm)
    {
        askRead<OmlaVornGetSpecialIndicatorReqS>(client).confirm(cfm);
        const Received received = client.expectNumber(OmlaVornGetSpecialIndicatorCfmS::number);
        const auto* signal = viewSignal<OmlaVornGetSpecialIndicatorCfmS>(received.get());
        const std::uint32_t indicators = signal->noOfIndicators;
        EXPECT_TRUE(RecordedTraces::has(
            fmt::format("OMLA_VORN_GET_SPECIAL_INDICATOR_CFM with {} special indicators", indicators)));
        if (received.size() != sizeof(*signal) + indicators * sizeof(VornSpecialIndicatorS)) {
            return "wrong size";
        }
        const auto* indicator = reinterpret_cast<const VornSpecialIndicatorS*>(signal + 1);
        std::string all;
        for (std::uint32_t i = 0; i < indicators; ++i, ++indicator) {
            all += fmt::format("{}={} ", fieldText(indicator->name), indicator->state.value());
        }
        return all;
    }
    /// The server learns what unit it is, as it does when a client asks.
    void learnProductName(Client& client, const std::string& name)
    {
        client.send<OmlaVornGetHwPidReqS>();
        dunl::GetProductInfoCfm cfm;
        cfm.set_product_name(name);
        cfm.set_product_revision("R1A");
        cfm.set_product_number("KRC 161");
        cfm.set_production_date("20260101");
        cfm.set_serial_number("C123");
        unit.dunl.expect<dunl::GetProductInfoReq>(dunl::MsgNo::GetProductInfoReq)
            .reply(dunl::MsgNo::GetProductInfoCfm, cfm);
        client.expect<OmlaVornGetHwPidCfmS>();
    }
    static std::string noRequest(const char* message, std::uint32_t procedureRef)
    {
        return fmt::format("Cannot find a matching transaction for this {} with procedureRef {}", message,
                           procedureRef);
    }
};

TEST_F(VornServerVisualTest, when_an_indication_is_set_then_its_code_is_translated)
{
    const std::map<std::uint32_t, int> orders{
        {0x110, 1},  {0x111, 2},  {0x120, 3},  {0x121, 4},  {0x130, 5},  {0x131, 6},  {0x140, 7},  {0x141, 8},
        {0x410, 9},  {0x411, 10}, {0x310, 11}, {0x311, 12}, {0x320, 13}, {0x321, 14}, {0x331, 15}, {0x332, 16},
        {0x060, 17}, {0x061, 18}, {0x010, 19}, {0x011, 20}, {0x212, 21}, {0x211, 22}, {0x210, 22}};
    Client& client = unit.connect();
    for (std::uint32_t code = 0; code <= 0x420; ++code) {
        const auto order = orders.find(code);
        if (order == orders.end()) {
            expectInvalid(client, code);
            continue;
        }
        const auto confirmed = askSet(client, code);
        EXPECT_EQ(confirmed.body.visual_state(), order->second) << code;
        confirmed.confirm();
        expectAt<OmlaVornSetVisualIndicationCfmS>(client);
        expectTraced({noRequest("SetVisualIndicationCfm", confirmed.procedureRef)}, [&] { confirmed.confirm(); });
        EXPECT_TRUE(RecordedTraces::hasPart(fmt::format("VornServer sends SetVisualIndicationReq to FESK server with "
                                                        "procedureRef {} and visualState ",
                                                        confirmed.procedureRef)));
    }
    const auto rejected = askSet(client);
    rejected.reject();
    expectReject<OmlaVornSetVisualIndicationRejS>(client,
                                                  "See logs to reveal why the FESK server rejected the request");
    expectTraced({noRequest("SetVisualIndicationRej", rejected.procedureRef)}, [&] { rejected.reject(); });
    expectSilence({&client});
}

TEST_F(VornServerVisualTest, when_indications_are_read_then_each_is_translated_and_what_is_not_told_is_255)
{
    constexpr std::array first{0xFF, 0x411, 0x410};
    constexpr std::array second{0xFF, 0x120, 0x121, 0x130, 0x140, 0x110, 0x110, 0x110};
    constexpr std::array third{0xFF, 0x311, 0x310, 0x331, 0x320, 0x313, 0x312};
    constexpr std::array fourth{0xFF, 1, 4};
    Client& client = unit.connect();
    for (std::size_t i = 0; i < second.size(); ++i) {
        ReadCfm cfm;
        const auto fill = [&](const auto& table, int field) { // the board's values are the table's indices
            if (i == 0 || i >= table.size()) {
                return table[0];
            }
            const auto* descriptor = ReadCfm::descriptor()->FindFieldByNumber(field);
            ReadCfm::GetReflection()->SetEnumValue(&cfm, descriptor, static_cast<int>(i));
            return table[i];
        };
        const int code1 = fill(first, ReadCfm::kFirstIndicationFieldNumber);
        const int code2 = fill(second, ReadCfm::kSecondIndicationFieldNumber);
        const int code3 = fill(third, ReadCfm::kThirdIndicationFieldNumber);
        const int code4 = fill(fourth, ReadCfm::kFourthIndicationFieldNumber);
        EXPECT_EQ(read(client, cfm), (std::array{code1, code2, code4, code3})) << i;
        EXPECT_EQ(readSpecial(client, cfm),
                  code4 == 0xFF ? "" : fmt::format("Support Unit Fault Indicator={} ", code4));
    }
    const auto rejected = askRead<OmlaVornGetVisualIndicationReqS>(client);
    rejected.reject();
    expectReject<OmlaVornGetVisualIndicationRejS>(client, "Interaction failure");
    EXPECT_TRUE(RecordedTraces::has(fmt::format(
        "VornServer sends fesk::GetVisualIndicationReq to FESK server with procedureRef {}", rejected.procedureRef)));
    askRead<OmlaVornGetSpecialIndicatorReqS>(client).reject();
    expectReject<OmlaVornGetSpecialIndicatorRejS>(client, "Interaction failure");
    expectTraced({noRequest("GetVisualIndicationRej", rejected.procedureRef)}, [&] { rejected.reject(); });
    expectTraced({noRequest("GetVisualIndicationCfm", rejected.procedureRef)}, [&] { rejected.confirm(); });
    expectSilence({&client});
}

TEST_F(VornServerVisualTest, when_a_gsm_client_sets_anything_on_an_iru_then_it_is_confirmed_and_goes_nowhere)
{
    Client& client = unit.connect(150);
    askSet(client); // the unit isn't known yet
    expectInvalid(client, 0xFFFF);
    learnProductName(client, "IRU 8846");
    for (const std::uint32_t serverRef : {100U, 199U}) {
        client.serverRef = serverRef;
        expectTraced({fmt::format("Disabled Led handling for GSM serverRef: {}", serverRef)},
                     [&] { set(client, 0xFFFF); });
        expectAt<OmlaVornSetVisualIndicationCfmS>(client);
    }
    for (const std::uint32_t serverRef : {99U, 200U}) {
        client.serverRef = serverRef;
        askSet(client);
        expectInvalid(client, 0xFFFF);
    }
    expectSilence({&client});
}

TEST_F(VornServerVisualTest, when_a_gsm_client_sets_anything_on_another_unit_then_it_is_a_client_like_any_other)
{
    Client& client = unit.connect(150);
    learnProductName(client, "RRUS IRU");
    askSet(client);
    expectInvalid(client, 0xFFFF);
}

TEST_F(VornServerVisualTest, when_there_is_no_session_no_user_or_no_board_then_only_the_lack_of_a_user_is_answered)
{
    Client& stranger = unit.addClient();
    const std::string noSession = "ABN: There is no session for the received message 0x";
    expectTraced({noSession + "1658004"}, [&] { set(stranger, 0x110); });
    expectTraced({noSession + "165800f"}, [&] { stranger.send<OmlaVornGetVisualIndicationReqS>(); });
    expectTraced({noSession + "1659a00"}, [&] { stranger.send<OmlaVornGetSpecialIndicatorReqS>(); });

    Client& client = unit.connect();
    Client& userless = connectWithoutUser();
    const std::string noUser = "The session has not subscribed as an MMI User";
    set(userless, 0x110);
    expectReject<OmlaVornSetVisualIndicationRejS>(userless, noUser + ": ID=0");
    expectInvalid(userless, 0); // looked at first
    userless.send<OmlaVornGetVisualIndicationReqS>();
    expectReject<OmlaVornGetVisualIndicationRejS>(userless, noUser);
    userless.send<OmlaVornGetSpecialIndicatorReqS>();
    expectReject<OmlaVornGetSpecialIndicatorRejS>(userless, noUser);
    expectSilence({&stranger, &userless});

    loseBoard();
    expectTraced({"Cannot send fesk::SetVisualIndicationReq to the FESK server"}, [&] { set(client, 0x110); });
    const char* unread = "Cannot send fesk::GetVisualIndicationReq to the FESK server";
    expectTraced({unread}, [&] { client.send<OmlaVornGetVisualIndicationReqS>(); });
    expectTraced({unread}, [&] { client.send<OmlaVornGetSpecialIndicatorReqS>(); });
    client.expectNothing();
}

TEST_F(VornServerVisualTest, when_the_client_has_gone_before_the_answer_then_that_ends_the_request)
{
    Client& client = unit.connect();
    const auto set = askSet(client);
    const auto setRejected = askSet(client);
    const auto read = askRead<OmlaVornGetVisualIndicationReqS>(client);
    const auto readRejected = askRead<OmlaVornGetSpecialIndicatorReqS>(client);
    const std::uint32_t gone = lose(client);
    const auto expectEnded = [&](const auto& asked, const char* message, const char* named, const auto& step) {
        const auto noSession =
            fmt::format("ABN: Cannot find a matching session for this {} with mailbox 0x{:x}", named, gone);
        expectTraced({noSession, noRequest(message, asked.procedureRef)}, step);
    };
    constexpr const char* readCfm = "GetVisualIndicationCfm"; // is named with answers to a set, too
    expectEnded(set, "SetVisualIndicationCfm", readCfm, [&] { set.confirm(); });
    expectEnded(setRejected, "SetVisualIndicationRej", readCfm, [&] { setRejected.reject(); });
    expectEnded(read, readCfm, readCfm, [&] { read.confirm(); });
    expectEnded(readRejected, "GetVisualIndicationRej", "GetVisualIndicationRej", [&] { readRejected.reject(); });
}

} // namespace
