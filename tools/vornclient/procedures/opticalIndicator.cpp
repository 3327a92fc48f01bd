/// Control of the optical indicator.
#include "vorni/opticalIndicator.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

Outcome activate(CommandContext& context, Words words)
{
    requireWords(words, 0, 1);
    if (words.empty()) {
        return context.request<OmlaVornOpticalIndicatorControlActivateReqS>(
            {OmlaVornOpticalIndicatorControlActivateCfmS::number, OmlaVornOpticalIndicatorControlActivateRejS::number});
    }
    const auto duration = static_cast<std::uint32_t>(parseNumber(words[0], UINT32_MAX));
    return context.request<OmlaVornOpticalIndicatorControlActivateWithDurationReqS>(
        {OmlaVornOpticalIndicatorControlActivateWithDurationCfmS::number,
         OmlaVornOpticalIndicatorControlActivateWithDurationRejS::number},
        [&](auto& request) { request.duration = duration; });
}

Outcome optical(CommandContext& context, Words words)
{
    requireWords(words, 1, 2);
    if (words[0] == "on") {
        return activate(context, words.subspan(1));
    }
    requireWords(words, 1, 1);
    if (words[0] == "off") {
        return context.request<OmlaVornOpticalIndicatorControlDeactivateReqS>(
            {OmlaVornOpticalIndicatorControlDeactivateCfmS::number,
             OmlaVornOpticalIndicatorControlDeactivateRejS::number});
    }
    if (words[0] == "subscribe") {
        return context.request<OmlaVornOpticalIndicatorControlSubscribeStatusChangeReqS>(
            {OmlaVornOpticalIndicatorControlSubscribeStatusChangeCfmS::number,
             OmlaVornOpticalIndicatorControlSubscribeStatusChangeRejS::number});
    }
    throw BadUsage(fmt::format("the optical indicator has no action \"{}\"", words[0]));
}

std::vector<std::string> actions(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"subscribe", "on", "off"} : std::vector<std::string>{};
}

} // namespace

void addOpticalIndicatorCommands(CommandTable& table)
{
    table.add({"optical", "subscribe|on [SECONDS]|off",
               "be told of the optical indicator's changes; take it, for a time or until it is given back", optical,
               actions});
}

} // namespace VornClient
