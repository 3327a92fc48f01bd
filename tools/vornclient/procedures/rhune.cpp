/// RHUNE: a client of the unit that forwards faults. It has a mailbox of its own and speaks with the server's private
/// one; raising and ceasing are never answered.
#include "rhune/rhuneSignals.h"

#include "vornclient/command.h"
#include "vornclient/faultNames.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>
#include <utility>

namespace VornClient {

namespace {

constexpr std::uint32_t defaultRevision = 1;

std::vector<std::byte> connectRequestOf(Client& client, const std::vector<std::uint32_t>& revisions)
{
    // The connection is the client's until the server has given it a reference.
    const References references{client.nextReferences().clientRef, client.settings().references.serverRef};
    auto bytes = makeSignal<RhuneVornConnEstablishReqS>(references, [&](auto& request) {
        request.nbrOfSupportedProtocolRev = static_cast<std::uint32_t>(revisions.size());
    });
    for (const VornU32 revision : revisions) {
        const auto stored = std::as_bytes(std::span(&revision, 1));
        bytes.insert(bytes.end(), stored.begin(), stored.end());
    }
    return bytes;
}

Outcome connect(CommandContext& context, Client& client, const std::vector<std::uint32_t>& revisions)
{
    return context.transact(client, connectRequestOf(client, revisions),
                            {RhuneVornConnEstablishCfmS::number, RhuneVornConnEstablishRejS::number});
}

Outcome connect(CommandContext& context, Words words)
{
    std::vector<std::uint32_t> revisions;
    for (const std::string& word : words) {
        revisions.push_back(static_cast<std::uint32_t>(parseNumber(word, UINT32_MAX)));
    }
    if (revisions.empty()) {
        revisions.push_back(defaultRevision);
    }
    Client& client = context.rhuneClient();
    return client.isConnected() ? Outcome{Verdict::failed, "connected already: rhune close comes first", {}}
                                : connect(context, client, revisions);
}

Outcome close(CommandContext& context, Client& client)
{
    return context.transact(client, makeSignal<RhuneVornConnCloseReqS>(client.nextReferences(), [](auto&) {}),
                            {RhuneVornConnCloseCfmS::number, 0});
}

Outcome requireConnected(const Client& client)
{
    return client.isConnected() ? Outcome{}
                                : Outcome{Verdict::failed, "not connected: the server would drop the signal", {}};
}

/// Sends what isn't answered. A one-shot command connects for it and closes again: the confirm of that tells that the
/// server has had the signal.
template <typename Record, typename Fill>
Outcome forward(CommandContext& context, Fill&& fill)
{
    Client& client = context.rhuneClient();
    const bool connectsForIt = context.actsByItself() && !client.isConnected();
    Outcome outcome = connectsForIt ? connect(context, client, {defaultRevision}) : requireConnected(client);
    if (outcome.verdict == Verdict::ok) {
        outcome = context.send(client, makeSignal<Record>(client.nextReferences(), fill));
    }
    return outcome.verdict == Verdict::ok && connectsForIt ? close(context, client) : outcome;
}

/// A text with its zero must fit.
template <std::size_t Size>
void storeText(char (&field)[Size], std::string_view name, std::string_view text)
{
    if (text.size() >= Size) {
        throw BadUsage(fmt::format("{} takes at most {} bytes", name, Size - 1));
    }
    text.copy(field, text.size());
}

void storeAttribute(RhuneVornFaultFwdS& fault, const std::string& word)
{
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
    if (name == "description") {
        storeText(fault.faultDescription, name, value);
    } else if (name == "recovery") {
        fault.recoveryTime = static_cast<std::uint32_t>(parseNumber(value, UINT32_MAX));
    } else if (name == "label") {
        storeText(fault.hwFaultLabel, name, value);
    } else {
        throw BadUsage(fmt::format("\"{}\" isn't description=, recovery= or label=", word));
    }
}

Outcome raise(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    RhuneVornFaultFwdS fault{};
    fault.faultId = parseFaultId(words[0]);
    for (const std::string& word : words.subspan(1)) {
        storeAttribute(fault, word);
    }
    return forward<RhuneVornFaultFwdS>(context, [&](auto& record) {
        fault.header = record.header;
        record = fault;
    });
}

Outcome cease(CommandContext& context, Words words)
{
    requireWords(words, 1, 1);
    const std::uint16_t faultId = parseFaultId(words[0]);
    return forward<RhuneVornFaultceaseFwdS>(context, [&](auto& record) { record.faultId = faultId; });
}

Outcome close(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    Client& client = context.rhuneClient();
    Outcome connected = requireConnected(client);
    return connected.verdict != Verdict::ok ? connected : close(context, client);
}

Outcome disconnect(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    context.rhuneClient().close();
    return {};
}

struct Action {
    const char* name;
    Outcome (*run)(CommandContext& context, Words words);
};

constexpr Action actions[]{
    {"connect", connect}, {"raise", raise}, {"cease", cease}, {"close", close}, {"disconnect", disconnect},
};

Outcome rhune(CommandContext& context, Words words)
{
    requireWords(words, 1, SIZE_MAX);
    for (const Action& action : actions) {
        if (words[0] == action.name) {
            return action.run(context, words.subspan(1));
        }
    }
    throw BadUsage(fmt::format("RHUNE has no action \"{}\"", words[0]));
}

std::vector<std::string> complete(Words words)
{
    std::vector<std::string> candidates;
    if (words.size() == 1) {
        for (const Action& action : actions) {
            candidates.emplace_back(action.name);
        }
    } else if (words.size() == 2 && (words[0] == "raise" || words[0] == "cease")) {
        candidates = faultNames();
    } else if (words[0] == "raise") {
        candidates = {"description=", "recovery=", "label="};
    }
    return candidates;
}

} // namespace

void addRhuneCommands(CommandTable& table)
{
    table.add({"rhune",
               "connect [REVISION...]|raise FAULT [description=TEXT] [recovery=SECONDS] [label=TEXT]|cease "
               "FAULT|close|disconnect",
               "be a RHUNE client, which forwards faults, named or numbered. One-shot, raise and cease connect and "
               "close by themselves: a fault stays when its client goes; disconnect deletes the mailbox",
               rhune, complete});
}

} // namespace VornClient
