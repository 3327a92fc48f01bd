// What a unit tells of itself: capabilities, product data, logs, the FRU description file.
#include "commandFixture.h"
#include "vorni/access.h"
#include "vorni/capabilities.h"
#include "vorni/fruDescription.h"
#include "vorni/hwLog.h"
#include "vorni/productIdentity.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

namespace {

using namespace VornClient;
using namespace std::string_view_literals;
using testing::ElementsAre;
using testing::HasSubstr;

template <typename Record>
std::string behindHeader(const Record& record)
{
    return {reinterpret_cast<const char*>(&record) + sizeof(VornSignalHeader),
            sizeof(Record) - sizeof(VornSignalHeader)};
}

template <typename Payload>
std::string capability(std::uint16_t number, const Payload& payload)
{
    VornCapabilityRecordS record{};
    record.number = number;
    record.size = sizeof(record);
    std::memcpy(record.payload, &payload, sizeof(payload));
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

std::string plainCapability(std::uint16_t number)
{
    return capability(number, '\0');
}

std::string fdfIdsCapability(std::uint16_t count, const std::string& first)
{
    VornFdfIdListS list{};
    list.noOfIds = count;
    first.copy(list.ids[0], sizeof(list.ids[0]));
    return capability(VornCapability::FdfIdList, list);
}

class VornClientUnitData : public VornClientCommand
{
protected:
    /// A connected client, and a server that answers each request in this way.
    void serveAnswers(ScriptedServer::Script script)
    {
        serveConnected(std::move(script));
        ASSERT_EQ(verdict({"connect"}), Verdict::ok);
        printer.log.clear();
    }

    static void replyCapabilities(const ScriptedServer& server, const kiv_msg* signal, std::uint16_t count,
                                  const std::string& records)
    {
        OmlaVornGetCapabilitiesCfmS confirm{};
        confirm.noOfRecords = count;
        server.reply(signal, OmlaVornGetCapabilitiesCfmS::number, behindHeader(confirm) + records);
    }
};

TEST_F(VornClientUnitData, CapabilitiesAreShownAndThoseThatAreNamedMustBeThere)
{
    serveAnswers([](const ScriptedServer& server, const kiv_msg* signal) {
        VornTemperatureRangesS ranges{};
        ranges.noOfRanges = 2;
        ranges.ranges[0] = {1, 85, 5, {}};
        ranges.ranges[1] = {2, 95, 0, {}};
        VornBootSwInventoryS inventory{};
        inventory.noOfEntries = 1;
        std::fill_n(inventory.entries[0].productNumber, 24, 'N'); // without its zero
        inventory.entries[0].productRevision[0] = 'R';
        VornLoadingBlockSizeS blockSize{};
        blockSize.blockSize = -5;
        // One more is promised than there is.
        replyCapabilities(server, signal, 6,
                          capability(VornCapability::LoadingBlockSize, blockSize) +
                              capability(VornCapability::ClimateControl, ranges) + plainCapability(999) +
                              fdfIdsCapability(9, "TVM 1\x1B") +
                              capability(VornCapability::BootSwInventory, inventory));
    });
    ASSERT_EQ(verdict({"capabilities", "climatecontrol", "999", "without", "HwPid"}), Verdict::ok);
    printer.log.erase(printer.log.begin(), printer.log.begin() + 2); // request and answer
    EXPECT_THAT(printer.log,
                ElementsAre("NUMBER  NAME                         PARAMETERS", //
                            "     1  LoadingBlockSize             blockSize=-5",
                            "     6  ClimateControl               id=1 upper=85 lower=5; id=2 upper=95 lower=0",
                            "   999  -                            -",
                            "    39  FdfIdList                    id=TVM 1\\x1b; id=; id=",
                            "    40  BootSwInventory              productNumber=NNNNNNNNNNNNNNNNNNNNNNNN "
                            "productRevision=R"));
    const Outcome missing = run({"capabilities", "HwPid", "ClimateControl", "7"});
    EXPECT_EQ(missing.verdict, Verdict::failed);
    EXPECT_THAT(missing.message, HasSubstr("HwPid (3), CommonMmi (7)"));
    EXPECT_THAT(run({"capabilities", "without", "HwPid", "FdfIdList"}).message, HasSubstr("has FdfIdList (39)"));
    EXPECT_EQ(verdict({"capabilities", "Nonsense"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"capabilities", "HwPid", "without"}), Verdict::badUsage);
}

TEST_F(VornClientUnitData, ProductDataIsHeldAgainstExpectedFields)
{
    serveAnswers([](const ScriptedServer& server, const kiv_msg* signal) {
        if (signal->number == OmlaVornGetHwPidReqS::number) {
            OmlaVornGetHwPidCfmS confirm{};
            std::fill_n(confirm.productName, sizeof(confirm.productName), 'R'); // without its zero
            std::strcpy(confirm.productNumber, "KRC 1");
            server.reply(signal, OmlaVornGetHwPidCfmS::number, behindHeader(confirm));
        } else {
            server.reply(signal, OmlaVornGetExtendedMarketNameRejS::number, std::string(116, '\0'));
        }
    });
    ASSERT_EQ(verdict({"pid", "productNumber=KRC 1"}), Verdict::ok);
    EXPECT_THAT(printer.log, testing::IsSupersetOf({"productName RRRRRRRRRRRRR", "productNumber KRC 1"}));
    EXPECT_EQ(verdict({"pid", "productNumber=KRC 1", "serialNumber=T"}), Verdict::failed);
    EXPECT_EQ(verdict({"market-name"}), Verdict::rejected);
    printer.log.clear();
    EXPECT_EQ(verdict({"pid", "marketName=Radio"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"container", "TVM"}), Verdict::badUsage);
    EXPECT_THAT(printer.log, testing::IsEmpty());
}

TEST_F(VornClientUnitData, EntriesAreWrittenInFullOrNotAtAll)
{
    std::vector<OmlaVornHwLogSetReqS> written;
    serveAnswers([&](const ScriptedServer& server, const kiv_msg* signal) {
        written.push_back(*viewSignal<OmlaVornHwLogSetReqS>(signal));
        server.reply(signal, OmlaVornHwLogSetCfmS::number);
    });
    EXPECT_EQ(verdict({"log", "write", "7", "fifteen letters", "first entry", "2"}), Verdict::ok);
    EXPECT_EQ(verdict({"log", "write", "1000", "", std::string(423, 'x')}), Verdict::ok);
    EXPECT_EQ(verdict({"log", "write", "7", "l", "y", std::string(422, 'x')}), Verdict::badUsage);
    EXPECT_EQ(verdict({"log", "write", "7", "sixteen letters!", "entry"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"log", "write", "7", "l", "entry", ""}), Verdict::badUsage);
    EXPECT_EQ(verdict({"log", "write", "7", "l"}), Verdict::badUsage);
    EXPECT_EQ(verdict({"log", "clear", "7"}), Verdict::badUsage);
    stopServing();
    ASSERT_EQ(written.size(), 2U);
    EXPECT_EQ(fieldText(written[0].label), "fifteen letters");
    EXPECT_EQ(written[0].logId, 7U);
    EXPECT_EQ(written[0].length, 2U);
    EXPECT_EQ(std::memcmp(written[0].entries, "first entry\0002\0", 15), 0);
    EXPECT_EQ(written[1].length, 1U);
    EXPECT_EQ(written[1].entries[423], 0);
}

TEST_F(VornClientUnitData, EntriesAreReadAsFarAsTheyAreThere)
{
    std::atomic<std::uint32_t> length = 2;
    serveAnswers([&](const ScriptedServer& server, const kiv_msg* signal) {
        OmlaVornHwLogGetCfmS confirm{};
        confirm.length = length;
        std::fill_n(confirm.entries, sizeof(confirm.entries), std::uint8_t{'x'}); // to the area's end
        std::memcpy(confirm.entries, "first", 6);
        server.reply(signal, OmlaVornHwLogGetCfmS::number, behindHeader(confirm));
    });
    ASSERT_EQ(verdict({"log", "read", "7", "with", "first"}), Verdict::ok);
    EXPECT_EQ(printer.log[2], "first");
    EXPECT_EQ(printer.log[3], std::string(418, 'x'));
    EXPECT_EQ(verdict({"log", "read", "7", "with", "second"}), Verdict::failed);
    length = UINT32_MAX;
    EXPECT_THAT(run({"log", "read", "7"}).message, HasSubstr("4294967295 entries and has 2"));
}

/// The parts of a file, each behind the acknowledgement of the one before.
class VornClientFru : public VornClientUnitData
{
protected:
    void serveParts(std::vector<std::string> parts, std::uint32_t promisedMore = 0)
    {
        serveAnswers([this, parts, promisedMore](const ScriptedServer& server, const kiv_msg* signal) {
            if (signal->number == OmlaVornGetCapabilitiesReqS::number) {
                replyCapabilities(server, signal, hasId ? 2 : 1, plainCapability(3) + fdfIdsCapability(1, "TVM 1"));
                return;
            }
            if (signal->number == OmlaVornGetFruDescFileReqS::number) {
                m_sent = 0;
                wantedId = textBehind<OmlaVornGetFruDescFileReqS>(*signal);
                server.reply(signal, OmlaVornGetFruDescFileCfmS::number);
            } else {
                ++acknowledgements;
            }
            if (m_sent < parts.size()) {
                OmlaVornFruDescFileDataS part{};
                part.noOfBytes = static_cast<std::uint32_t>(parts[m_sent].size()) + promisedMore;
                part.endFlag = m_sent + 1 == parts.size() ? 1 : 0;
                const std::string slack(promisedMore > 0 ? 0 : OmlaVornFruDescFileDataS::slack, '\0');
                server.reply(signal, OmlaVornFruDescFileDataS::number, behindHeader(part) + parts[m_sent++] + slack);
            }
        });
    }

    bool hasId = true;
    std::string wantedId;
    int acknowledgements = 0;

private:
    std::size_t m_sent = 0;
};

TEST_F(VornClientFru, PartsAreJoinedAndAllButTheLastAreAcknowledged)
{
    serveParts({"<fru>\n", "two", "</fru>\n"});
    ASSERT_EQ(verdict({"fru", "with", "two</"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "TVM 1 <fru>\ntwo</fru>\n");
    EXPECT_THAT(run({"fru", "with", "three"}).message, HasSubstr("the file has no \"three\""));
    const std::string path = std::filesystem::path(std::getenv("RU_DIR")) / "fru.xml";
    ASSERT_EQ(verdict({"fru", "--output", path, "other id"}), Verdict::ok);
    std::ifstream file(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "<fru>\ntwo</fru>\n");
    EXPECT_EQ(verdict({"fru", "--output", path + "/file"}), Verdict::failed);
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"fru", "a", "b"}, {"fru", "--output"}, {"fru", "--output", ""}}) {
        EXPECT_EQ(verdict(words), Verdict::badUsage) << testing::PrintToString(words);
    }
    stopServing();
    EXPECT_EQ(wantedId, "TVM 1");
    EXPECT_EQ(acknowledgements, 4 * 2);
}

TEST_F(VornClientFru, WhenTheUnitTellsNoIdThenNothingIsFetched)
{
    hasId = false;
    serveParts({"<fru>"});
    EXPECT_THAT(run({"fru"}).message, HasSubstr("tells of no FRU description file"));
    stopServing();
    EXPECT_EQ(wantedId, "");
}

TEST_F(VornClientFru, WhenAPartPromisesMoreThanItHasThenNoMoreIsTakenThanHasCome)
{
    serveParts({"<fru>", "</fru>"}, UINT16_MAX);
    ASSERT_EQ(verdict({"fru", "TVM 2"}), Verdict::ok);
    EXPECT_EQ(printer.log.back(), "TVM 2 <fru></fru>");
}

} // namespace
