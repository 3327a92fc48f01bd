#include "softwareList.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace {

TEST(SoftwareList, preinstalled_is_marked_one_position_before_each_list)
{
    const struct {
        const char* part;
        const char* marked;
    } rows[] = {
        {"\n<SwList>", "<Preinstalled />\n\n<SwList>"},
        {"ab<SwList>1</SwList>\n<SwList>2", "a<Preinstalled />\nb<SwList>1</SwList><Preinstalled />\n\n<SwList>2"},
        {".<SwList><SwList><SwList>",
         "<Preinstalled />\n.<SwList<Preinstalled />\n><SwList<Preinstalled />\n><SwList>"},
        {"\n<SwList", "\n<SwList"},
        {"\n<swList> </SwList>", "\n<swList> </SwList>"},
    };
    for (const auto& row : rows) {
        std::string part = row.part;
        markPreinstalled(part);
        EXPECT_EQ(part, row.marked);
    }
}

TEST(SoftwareList, when_a_part_begins_with_a_list_then_it_has_no_place_for_the_mark)
{
    for (const std::string original : {"<SwList>", "<SwList>\n<SwList>\n"}) {
        std::string part = original;
        EXPECT_THROW(markPreinstalled(part), std::out_of_range);
        EXPECT_EQ(part, original);
    }
}

TEST(SoftwareList, a_list_without_preinstalled_software_gets_the_fixed_one)
{
    std::string list = "<?xml?>\n<LmcList>\n<ProdNbr>OLD1</ProdNbr>\n<Rev>R1</Rev>\n<Preinstalled />\n</LmcList>\n"
                       "<LmcList>\n</LmcList>\n";
    rewriteForGsmIru(list, "ABC%1_R1A");
    EXPECT_EQ(list, "<?xml?>\n"
                    "<LmcList>\n<!-- KDX7041382/26 R83DN -->\n<ProdNbr>ABC/1</ProdNbr>\n<Rev>R1A</Rev>\n"
                    "<Preinstalled/>\n<SwList>\n<ListItem>\n<ProdNbr>ABC/1</ProdNbr>\n<StartRev>R80BX</StartRev>\n"
                    "<StopRev>R83DN</StopRev>\n</ListItem>\n</SwList>\n</LmcList>\n"
                    "<LmcList>\n<ProdNbr>OLD1</ProdNbr>\n<Rev>R1</Rev>\n<Preinstalled />\n</LmcList>\n"
                    "<LmcList>\n</LmcList>\n");
}

TEST(SoftwareList, when_there_is_no_place_for_the_fixed_one_then_the_list_stays)
{
    for (const std::string original : {"", "<ProdNbr>A</ProdNbr><Rev>B</Rev>", "<Preinstalled /><LmcList"}) {
        std::string list = original;
        EXPECT_THROW(rewriteForGsmIru(list, "ABC%1_R1A"), std::out_of_range);
        EXPECT_EQ(list, original);
    }
}

TEST(SoftwareList, running_software_is_split_at_its_first_underscore)
{
    const struct {
        const char* software;
        const char* productNumber;
        const char* revision;
    } rows[] = {
        {"ABC%1_R1A", "ABC/1", "R1A"},
        {"A%B%C_R1%A_B", "A/B%C", "R1%A_B"},
        {"ABC_R1%A", "ABC", "R1%A"},
        {"ABC%1", "ABC/1", ""},
        {"ABC_", "ABC", ""},
        {"_R1A", "", "R1A"},
        {"_", "", ""},
        {"%_%", "/", "%"},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        std::string list = "<Preinstalled/><ProdNbr></ProdNbr><Rev></Rev>-----<ProdNbr>old</ProdNbr>";
        rewriteForGsmIru(list, row.software);
        const std::string number = std::string("<ProdNbr>") + row.productNumber + "</ProdNbr>";
        EXPECT_EQ(list, "<Preinstalled/>" + number + "<Rev>" + row.revision + "</Rev>-----" + number) << row.software;
    }
}

/// Lists with preinstalled software, and what becomes of them for the running software "NEW%1_R9".
TEST(SoftwareList, numbers_and_revision_are_set_in_lists_of_any_form)
{
    const struct {
        const char* what;
        const char* list;
        const char* rewritten;
    } rows[] = {
        {"none", "<Preinstalled/>", "<Preinstalled/>"},
        {"two", "<Preinstalled/><ProdNbr>OLD1</ProdNbr>-<ProdNbr>OLD2</ProdNbr>",
         "<Preinstalled/><ProdNbr>NEW/1</ProdNbr>-<ProdNbr>NEW/1</ProdNbr>"},
        {"three", "<Preinstalled/><ProdNbr>A</ProdNbr><ProdNbr>B</ProdNbr><ProdNbr>C</ProdNbr>",
         "<Preinstalled/><ProdNbr>NEW/1</ProdNbr><ProdNbr>NEW/1</ProdNbr><ProdNbr>C</ProdNbr>"},
        {"one: the second begins at position 8", "<LmcList>\n<ProdNbr>A</ProdNbr>\n<Preinstalled/>",
         "<LmcListNEW/1</ProdNbr>\n<Preinstalled/>"},
        {"closing tags only, the first before position 8", "1234567</ProdNbr>9</ProdNbr><Preinstalled/>",
         "1234567<NEW/1</ProdNbr><Preinstalled/>"},
        {"a closing tag at position 8", "12345678</ProdNbr><Preinstalled/>", "12345678NEW/1</ProdNbr><Preinstalled/>"},
        {"an opening tag only", "<Preinstalled/><ProdNbr>A", "<Preinstalled/><ProdNbr>A"},
        {"the second isn't closed", "<Preinstalled/><ProdNbr>A</ProdNbr><ProdNbr>B",
         "<Preinstalled/><ProdNbr>NEW/1</ProdNbr><ProdNbr>B"},
        {"the first is never closed by its own", "<Preinstalled/><ProdNbr>A<ProdNbr>B</ProdNbr>-",
         "<PreinstNEW/1</ProdNbr>-"},
        {"tags in reverse: all behind the opening one goes", "<Preinstalled/></ProdNbr>A<ProdNbr>B</ProdNbr>C",
         "<Preinstalled/></ProdNbr>A<ProdNbr>NEW/1"},
        {"the search is beyond the second, which moved to the front",
         "<Preinstalled/><ProdNbr>A_LONG_PRODUCT_NUMBER</ProdNbr><ProdNbr>B</ProdNbr><ProdNbr>C</ProdNbr>",
         "<Preinstalled/><ProdNbr>NEW/1</ProdNbr><ProdNbr>B</ProdNbr><ProdNbr>NEW/1</ProdNbr>"},
        {"the search is beyond the end", "<Preinstalled/><ProdNbr>A_NUMBER_LONGER_THAN_WHAT_FOLLOWS</ProdNbr>",
         "<PreinstNEW/1</ProdNbr>"},
        {"the first revision only", "<Preinstalled/><StartRev>R1</StartRev><Rev>R1</Rev><Rev>R2</Rev>",
         "<Preinstalled/><StartRev>R1</StartRev><Rev>R9</Rev><Rev>R2</Rev>"},
        {"a revision without end", "<Preinstalled/><Rev>R1", "<Preinstalled/><Rev>R1"},
        {"a revision without begin", "<Preinstalled/>R1</Rev>", "<Preinstalled/>R1</Rev>"},
        {"a revision in reverse", "<Preinstalled/></Rev>R1<Rev>R2</Rev>R3", "<Preinstalled/></Rev>R1<Rev>R9"},
    };
    for (const auto& row : rows) {
        std::string list = row.list;
        rewriteForGsmIru(list, "NEW%1_R9");
        EXPECT_EQ(list, row.rewritten) << row.what;
    }
}

TEST(SoftwareList, parts_have_255_bytes_at_most)
{
    const struct {
        std::size_t size;
        std::vector<std::size_t> parts;
    } rows[] = {{0, {}}, {1, {1}}, {254, {254}}, {255, {255}}, {256, {255, 1}}, {511, {255, 255, 1}}};
    for (const auto& row : rows) {
        std::string whole;
        for (std::size_t i = 0; i < row.size; ++i) {
            whole += static_cast<char>(i); // zeros, too
        }
        std::string list = whole;
        std::string taken;
        std::vector<std::size_t> sizes;
        while (!list.empty()) {
            const std::string part = takePart(list);
            ASSERT_FALSE(part.empty());
            sizes.push_back(part.size());
            taken += part;
        }
        EXPECT_EQ(sizes, row.parts);
        EXPECT_EQ(taken, whole);
        EXPECT_EQ(takePart(list), "");
    }
}

} // namespace
