#include "vornclient/report.h"

#include "vornclient/signal.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

std::vector<std::string> printTable(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const bool isLast = column + 1 == row.size();
            line += isLast ? row[column] : fmt::format("{:<{}}", row[column], widths[column] + 2);
        }
        lines.push_back(std::move(line));
    }
    return lines;
}

Assignments parseAssignments(std::span<const std::string> words)
{
    Assignments assignments;
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw BadUsage(fmt::format("\"{}\" isn't FIELD=VALUE", word));
        }
        assignments.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    }
    return assignments;
}

std::string printDifference(const ShownFields& fields, const Assignments& expected)
{
    for (const auto& assignment : expected) {
        const auto& [name, value] = assignment;
        const auto field = std::find_if(fields.begin(), fields.end(),
                                        [&](const ShownField& each) { return each.name == assignment.first; });
        const std::string came = field == fields.end() ? "-" : printValue(*field);
        const bool isNumber = field != fields.end() && std::holds_alternative<std::int64_t>(field->value);
        const bool isEqual = isNumber && value != "-" ? static_cast<std::int64_t>(parseNumber(value, INT64_MAX)) ==
                                                            std::get<std::int64_t>(field->value)
                                                      : came == value;
        if (!isEqual) {
            return fmt::format("expected {}={}, came: {}={}", name, value, name, came);
        }
    }
    return {};
}

} // namespace VornClient
