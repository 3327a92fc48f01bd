/// Here-I-Am, which shows a technician which unit is meant.
#include "vorni/hereIAm.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

namespace VornClient {

namespace {

std::int16_t parseOrder(const std::string& word)
{
    constexpr std::uint64_t limit = INT16_MAX;
    if (word == "on" || word == "off") {
        return word == "on" ? 1 : 2;
    }
    const bool isNegative = word.starts_with('-');
    const auto number = static_cast<int>(parseNumber(word.substr(isNegative ? 1 : 0), isNegative ? limit + 1 : limit));
    return static_cast<std::int16_t>(isNegative ? -number : number);
}

Outcome hereIAm(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    if (words[0] == "subscribe") {
        return context.request<OmlaVornSubscribeHereIAmStateReqS>(
            {OmlaVornSubscribeHereIAmStateCfmS::number, OmlaVornSubscribeHereIAmStateRejS::number});
    }
    const std::int16_t order = parseOrder(words[0]);
    return context.request<OmlaVornOrderHereIAmReqS>(
        {OmlaVornOrderHereIAmCfmS::number, OmlaVornOrderHereIAmRejS::number},
        [&](auto& request) { request.order = order; });
}

std::vector<std::string> actions(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"subscribe", "on", "off"} : std::vector<std::string>{};
}

} // namespace

void addHereIAmCommands(CommandTable& table)
{
    table.add({"here-i-am", "subscribe|on|off|N",
               "be told of the Here-I-Am state and its changes; order it on (1) or off (2), which takes a subscription",
               hereIAm, actions});
}

} // namespace VornClient
