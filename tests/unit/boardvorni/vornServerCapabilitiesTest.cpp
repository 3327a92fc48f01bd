/// What clients are told of the unit's capabilities, record by record.

#include "vornServerCapabilities.h"

#include "bbvorni/bbVorni.h"
#include "fdfclient/fdfClient.h"
#include "gantclient/gantClient.h"
#include "ganti/ganti.pb.h"
#include "luvek/vornServerLuvek.h"
#include "nonVolatile.h"
#include "serverThread.h"
#include "tolmeClient.h"
#include "vornServerDunl.h"
#include "vornServerFesk.h"
#include "vorni/capabilities.h"
#include "yarrowi/if/yarrowIClient.h"

#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <sstream>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

/// A baseband side with capabilities.
struct Baseband : VornServer::BbVorni::Client {
    const std::vector<std::uint32_t>& getCapabilities() const override { return capabilities; }
    std::vector<std::uint32_t> capabilities;
};

class VornServerCapabilitiesTest : public ::testing::Test
{
protected:
    VornServerCapabilitiesTest()
    {
        thread.commonData.setPublicMbox(thread.post.addMailbox("public"));
        thread.commonData.setBbVorniClient(baseband);
        thread.commonData.getFDFClient().readFdfDirectory(""); // not that of this machine
        client.appear();
        EXPECT_TRUE(component.init());
    }

    /// The filled records, and how many the signal has room for.
    std::pair<std::vector<VornCapabilityRecordS>, std::size_t> ask()
    {
        client.sendTo<OmlaVornGetCapabilitiesReqS>(thread.commonData.getPrivateMbox(), [](auto&) {});
        thread.settle();
        const Received received = client.expectNumber(OmlaVornGetCapabilitiesCfmS::number);
        EXPECT_EQ(received.sender(), thread.commonData.getPublicMbox());
        const auto& cfm = *viewSignal<OmlaVornGetCapabilitiesCfmS>(received.get());
        EXPECT_EQ(cfm.header.clientRef, client.clientRef);
        EXPECT_EQ(cfm.header.serverRef, client.serverRef);
        EXPECT_EQ((received.size() - 16) % 220, 0U);
        const auto* records = reinterpret_cast<const VornCapabilityRecordS*>(&cfm + 1);
        const std::vector list(records, records + cfm.noOfRecords);
        for (const auto& record : list) {
            EXPECT_EQ(record.size, 220);
        }
        return {list, (received.size() - 16) / 220};
    }
    std::vector<std::uint16_t> numbers()
    {
        std::vector<std::uint16_t> list;
        for (const auto& record : ask().first) {
            list.push_back(record.number);
        }
        return list;
    }
    static std::string hex(const VornCapabilityRecordS& record, std::size_t size)
    {
        std::string digits;
        for (std::size_t i = 0; i < sizeof(record.payload); ++i) {
            i < size ? digits += fmt::format("{:02x}", record.payload[i]) : std::string();
            EXPECT_TRUE(i < size || record.payload[i] == 0) << record.number << " byte " << i;
        }
        return digits;
    }
    void addSoftwareManager(const gant::GetCapabilitiesCfm& cfm)
    {
        const std::string body = cfm.SerializeAsString();
        thread.commonData.getGANTClient().handleGetCapabilitiesCfm(0, std::as_bytes(std::span(body)));
    }
    template <typename Record, typename... Arguments>
    std::shared_ptr<Record> addDunl(Arguments&&... arguments)
    {
        auto record = std::make_shared<Record>(std::forward<Arguments>(arguments)...);
        thread.commonData.getDunlClient().addCapability(record);
        return record;
    }
    void addDunlCode(std::uint16_t code) { addDunl<TolmeCapability>(code); }
    void setProduct(const char* name, bool isKnown)
    {
        HwPid pid;
        pid.productName = name;
        pid.allPidData = isKnown ? 1 : 0;
        thread.commonData.setHwPid(pid);
    }

    Baseband baseband;
    ServerThread thread;
    VorniPeer client{thread.post, "client"};
    VornServerCapabilities component{thread.commonData};
};

using Numbers = std::vector<std::uint16_t>;

TEST_F(VornServerCapabilitiesTest, when_the_unit_can_do_nothing_then_the_answer_has_no_record)
{
    const auto [records, room] = ask();
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(room, 0U);
    EXPECT_TRUE(RecordedTraces::has("handleGetCapabilitiesReq() collected 0 out of 0 capabilities."));
    EXPECT_TRUE(RecordedTraces::has("VornServerCapabilities:handleGetCapabilitiesReq() hasFdfUlmo: false"));
}

TEST_F(VornServerCapabilitiesTest, when_there_is_no_baseband_or_luvek_then_their_places_hold_nothing_back)
{
    int asked = 0;
    VornServerComponent::areComponentsReadyToPublish = [&asked] { return ++asked > 0; };
    VornServer::BbVorni::BbVorni bbVorni(thread.commonData);
    EXPECT_TRUE(bbVorni.init());
    EXPECT_EQ(asked, 1);
    VornServerComponent::areComponentsReadyToPublish = nullptr;
    EXPECT_TRUE(bbVorni.init());
    EXPECT_TRUE(bbVorni.isReadyToPublish());
    EXPECT_TRUE(RecordedTraces::has(" Returning: true"));
    EXPECT_TRUE(bbVorni.getCapabilities().empty());
    EXPECT_EQ(bbVorni.name(), "BbVorni Dummy");

    VornServerLuvek luvek(thread.commonData);
    EXPECT_TRUE(luvek.init());
    EXPECT_TRUE(RecordedTraces::has("LUVEK is not supported on this build"));
    EXPECT_TRUE(luvek.isReadyToPublish());
    EXPECT_EQ(luvek.name(), "VornServerLuvek Dummy");
    std::ostringstream out;
    EXPECT_TRUE(luvek.handleCommand({"luvek"}, out));
    EXPECT_EQ(out.str(), "");
}

TEST_F(VornServerCapabilitiesTest,
       when_the_unit_can_do_everything_then_the_records_come_source_by_source_in_their_order)
{
    baseband.capabilities = {26, 27, 28};
    gant::GetCapabilitiesCfm ganti;
    ganti.mutable_preinstalled_support();
    ganti.mutable_sw_comp_list_support();
    ganti.mutable_lockable_resource_sw_store_support();
    ganti.mutable_boot_sw_inventory_support();
    ganti.mutable_loading_block_size_support();
    ganti.mutable_set_slot_working_support();
    addSoftwareManager(ganti);
    const std::uint16_t codes[] = {2, 5, 6, 7, 12, 13, 14, 15, 16, 17, 18, 19, 22, 24, 25, 26};
    for (const std::uint16_t code : codes) {
        addDunlCode(code);
    }
    for (const std::uint16_t code : std::initializer_list<std::uint16_t>{3, 4, 8, 27}) {
        thread.commonData.getFeskClient().addCapability(std::make_shared<TolmeCapability>(code));
    }
    thread.commonData.setSystemConstantsAvailable();
    thread.commonData.getYarrowIClient().setDeepSleepSupported(true);
    EXPECT_EQ(numbers(),
              (Numbers{28, 26, 8, 9, 11, 12, 40, 1, 3, 24, 29, 32, 13, 19, 25, 34, 43, 44, 7, 23, 38, 46, 2, 42}));
    EXPECT_EQ(ask().second, 3U + 7 + std::size(codes) + 4 + 2) << "room for each candidate";
    EXPECT_TRUE(RecordedTraces::has("ABN: unhandled BB-VORNI capability #27"));
    EXPECT_TRUE(RecordedTraces::has("handleGetCapabilitiesReq() collected 24 out of 32 capabilities."));
    EXPECT_TRUE(RecordedTraces::has("VornServerCapabilities:handleGetCapabilitiesReq() adding 'SystemConstants'"));
    EXPECT_TRUE(RecordedTraces::has("tolmeCapabilities getCapabilities() adding 'DeepSleepSupport'"));
    addSoftwareManager(ganti); // connected twice, told twice
    EXPECT_EQ(ask().first.size(), 30U);
}

TEST_F(VornServerCapabilitiesTest, when_capabilities_have_parameters_then_their_records_carry_them)
{
    gant::GetCapabilitiesCfm ganti;
    ganti.mutable_loading_block_size_support()->set_block_size(-2);
    auto* inventory = ganti.mutable_boot_sw_inventory_support();
    for (int i = 0; i < 6; ++i) {
        auto* entry = inventory->add_boot_sw_inventory();
        entry->set_product_number(std::string(23, static_cast<char>('A' + i)));
        entry->set_product_revision(i == 0 ? "R1A" : std::string(9, 'R'));
    }
    addSoftwareManager(ganti);
    addDunl<AlternativeLmcCapability>(std::string(17, 't'));
    addDunl<RestartRankLabelCapability>(0x01020304U);
    const auto levels = addDunl<TemperatureLevelMeasurementCapability>();
    for (std::uint16_t i = 0; i < 3; ++i) {
        levels->levels.push_back(std::make_shared<temperatureLevelMeasurementParam_st>(
            temperatureLevelMeasurementParam_st{.sensorId = i, .upperLevel = 0x1234, .lowerLevel = 0xFFFF}));
    }
    const auto climate = addDunl<ClimateControlCapability>();
    for (std::uint16_t i = 1; i <= 12; ++i) {
        climate->hotspots.push_back(std::make_shared<hotspotParam_st>(
            hotspotParam_st{.hotspotId = i, .upperTemperature = 2, .lowerTemperature = 3}));
    }
    thread.commonData.getYarrowIClient().setWakeUpTime(90);

    const auto records = ask().first;
    ASSERT_EQ(records.size(), 7U);
    EXPECT_EQ(records[0].number, 40);
    const auto& boot = reinterpret_cast<const VornBootSwInventoryS&>(records[0].payload);
    EXPECT_EQ(boot.noOfEntries, 5U);
    EXPECT_EQ(fieldText(boot.entries[0].productNumber), std::string(22, 'A'));
    EXPECT_EQ(fieldText(boot.entries[0].productRevision), "R1A");
    EXPECT_EQ(fieldText(boot.entries[4].productNumber), std::string(22, 'E'));
    EXPECT_EQ(fieldText(boot.entries[4].productRevision), std::string(8, 'R'));
    EXPECT_EQ(records[1].number, 1);
    EXPECT_EQ(hex(records[1], 12), "0001000100000000fffffffe");
    EXPECT_EQ(records[2].number, 41);
    EXPECT_EQ(hex(records[2], 16), "747474747474747474747474747474"
                                   "00");
    EXPECT_EQ(records[3].number, 45);
    EXPECT_EQ(hex(records[3], 4), "01020304");
    EXPECT_EQ(records[4].number, 30);
    EXPECT_EQ(hex(records[4], 28), "00030000"
                                   "00001234ffff0000"
                                   "00011234ffff0000"
                                   "00021234ffff0000");
    EXPECT_EQ(records[5].number, 6);
    EXPECT_EQ(hex(records[5], 84).substr(0, 24), "000a0000"
                                                 "0001000200030000");
    EXPECT_EQ(hex(records[5], 84).substr(2 * 76), "000a000200030000");
    EXPECT_EQ(records[6].number, 47);
    EXPECT_EQ(hex(records[6], 4), "0000005a");
}

TEST_F(VornServerCapabilitiesTest, when_the_client_is_of_the_first_revision_then_it_hears_of_no_tickets)
{
    gant::GetCapabilitiesCfm ganti;
    ganti.mutable_lockable_resource_sw_store_support();
    addSoftwareManager(ganti);
    const Numbers both{11, 12};
    EXPECT_EQ(numbers(), both) << "without a session";
    for (const std::uint16_t revision : std::initializer_list<std::uint16_t>{1, 2, 3}) {
        thread.commonData.addVornSession(client.mbox(), 1, 1, revision, "client", 0);
        EXPECT_EQ(numbers(), revision == 1 ? Numbers() : both);
        thread.commonData.removeVornSession(client.mbox());
    }
}

TEST_F(VornServerCapabilitiesTest, when_a_gsm_client_asks_on_an_iru_then_it_hears_of_no_market_name)
{
    addDunlCode(DunlCapability::MarketPid);
    const auto isTold = [&](std::uint32_t serverRef, const char* product, bool isKnown) {
        client.serverRef = serverRef;
        setProduct(product, isKnown);
        return !numbers().empty();
    };
    EXPECT_FALSE(isTold(150, "IRU 1", true));
    EXPECT_TRUE(isTold(150, "IRU 1", false));
    EXPECT_TRUE(isTold(150, "An IRU", true));
    EXPECT_TRUE(isTold(250, "IRU 1", true));
}

TEST_F(VornServerCapabilitiesTest, when_there_is_a_fru_description_then_it_is_told_where_it_is_not_the_units_own)
{
    FDFClient& fdf = thread.commonData.getFDFClient();
    const std::string directory = std::string(std::getenv("RU_DIR")) + "/fdf";
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/fdf.info") << "INSTALLED";
    std::ofstream(directory + "/fdf.xml") << "<fru/>";
    ASSERT_EQ(fdf.readFdfDirectory(directory), 0);
    const auto idOf = [](const VornCapabilityRecordS& record) {
        EXPECT_EQ(record.number, 39);
        const auto& list = reinterpret_cast<const VornFdfIdListS&>(record.payload);
        EXPECT_EQ(list.noOfIds, 1);
        return std::string(fieldText(list.ids[0]));
    };
    gant::GetCapabilitiesCfm ganti;
    ganti.mutable_preinstalled_support()->set_running(false);
    addSoftwareManager(ganti);
    EXPECT_EQ(numbers(), Numbers{8});
    ganti.mutable_preinstalled_support()->set_running(true);
    addSoftwareManager(ganti);
    EXPECT_EQ(numbers(), (Numbers{8, 8, 39}));
    EXPECT_EQ(idOf(ask().first.back()), "INSTALLED");

    sarnaStoreFdf(sarnaFdfId, std::string(68, 'f'));
    sarnaStoreFdf(sarnaFdfFile, "<fru/>");
    ASSERT_EQ(fdf.readFdfDirectory(directory), 0);
    ganti.mutable_preinstalled_support()->set_running(false);
    addSoftwareManager(ganti); // the last one counts
    EXPECT_EQ(idOf(ask().first.back()), std::string(67, 'f'));
    EXPECT_TRUE(RecordedTraces::has("VornServerCapabilities:handleGetCapabilitiesReq() hasFdfUlmo: true"));
}

} // namespace
