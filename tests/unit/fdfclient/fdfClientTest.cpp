/// Where the FRU description file comes from: an installed directory, or the non-volatile store.

#include "fdfclient/fdfClient.h"

#include "sarna/sarna.h"
#include "trace/recordedTraces.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>

namespace fs = std::filesystem;
using VornTrace::RecordedTraces;
using namespace std::string_literals;

namespace {

class FdfClientTest : public ::testing::Test
{
protected:
    FdfClientTest() : directory(std::string(std::getenv("RU_DIR")) + "/fdf") { fs::create_directories(directory); }

    void write(const std::string& name, const std::string& text) const { std::ofstream(directory / name) << text; }
    static void store(const char* path, const std::string& value)
    {
        sarna_db_group_t group = nullptr;
        ASSERT_EQ(sarna_open_db_group("sys_bpar", &group), SARNA_OK);
        EXPECT_EQ(sarna_set_value(group, path, value.data(), value.size(), 0, 0), SARNA_OK);
        sarna_close_db_group(group);
    }
    /// The ids that it knows.
    static std::vector<std::string> ids(const FDFClient& client)
    {
        std::vector<std::shared_ptr<const FDFCapIdList>> records;
        client.getCapabilities(records);
        EXPECT_LE(records.size(), 1U);
        return records.empty() ? std::vector<std::string>() : records.front()->ids;
    }
    static bool isStored(const FDFClient& client)
    {
        std::vector<std::shared_ptr<const FDFCapIdList>> records;
        return client.getCapabilities(records);
    }
    static std::optional<std::string> fetch(const FDFClient& client, const std::string& id)
    {
        std::string text = "untouched";
        if (client.getFruDescriptionFile(id, text) == 0) {
            return text;
        }
        EXPECT_EQ(text, "untouched");
        return std::nullopt;
    }

    const fs::path directory;
};

TEST_F(FdfClientTest, when_the_directory_has_one_file_and_one_id_then_the_file_is_given_for_it)
{
    write("unit.info.txt", " KRC1\n");
    write("whatever", "<fru>\0</fru>"s);
    fs::create_symlink(directory, directory.string() + "Link");
    const FDFClient client(directory.string() + "Link/");
    EXPECT_EQ(ids(client), std::vector<std::string>{"KRC1"});
    EXPECT_FALSE(isStored(client));
    EXPECT_EQ(fetch(client, "KRC1"), "<fru>\0</fru>"s);
    EXPECT_TRUE(RecordedTraces::has("FDFClient::readFdfDirectory found FDF_ID: KRC1"));
    for (const char* wrong : {"KRC", "KRC1 ", "", "krc1"}) {
        EXPECT_EQ(fetch(client, wrong), std::nullopt) << wrong;
    }
    EXPECT_TRUE(RecordedTraces::has("ABN: invalid FDF_ID"));
    write("whatever", "later");
    EXPECT_EQ(fetch(client, "KRC1"), "later");
    fs::remove(directory / "whatever");
    EXPECT_EQ(fetch(client, "KRC1"), std::nullopt);
}

TEST_F(FdfClientTest, when_the_info_file_does_not_hold_one_id_then_there_is_none)
{
    write("a.xml", "<fru/>");
    const std::pair<std::string, const char*> contents[] = {
        {"", "ABN: FDF has no FDF_ID"},
        {" \t\n,\0"s, "ABN: FDF has no FDF_ID"},
        {"A, B\n", "ABN: FDF has more than one FDF_ID when only one was expected"},
        {"A\0B"s, "ABN: FDF has more than one FDF_ID when only one was expected"},
    };
    for (const auto& [text, trace] : contents) {
        write("a.info", text);
        const auto mark = RecordedTraces::mark();
        const FDFClient client(directory);
        EXPECT_EQ(ids(client), std::vector<std::string>());
        EXPECT_TRUE(RecordedTraces::has(trace, mark)) << trace;
        EXPECT_EQ(fetch(client, "A"), std::nullopt);
        EXPECT_TRUE(RecordedTraces::has("ABN: no FDF_ID to match against", mark));
    }
    for (const std::string text : {",A", "A", "\t\tA\r"}) {
        write("a.info", text);
        EXPECT_EQ(ids(FDFClient(directory)).front(), text == "\t\tA\r" ? "A\r" : "A");
    }
}

TEST_F(FdfClientTest, when_the_directory_holds_anything_else_then_there_is_no_file)
{
    const auto expectNone = [&](const char* trace) {
        const auto mark = RecordedTraces::mark();
        FDFClient client(directory);
        EXPECT_EQ(ids(client), std::vector<std::string>());
        EXPECT_EQ(client.readFdfDirectory(directory), 1);
        EXPECT_TRUE(trace == nullptr || RecordedTraces::has(trace, mark)) << trace;
    };
    expectNone("ABN: no FDF info file found");
    write("a.xml", "<fru/>");
    expectNone("ABN: no FDF info file found");
    write("b.xml", "<fru/>");
    expectNone("ABN: FDF found more than one XML file when only one was expected");
    fs::remove(directory / "a.xml");
    fs::remove(directory / "b.xml");
    write("a.info", "A");
    expectNone("ABN: no FDF XML file found");
    write("b.info", "A");
    expectNone("ABN: FDF found more than one info file when only one was expected");
    fs::remove(directory / "b.info");
    fs::remove(directory / "a.info");
    write("a.xml", "<fru/>");
    fs::create_directory(directory / "a.info");
    expectNone("ABN: FDF has no FDF_ID");
    fs::remove(directory / "a.info");
    ASSERT_EQ(::mkfifo((directory / "a.info").c_str(), 0600), 0); // would never end
    expectNone("FDFClient::readFdfDirectory found no FDF_IDs");
    fs::remove_all(directory);
    expectNone(nullptr);
    std::ofstream(directory) << "a file";
    expectNone("ABN: no FDF info file found");
}

TEST_F(FdfClientTest, when_a_temporary_file_is_stored_then_the_directory_does_not_count)
{
    write("a.info", "A");
    write("a.xml", "installed");
    store("/sys/vorn/fdf_id", "B\0"s);
    EXPECT_EQ(ids(FDFClient(directory)), std::vector<std::string>{"A"}) << "an id without a file";
    store("/sys/vorn/fdf_file", "stored text\0"s);
    const FDFClient client(directory);
    EXPECT_EQ(ids(client), std::vector<std::string>{"B"});
    EXPECT_TRUE(isStored(client));
    EXPECT_EQ(fetch(client, "B"), "stored text");
    EXPECT_TRUE(RecordedTraces::has("FDFClient::readFdfDirectory got sarna fdfId: 'B', fdfFile: 'store...'"));
    EXPECT_TRUE(RecordedTraces::has("FDFClient::getFruDescriptionFile(fdfId=B) getting from sarna"));
    store("/sys/vorn/fdf_file", "no zero");
    EXPECT_EQ(fetch(client, "B"), "no zero") << "it is read each time";
    store("/sys/vorn/fdf_file", "");
    EXPECT_EQ(fetch(client, "B"), "");
    EXPECT_FALSE(isStored(FDFClient(directory)));
}

} // namespace
