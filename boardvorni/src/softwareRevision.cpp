#include "softwareRevision.h"

namespace {

constexpr std::int64_t unparsable = -1;
constexpr std::uint64_t highestLetters = 531440; // ZZZZ
constexpr std::uint64_t lowestLetters = 1;       // A

/// Takes up to four characters of `first` to `last` off the text. The first counts 1, so that "0" is below "00" and
/// nothing else gives the 0 that stands for no character.
std::uint64_t takeNumber(std::string_view& text, char first, char last)
{
    const auto base = static_cast<std::uint64_t>(last - first + 2);
    std::uint64_t number = 0;
    for (int place = 0; place < 4 && !text.empty() && text.front() >= first && text.front() <= last; ++place) {
        number = number * base + static_cast<std::uint64_t>(text.front() - first + 1);
        text.remove_prefix(1);
    }
    return number;
}

std::uint64_t lettersOfNone(char mode)
{
    switch (mode) {
    case 'H':
        return highestLetters;
    case 'L':
        return lowestLetters;
    default:
        return 0;
    }
}

} // namespace

std::int64_t revisionOrderValue(std::string_view revision, char mode)
{
    if (!revision.starts_with('P') && !revision.starts_with('R')) {
        return unparsable;
    }
    const bool isReleased = revision.front() == 'R';
    revision.remove_prefix(1);

    std::uint64_t leading = takeNumber(revision, '0', '9');
    if (leading == 0) {
        return unparsable;
    }
    if (isReleased) {
        leading |= std::uint64_t{1} << 16U;
    }
    std::uint64_t letters = takeNumber(revision, 'A', 'Z');
    if (letters == 0) {
        if (mode == 'F') {
            return unparsable;
        }
        letters = lettersOfNone(mode);
    }
    const std::uint64_t trailing = takeNumber(revision, '0', '9');
    return static_cast<std::int64_t>(((letters | leading << 20U) << 16U) | trailing);
}

std::string softwareName(std::string_view productNumber, std::string_view revision)
{
    std::string name(productNumber);
    if (!productNumber.empty() && !revision.empty()) {
        name += '_';
    }
    return name += revision;
}
