#include "zephrin/cmdTableHelper.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

namespace Zephrin::CmdTableHelper::V2 {
namespace {

using Words = std::vector<std::string>;

/// One word of a form: the words that it stands for, or any.
struct FormWord {
    bool any = false;
    Words choices;

    bool agreesWith(const std::string& word) const
    {
        return any || std::find(choices.begin(), choices.end(), word) != choices.end();
    }
};

/// The next part of a form: a bracket, a bar or a word. Blanks around brackets and bars may be left out.
std::string_view nextPart(std::string_view& rest)
{
    constexpr std::string_view blanks = " \t";
    constexpr std::string_view ends = " \t{|}";
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    const std::size_t end = std::min(rest.find_first_of(ends), rest.size());
    const std::string_view part = rest.substr(0, std::max<std::size_t>(end, 1));
    rest.remove_prefix(part.size());
    return part;
}

std::vector<FormWord> parseForm(std::string_view form)
{
    std::vector<FormWord> words;
    bool inChoice = false;
    for (std::string_view part = nextPart(form); !part.empty(); part = nextPart(form)) {
        if (part == "{" || part == "}") {
            inChoice = part == "{";
            if (inChoice) {
                words.emplace_back();
            }
        } else if (part != "|") {
            if (!inChoice) {
                words.emplace_back();
            }
            words.back().any = words.back().any || part.front() == '<';
            words.back().choices.emplace_back(part);
        }
    }
    return words;
}

struct Row {
    std::vector<FormWord> form;
    RowFunction function;

    /// How many of the line's leading words the form agrees with.
    std::size_t agreement(const Words& line) const
    {
        const std::size_t most = std::min(form.size(), line.size());
        std::size_t count = 0;
        while (count < most && form[count].agreesWith(line[count])) {
            ++count;
        }
        return count;
    }
};

using Table = std::vector<Row>;

const Row* bestRow(const Table& table, const Words& line)
{
    const Row* best = nullptr;
    std::size_t bestAgreement = 0;
    for (const Row& row : table) {
        const std::size_t agreement = row.agreement(line);
        if (agreement == line.size() && agreement == row.form.size()) {
            return &row;
        }
        if (best == nullptr || agreement > bestAgreement) {
            best = &row;
            bestAgreement = agreement;
        }
    }
    return best;
}

class Helper final : public CmdTableHelperIf
{
public:
    void registerCmdTable(const std::string& name, CmdTable table) override;
    int run(const Words& args, std::ostream& out) override;

private:
    std::mutex m_mutex;
    std::map<std::string, std::shared_ptr<const Table>> m_tables; ///< a running row keeps its table
};

void Helper::registerCmdTable(const std::string& name, CmdTable table)
{
    auto rows = std::make_shared<Table>();
    for (CmdRow& row : table) {
        rows->push_back({parseForm(row.form), std::move(row.function)});
    }
    std::shared_ptr<const Table> entered = std::move(rows);
    const std::lock_guard lock(m_mutex);
    m_tables[name].swap(entered); // the replaced table goes behind the lock
}

int Helper::run(const Words& args, std::ostream& out)
{
    constexpr int notFound = 20;
    const std::string name = args.empty() ? std::string() : args[0];
    std::shared_ptr<const Table> table;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_tables.find(name);
        table = found == m_tables.end() ? nullptr : found->second;
    }
    const Row* row = table ? bestRow(*table, args) : nullptr;
    if (row == nullptr) {
        out << "no such command: " << name << '\n';
        return notFound;
    }
    return row->function(args, out);
}

} // namespace

CmdTableHelperIf& CmdTableHelperIf::getInstance()
{
    static Helper helper;
    return helper;
}

} // namespace Zephrin::CmdTableHelper::V2
