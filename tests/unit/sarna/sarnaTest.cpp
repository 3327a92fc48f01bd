#include "sarna/sarna.h"

#include "runDir.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

/// The other process; see peerMain.c.
class Peer
{
public:
    explicit Peer(std::vector<std::string> words, const std::string& root = ruDir(""))
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        m_output = ends[0];
        std::vector<char*> arguments;
        words.insert(words.begin(), SARNA_PEER);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        m_pid = ::fork();
        EXPECT_GE(m_pid, 0);
        if (m_pid == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::setenv("RU_DIR", root.c_str(), 1);
            ::execv(SARNA_PEER, arguments.data());
            ::_exit(127);
        }
        ::close(ends[1]);
    }
    ~Peer()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        ::close(m_output);
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Waits for its next line; empty where it ends without one.
    std::string line()
    {
        std::string text;
        pollfd readable = {m_output, POLLIN, 0};
        constexpr int deadline = 30000;
        for (char next = 0; ::poll(&readable, 1, deadline) == 1 && ::read(m_output, &next, 1) == 1 && next != '\n';) {
            text += next;
        }
        return text;
    }
    /// Its result when it has ended by itself.
    int result()
    {
        int status = 0;
        line();
        const pid_t pid = std::exchange(m_pid, -1);
        if (pid <= 0 || ::waitpid(pid, &status, 0) != pid) {
            return -1;
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid = -1;
    int m_output = -1;
};

class Sarna : public testing::Test
{
protected:
    void SetUp() override
    {
        std::filesystem::remove_all(ruDir("sarna")); // where the cases share a process
        open();
    }
    void TearDown() override { EXPECT_EQ(sarna_close_db_group(group), SARNA_OK); }

    void open()
    {
        ASSERT_EQ(sarna_open_db_group("group", &group), SARNA_OK);
        ASSERT_EQ(sarna_open_node(group, "/n/", &node), SARNA_OK);
    }
    int set(const std::string& path, const std::string& value) const
    {
        return sarna_set_value(group, path.c_str(), value.data(), value.size(), 0, 0);
    }
    /// The value under a key of "/n/"; nothing where it is absent.
    std::optional<std::string> get(const std::string& key) const
    {
        std::string value(SARNA_VALUE_MAX, '?');
        std::size_t size = value.size();
        const int code = sarna_get_value(node, key.c_str(), value.data(), &size);
        if (code != SARNA_OK) {
            EXPECT_EQ(code, SARNA_NOT_FOUND);
            return std::nullopt;
        }
        value.resize(size);
        return value;
    }

    const std::string directory = ruDir("sarna") + "/group";
    sarna_db_group_t group = nullptr;
    sarna_node_t node = nullptr;
};

/// A value of the alternating peer: one letter throughout, and the one that belongs to this size.
bool isWhole(const std::string& value, std::size_t smallest)
{
    return value.size() >= smallest &&
           value == std::string(value.size(), static_cast<char>('a' + (value.size() - smallest) % 26));
}

TEST_F(Sarna, values_are_written_by_path_and_read_by_key_in_their_node)
{
    const std::string bytes("a\0b\xff", 4);
    EXPECT_EQ(set("/n/key", bytes), SARNA_OK);
    EXPECT_EQ(set("/n/m/key", "below"), SARNA_OK);
    EXPECT_EQ(set("/key", "above"), SARNA_OK);
    EXPECT_EQ(get("key"), bytes);
    EXPECT_EQ(set("/n/key", "new"), SARNA_OK);
    EXPECT_EQ(get("key"), "new");
    EXPECT_EQ(get("ke"), std::nullopt);

    EXPECT_EQ(sarna_delete_key(group, "/n/key"), SARNA_OK);
    EXPECT_EQ(sarna_delete_key(group, "/n/key"), SARNA_NOT_FOUND);
    EXPECT_EQ(get("key"), std::nullopt);
    EXPECT_EQ(Peer({"get", "/n/m/", "key"}).line(), "below");
    EXPECT_EQ(Peer({"get", "/", "key"}).line(), "above");
}

TEST_F(Sarna, an_empty_value_is_no_absent_one)
{
    std::size_t size = 99;
    EXPECT_EQ(sarna_get_value_size(node, "key", &size), SARNA_NOT_FOUND);
    EXPECT_EQ(sarna_get_value(node, "key", nullptr, &(size = 0)), SARNA_NOT_FOUND);
    EXPECT_EQ(sarna_set_value(group, "/n/key", nullptr, 0, 0, 0), SARNA_OK);
    EXPECT_EQ(sarna_get_value_size(node, "key", &(size = 99)), SARNA_OK);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(sarna_get_value(node, "key", nullptr, &size), SARNA_OK);
}

TEST_F(Sarna, a_buffer_that_is_too_small_is_left_alone)
{
    ASSERT_EQ(set("/n/key", "four"), SARNA_OK);
    std::string buffer = "......";
    std::size_t size = 3;
    EXPECT_EQ(sarna_get_value(node, "key", buffer.data(), &size), SARNA_TOO_SMALL);
    EXPECT_EQ(buffer, "......");
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(sarna_get_value(node, "key", buffer.data(), &size), SARNA_OK);
    EXPECT_EQ(buffer, "four..");
}

TEST_F(Sarna, limits_are_held)
{
    const std::string largest(SARNA_VALUE_MAX, 'x');
    const std::string longestKey(SARNA_PATH_MAX - 3, 'k');
    EXPECT_EQ(set("/n/" + longestKey, largest), SARNA_OK);
    EXPECT_EQ(get(longestKey), largest);
    EXPECT_EQ(set("/n/key", largest + 'x'), SARNA_VALUE_TOO_BIG);
    EXPECT_EQ(set("/n/" + longestKey + 'k', ""), SARNA_NAME_TOO_LONG);
    std::size_t size = 0;
    EXPECT_EQ(sarna_get_value_size(node, (longestKey + 'k').c_str(), &size), SARNA_NAME_TOO_LONG);
    sarna_db_group_t other = nullptr;
    EXPECT_EQ(sarna_open_db_group(std::string(SARNA_GROUP_NAME_MAX + 1, 'g').c_str(), &other), SARNA_NAME_TOO_LONG);
    EXPECT_EQ(sarna_open_db_group(std::string(SARNA_GROUP_NAME_MAX, 'g').c_str(), &other), SARNA_OK);
    EXPECT_EQ(sarna_close_db_group(other), SARNA_OK);
}

TEST_F(Sarna, a_full_group_keeps_its_values_and_lets_them_be_deleted)
{
    for (const std::size_t size : {std::size_t{SARNA_VALUE_MAX}, std::size_t{3000}}) { // the second fills the last gap
        int count = 0;
        while (set("/n/" + std::to_string(size) + '.' + std::to_string(count), std::string(size, 'x')) == SARNA_OK) {
            ASSERT_LT(++count, 16384);
        }
        EXPECT_GT(count, 0);
    }
    EXPECT_EQ(set("/n/more", std::string(SARNA_VALUE_MAX, 'y')), SARNA_FULL);
    EXPECT_EQ(get("more"), std::nullopt);
    EXPECT_EQ(set("/n/1048576.0", std::string(SARNA_VALUE_MAX, 'z')), SARNA_OK) << "takes no more than before";
    EXPECT_EQ(sarna_delete_key(group, "/n/1048576.1"), SARNA_OK);
    EXPECT_EQ(set("/n/more", std::string(SARNA_VALUE_MAX, 'y')), SARNA_OK);
    EXPECT_EQ(get("1048576.0"), std::string(SARNA_VALUE_MAX, 'z'));
}

TEST_F(Sarna, bad_arguments_give_codes)
{
    std::size_t size = 0;
    char byte = 0;
    sarna_node_t other = nullptr;
    EXPECT_EQ(sarna_open_db_group(nullptr, nullptr), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_open_node(group, nullptr, &other), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_open_node(group, "/n/", nullptr), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_open_node(nullptr, "/n/", &other), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_get_value_size(node, nullptr, &size), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_get_value_size(node, "key", nullptr), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_get_value_size(nullptr, "key", &size), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_get_value(node, "key", &byte, nullptr), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_get_value(node, "key", nullptr, &(size = 1)), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_get_value(nullptr, "key", &byte, &size), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_set_value(group, nullptr, "v", 1, 0, 0), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_set_value(group, "/n/key", nullptr, 1, 0, 0), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_set_value(group, "/n/key", "v", 1, 1, 0), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_set_value(group, "/n/key", "v", 1, 0, 1), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_set_value(nullptr, "/n/key", "v", 1, 0, 0), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_delete_key(group, nullptr), SARNA_BAD_ARGUMENT);
    EXPECT_EQ(sarna_delete_key(nullptr, "/n/key"), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_close_node(nullptr), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_close_db_group(nullptr), SARNA_BAD_HANDLE);

    for (const char* path : {"", "/", "key", "n/key", "/n//key", "/n/key/"}) {
        EXPECT_EQ(set(path, "v"), SARNA_BAD_NAME) << path;
    }
    for (const char* path : {"", "n/", "/n", "//"}) {
        EXPECT_EQ(sarna_open_node(group, path, &other), SARNA_BAD_NAME) << path;
    }
    for (const char* key : {"", "/", "m/key"}) {
        EXPECT_EQ(sarna_get_value_size(node, key, &size), SARNA_BAD_NAME) << key;
    }
    for (const char* name : {"", ".", "..", "a/b", "../kiv", "a b"}) {
        sarna_db_group_t none = group;
        EXPECT_EQ(sarna_open_db_group(name, &none), SARNA_BAD_NAME) << name;
        EXPECT_EQ(none, nullptr);
    }
    EXPECT_STREQ(sarna_error_text(SARNA_NOT_FOUND), "no such value");
    EXPECT_STREQ(sarna_error_text(-1), "unknown error");
}

TEST_F(Sarna, handles_are_closed_one_by_one_and_found_out_when_stale)
{
    sarna_db_group_t second = nullptr;
    sarna_node_t secondNode = nullptr;
    ASSERT_EQ(sarna_open_db_group("group", &second), SARNA_OK);
    ASSERT_EQ(sarna_open_node(second, "/n/", &secondNode), SARNA_OK);
    ASSERT_EQ(set("/n/key", "value"), SARNA_OK);

    EXPECT_EQ(sarna_close_db_group(second), SARNA_OK); // and its node
    std::size_t size = 0;
    EXPECT_EQ(sarna_get_value_size(secondNode, "key", &size), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_close_node(secondNode), SARNA_BAD_HANDLE);
    EXPECT_EQ(sarna_close_db_group(second), SARNA_BAD_HANDLE);
    EXPECT_EQ(get("key"), "value");

    ASSERT_EQ(sarna_close_db_group(group), SARNA_OK); // the last one: the files are closed
    open();
    EXPECT_EQ(get("key"), "value");
    EXPECT_EQ(sarna_close_node(node), SARNA_OK);
    EXPECT_EQ(sarna_get_value_size(node, "key", &size), SARNA_BAD_HANDLE);
}

TEST_F(Sarna, groups_and_run_time_directories_are_separate)
{
    sarna_db_group_t other = nullptr;
    ASSERT_EQ(sarna_open_db_group("group2", &other), SARNA_OK);
    EXPECT_EQ(sarna_set_value(other, "/n/key", "2", 1, 0, 0), SARNA_OK);
    EXPECT_EQ(get("key"), std::nullopt);
    EXPECT_EQ(sarna_close_db_group(other), SARNA_OK);

    ASSERT_EQ(set("/n/key", "value"), SARNA_OK);
    const std::string unit = ruDir("") + "other";
    EXPECT_EQ(Peer({"get", "/n/", "key"}, unit).result(), SARNA_NOT_FOUND);
    EXPECT_EQ(Peer({"set", "/n/key", "other"}, unit).result(), SARNA_OK);
    EXPECT_EQ(Peer({"get", "/n/", "key"}, unit).line(), "other");
    EXPECT_EQ(get("key"), "value");
    EXPECT_EQ(Peer({"get", "/n/", "key"}).line(), "value");
    EXPECT_EQ(Peer({"set", "/n/key", "theirs"}).result(), SARNA_OK);
    EXPECT_EQ(get("key"), "theirs");
}

TEST_F(Sarna, processes_that_make_a_group_at_once_share_it)
{
    for (int round = 0; round < 3; ++round) {
        const std::string unit = ruDir("") + "unit" + std::to_string(round);
        std::vector<std::unique_ptr<Peer>> peers;
        for (const char* path : {"/n/a", "/n/b", "/n/c", "/n/d"}) {
            peers.push_back(std::make_unique<Peer>(std::vector<std::string>{"set", path, path}, unit));
        }
        for (const auto& peer : peers) {
            EXPECT_EQ(peer->result(), SARNA_OK);
        }
        for (const char* key : {"a", "b", "c", "d"}) {
            EXPECT_EQ(Peer({"get", "/n/", key}, unit).line(), std::string("/n/") + key);
        }
    }
}

TEST_F(Sarna, damaged_files_give_codes_and_nothing_is_left_over)
{
    const std::string root = ruDir("sarna");
    std::filesystem::create_directories(root + "/bad");
    std::ofstream(root + "/bad/data.mdb") << std::string(10000, 'x');
    std::ofstream(root + "/file") << "not a folder";
    sarna_db_group_t other = nullptr;
    EXPECT_EQ(sarna_open_db_group("bad", &other), SARNA_DAMAGED);
    EXPECT_EQ(sarna_open_db_group("file", &other), SARNA_SYSTEM);
    EXPECT_EQ(other, nullptr);
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        EXPECT_FALSE(entry.path().has_extension()) << "left over: " << entry.path();
    }
}

TEST_F(Sarna, readers_and_later_users_see_whole_values_of_a_writer_that_is_killed)
{
    constexpr std::size_t smallest = 30000;
    for (int round = 0; round < 8; ++round) {
        {
            Peer writer({"alternate", "/n/key", std::to_string(smallest)});
            ASSERT_EQ(writer.line(), "ready");
            std::optional<std::string> last;
            for (int changes = 0; changes < 5 + round;) { // proves that it still writes, too
                const auto value = get("key");
                ASSERT_TRUE(value.has_value() && isWhole(*value, smallest));
                changes += value != last ? 1 : 0;
                last = value;
            }
        }
        const auto value = get("key");
        ASSERT_TRUE(value.has_value() && isWhole(*value, smallest));
        ASSERT_EQ(set("/n/key", std::string(smallest, 'a')), SARNA_OK);
    }
}

TEST_F(Sarna, who_dies_while_it_writes_leaves_the_old_value_and_no_lock)
{
    ASSERT_EQ(set("/n/key", "old"), SARNA_OK);
    {
        Peer writer({"stuck-writer", directory});
        ASSERT_EQ(writer.line(), "ready");
        EXPECT_EQ(get("key"), "old") << "readers wait for nobody";
    }
    EXPECT_EQ(get("key"), "old");
    EXPECT_EQ(set("/n/key", "new"), SARNA_OK);
    EXPECT_EQ(get("key"), "new");
}

TEST_F(Sarna, who_dies_while_it_reads_keeps_no_space)
{
    ASSERT_EQ(set("/n/key", "old"), SARNA_OK);
    {
        Peer reader({"stuck-reader", directory});
        ASSERT_EQ(reader.line(), "ready");
    }
    for (int i = 0; i < 100; ++i) { // more than the files could take if nothing was used again
        ASSERT_EQ(set("/n/key", std::string(SARNA_VALUE_MAX, 'x')), SARNA_OK) << i;
    }
}

TEST_F(Sarna, a_forked_child_starts_without_handles)
{
    ASSERT_EQ(set("/n/key", "parent"), SARNA_OK);
    const sarna_db_group_t parents = group;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::size_t size = 0;
        bool good = sarna_get_value_size(node, "key", &size) == SARNA_BAD_HANDLE;
        good = good && sarna_close_db_group(parents) == SARNA_BAD_HANDLE;
        open();
        good = good && group != parents && get("key") == "parent" && set("/n/key", "child") == SARNA_OK;
        good = good && sarna_close_db_group(group) == SARNA_OK;
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get("key"), "child");
    EXPECT_EQ(set("/n/key", "parent"), SARNA_OK);
    EXPECT_EQ(Peer({"get", "/n/", "key"}).line(), "parent") << "its locks are still in force";
}

/// Each opens and closes what it needs, as the unit's processes do, so that the files are opened and closed at any
/// time.
TEST_F(Sarna, threads_open_write_read_and_close_at_once)
{
    ASSERT_EQ(sarna_close_db_group(group), SARNA_OK);
    std::atomic<int> failures = 0;
    const auto use = [&](const std::string& key) {
        for (int i = 0; i < 40; ++i) {
            sarna_db_group_t own = nullptr;
            sarna_node_t ownNode = nullptr;
            const std::string path = "/n/" + key;
            const std::string value = key + std::to_string(i);
            std::string read(value.size(), '?');
            std::size_t size = read.size();
            int code = sarna_open_db_group("group", &own);
            code += sarna_open_node(own, "/n/", &ownNode);
            code += sarna_set_value(own, path.c_str(), value.data(), value.size(), 0, 0);
            code += sarna_get_value(ownNode, key.c_str(), read.data(), &size);
            code += sarna_close_db_group(own);
            failures += code == 0 && read == value ? 0 : 1;
        }
    };
    std::vector<std::thread> threads;
    for (const char* key : {"a", "b", "c", "d"}) {
        threads.emplace_back(use, key);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    open();
    EXPECT_EQ(get("d"), "d39");
}

} // namespace
