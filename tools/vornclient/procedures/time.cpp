/// The unit's UTC time.
#include "vorni/utc.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <chrono>

namespace VornClient {

namespace {

std::uint32_t secondsNow()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count());
}

Outcome setUtcTime(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    const auto seconds =
        words[0] == "now" ? secondsNow() : static_cast<std::uint32_t>(parseNumber(words[0], UINT32_MAX));
    return context.request<OmlaVornSetUtcTimeReqS>({OmlaVornSetUtcTimeCfmS::number, OmlaVornSetUtcTimeRejS::number},
                                                   [&](auto& request) { request.utcTime = seconds; });
}

std::vector<std::string> times(Words)
{
    return {"now"};
}

} // namespace

void addTimeCommands(CommandTable& table)
{
    table.add({"utc", "SECONDS|now", "set the unit's UTC time", setUtcTime, times});
}

} // namespace VornClient
