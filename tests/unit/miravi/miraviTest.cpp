#include "miravi/miravi.h"

#include "runDir.h"

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> linesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

class Miravi : public testing::Test
{
protected:
    const std::string log = ruDir("log") + "/miravi.log";
    const std::string moved = log + ".1";
};

TEST_F(Miravi, RecordIsOneLineWithUtcTime)
{
    const std::time_t before = std::time(nullptr);
    miravi_log("RadioApplication,RadioBoardCtrl", "Radio \"VORNI\" \xc3\xa4 50%");
    miravi_log("c", std::string("a\nb\tc\x1b[31m\x7f\0z", 13));

    const auto lines = linesOf(log);
    ASSERT_EQ(lines.size(), 2U);
    std::tm utc = {};
    const char* behindTime = ::strptime(lines[0].c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    ASSERT_NE(behindTime, nullptr);
    EXPECT_THAT(behindTime, testing::MatchesRegex("\\.[0-9][0-9][0-9]Z RadioApplication,RadioBoardCtrl "
                                                  "Radio \"VORNI\" \xc3\xa4 50%"));
    EXPECT_GE(::timegm(&utc), before);
    EXPECT_LE(::timegm(&utc), std::time(nullptr));
    EXPECT_THAT(lines[1], testing::EndsWith(R"( c a\nb\tc\x1b[31m\x7f\x00z)"));
}

TEST_F(Miravi, FullLogIsMovedAway)
{
    const std::string text(60000, 'x');
    for (int i = 0; i < 40; ++i) { // two and a half capacities
        miravi_log("c", std::to_string(i) + text);
        EXPECT_LE(std::filesystem::file_size(log), 1024U * 1024U);
    }
    EXPECT_GT(std::filesystem::file_size(moved), 1024U * 1024U - 65536U);
    const auto older = linesOf(moved);
    const auto newer = linesOf(log);
    EXPECT_THAT(newer.back(), testing::HasSubstr(" 39xxx"));
    EXPECT_THAT(older.front(), testing::HasSubstr(" 17xxx"));
    EXPECT_EQ(older.size() + newer.size(), 23U) << "the two files follow each other without a gap";
}

TEST_F(Miravi, RecordOfAnyLengthIsCut)
{
    miravi_log("c", std::string(3 * 1024 * 1024, '\n'));
    const auto lines = linesOf(log);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_LE(lines[0].size(), 65537U);
}

TEST_F(Miravi, UnwritableLogIsIgnored)
{
    std::filesystem::create_directories(log); // a folder in the file's place
    miravi_log("c", "text");
    EXPECT_TRUE(std::filesystem::is_empty(log));
    errno = EDOM;
    miravi_log("c", "text");
    EXPECT_EQ(errno, EDOM);
}

/// Every writer's lines stand whole and in its order, and the file is moved once each time it is full.
TEST_F(Miravi, WritersOfSeveralProcessesAndThreads)
{
    constexpr int processes = 3;
    constexpr int threads = 2;
    constexpr int records = 150;
    const std::string filler(1400, '.'); // 900 records: more than one capacity, less than two
    std::vector<pid_t> children;
    for (int process = 0; process < processes; ++process) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            std::vector<std::thread> writers;
            for (int thread = 0; thread < threads; ++thread) {
                writers.emplace_back([&, name = std::to_string(process) + '/' + std::to_string(thread)] {
                    for (int i = 0; i < records; ++i) {
                        miravi_log(name, std::to_string(i) + filler);
                    }
                });
            }
            for (std::thread& writer : writers) {
                writer.join();
            }
            ::_exit(0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }

    auto lines = linesOf(moved);
    EXPECT_GT(lines.size(), 700U) << "moved before it was full: by two at once";
    const auto newer = linesOf(log);
    lines.insert(lines.end(), newer.begin(), newer.end());
    std::map<std::string, int> seen;
    for (const std::string& line : lines) {
        std::istringstream words(line);
        std::string time;
        std::string name;
        std::string text;
        words >> time >> name >> text;
        ASSERT_EQ(text, std::to_string(seen[name]++ % records) + filler) << line;
    }
    EXPECT_THAT(seen, testing::SizeIs(processes * threads));
    for (const auto& [name, count] : seen) {
        EXPECT_EQ(count, records) << name;
    }
}

} // namespace
