/// Zephrin::CmdTableHelper: leads a command line to the row of a command table whose form it has.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace Zephrin::CmdTableHelper::V2 {

/// Runs a row: all words of the line, the command's name first, and where the output goes. Returns the exit code.
using RowFunction = std::function<int(const std::vector<std::string>& args, std::ostream& out)>;

/// One form of a command: its words, where "{ -h | --help }" stands for one of the words in it and "<value>" for any
/// word; a short text; what to call.
struct CmdRow {
    std::string form;
    std::string text;
    RowFunction function;
};

using CmdTable = std::vector<CmdRow>;

class CmdTableHelperIf
{
public:
    /// The helper of the process. Tables may be registered and lines run from any thread.
    static CmdTableHelperIf& getInstance();

    virtual ~CmdTableHelperIf() = default;

    /// Takes the table of a command, replacing an earlier one of the same name.
    virtual void registerCmdTable(const std::string& name, CmdTable table) = 0;

    /// Runs the row that fits a line best and returns its exit code. A row whose form the line has word for word fits
    /// best; then the one whose leading words agree with the most of the line's; among equals the earlier row. A line
    /// that agrees with no row beyond the command's name thus gets the first row: a table begins with the row that
    /// tells the user what is wrong, its help as a rule. 20, and a line in `out`, where the command has no table.
    virtual int run(const std::vector<std::string>& args, std::ostream& out) = 0;
};

} // namespace Zephrin::CmdTableHelper::V2
