#include "vornclient/session.h"

#include "ostinel/commandClient.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <utility>

namespace VornClient {

namespace {

constexpr int deepestPlay = 8;

std::string trimmed(const std::string& line)
{
    constexpr const char* blanks = " \t\r";
    const std::size_t begin = line.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : line.substr(begin, line.find_last_not_of(blanks) - begin + 1);
}

/// Puts the environment's values in place of each ${NAME}. A value is never taken apart into words.
std::string expanded(const std::string& word)
{
    std::string result;
    std::size_t at = 0;
    for (std::size_t begin = word.find("${"); begin != std::string::npos; begin = word.find("${", at)) {
        const std::size_t end = word.find('}', begin);
        if (end == std::string::npos) {
            throw BadUsage("${ isn't closed");
        }
        const std::string name = word.substr(begin + 2, end - begin - 2);
        const char* value = std::getenv(name.c_str());
        if (value == nullptr) {
            throw BadUsage(fmt::format("the environment has no \"{}\"", name));
        }
        result += word.substr(at, begin - at) + value;
        at = end + 1;
    }
    return result + word.substr(at);
}

/// The words of a line. Throws BadUsage.
std::vector<std::string> readWords(const std::string& text)
{
    auto words = Ostinel::CommandClient::splitLine(text);
    if (!words || words->empty()) {
        throw BadUsage("a quote isn't closed");
    }
    std::transform(words->begin(), words->end(), words->begin(), expanded);
    return std::move(*words);
}

Outcome playStep(CommandContext& context, const std::string& file, const SessionStep& step)
{
    const std::string place = fmt::format("{}:{}", file, step.line);
    context.printer().step(place, step.text);
    Outcome outcome = context.table().run(context, step.words);
    if (outcome.verdict != Verdict::ok) {
        outcome.message = fmt::format("{}: {}: {}", place, step.text, outcome.message);
    }
    return outcome;
}

} // namespace

std::vector<SessionStep> readSession(std::istream& input, const std::string& file, const CommandTable& table)
{
    std::vector<SessionStep> steps;
    int number = 0;
    for (std::string line; std::getline(input, line);) {
        ++number;
        std::string text = trimmed(line);
        if (text.empty() || text.front() == '#') {
            continue;
        }
        try {
            std::vector<std::string> words = readWords(text);
            if (table.find(words.front()) == nullptr) {
                throw BadUsage(fmt::format("there is no command \"{}\"", words.front()));
            }
            steps.push_back({number, std::move(text), std::move(words)});
        } catch (const BadUsage& error) {
            throw BadUsage(fmt::format("{}:{}: {}", file, number, error.what()));
        }
    }
    return steps;
}

Outcome playSession(CommandContext& context, const std::string& path)
{
    if (context.playDepth >= deepestPlay) {
        return {Verdict::badUsage, fmt::format("{}: session files play each other too deeply", path), {}};
    }
    std::ifstream input(path);
    if (!input || std::filesystem::is_directory(path)) {
        return {Verdict::badUsage, fmt::format("{} can't be read", path), {}};
    }
    const std::string file = std::filesystem::path(path).filename();
    std::vector<SessionStep> steps;
    try {
        steps = readSession(input, file, context.table());
    } catch (const BadUsage& error) {
        return {Verdict::badUsage, error.what(), {}};
    }
    ++context.playDepth;
    Outcome outcome;
    for (const SessionStep& step : steps) {
        outcome = playStep(context, file, step);
        if (outcome.verdict != Verdict::ok) {
            break;
        }
    }
    --context.playDepth;
    // However a step failed, to who runs the file it is one thing.
    if (outcome.verdict != Verdict::ok && outcome.verdict != Verdict::interrupted) {
        outcome.verdict = Verdict::failed;
    }
    return outcome;
}

} // namespace VornClient
