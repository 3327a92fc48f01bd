/// The maintenance state.
#include "vorni/maintenanceState.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

Outcome maintenance(CommandContext& context, Words words)
{
    requireWords(words, 1, 2);
    if (words[0] == "subscribe") {
        requireWords(words, 1, 1);
        return context.request<OmlaVornSubscribeMaintStateReqS>(
            {OmlaVornSubscribeMaintStateCfmS::number, OmlaVornSubscribeMaintStateRejS::number});
    }
    if (words[0] == "set") {
        requireWords(words, 2, 2);
        const auto state = static_cast<std::uint32_t>(parseNumber(words[1], UINT32_MAX));
        return context.request<OmlaVornSetMaintStateReqS>(
            {OmlaVornSetMaintStateCfmS::number, OmlaVornSetMaintStateRejS::number},
            [&](auto& request) { request.maintState = state; });
    }
    throw BadUsage(fmt::format("the maintenance state has no action \"{}\"", words[0]));
}

std::vector<std::string> actions(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"set", "subscribe"} : std::vector<std::string>{};
}

} // namespace

void addMaintenanceStateCommands(CommandTable& table)
{
    table.add({"maintenance", "set N|subscribe",
               "set the maintenance state, to 0, 2, 3 or 4; be told of it and of its changes", maintenance, actions});
}

} // namespace VornClient
