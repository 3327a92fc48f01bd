#include "vornclient/session.h"

#include "ostinel/commandClient.h"

#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <system_error>
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
        const auto words = Ostinel::CommandClient::splitLine(text);
        if (!words || words->empty()) {
            throw BadUsage(fmt::format("{}:{}: a quote isn't closed", file, number));
        }
        if (table.find(words->front()) == nullptr) {
            throw BadUsage(fmt::format("{}:{}: there is no command \"{}\"", file, number, words->front()));
        }
        steps.push_back({number, std::move(text), *words});
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
