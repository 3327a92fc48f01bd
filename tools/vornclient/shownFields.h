/// Named values as a command shows them.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace VornClient {

struct ShownField {
    std::string name;
    std::variant<std::int64_t, std::string> value;
};

using ShownFields = std::vector<ShownField>;

/// The value on one line, safe for a terminal.
std::string printValue(const ShownField& field);

} // namespace VornClient
