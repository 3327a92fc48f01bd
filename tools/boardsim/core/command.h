/// Commands of the simulator: rows of form, text and action, and the reading of their words.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace boardsim {

using Words = std::vector<std::string>;

/// A command that can't be done; its text is the command's output, and the exit code is 1.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A command of a server. Its first word names it; `run` gets the words behind that.
struct CommandRow {
    std::string form; ///< "delay <message> <ms> [<count>]"
    std::string text; ///< what it does
    std::function<void(const Words& args, std::ostream& out)> run;

    std::string name() const { return form.substr(0, form.find(' ')); }
};

/// An unsigned decimal or 0x number of at most `max`; throws CommandError with `what` in its text.
std::uint32_t parseNumber(const std::string& word, const std::string& what, std::uint32_t max = 0xFFFFFFFFU);

/// Any number of 32 bits, written with or without a sign.
std::int32_t parseSigned(const std::string& word, const std::string& what);

/// Whether a word is a decimal number, and not a field or a name.
bool isNumber(const std::string& word);

/// A number, or nothing for "absent".
std::optional<std::uint32_t> parseOptionalNumber(const std::string& word, const std::string& what);

/// Throws CommandError when there are fewer or more words.
void expectWords(const Words& args, std::size_t min, std::size_t max);

/// Whether the one word that there is is the first or the second; throws CommandError where it is neither.
bool isFirstWord(const Words& args, const std::string& first, const std::string& second);

/// A peer's text as a terminal can take it.
std::string printable(const std::string& text);

/// The words from `first` on, with a blank between them.
std::string joinWords(const Words& args, std::size_t first);

} // namespace boardsim
