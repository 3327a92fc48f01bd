/// The O&M state of the client's session.
#include "vorni/oamState.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace VornClient {

namespace {

constexpr std::array stateNames{"starting", "operational", "disabled"};

std::string printState(std::uint16_t state)
{
    return state < stateNames.size() ? stateNames[state] : fmt::format("unknown ({})", state);
}

Outcome audit(CommandContext& context, Words words)
{
    requireWords(words, 0, 1);
    if (!words.empty() && std::find(stateNames.begin(), stateNames.end(), words[0]) == stateNames.end()) {
        throw BadUsage(fmt::format("there is no state \"{}\"", words[0]));
    }
    Outcome outcome = context.request<OmlaVornAuditReqS>({OmlaVornAuditCfmS::number, 0});
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    OmlaVornAuditCfmS confirm; // the answer is no shorter, or it wouldn't be one
    std::memcpy(&confirm, outcome.answer->bytes.data(), sizeof(confirm));
    const std::string state = printState(confirm.state);
    context.printer().oamState(context.client(), state);
    if (!words.empty() && words[0] != state) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("expected the state {}, came: {}", words[0], state);
    }
    return outcome;
}

Outcome enable(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    return context.request<OmlaVornEnableOperationReqS>(
        {OmlaVornEnableOperationCfmS::number, OmlaVornEnableOperationRejS::number});
}

Outcome disable(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    return context.request<OmlaVornDisableOperationReqS>(
        {OmlaVornDisableOperationCfmS::number, OmlaVornDisableOperationRejS::number});
}

std::vector<std::string> states(Words words)
{
    return words.size() == 1 ? std::vector<std::string>(stateNames.begin(), stateNames.end())
                             : std::vector<std::string>{};
}

} // namespace

void addOamStateCommands(CommandTable& table)
{
    table.add({"audit", "[starting|operational|disabled]", "print the session's O&M state, which must be this one",
               audit, states});
    table.add({"enable", "", "take up operation", enable, nullptr});
    table.add({"disable", "", "end operation; the session can't be enabled again", disable, nullptr});
}

} // namespace VornClient
