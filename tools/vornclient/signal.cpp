#include "vornclient/signal.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <iterator>
#include <utility>

namespace VornClient {

namespace {

constexpr std::string_view namePrefix = "OMLA_VORN_";
constexpr std::size_t headerSize = sizeof(VornSignalHeader);
constexpr std::size_t printLimit = 2000;

struct Assignment {
    std::string name;
    std::string value;
};

std::optional<Assignment> splitAssignment(const std::string& word)
{
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
        return std::nullopt;
    }
    return Assignment{word.substr(0, equals), word.substr(equals + 1)};
}

int hexValue(char digit)
{
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const int lower = std::tolower(static_cast<unsigned char>(digit));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::vector<std::byte> parseHex(std::string_view word)
{
    if (word.starts_with("0x")) {
        word.remove_prefix(2);
    }
    std::vector<std::byte> bytes;
    for (std::size_t at = 0; at < word.size(); at += 2) {
        const int high = hexValue(word[at]);
        const int low = at + 1 < word.size() ? hexValue(word[at + 1]) : -1;
        if (high < 0 || low < 0) {
            throw BadUsage(fmt::format("\"{}\" isn't a row of hexadecimal bytes", word));
        }
        bytes.push_back(static_cast<std::byte>(high * 16 + low));
    }
    return bytes;
}

std::string hexDigits(std::span<const std::byte> bytes)
{
    std::string digits;
    for (const std::byte byte : bytes) {
        fmt::format_to(std::back_inserter(digits), "{:02x}", std::to_integer<unsigned>(byte));
    }
    return digits;
}

const Vorni::FieldInfo* findField(const Vorni::SignalInfo* info, const std::string& name)
{
    if (info == nullptr) {
        return nullptr;
    }
    const auto found =
        std::find_if(info->fields.begin(), info->fields.end(), [&](const auto& field) { return name == field.name; });
    return found == info->fields.end() ? nullptr : &*found;
}

std::array<const char*, 2> referenceNames(std::uint32_t number)
{
    const Vorni::SignalInfo* info = Vorni::findSignal(number);
    return Vorni::referenceNames(info != nullptr ? info->protocol : Vorni::Protocol::vorni);
}

BadUsage unknownField(std::uint32_t number, const std::string& name)
{
    const auto references = referenceNames(number);
    std::string known = fmt::format("{}, {}", references[0], references[1]);
    if (const Vorni::SignalInfo* info = Vorni::findSignal(number)) {
        for (const Vorni::FieldInfo& field : info->fields) {
            known += fmt::format(", {}", field.name);
        }
    }
    return BadUsage(fmt::format("{} has no field \"{}\"; it has {}", Vorni::signalName(number), name, known));
}

std::uint64_t largest(std::size_t size)
{
    return size >= sizeof(std::uint64_t) ? UINT64_MAX : (std::uint64_t{1} << (8 * size)) - 1;
}

void storeNumber(std::span<std::byte> field, std::uint64_t value)
{
    for (auto byte = field.rbegin(); byte != field.rend(); ++byte) {
        *byte = static_cast<std::byte>(value & 0xFF);
        value >>= 8;
    }
}

void storeBytes(std::span<std::byte> field, std::span<const std::byte> bytes, const std::string& name)
{
    if (bytes.size() > field.size()) {
        throw BadUsage(fmt::format("{} takes at most {} bytes", name, field.size()));
    }
    std::copy(bytes.begin(), bytes.end(), field.begin());
}

/// A text that reaches to the end makes the signal as long as it takes, its zero included.
void storeField(std::vector<std::byte>& signal, const Vorni::FieldInfo& info, const std::string& value)
{
    if (info.size == 0) {
        signal.resize(std::max(signal.size(), info.offset + value.size() + 1));
    }
    const auto field =
        std::span(signal).subspan(info.offset, info.size == 0 ? std::dynamic_extent : std::size_t{info.size});
    switch (info.kind) {
    case Vorni::FieldKind::number:
        storeNumber(field, parseNumber(value, largest(info.size)));
        break;
    case Vorni::FieldKind::text:
        storeBytes(field, std::as_bytes(std::span(value)), info.name);
        break;
    case Vorni::FieldKind::bytes:
        storeBytes(field, parseHex(value), info.name);
        break;
    }
}

void assign(std::vector<std::byte>& signal, std::uint32_t number, const Assignment& assignment)
{
    const auto references = referenceNames(number);
    if (assignment.name == references[0]) {
        storeNumber(std::span(signal).subspan(4, 4), parseNumber(assignment.value, UINT32_MAX));
    } else if (assignment.name == references[1]) {
        storeNumber(std::span(signal).subspan(8, 4), parseNumber(assignment.value, UINT32_MAX));
    } else if (const auto* field = findField(Vorni::findSignal(number), assignment.name)) {
        storeField(signal, *field, assignment.value);
    } else {
        throw unknownField(number, assignment.name);
    }
}

const std::string& wordBehind(std::span<const std::string> words, std::size_t& at)
{
    if (at + 1 >= words.size()) {
        throw BadUsage(fmt::format("{} needs a value", words[at]));
    }
    return words[++at];
}

/// An expected value in the form in which found ones are compared.
std::string normalised(std::uint32_t number, const Assignment& assignment)
{
    const auto references = referenceNames(number);
    if (std::find(references.begin(), references.end(), assignment.name) != references.end()) {
        return std::to_string(parseNumber(assignment.value, UINT32_MAX));
    }
    if (assignment.name == "rest") {
        return hexDigits(parseHex(assignment.value));
    }
    const Vorni::FieldInfo* field = findField(Vorni::findSignal(number), assignment.name);
    if (field == nullptr) {
        throw unknownField(number, assignment.name);
    }
    switch (field->kind) {
    case Vorni::FieldKind::number:
        return std::to_string(parseNumber(assignment.value, largest(field->size)));
    case Vorni::FieldKind::bytes:
        return hexDigits(parseHex(assignment.value));
    case Vorni::FieldKind::text:
        break;
    }
    return assignment.value;
}

/// The value of a field in a received signal; nothing where the signal is too short for it.
std::optional<std::string> foundValue(const Vorni::DecodedSignal& signal, const std::string& name)
{
    for (const Vorni::ReferenceValue& reference : signal.references) {
        if (name == reference.name) {
            return std::to_string(reference.value);
        }
    }
    if (name == "rest") {
        return signal.rest;
    }
    for (const Vorni::FieldValue& field : signal.fields) {
        if (name == field.info->name) {
            return field.info->kind == Vorni::FieldKind::number ? std::to_string(field.number) : field.text;
        }
    }
    return std::nullopt;
}

/// The length of the UTF-8 sequence at the start of the text, or 0 where there is none.
std::size_t utf8Length(std::string_view text)
{
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0x80 ? 1 : lead >= 0xC2 && lead < 0xE0 ? 2 : lead >= 0xE0 && lead < 0xF0 ? 3 : 0;
    if (length == 0 || length > text.size()) {
        return 0;
    }
    const auto isContinuation = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; };
    // U+0080 to U+009F are control characters of terminals.
    const bool isControl = lead == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    const auto tail = text.substr(1, length - 1);
    return !isControl && std::all_of(tail.begin(), tail.end(), isContinuation) ? length : 0;
}

} // namespace

std::uint32_t Signal::number() const
{
    std::uint32_t number = 0;
    if (bytes.size() >= sizeof(number)) {
        std::memcpy(&number, bytes.data(), sizeof(number));
    }
    return number;
}

std::string Signal::print() const
{
    return printable(Vorni::printSignal(bytes), printLimit);
}

std::string Signal::text() const
{
    for (const Vorni::FieldValue& field : decode().fields) {
        if (field.info->kind == Vorni::FieldKind::text) {
            return field.text;
        }
    }
    return {};
}

std::uint32_t parseSignalNumber(const std::string& word)
{
    std::string name = word;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    for (const std::string& candidate : {name, std::string(namePrefix) + name}) {
        if (const Vorni::SignalInfo* info = Vorni::findSignal(std::string_view(candidate))) {
            return info->number;
        }
    }
    if (word.empty() || std::isdigit(static_cast<unsigned char>(word.front())) == 0) {
        throw BadUsage(fmt::format("there is no signal \"{}\"", word));
    }
    return static_cast<std::uint32_t>(parseNumber(word, UINT32_MAX));
}

std::vector<std::byte> buildSignal(std::span<const std::string> words, const References& references)
{
    if (words.empty()) {
        throw BadUsage("a signal's name or number is missing");
    }
    const std::uint32_t number = parseSignalNumber(words.front());
    const Vorni::SignalInfo* info = Vorni::findSignal(number);
    std::vector<std::byte> signal(info != nullptr ? info->size : headerSize);
    std::memcpy(signal.data(), &number, sizeof(number));
    storeNumber(std::span(signal).subspan(4, 4), references.clientRef);
    storeNumber(std::span(signal).subspan(8, 4), references.serverRef);
    std::vector<std::byte> raw;
    std::optional<std::size_t> size;
    for (std::size_t at = 1; at < words.size(); ++at) {
        if (words[at] == "--raw") {
            raw = parseHex(wordBehind(words, at));
        } else if (words[at] == "--size") {
            size = parseNumber(wordBehind(words, at), KIV_MAX_SIZE);
        } else if (const auto assignment = splitAssignment(words[at])) {
            assign(signal, number, *assignment);
        } else {
            throw BadUsage(fmt::format("\"{}\" isn't field=value, --raw or --size", words[at]));
        }
    }
    signal.insert(signal.end(), raw.begin(), raw.end());
    signal.resize(size.value_or(signal.size()));
    if (signal.size() < sizeof(number) || signal.size() > KIV_MAX_SIZE) {
        throw BadUsage(fmt::format("a signal has {} to {} bytes", sizeof(number), KIV_MAX_SIZE));
    }
    return signal;
}

SignalPattern SignalPattern::parse(std::span<const std::string> words)
{
    if (words.empty()) {
        throw BadUsage("a signal's name or number is missing");
    }
    SignalPattern pattern;
    pattern.m_number = parseSignalNumber(words.front());
    for (const std::string& word : words.subspan(1)) {
        const auto assignment = splitAssignment(word);
        if (!assignment) {
            throw BadUsage(fmt::format("\"{}\" isn't field=value", word));
        }
        pattern.m_fields.push_back({assignment->name, normalised(pattern.m_number, *assignment)});
    }
    return pattern;
}

bool SignalPattern::matchesFields(const Signal& signal) const
{
    const Vorni::DecodedSignal decoded = signal.decode();
    return std::all_of(m_fields.begin(), m_fields.end(),
                       [&](const Expected& expected) { return foundValue(decoded, expected.name) == expected.value; });
}

std::string SignalPattern::print() const
{
    std::string fields;
    for (const Expected& expected : m_fields) {
        fields += fmt::format("{}{}={}", fields.empty() ? "" : ", ", expected.name, expected.value);
    }
    return Vorni::signalName(m_number) + (fields.empty() ? "" : "{" + fields + "}");
}

std::uint64_t parseNumber(const std::string& word, std::uint64_t limit)
{
    const bool isHex = word.starts_with("0x") || word.starts_with("0X");
    const char* begin = word.data() + (isHex ? 2 : 0);
    const char* end = word.data() + word.size();
    std::uint64_t value = 0;
    const auto [stop, error] = std::from_chars(begin, end, value, isHex ? 16 : 10);
    if (error != std::errc{} || stop != end || value > limit) {
        throw BadUsage(fmt::format("\"{}\" isn't a number from 0 to {}", word, limit));
    }
    return value;
}

std::chrono::milliseconds parseSeconds(const std::string& word)
{
    constexpr double longest = 1e6;
    double seconds = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, seconds, std::chars_format::fixed);
    if (error != std::errc{} || stop != end || !(seconds >= 0 && seconds <= longest)) {
        throw BadUsage(fmt::format("\"{}\" isn't a number of seconds from 0 to {}", word, longest));
    }
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::string printable(std::string_view text, std::size_t limit)
{
    std::string result;
    while (!text.empty()) {
        if (result.size() >= limit) {
            return result + fmt::format("... ({} bytes more)", text.size());
        }
        const std::size_t length = utf8Length(text);
        const auto byte = static_cast<unsigned char>(text.front());
        if (length == 0 || byte < 0x20 || byte == 0x7F) {
            result += fmt::format("\\x{:02x}", byte);
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return result;
}

std::string isoTime(std::chrono::system_clock::time_point time)
{
    using Clock = std::chrono::system_clock;
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(Clock::to_time_t(time)), sinceEpoch.count() % 1000);
}

} // namespace VornClient
