/// Supervision of the link to the client.
#include "vorni/linkSupervision.h"

#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

namespace VornClient {

namespace {

Outcome supervise(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    // The server knows no other answer than the reject.
    return context.request<OmlaVornLinkSupervisionReqS>({.confirm = 0, .reject = OmlaVornLinkSupervisionRejS::number});
}

} // namespace

void addLinkSupervisionCommands(CommandTable& table)
{
    table.add({"supervise", "", "ask for supervision of the link; the server always rejects it", supervise, nullptr});
}

} // namespace VornClient
