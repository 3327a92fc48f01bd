#include "tools/boardsim/core/command.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace boardsim {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

} // namespace

std::uint32_t parseNumber(const std::string& word, const std::string& what, std::uint32_t max)
{
    char* end = nullptr;
    errno = 0;
    const bool isHex = word.rfind("0x", 0) == 0;
    const unsigned long long value = std::strtoull(word.c_str(), &end, isHex ? 16 : 10);
    if (word.empty() || !isDigit(word.front()) || *end != '\0' || errno != 0 || value > max) {
        throw CommandError(fmt::format("{} is a number from 0 to {}, not \"{}\"", what, max, word));
    }
    return static_cast<std::uint32_t>(value);
}

std::int32_t parseSigned(const std::string& word, const std::string& what)
{
    if (word.rfind('-', 0) != 0) {
        return static_cast<std::int32_t>(parseNumber(word, what));
    }
    return static_cast<std::int32_t>(-std::int64_t{parseNumber(word.substr(1), what, 0x80000000U)});
}

bool isNumber(const std::string& word)
{
    return !word.empty() && std::all_of(word.begin(), word.end(), isDigit);
}

std::optional<std::uint32_t> parseOptionalNumber(const std::string& word, const std::string& what)
{
    return word == "absent" ? std::nullopt : std::optional(parseNumber(word, what));
}

void expectWords(const Words& args, std::size_t min, std::size_t max)
{
    if (args.size() < min) {
        throw CommandError("there is a word missing");
    }
    if (args.size() > max) {
        throw CommandError(fmt::format("what does \"{}\" mean?", args[max]));
    }
}

bool isFirstWord(const Words& args, const std::string& first, const std::string& second)
{
    expectWords(args, 1, 1);
    if (args[0] != first && args[0] != second) {
        throw CommandError(fmt::format("{} or {}", first, second));
    }
    return args[0] == first;
}

std::string printable(const std::string& text)
{
    std::string printable;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        printable += byte < ' ' || byte == 0x7F ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return printable;
}

std::string joinWords(const Words& args, std::size_t first)
{
    return first < args.size()
               ? fmt::format("{}", fmt::join(args.begin() + static_cast<std::ptrdiff_t>(first), args.end(), " "))
               : std::string();
}

} // namespace boardsim
