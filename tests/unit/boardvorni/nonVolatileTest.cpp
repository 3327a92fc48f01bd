#include "nonVolatile.h"

#include "runDir.h"
#include "sarna/sarna.h"
#include "trace/recordedTraces.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>

namespace {

/// What another process does between the two steps of a read.
std::function<void()> s_betweenSteps;
/// The size that the first step told.
std::size_t s_size = 0;

} // namespace

extern "C" {
int __real_sarna_get_value(sarna_node_t node, const char* key, void* buffer, size_t* size);
int __wrap_sarna_get_value(sarna_node_t node, const char* key, void* buffer, size_t* size);

int __wrap_sarna_get_value(sarna_node_t node, const char* key, void* buffer, size_t* size)
{
    s_size = *size;
    if (s_betweenSteps) {
        s_betweenSteps();
    }
    return __real_sarna_get_value(node, key, buffer, size);
}
}

namespace {

using VornTrace::RecordedTraces;

/// One of the three values, and the operations on it.
struct Value {
    const char* key;
    const char* storeName;
    std::function<std::uint32_t(const std::string&)> store;
    std::function<std::string()> read;
    const char* noSize;
    const char* noValue;
};

const Value values[] = {
    {"pid_id", "sarnaStorePid", sarnaStorePid, sarnaReadPid, "", ""},
    {"fdf_id", "sarnaStoreFdf", [](const std::string& text) { return sarnaStoreFdf(1, text); },
     [] { return sarnaReadFdf(1); }, "sarna_get_value_size error", "sarna_get_value error"},
    {"fdf_file", "sarnaStoreFdf", [](const std::string& text) { return sarnaStoreFdf(2, text); },
     [] { return sarnaReadFdf(2); }, "sarna_get_value_size error", "sarna_get_value error"},
};

std::size_t openDescriptors()
{
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

/// The traces behind the mark, one a line, all of the event INFO.
std::string infos(RecordedTraces::Mark mark)
{
    std::string lines;
    for (const auto& trace : RecordedTraces::since(mark)) {
        EXPECT_EQ(trace.event, VornTrace::Event::info);
        lines += trace.text + '\n';
    }
    return lines;
}

class NonVolatile : public testing::Test
{
protected:
    void SetUp() override { std::filesystem::remove_all(ruDir("sarna")); } // where the cases share a process
    void TearDown() override
    {
        s_betweenSteps = nullptr;
        EXPECT_EQ(openDescriptors(), descriptors) << "the store is closed between operations";
    }

    /// Past the code under test.
    static void setBytes(const std::string& key, const std::string& bytes)
    {
        sarna_db_group_t group = nullptr;
        ASSERT_EQ(sarna_open_db_group("sys_bpar", &group), SARNA_OK);
        EXPECT_EQ(sarna_set_value(group, ("/sys/vorn/" + key).c_str(), bytes.data(), bytes.size(), 0, 0), SARNA_OK);
        EXPECT_EQ(sarna_close_db_group(group), SARNA_OK);
    }

    const std::size_t descriptors = openDescriptors();
};

TEST_F(NonVolatile, values_are_stored_with_their_zero_each_under_its_own_key)
{
    for (const Value& value : values) {
        const std::string text = std::string("text of ") + value.key;
        const auto mark = RecordedTraces::mark();
        EXPECT_EQ(value.store("earlier"), 0U);
        EXPECT_EQ(value.store(text), 0U);
        EXPECT_EQ(infos(mark), std::string("VornServerUlmo::") + value.storeName + "() input: earlier\n" +
                                   "VornServerUlmo::" + value.storeName + "() input: " + text + '\n');
    }
    for (const Value& value : values) {
        const std::string text = std::string("text of ") + value.key;
        EXPECT_EQ(value.read(), text);
        EXPECT_EQ(s_size, text.size() + 1);
    }
}

TEST_F(NonVolatile, an_absent_value_is_told_and_an_empty_one_is_read)
{
    for (const Value& value : values) {
        const auto mark = RecordedTraces::mark();
        EXPECT_EQ(value.read(), value.noSize);
        EXPECT_EQ(infos(mark), "ABN: sarna_get_value_size returned with 6\n");
        EXPECT_EQ(value.store(""), 0U);
        EXPECT_EQ(value.read(), "");
        EXPECT_EQ(s_size, 1U);
    }
}

TEST_F(NonVolatile, a_value_of_any_bytes_is_read_up_to_its_zero_or_its_end)
{
    using namespace std::string_literals;
    const struct {
        std::string bytes;
        std::string text;
    } rows[] = {{"", ""}, {"a", "a"}, {"without zero", "without zero"}, {"ab\0cd\0"s, "ab"}, {"\0ab"s, ""}};
    for (const Value& value : values) {
        for (const auto& row : rows) {
            setBytes(value.key, row.bytes);
            EXPECT_EQ(value.read(), row.text);
        }
        EXPECT_EQ(value.store("ab\0cd"s), 0U);
        EXPECT_EQ(value.read(), "ab");
        EXPECT_EQ(s_size, 6U);
    }
}

TEST_F(NonVolatile, the_largest_value_fits_and_a_larger_one_leaves_it)
{
    const std::string largest(SARNA_VALUE_MAX - 1, 'x');
    for (const Value& value : values) {
        EXPECT_EQ(value.store(largest), 0U);
        const auto mark = RecordedTraces::mark();
        EXPECT_EQ(value.store(largest + 'x'), SARNA_VALUE_TOO_BIG);
        EXPECT_TRUE(RecordedTraces::has(std::string("ABN: ") + value.storeName + " returned with 5", mark));
        EXPECT_EQ(value.read(), largest);
    }
}

TEST_F(NonVolatile, when_a_value_changes_while_it_is_read_then_its_buffer_is_kept_to)
{
    for (const Value& value : values) {
        EXPECT_EQ(value.store("four"), 0U);
        s_betweenSteps = [&value] { setBytes(value.key, "longer than that"); };
        const auto mark = RecordedTraces::mark();
        EXPECT_EQ(value.read(), value.noValue);
        EXPECT_EQ(infos(mark), "ABN: sarna_get_value returned with 7\n");
        s_betweenSteps = [&value] { setBytes(value.key, "ab"); };
        EXPECT_EQ(value.read(), "ab");
        s_betweenSteps = nullptr;
    }
}

TEST_F(NonVolatile, when_the_store_cant_be_opened_then_operations_fail_with_its_codes)
{
    std::ofstream(ruDir("sarna")) << "a file in the folder's place";
    const std::string opening = "ABN: sarna_open_db_group returned with value 13\n";
    for (const Value& value : values) {
        auto mark = RecordedTraces::mark();
        EXPECT_EQ(value.store("text"), SARNA_BAD_HANDLE);
        EXPECT_EQ(infos(mark), std::string("VornServerUlmo::") + value.storeName + "() input: text\n" + opening +
                                   "ABN: " + value.storeName + " returned with 2\n");
        mark = RecordedTraces::mark();
        EXPECT_EQ(value.read(), value.noSize);
        EXPECT_EQ(infos(mark),
                  opening + "ABN: sarna_open_node returned with 2\n" + "ABN: sarna_get_value_size returned with 2\n");
    }
    std::filesystem::remove(ruDir("sarna"));
    EXPECT_EQ(sarnaStorePid("text"), 0U);
    EXPECT_EQ(sarnaReadPid(), "text");
}

TEST_F(NonVolatile, an_unknown_flag_names_no_value)
{
    for (const std::uint32_t flag : {0U, 3U, 0xFFFFFFFFU}) {
        const auto mark = RecordedTraces::mark();
        EXPECT_EQ(sarnaReadFdf(flag), "ABN:invalid flag");
        EXPECT_EQ(infos(mark), "");
        EXPECT_EQ(sarnaStoreFdf(flag, "text"), SARNA_BAD_ARGUMENT);
    }
}

} // namespace
