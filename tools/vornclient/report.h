/// What a command tells besides the signals: lines for people, fields for programs.
#pragma once

#include "vornclient/shownFields.h"

#include <span>
#include <string>
#include <utility>
#include <vector>

namespace VornClient {

struct Report {
    const char* event; ///< of the JSON line
    ShownFields fields;
    const char* rowsName = nullptr; ///< null where there are none
    std::vector<ShownFields> rows;
    std::vector<std::string> lines; ///< all of it as text, safe for a terminal
};

/// A view that is kept up to date.
struct LiveReport {
    Report report;
    std::string title;             ///< above the report's lines where they are drawn anew for each change
    std::vector<std::string> news; ///< instead of the report's lines where they aren't
};

/// One table, a line a row: columns as wide as what is in them.
std::vector<std::string> printTable(const std::vector<std::vector<std::string>>& rows);

using Assignments = std::vector<std::pair<std::string, std::string>>;

/// The names and values of words of the form "FIELD=VALUE". Throws BadUsage for others.
Assignments parseAssignments(std::span<const std::string> words);

/// Holds fields against expected ones; "-" stands for one that isn't there. The first that differs is told, as in
/// "expected name=1, came: name=2"; an empty text where there is none.
std::string printDifference(const ShownFields& fields, const Assignments& expected);

} // namespace VornClient
