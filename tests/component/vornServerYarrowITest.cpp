/// Deep sleep: the connections to the yarrowi server and the clients' procedures on them.

#include "unit.h"
#include "vorni/connection.h"
#include "vorni/deepSleep.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <fmt/format.h>

using namespace TestUnit;
using VornTrace::RecordedTraces;
namespace MsgNo = yarrowi::MsgNo;

namespace {

constexpr std::array activateRejTexts{"Client not in INACTIVE state. DeepSleep state: INACTIVE",
                                      "Client not in INACTIVE state. DeepSleep state: PRE_ACTIVE",
                                      "Client not in INACTIVE state. DeepSleep state: ACTIVATING",
                                      "Client not in INACTIVE state. DeepSleep state: ACTIVE",
                                      "Client not in INACTIVE state. DeepSleep state: FAILURE"};
constexpr std::array deactivateRejTexts{"radio in INACTIVE mode", "radio in PRE_ACTIVE mode",
                                        "radio in ACTIVATING mode", "radio in ACTIVE mode", "radio in FAILURE mode"};
constexpr std::array statusTexts{"deep sleep deactivated", "Radio gets into PRE_ACTIVE status", "deep sleep activating",
                                 "Radio gets into Active Status", "Radio fails to get into deep sleep"};

class VornServerYarrowITest : public UnitTest
{
protected:
    void send(std::uint32_t msgNo, std::uint32_t procedureRef, std::uint32_t connectionRef,
              const google::protobuf::Message& body)
    {
        unit.yarrowi.sendMessage(unit.privateMbox(), msgNo, procedureRef, connectionRef, body);
    }
    /// To the client that connected last, in no procedure.
    void send(std::uint32_t msgNo, const google::protobuf::Message& body)
    {
        send(msgNo, 0, unit.yarrowi.clientRef, body);
    }
    Request<yarrowi::ConnectionEstablishReq> appear()
    {
        unit.yarrowi.appear();
        return unit.yarrowi.expect<yarrowi::ConnectionEstablishReq>(MsgNo::ConnectionEstablishReq);
    }
    void confirm(const Request<yarrowi::ConnectionEstablishReq>& request, std::optional<std::uint32_t> revision,
                 std::uint32_t serverConnectionRef)
    {
        yarrowi::ConnectionEstablishCfm cfm;
        if (revision) {
            cfm.set_selected_protocol_revision(*revision);
        }
        send(MsgNo::ConnectionEstablishCfm, request.procedureRef, serverConnectionRef, cfm);
    }
    void expectClosedown(std::uint32_t serverConnectionRef)
    {
        const auto close = unit.yarrowi.expect<yarrowi::ConnectionClosedownReq>(MsgNo::ConnectionClosedownReq);
        EXPECT_EQ(close.connectionRef, serverConnectionRef);
    }
    bool isReady()
    {
        int exitCode = -1;
        return unit.command({"vornsrv", "all", "ready"}, exitCode).find("VornServerYarrowI") == std::string::npos;
    }
    /// The client's connection up to the answer of the yarrowi server.
    Request<yarrowi::ConnectionEstablishReq> connectUpToDeepSleep(Client& client)
    {
        unit.requestConnection(client);
        unit.confirmConnectivity();
        unit.registerTimeSource(1);
        unit.registerMmiUser(1);
        return unit.yarrowi.expect<yarrowi::ConnectionEstablishReq>(MsgNo::ConnectionEstablishReq);
    }
    template <typename Signal>
    void expectReject(Client& client, const std::string& text)
    {
        const auto rej = client.expect<Signal>();
        EXPECT_EQ(rej.errorCode, 2);
        EXPECT_EQ(fieldText(rej.errorText), text);
        EXPECT_EQ(rej.header.serverRef, 7U);
    }
};

TEST_F(VornServerYarrowITest, when_the_server_appears_then_its_capabilities_are_fetched_over_a_connection_of_their_own)
{
    unit.start();
    const auto request = appear();
    EXPECT_EQ(std::tuple(request.procedureRef, request.connectionRef, request.sender),
              std::tuple(1U, 1U, unit.privateMbox()));
    EXPECT_EQ(request.body.protocol_revision_size(), 1);
    EXPECT_EQ(request.body.protocol_revision(0), 1U);
    confirm(request, 1, 0x900);
    const auto exchange = unit.yarrowi.expect<yarrowi::CapabilityExchangeReq>(MsgNo::CapabilityExchangeReq);
    EXPECT_EQ(std::pair(exchange.procedureRef, exchange.connectionRef), std::pair(2U, 0x900U));
    EXPECT_TRUE(RecordedTraces::has("ConnectionEstablishCfm, successfully connected to YarrowI server. Sending "
                                    "CapabilityExchangeReq..."));
    EXPECT_FALSE(isReady());
    send(MsgNo::CapabilityExchangeCfm, 2, 1, yarrowi::CapabilityExchangeCfm());
    expectClosedown(0x900);
    EXPECT_TRUE(isReady()); // without deep sleep as well
    send(MsgNo::ConnectionClosedownCfm, 3, 1, yarrowi::ConnectionClosedownCfm());
    send(MsgNo::ConnectionClosedownCfm, 3, 1, yarrowi::ConnectionClosedownCfm());
    unit.settle();
    EXPECT_EQ(RecordedTraces::count("Unable to find clientInfo in ConnectionClosedownCfm with connectionRef 1"), 1U);
}

TEST_F(VornServerYarrowITest, when_the_start_up_connection_is_refused_then_the_server_is_not_ready_and_does_not_retry)
{
    unit.start();
    const auto request = appear();
    yarrowi::ConnectionEstablishRej rej;
    rej.set_reject_reason(yarrowi::ConnectionEstablishRej::MAX_NUMBER_OF_CONNECTIONS_EXCEEDED);
    send(MsgNo::ConnectionEstablishRej, request.procedureRef, 0, rej);
    send(MsgNo::ConnectionEstablishRej, request.procedureRef, 0, rej);
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("ABN: VornServerYarrowI:handleConnectionEstablishRej() reject_reason "
                                    "MAX_NUMBER_OF_CONNECTIONS_EXCEEDED"));
    EXPECT_TRUE(RecordedTraces::has("ABN: No VORN session found for mailbox ID: 1. Ignoring ConnectionEstablishRej."));
    EXPECT_TRUE(RecordedTraces::has("Unable to find clientInfo in ConnectionEstablishRej with procedureRef 1"));
    unit.yarrowi.expectNothing();
    EXPECT_FALSE(isReady());
}

TEST_F(VornServerYarrowITest, when_the_revision_is_wrong_or_capabilities_are_rejected_then_the_connection_is_closed)
{
    unit.start();
    const auto request = appear();
    const char* text =
        "ABN: ConnectionEstablishCfm message invalid: selected protocol revision unsupported or field is missing";
    confirm(request, std::nullopt, 0x900);
    expectClosedown(0x900);
    auto again = request;
    again.procedureRef = 2; // of the request above
    confirm(again, 2, 0x901);
    expectClosedown(0x901);
    EXPECT_EQ(RecordedTraces::count(text), 2U);
    send(MsgNo::CapabilityExchangeRej, 3, request.connectionRef, yarrowi::CapabilityExchangeRej());
    expectClosedown(0x901);
    EXPECT_FALSE(isReady());
}

TEST_F(VornServerYarrowITest, when_a_clients_connection_is_refused_then_its_gate_stays_closed)
{
    unit.bringUp();
    Client& client = unit.addClient();
    const auto request = connectUpToDeepSleep(client);
    yarrowi::ConnectionEstablishRej rej;
    rej.set_reject_reason(yarrowi::ConnectionEstablishRej::NO_SUPPORTED_PROTOCOL_REVISION);
    send(MsgNo::ConnectionEstablishRej, request.procedureRef, 0, rej);
    confirm(request, 1, 0x60); // too late: the connection is forgotten
    client.send<OmlaVornActivateDeepSleepReqS>();
    unit.settle();
    client.expectNothing();
    unit.yarrowi.expectNothing();
    EXPECT_FALSE(RecordedTraces::hasPart("Ignoring ConnectionEstablishRej"));
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("Unable to find clientInfo in ConnectionEstablishCfm with procedureRef {}", request.procedureRef)));
}

TEST_F(VornServerYarrowITest,
       when_a_clients_connection_has_a_wrong_revision_then_it_is_closed_and_its_gate_stays_closed)
{
    unit.bringUp();
    Client& client = unit.addClient();
    confirm(connectUpToDeepSleep(client), 2, 0x60);
    expectClosedown(0x60);
    unit.settle();
    client.expectNothing();
}

TEST_F(VornServerYarrowITest, when_a_client_goes_then_its_connection_is_closed)
{
    unit.bringUp();
    Client& client = unit.addClient();
    const auto request = connectUpToDeepSleep(client);
    confirm(request, 1, 0x60);
    client.expect<OmlaVornConnEstablishCfmS>();
    const std::uint32_t mbox = client.mbox();
    client.die();
    expectClosedown(0x60);
    // The connection lasts until it is confirmed as closed: a late answer finds it, and no session.
    const auto ignored = [&](std::uint32_t msgNo, const google::protobuf::Message& body, const char* name) {
        const auto mark = RecordedTraces::mark();
        send(msgNo, 0, request.connectionRef, body);
        unit.settle();
        EXPECT_TRUE(RecordedTraces::has(
            fmt::format("ABN: No VORN session found for mailbox ID: {}. Ignoring{}.", mbox, name), mark))
            << msgNo;
    };
    ignored(MsgNo::ActivateDeepSleepCfm, yarrowi::ActivateDeepSleepCfm(), " ActivateDeepSleepCfm");
    ignored(MsgNo::DeactivateDeepSleepCfm, yarrowi::DeactivateDeepSleepCfm(), " DeactivateDeepSleepCfm");
    ignored(MsgNo::SubscribeDeepSleepStatusCfm, yarrowi::SubscribeDeepSleepStatusCfm(), " DeactivateDeepSleepCfm");
    ignored(MsgNo::DeepSleepStatusInd, yarrowi::DeepSleepStatusInd(), " DeactivateDeepSleepCfm");
    ignored(MsgNo::ActivateDeepSleepRej, yarrowi::ActivateDeepSleepRej(), "");
    ignored(MsgNo::DeactivateDeepSleepRej, yarrowi::DeactivateDeepSleepRej(), "");
    ignored(MsgNo::SubscribeDeepSleepStatusRej, yarrowi::SubscribeDeepSleepStatusRej(), "");
    send(MsgNo::ConnectionClosedownCfm, 0, request.connectionRef, yarrowi::ConnectionClosedownCfm());
    send(MsgNo::ActivateDeepSleepCfm, 0, request.connectionRef, yarrowi::ActivateDeepSleepCfm());
    unit.settle();
    // The confirm of a subscription speaks of another message.
    send(MsgNo::SubscribeDeepSleepStatusCfm, 0, request.connectionRef, yarrowi::SubscribeDeepSleepStatusCfm());
    unit.settle();
    for (const char* name : {"ActivateDeepSleepCfm", "DeactivateDeepSleepCfm"}) {
        EXPECT_TRUE(RecordedTraces::has(
            fmt::format("Unable to find clientInfo in {} with connectionRef {}", name, request.connectionRef)));
    }
}

TEST_F(VornServerYarrowITest, when_a_status_is_left_out_then_it_is_the_first_one)
{
    unit.bringUp();
    Client& client = unit.connect();
    send(MsgNo::DeepSleepStatusInd, yarrowi::DeepSleepStatusInd());
    const auto ind = client.expect<OmlaVornDeepSleepStatusIndS>();
    EXPECT_EQ(ind.status, 0);
    EXPECT_EQ(fieldText(ind.statusText), "deep sleep deactivated");
    send(MsgNo::ActivateDeepSleepRej, yarrowi::ActivateDeepSleepRej());
    expectReject<OmlaVornActivateDeepSleepRejS>(client, "Client not in INACTIVE state. DeepSleep state: INACTIVE");
}

TEST_F(VornServerYarrowITest, when_a_client_asks_then_the_request_goes_out_and_its_confirm_comes_back)
{
    unit.bringUp();
    Client& client = unit.connect();
    client.clientRef += 5; // answers carry the session's references, not the request's
    client.send<OmlaVornActivateDeepSleepReqS>();
    EXPECT_EQ(unit.yarrowi.expect<yarrowi::ActivateDeepSleepReq>(MsgNo::ActivateDeepSleepReq).connectionRef, 60U);
    send(MsgNo::ActivateDeepSleepCfm, yarrowi::ActivateDeepSleepCfm());
    EXPECT_EQ(client.expect<OmlaVornActivateDeepSleepCfmS>().header.clientRef, client.clientRef - 5);

    client.send<OmlaVornDeactivateDeepSleepReqS>();
    unit.yarrowi.expect<yarrowi::DeactivateDeepSleepReq>(MsgNo::DeactivateDeepSleepReq);
    send(MsgNo::DeactivateDeepSleepCfm, yarrowi::DeactivateDeepSleepCfm());
    const auto cfm = client.expect<OmlaVornDeactivateDeepSleepCfmS>(); // of 128 bytes
    EXPECT_TRUE(std::all_of(std::begin(cfm.reserved), std::end(cfm.reserved), [](auto byte) { return byte == 0; }));

    client.send<OmlaVornSubscribeDeepSleepStatusReqS>();
    unit.yarrowi.expect<yarrowi::SubscribeDeepSleepStatusReq>(MsgNo::SubscribeDeepSleepStatusReq);
    send(MsgNo::SubscribeDeepSleepStatusCfm, yarrowi::SubscribeDeepSleepStatusCfm());
    client.expect<OmlaVornSubscribeDeepSleepStatusCfmS>();
    send(MsgNo::SubscribeDeepSleepStatusRej, yarrowi::SubscribeDeepSleepStatusRej());
    expectReject<OmlaVornSubscribeDeepSleepStatusRejS>(client, "Client has already subscribed to deep sleep");
}

TEST_F(VornServerYarrowITest, when_states_and_statuses_come_then_the_client_gets_their_texts)
{
    unit.bringUp();
    Client& client = unit.connect();
    for (int state = 0; state <= 5; ++state) {
        yarrowi::ActivateDeepSleepRej activate;
        yarrowi::DeactivateDeepSleepRej deactivate;
        yarrowi::DeepSleepStatusInd ind;
        const auto i = static_cast<std::size_t>(state);
        const bool isKnown = i < statusTexts.size();
        if (isKnown) {
            activate.set_deep_sleep_state(static_cast<yarrowi::DeepSleepState>(state));
            deactivate.set_deep_sleep_state(static_cast<yarrowi::DeepSleepState>(state));
            ind.set_deep_sleep_status(static_cast<yarrowi::DeepSleepState>(state));
        } else { // a value of a newer server
            for (google::protobuf::Message* message :
                 std::initializer_list<google::protobuf::Message*>{&activate, &deactivate, &ind}) {
                message->GetReflection()->MutableUnknownFields(message)->AddVarint(1, 7);
            }
        }
        send(MsgNo::ActivateDeepSleepRej, activate);
        expectReject<OmlaVornActivateDeepSleepRejS>(client, isKnown ? activateRejTexts.at(i) : "");
        send(MsgNo::DeactivateDeepSleepRej, deactivate);
        expectReject<OmlaVornDeactivateDeepSleepRejS>(client, isKnown ? deactivateRejTexts.at(i) : "");
        send(MsgNo::DeepSleepStatusInd, ind);
        const auto signal = client.expect<OmlaVornDeepSleepStatusIndS>();
        EXPECT_EQ(signal.status, isKnown ? state : 0);
        EXPECT_EQ(fieldText(signal.statusText), isKnown ? statusTexts.at(i) : "");
    }
    EXPECT_TRUE(RecordedTraces::has(
        "VornServerYarrowI:sendRej() OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REJ reason: radio in ACTIVE mode"));
}

TEST_F(VornServerYarrowITest, when_the_unit_has_no_deep_sleep_then_requests_are_rejected_here)
{
    unit.start();
    unit.connectGanti();
    unit.legacy.appear();
    unit.connectDunl();
    unit.connectFesk();
    unit.connectYarrowI(false);
    unit.settle();
    Client& client = unit.connect();
    client.send<OmlaVornActivateDeepSleepReqS>();
    expectReject<OmlaVornActivateDeepSleepRejS>(client, "DeepSleep not supported");
    client.send<OmlaVornDeactivateDeepSleepReqS>();
    expectReject<OmlaVornDeactivateDeepSleepRejS>(client, "DeepSleep not supported");
    client.send<OmlaVornSubscribeDeepSleepStatusReqS>();
    expectReject<OmlaVornSubscribeDeepSleepStatusRejS>(client, "DeepSleep not supported");
    unit.yarrowi.expectNothing();
}

TEST_F(VornServerYarrowITest, when_there_is_no_connection_then_requests_get_no_answer)
{
    unit.bringUp();
    Client& client = unit.connect();
    const auto mark = RecordedTraces::mark();
    const std::uint32_t lost = unit.yarrowi.mbox();
    unit.yarrowi.die();
    EXPECT_TRUE(
        RecordedTraces::waitFor(fmt::format("DeepSleepServer mailbox went down, 0x{:x}", lost), mark, deadline));
    client.send<OmlaVornActivateDeepSleepReqS>();
    client.send<OmlaVornDeactivateDeepSleepReqS>();
    client.send<OmlaVornSubscribeDeepSleepStatusReqS>();
    unit.settle();
    client.expectNothing();
    for (const char* text :
         {"ABN: Unable to find clientInfo for OMLA_VORN_ACTIVATE_DEEP_SLEEP_REQ from DU! with mailbox",
          "ABN: Unable to find clientInfo for OMLA_VORN_DEACTIVATE_DEEP_SLEEP_REQ from DU with mailbox",
          "Unable to find clientInfo for OMLA_VORN_SUBSCRIBE_DEEP_SLEEP_STATUS_REQ from DU with mbox"}) {
        EXPECT_TRUE(RecordedTraces::has(fmt::format("{} 0x{:x}", text, client.mbox()))) << text;
    }
    EXPECT_TRUE(isReady());
    client.die();
    unit.settle();
}

} // namespace
