/// The man-machine interface.
#include "vorni/mmi.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

namespace VornClient {

namespace {

Outcome selectMmi(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    const auto mode = static_cast<std::uint32_t>(parseNumber(words[0], UINT32_MAX));
    return context.request<OmlaVornSelectMmiReqS>({OmlaVornSelectMmiCfmS::number, OmlaVornSelectMmiRejS::number},
                                                  [&](auto& request) { request.mode = mode; });
}

} // namespace

void addMmiCommands(CommandTable& table)
{
    table.add({"mmi", "MODE", "select an MMI mode; 1 is supported", selectMmi, nullptr});
}

} // namespace VornClient
