#include "zephrin/cmdTableHelper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace Zephrin::CmdTableHelper::V2;

/// Registers a table whose rows answer with their index and returns the one that a line leads to.
class RowOf
{
public:
    explicit RowOf(const std::vector<std::string>& forms)
    {
        CmdTable table;
        for (const std::string& form : forms) {
            const int index = static_cast<int>(table.size());
            table.push_back({form, "", [index](const auto&, std::ostream&) { return index; }});
        }
        CmdTableHelperIf::getInstance().registerCmdTable(forms[0].substr(0, forms[0].find(' ')), table);
    }

    int operator()(const std::string& line) const
    {
        std::istringstream words(line);
        const std::vector<std::string> args{std::istream_iterator<std::string>(words), {}};
        std::ostringstream out;
        return CmdTableHelperIf::getInstance().run(args, out);
    }
};

TEST(CmdTableHelper, TableWithoutHelpFirst)
{
    const RowOf row({"vornsrv all ready", "vornsrv all sessions", "vornsrv fm list", "vornsrv fault subscriber",
                     "vornsrv { -h | --help }"});
    EXPECT_EQ(row("vornsrv all ready"), 0);
    EXPECT_EQ(row("vornsrv all sessions"), 1);
    EXPECT_EQ(row("vornsrv all"), 0);
    EXPECT_EQ(row("vornsrv all ready extra"), 0);
    EXPECT_EQ(row("vornsrv all sessions extra"), 1);
    EXPECT_EQ(row("vornsrv fm"), 2);
    EXPECT_EQ(row("vornsrv fault x"), 3);
    EXPECT_EQ(row("vornsrv -h"), 4);
    EXPECT_EQ(row("vornsrv --help"), 4);
    EXPECT_EQ(row("vornsrv --help me"), 4);
    EXPECT_EQ(row("vornsrv foo bar"), 0);
    EXPECT_EQ(row("vornsrv"), 0);
}

TEST(CmdTableHelper, TableWithValues)
{
    const RowOf row({"fdf_manipulation { -h | --help }", "fdf_manipulation { -i | --id } <value>",
                     "fdf_manipulation {-f|--file} <value>", "fdf_manipulation { -d | --delete }"});
    EXPECT_EQ(row("fdf_manipulation"), 0);
    EXPECT_EQ(row("fdf_manipulation x"), 0);
    EXPECT_EQ(row("fdf_manipulation -i"), 1);
    EXPECT_EQ(row("fdf_manipulation --id -d"), 1);
    EXPECT_EQ(row("fdf_manipulation --file 7"), 2);
    EXPECT_EQ(row("fdf_manipulation -f 7 8"), 2);
    EXPECT_EQ(row("fdf_manipulation -d"), 3);
    EXPECT_EQ(row("fdf_manipulation |"), 0) << "a bar is no word of the form";
}

TEST(CmdTableHelper, ExactFormGoesBeforeEarlierRow)
{
    const RowOf row({"sysconread { -h | --help }", "sysconread <name>", "sysconread"});
    EXPECT_EQ(row("sysconread"), 2);
    EXPECT_EQ(row("sysconread x"), 1);
    EXPECT_EQ(row("sysconread -h"), 0);
    EXPECT_EQ(row("sysconread x y"), 1);
    EXPECT_EQ(row("sysconread -h y"), 0);
}

TEST(CmdTableHelper, RowGetsLineAndOutput)
{
    CmdTableHelperIf& helper = CmdTableHelperIf::getInstance();
    helper.registerCmdTable("echo", {{"echo <word>", "", [](const auto& args, std::ostream& out) {
                                          out << args.size() << ' ' << args[1];
                                          return 3;
                                      }}});
    std::ostringstream out;
    EXPECT_EQ(helper.run({"echo", "hello"}, out), 3);
    EXPECT_EQ(out.str(), "2 hello");
}

TEST(CmdTableHelper, CommandWithoutTable)
{
    CmdTableHelperIf& helper = CmdTableHelperIf::getInstance();
    helper.registerCmdTable("empty", {});
    for (const std::vector<std::string>& line : {std::vector<std::string>{"nothing"}, {"empty"}, {}}) {
        std::ostringstream out;
        EXPECT_EQ(helper.run(line, out), 20);
        EXPECT_THAT(out.str(), testing::EndsWith("\n"));
    }
}

TEST(CmdTableHelper, RowMayReplaceItsOwnTable)
{
    CmdTableHelperIf& helper = CmdTableHelperIf::getInstance();
    const auto marker = std::make_shared<int>(1);
    helper.registerCmdTable("swap", {{"swap", "", [&helper, marker](const auto&, std::ostream&) {
                                          helper.registerCmdTable("swap", {});
                                          return *marker;
                                      }}});
    std::ostringstream out;
    EXPECT_EQ(helper.run({"swap"}, out), 1);
    EXPECT_EQ(helper.run({"swap"}, out), 20);
    EXPECT_EQ(marker.use_count(), 1);
}

} // namespace
