#include "zephrin/tyvra.h"

#include "runDir.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using Zephrin::Tyvra::V2::TyvraIf;

namespace {

class Tyvra : public testing::Test
{
protected:
    static std::vector<std::string> lines()
    {
        std::ifstream file(log(), std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }
    static std::string log() { return ruDir("log") + "/tyvra.log"; }

    TyvraIf& tyvra = TyvraIf::getInstance();
};

TEST_F(Tyvra, EventIsOneLineWithItsFurtherTextWhereThereIsOne)
{
    tyvra.event(180, "mmiUserId not valid", "");
    tyvra.event(4294967295U, "two\nlines", "further text");

    constexpr const char* time = "[0-9-]+T[0-9:]+\\.[0-9][0-9][0-9]Z";
    EXPECT_THAT(lines(), testing::ElementsAre(
                             testing::MatchesRegex(std::string(time) + " 180 mmiUserId not valid"),
                             testing::MatchesRegex(std::string(time) + R"( 4294967295 two\\nlines further text)")));
}

TEST_F(Tyvra, FullLogIsMovedAwayInItsOwnName)
{
    constexpr int events = 20; // a little more than the capacity
    for (int i = 0; i < events; ++i) {
        tyvra.event(191, std::string(60000, 'x'), "");
    }
    EXPECT_LE(std::filesystem::file_size(log()), 1024U * 1024U);
    EXPECT_GT(std::filesystem::file_size(log() + ".1"), 1024U * 1024U - 65536U);
}

TEST_F(Tyvra, UnwritableLogIsIgnored)
{
    std::filesystem::create_directories(log()); // a folder in the file's place
    tyvra.event(191, "text", "");
    EXPECT_TRUE(std::filesystem::is_empty(log()));
}

} // namespace
