/// What the components keep inside: capability records, the internal MMI user, the supervision time-out, the queue of
/// the debug commands.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "serverThread.h"
#include "tolmeClient.h"
#include "vornServerDunl.h"
#include "vornServerFesk.h"
#include "vornServerLinkSupervision.h"
#include "vornServerMmiHandling.h"
#include "vornServerYarrowI.h"
#include "vornSession.h"
#include "yarrowi/if/yarrowIClient.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <thread>

using namespace TestUnit;
using namespace tolme;
using VornTrace::RecordedTraces;

namespace {

class ConnectorTest : public ::testing::Test
{
protected:
    template <typename ConnEstablishCfm>
    void connect(TolmeClient& client, BoardServer& server, std::uint32_t msgNo)
    {
        if (server.mbox() == KIV_NO_MBOX) {
            server.appear();
        }
        thread.handleUntil([&] { return client.isServerFound(); });
        server.clientRef = client.getClientId();
        server.serverRef = 0x500;
        ConnEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        server.sendMessage(kiv_current_mbox(), msgNo, server.clientRef, server.serverRef, cfm);
        thread.settle();
        server.discardAll();
    }
    void connectDunl() { connect<dunl::ConnEstablishCfm>(dunlClient, dunlServer, dunl::MsgNo::ConnEstablishCfm); }
    void connectFesk() { connect<fesk::ConnEstablishCfm>(feskClient, feskServer, fesk::MsgNo::ConnEstablishCfm); }
    void send(const BoardServer& server, std::uint32_t msgNo, const google::protobuf::Message& body,
              std::uint32_t procedureRef = 0)
    {
        server.sendMessage(kiv_current_mbox(), msgNo, procedureRef, server.clientRef, body);
        thread.settle();
    }
    static std::vector<std::shared_ptr<const TolmeCapability>> records(const TolmeClient& client)
    {
        std::vector<std::shared_ptr<const TolmeCapability>> list;
        EXPECT_EQ(client.getCapabilities(list), client.hasCapabilities());
        return list;
    }
    static std::vector<std::uint16_t> codes(const TolmeClient& client)
    {
        std::vector<std::uint16_t> list;
        for (const auto& record : records(client)) {
            list.push_back(record->code);
        }
        return list;
    }

    ServerThread thread;
    VornServerCommonData& commonData{thread.commonData};
    TolmeClient& dunlClient{commonData.getDunlClient()};
    TolmeClient& feskClient{commonData.getFeskClient()};
    BoardServer dunlServer{thread.post, "DunlServer"};
    BoardServer feskServer{thread.post, "FeskServer"};
};

TEST_F(ConnectorTest, when_dunl_lists_its_capabilities_then_each_known_one_gives_a_record_in_the_order_of_the_list)
{
    constexpr std::array<std::uint16_t, 20> codeOf{12, 13, 14, 15, 16, 17, 18, 19, 20, 21,
                                                   22, 23, 24, 25, 26, 2,  5,  6,  7,  9};
    VornServerDunl component(commonData);
    component.init();
    connectDunl();
    dunl::GetCapabilitiesCfm cfm;
    std::vector<std::uint16_t> expected;
    for (int i = 0; i < 20; ++i) {
        const int capability = (i * 7 + 3) % 20;
        cfm.add_capabilities(static_cast<dunl::Capability>(capability));
        expected.push_back(codeOf.at(static_cast<std::size_t>(capability)));
    }
    cfm.GetReflection()->MutableUnknownFields(&cfm)->AddVarint(dunl::GetCapabilitiesCfm::kCapabilitiesFieldNumber, 20);
    const std::array<std::array<std::uint32_t, 3>, 2> params{{{0x10001, 2, 0xFFFFFFFF}, {4, 5, 6}}};
    for (const auto& [a, b, c] : params) {
        auto* level = cfm.add_temperature_level_measurement_params();
        level->set_upper_level(a);
        level->set_sensor_id(b);
        level->set_lower_level(c);
        auto* hotspot = cfm.add_hotspot_params();
        hotspot->set_upper_temperature(a);
        hotspot->set_hotspot_id(b);
        hotspot->set_lower_temperature(c);
    }
    cfm.set_restart_rank_label(0x12345678);
    cfm.set_alternative_lmc_tag("tag");
    const auto mark = RecordedTraces::mark();
    send(dunlServer, dunl::MsgNo::GetCapabilitiesCfm, cfm);

    EXPECT_EQ(codes(dunlClient), expected);
    EXPECT_TRUE(RecordedTraces::has("VornServerDunl::handleDunlGetCapabilitiesCfm got unhandled CAP: 20", mark));
    EXPECT_TRUE(RecordedTraces::has("adding 'Oam State' Capability", mark));
    for (const auto& record : records(dunlClient)) {
        if (const auto* levels = capabilityAs<TemperatureLevelMeasurementCapability>(*record)) {
            ASSERT_EQ(levels->levels.size(), 2U);
            const auto& level = *levels->levels[0];
            EXPECT_EQ(std::tuple(level.sensorId, level.upperLevel, level.lowerLevel), std::tuple(2, 1, 0xFFFF));
            const std::array<std::uint16_t, 3> layout{5, 4, 6};
            EXPECT_EQ(std::memcmp(levels->levels[1].get(), layout.data(), sizeof(layout)), 0);
        } else if (const auto* hotspots = capabilityAs<ClimateControlCapability>(*record)) {
            ASSERT_EQ(hotspots->hotspots.size(), 2U);
            const auto& hotspot = *hotspots->hotspots[0];
            EXPECT_EQ(std::tuple(hotspot.hotspotId, hotspot.upperTemperature, hotspot.lowerTemperature),
                      std::tuple(2, 1, 0xFFFF));
        } else if (const auto* rank = capabilityAs<RestartRankLabelCapability>(*record)) {
            EXPECT_EQ(rank->label, 0x12345678U);
        } else if (const auto* lmc = capabilityAs<AlternativeLmcCapability>(*record)) {
            EXPECT_EQ(lmc->tag, "tag");
        }
    }
}

TEST_F(ConnectorTest, when_parameters_are_missing_then_the_records_do_without_or_are_left_out)
{
    VornServerDunl component(commonData);
    component.init();
    connectDunl();
    dunl::GetCapabilitiesCfm cfm;
    cfm.add_capabilities(dunl::ALTERNATIVE_LMC_SUPPORT);
    cfm.add_capabilities(dunl::RESTART_RANK_LABEL_SUPPORT);
    cfm.add_capabilities(dunl::CLIMATE_CONTROL);
    send(dunlServer, dunl::MsgNo::GetCapabilitiesCfm, cfm);
    EXPECT_EQ(codes(dunlClient), (std::vector<std::uint16_t>{23, 21}));
    EXPECT_EQ(capabilityAs<RestartRankLabelCapability>(*records(dunlClient)[0])->label, 0U);
    EXPECT_TRUE(capabilityAs<ClimateControlCapability>(*records(dunlClient)[1])->hotspots.empty());
    EXPECT_TRUE(
        RecordedTraces::has("ABN: No alternative_lmc_tag received for DUNL capability ALTERNATIVE_LMC_SUPPORT"));
}

TEST_F(ConnectorTest, when_the_server_comes_back_then_it_is_asked_again_and_its_capabilities_are_doubled)
{
    VornServerDunl component(commonData);
    component.init();
    connectDunl();
    dunl::GetCapabilitiesCfm cfm;
    cfm.add_capabilities(dunl::UTC_TIME);
    cfm.add_capabilities(dunl::HW_PID);
    send(dunlServer, dunl::MsgNo::GetCapabilitiesCfm, cfm);
    EXPECT_TRUE(component.isReadyToPublish());
    dunlServer.die();
    thread.handleUntil([&] { return !dunlClient.isServerFound(); });
    EXPECT_FALSE(component.isReadyToPublish());
    EXPECT_TRUE(RecordedTraces::has("VornServerDunl is not ready to publish. Client is not connected."));
    connectDunl();
    EXPECT_TRUE(component.isReadyToPublish()); // the old list still counts
    send(dunlServer, dunl::MsgNo::GetCapabilitiesCfm, cfm);
    EXPECT_EQ(codes(dunlClient), (std::vector<std::uint16_t>{12, 2, 12, 2}));
}

TEST_F(ConnectorTest, when_fesk_lists_its_capabilities_then_they_are_taken_in_a_fixed_order)
{
    VornServerFesk component(commonData);
    component.init();
    connectFesk();
    EXPECT_FALSE(component.isReadyToPublish());
    EXPECT_TRUE(RecordedTraces::has("VornServerFesk is not ready to publish. Capabilities have not been received."));
    fesk::GetCapabilitiesCfm cfm;
    send(feskServer, fesk::MsgNo::GetCapabilitiesCfm, cfm);
    EXPECT_TRUE(component.isReadyToPublish());
    EXPECT_FALSE(feskClient.hasCapabilities());

    cfm.mutable_cap_optical_indicator_control();
    cfm.mutable_cap_common_mmi();
    cfm.mutable_cap_here_i_am_support();
    cfm.mutable_cap_support_unit_fault_indicator();
    send(feskServer, fesk::MsgNo::GetCapabilitiesCfm, cfm);
    EXPECT_EQ(codes(feskClient), (std::vector<std::uint16_t>{4, 8, 3, 27}));
    EXPECT_EQ(capabilityAs<SpecialIndicatorCapability>(*records(feskClient)[0])->indicators,
              std::vector<std::string>{"Support Unit Fault Indicator"});
    EXPECT_TRUE(RecordedTraces::has(" adding 'Optical Indicator Control' Capability"));
}

TEST_F(ConnectorTest, when_the_units_own_mmi_user_is_answered_then_only_an_id_is_kept)
{
    VornServerFesk component(commonData);
    VornServerMmiHandling mmi(commonData);
    component.init();
    mmi.init();
    const auto answer = [&](std::optional<std::uint32_t> userId) {
        connectFesk();
        const auto* transaction = feskClient.findTransactionIf([](const auto& t) { return t.mboxId == KIV_NO_MBOX; });
        ASSERT_NE(transaction, nullptr);
        EXPECT_EQ(transaction->requestMsgNo, fesk::MsgNo::RegisterMmiUserReq);
        fesk::RegisterMmiUserCfm cfm;
        if (userId) {
            cfm.set_mmi_user_id(*userId);
        }
        send(feskServer, fesk::MsgNo::RegisterMmiUserCfm, cfm, transaction->procedureRef);
        EXPECT_EQ(feskClient.findTransactionIf([](const auto&) { return true; }), nullptr);
    };
    const char* noSession = "ABN: No VORN session found for mailbox ID: 4294967295. Ignoring RegisterMmiUserCfm.";
    answer(std::nullopt);
    EXPECT_EQ(RecordedTraces::count("ABN: RegisterMmiUserCfm did not have a user ID"), 1U);
    EXPECT_EQ(RecordedTraces::count(noSession), 1U);
    answer(0);
    EXPECT_EQ(RecordedTraces::count("ABN: RegisterMmiUserCfm did not have a user ID"), 1U);
    EXPECT_EQ(RecordedTraces::count(noSession), 2U);
    EXPECT_EQ(commonData.getMmiUid(), KIV_NO_MBOX);
    answer(8);
    EXPECT_EQ(commonData.getMmiUid(), 8U);
    EXPECT_TRUE(RecordedTraces::has("Internal mmiUserId = 8"));
}

TEST_F(ConnectorTest, when_a_restart_is_announced_then_the_supervision_time_out_is_set_and_its_result_told)
{
    VornServerLinkSupervision component(commonData);
    component.init();
    dunlClient.start<dunl::ConnEstablishCfm>(dunl::MsgNo::ConnEstablishCfm, dunlServer.name());
    std::vector<std::pair<std::uint32_t, bool>> results;
    VornServerComponent::supervisionTimeoutResult = [&](const VornSession& session, bool accepted) {
        results.emplace_back(session.getMboxId(), accepted);
    };
    const VornSession& session = commonData.addVornSession(0x77, 1, 2, 3, "DU_0", 0);
    const auto announce = [&](std::uint32_t value) { component.onNotifyRestartReqReceived(session, value); };

    announce(5); // not connected: kept under the reference 0
    ASSERT_NE(dunlClient.findTransaction(0), nullptr);
    EXPECT_EQ(dunlClient.findTransaction(0)->requestMsgNo, dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq);

    connectDunl();
    for (const bool accepted : {true, false}) {
        announce(6);
        const auto request = dunlServer.expect<dunl::ConnectivitySetSupervisionTimeoutReq>(
            dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq);
        EXPECT_EQ(request.body.supervision_timeout(), 6U);
        const dunl::ConnectivitySetSupervisionTimeoutCfm body;
        send(dunlServer, dunl::MsgNo::ConnectivitySetSupervisionTimeoutCfm + (accepted ? 0U : 1U), body,
             request.procedureRef);
        EXPECT_EQ(dunlClient.findTransaction(request.procedureRef), nullptr);
    }
    EXPECT_EQ(results, (std::vector<std::pair<std::uint32_t, bool>>{{0x77, true}, {0x77, false}}));

    announce(7);
    const auto late = dunlServer.expect<dunl::ConnectivitySetSupervisionTimeoutReq>(
        dunl::MsgNo::ConnectivitySetSupervisionTimeoutReq);
    commonData.removeVornSession(0x77);
    send(dunlServer, dunl::MsgNo::ConnectivitySetSupervisionTimeoutCfm, dunl::ConnectivitySetSupervisionTimeoutCfm(),
         late.procedureRef);
    send(dunlServer, dunl::MsgNo::ConnectivitySetSupervisionTimeoutRej, dunl::ConnectivitySetSupervisionTimeoutRej(),
         9999);
    VornServerComponent::supervisionTimeoutResult = nullptr;
    EXPECT_EQ(results.size(), 2U);
    EXPECT_TRUE(RecordedTraces::has("ABN: No VORN session found for mailbox ID: 119. Ignoring "
                                    "ConnectivitySetSupervisionTimeoutCfm"));
    EXPECT_TRUE(RecordedTraces::has("No DUNL transaction was found for procedureRef: 9999. Ignoring "
                                    "ConnectivitySetSupervisionTimeoutRej"));
}

TEST_F(ConnectorTest, when_the_last_client_goes_without_dunl_then_the_connected_state_stays)
{
    VornServerLinkSupervision component(commonData);
    const VornSession& session = commonData.addVornSession(0x77, 1, 2, 3, "DU_0", 0);
    dunlClient.addTransaction({4, 0x77, 2, 1, dunl::MsgNo::ConnectivityConnectedReq});
    component.onVornSessionLost(session);
    EXPECT_TRUE(RecordedTraces::has("Failed to send ConnectivityNotConnectedReq to DunlServer"));
    EXPECT_NE(dunlClient.findTransaction(4), nullptr);
}

TEST_F(ConnectorTest, when_answers_come_on_the_debug_connection_then_they_wait_in_the_queue)
{
    VornServerYarrowI component(commonData);
    component.init();
    BoardServer server{thread.post, "YarrowIServer"};
    server.appear();
    YarrowIClient& client = commonData.getYarrowIClient();
    thread.handleUntil([&] { return client.findByMailbox(1) != nullptr; });
    server.discardAll();
    clientInfo& debug = client.addClientInfo(commonData.getPrivateMbox());
    client.send(yarrowi::MsgNo::ConnectionEstablishReq, yarrowi::ConnectionEstablishReq(), &debug, KIV_NO_MBOX);
    const auto reply = [&](std::uint32_t msgNo, const google::protobuf::Message& body) {
        server.sendMessage(kiv_current_mbox(), msgNo, debug.procedureRef, debug.clientConnectionRef, body);
        thread.settle();
    };
    yarrowi::ConnectionEstablishCfm cfm; // without its revision, which the command looks at itself
    reply(yarrowi::MsgNo::ConnectionEstablishCfm, cfm);
    EXPECT_EQ(debug.serverConnectionRef, 0U);
    reply(yarrowi::MsgNo::ConnectionEstablishRej, yarrowi::ConnectionEstablishRej());
    reply(yarrowi::MsgNo::ActivateDeepSleepCfm, yarrowi::ActivateDeepSleepCfm());
    reply(yarrowi::MsgNo::DeactivateDeepSleepRej, yarrowi::DeactivateDeepSleepRej());
    reply(yarrowi::MsgNo::DeepSleepStatusInd, yarrowi::DeepSleepStatusInd());
    reply(yarrowi::MsgNo::ConnectionClosedownCfm, yarrowi::ConnectionClosedownCfm());
    EXPECT_NE(client.findByConnectionRef(debug.clientConnectionRef), nullptr);
    EXPECT_TRUE(RecordedTraces::has("Sending yarrowi.ActivateDeepSleepCfm to ulmo\n"));
    for (const std::uint32_t msgNo : {yarrowi::MsgNo::ConnectionEstablishCfm, yarrowi::MsgNo::ConnectionEstablishRej,
                                      yarrowi::MsgNo::ActivateDeepSleepCfm, yarrowi::MsgNo::DeactivateDeepSleepRej,
                                      yarrowi::MsgNo::DeepSleepStatusInd, yarrowi::MsgNo::ConnectionClosedownCfm}) {
        const auto message = component.waitForUlmoMessage(0);
        ASSERT_NE(message, nullptr);
        EXPECT_EQ(message->number, msgNo);
    }
    EXPECT_TRUE(RecordedTraces::has("Ulmo picked up yarrowi.DeepSleepStatusInd"));
    EXPECT_EQ(component.waitForUlmoMessage(0), nullptr);
    component.shutdown();
}

TEST_F(ConnectorTest, when_a_command_waits_on_its_own_thread_then_the_next_message_wakes_it)
{
    VornServerYarrowI component(commonData);
    std::vector<std::uint32_t> numbers;
    std::thread command([&] {
        while (const auto message = component.waitForUlmoMessage(30)) {
            numbers.push_back(message->number);
            if (numbers.size() == 500) {
                return;
            }
        }
    });
    for (std::uint32_t number = 1; number <= 500; ++number) {
        component.forwardToUlmoQueue({kiv_alloc(sizeof(number), number), kiv_free});
    }
    command.join();
    ASSERT_EQ(numbers.size(), 500U);
    EXPECT_EQ(numbers.front(), 1U);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

} // namespace
