/// What the unit can do.
#include "vornclient/capabilityList.h"
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr const char* without = "without";

std::vector<std::uint16_t> parseNames(Words words)
{
    std::vector<std::uint16_t> numbers;
    std::transform(words.begin(), words.end(), std::back_inserter(numbers), parseCapability);
    return numbers;
}

/// Those of the numbers that the unit has, or hasn't.
std::string pick(const std::vector<std::uint16_t>& numbers, const std::vector<Capability>& capabilities, bool has)
{
    std::string picked;
    for (const std::uint16_t number : numbers) {
        const bool isThere = std::any_of(capabilities.begin(), capabilities.end(),
                                         [&](const Capability& capability) { return capability.number == number; });
        if (isThere == has) {
            picked += (picked.empty() ? "" : ", ") + printCapability(number);
        }
    }
    return picked;
}

Outcome capabilities(CommandContext& context, Words words)
{
    const auto separator = static_cast<std::size_t>(std::find(words.begin(), words.end(), without) - words.begin());
    const auto wanted = parseNames(words.first(separator));
    const auto unwanted = parseNames(words.subspan(std::min(separator + 1, words.size())));
    if (separator != words.size() && unwanted.empty()) {
        throw BadUsage("names behind \"without\" are missing");
    }
    std::vector<Capability> list;
    Outcome outcome = fetchCapabilities(context, list);
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    context.printer().capabilities(context.client(), list);
    if (const std::string missing = pick(wanted, list, false); !missing.empty()) {
        return {Verdict::failed, "the unit doesn't have " + missing, std::move(outcome.answer)};
    }
    if (const std::string surplus = pick(unwanted, list, true); !surplus.empty()) {
        return {Verdict::failed, "the unit has " + surplus, std::move(outcome.answer)};
    }
    return outcome;
}

std::vector<std::string> completeCapabilities(Words)
{
    std::vector<std::string> names = capabilityNames();
    names.emplace_back(without);
    return names;
}

} // namespace

void addCapabilityCommands(CommandTable& table)
{
    table.add({"capabilities", "[NAME...] [without NAME...]",
               "print what the unit can do; it must, and mustn't, have these capabilities, by name or number",
               capabilities, completeCapabilities});
}

} // namespace VornClient
