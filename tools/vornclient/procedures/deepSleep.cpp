/// Deep sleep: its status, going to sleep, waking up.
#include "vorni/deepSleep.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

Outcome deepSleep(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    if (words[0] == "subscribe") {
        return context.request<OmlaVornSubscribeDeepSleepStatusReqS>(
            {OmlaVornSubscribeDeepSleepStatusCfmS::number, OmlaVornSubscribeDeepSleepStatusRejS::number});
    }
    if (words[0] == "activate") {
        return context.request<OmlaVornActivateDeepSleepReqS>(
            {OmlaVornActivateDeepSleepCfmS::number, OmlaVornActivateDeepSleepRejS::number});
    }
    if (words[0] == "deactivate") {
        return context.request<OmlaVornDeactivateDeepSleepReqS>(
            {OmlaVornDeactivateDeepSleepCfmS::number, OmlaVornDeactivateDeepSleepRejS::number});
    }
    throw BadUsage(fmt::format("deep sleep has no action \"{}\"", words[0]));
}

std::vector<std::string> actions(Words words)
{
    return words.size() == 1 ? std::vector<std::string>{"subscribe", "activate", "deactivate"}
                             : std::vector<std::string>{};
}

} // namespace

void addDeepSleepCommands(CommandTable& table)
{
    table.add({"deepsleep", "subscribe|activate|deactivate", "subscribe to the deep sleep status, go to sleep, wake up",
               deepSleep, actions});
}

} // namespace VornClient
