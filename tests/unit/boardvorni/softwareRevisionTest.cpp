#include "softwareRevision.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

namespace {

using namespace std::string_view_literals;

TEST(SoftwareRevision, values)
{
    const struct {
        std::string_view revision;
        char mode;
        std::int64_t value;
    } rows[] = {
        {"R9999ZZZZ9999x", 'F', 0x1393081BF03930},
        {"R1A", 'F', 0x10002000010000},
        {"P1A", 'F', 0x2000010000},
        {"P0A0", 'F', 0x1000010001},
        {"P1234AB", 'F', 0xC020001D0000},
        {"R1AA7", 'F', 0x100020001C0008},
        {"R1AAAAB7", 'F', 0x1000204FD80000}, // the fifth letter ends it
        {"R1A\0007"sv, 'F', 0x10002000010000},
        {"R1A/7", 'F', 0x10002000010000},
        {"R1A:7", 'F', 0x10002000010000},
        {"R1Z[", 'F', 0x100020001A0000},
        {"", 'L', -1},
        {"R", 'L', -1},
        {"RA1", 'L', -1},
        {"r1A", 'F', -1},
        {"R/A", 'F', -1},
        {"R:A", 'F', -1},
        {"R1", 'F', -1},
        {"R12345A", 'F', -1}, // the fifth digit stands where letters are due
        {"R1a", 'F', -1},
        {"R1\xC4", 'F', -1},
        {"R1", 'H', 0x1000281BF00000},
        {"R1", 'L', 0x10002000010000},
        {"R1", 'X', 0x10002000000000},
        {"P12345", 'H', 0xC0281BF00006},
        {"R1B", 'H', 0x10002000020000}, // the mode is for none only
    };
    for (const auto& row : rows) {
        EXPECT_EQ(revisionOrderValue(row.revision, row.mode), row.value) << row.revision << ' ' << row.mode;
    }
}

TEST(SoftwareRevision, order)
{
    const std::string_view ascending[] = {
        "X1",     "P0A",     "P5A", "P9Z9", "P10A", "P9999ZZZZ9999", "R0A",   "R1A",      "R1A0",      "R1A9",
        "R1A00",  "R1A9999", "R1B", "R1Z",  "R1AA", "R1AB",          "R1BA",  "R1ZZ",     "R1AAA",     "R1ZZZ",
        "R1AAAA", "R1ZZZZ",  "R2A", "R9A",  "R00A", "R10A",          "R000A", "R9999AAA", "R9999ZZZZ", "R9999ZZZZ9999"};
    for (std::size_t i = 1; i < std::size(ascending); ++i) {
        EXPECT_LT(revisionOrderValue(ascending[i - 1], 'F'), revisionOrderValue(ascending[i], 'F')) << ascending[i];
    }
}

constexpr std::string_view digits = "0123456789";
constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

/// Cuts up to four characters of the alphabet off; their places' sum, from the last one on.
std::int64_t cutPlaces(std::string& text, std::string_view alphabet)
{
    const std::size_t count = std::min({text.find_first_not_of(alphabet), text.size(), std::size_t{4}});
    std::int64_t sum = 0;
    std::int64_t weight = 1;
    for (std::size_t place = count; place-- > 0; weight *= static_cast<std::int64_t>(alphabet.size() + 1)) {
        sum += static_cast<std::int64_t>(alphabet.find(text[place]) + 1) * weight;
    }
    text.erase(0, count);
    return sum;
}

/// Another way to the same value, without bits.
std::int64_t referenceValue(std::string revision, char mode)
{
    if (revision.find_first_of("PR") != 0) {
        return -1;
    }
    const std::int64_t released = revision[0] == 'R' ? 65536 : 0;
    revision.erase(0, 1);
    const std::int64_t leading = cutPlaces(revision, digits);
    std::int64_t letters = cutPlaces(revision, capitals);
    const std::int64_t trailing = cutPlaces(revision, digits);
    if (leading == 0 || (letters == 0 && mode == 'F')) {
        return -1;
    }
    if (letters == 0) {
        letters = mode == 'H' ? 26 * (1 + 27 + 729 + 19683) : mode == 'L' ? 1 : 0;
    }
    return ((released + leading) * 1048576 + letters) * 65536 + trailing;
}

TEST(SoftwareRevision, random_revisions_have_the_value_of_a_slow_reference)
{
    std::mt19937 random(1);
    const auto below = [&random](std::size_t count) { return random() % count; };
    const auto append = [&](std::string& text, std::string_view alphabet, std::size_t most) {
        for (std::size_t left = below(most + 1); left > 0; --left) {
            text += alphabet[below(alphabet.size())];
        }
    };
    int parsed = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string revision;
        append(revision, "PPRRRX", 1);
        append(revision, digits, 5);
        append(revision, "ABCMXYZ", 5);
        append(revision, digits, 5);
        append(revision, "x/:@[\xC4 A0", 1);
        if (below(4) == 0 && !revision.empty()) {
            revision[below(revision.size())] = "aR9 \0"[below(5)];
        }
        const char mode = "FHLx"[below(4)];
        const std::int64_t value = revisionOrderValue(revision, mode);
        ASSERT_EQ(value, referenceValue(revision, mode)) << revision << ' ' << mode;
        parsed += value >= 0 ? 1 : 0;
    }
    EXPECT_GT(parsed, 5000);
}

TEST(SoftwareRevision, names)
{
    EXPECT_EQ(softwareName("ABC1/2", "R1A"), "ABC1/2_R1A");
    EXPECT_EQ(softwareName("", "R1A"), "R1A");
    EXPECT_EQ(softwareName("ABC1", ""), "ABC1");
    EXPECT_EQ(softwareName("", ""), "");
    EXPECT_EQ(softwareName("A_", "_B"), "A___B");
}

} // namespace
