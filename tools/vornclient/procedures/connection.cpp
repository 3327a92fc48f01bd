/// The connection, the server's publication, and the clients of this program.
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>
#include <utility>

namespace VornClient {

namespace {

Outcome connect(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    return context.connect();
}

Outcome beginConnect(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    return context.send(context.client(), connectRequest(context.client().settings()));
}

Outcome disconnect(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    context.client().close();
    return {};
}

Outcome waitPublished(CommandContext& context, Words words)
{
    const auto within = takeWithin(words).value_or(context.options().publishedTimeout);
    requireWords(words, 0, 0);
    return context.waitPublished(within);
}

Outcome waitGone(CommandContext& context, Words words)
{
    const auto within = takeWithin(words).value_or(context.options().publishedTimeout);
    requireWords(words, 0, 0);
    return context.waitGone(within);
}

Outcome status(CommandContext& context, Words words)
{
    requireWords(words, 0, 0);
    context.printer().status(context.hub(), context.client());
    return {};
}

void assignSettings(ClientSettings& settings, Words assignments)
{
    const auto references = Vorni::referenceNames(settings.protocol);
    for (const std::string& word : assignments) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
        if (name == references[0]) {
            settings.references.clientRef = static_cast<std::uint32_t>(parseNumber(value, UINT32_MAX));
        } else if (name == references[1]) {
            settings.references.serverRef = static_cast<std::uint32_t>(parseNumber(value, UINT32_MAX));
        } else if (name == "protocolRev" && settings.protocol == Vorni::Protocol::vorni) {
            settings.protocolRev = static_cast<std::uint16_t>(parseNumber(value, UINT16_MAX));
        } else {
            throw BadUsage(fmt::format("\"{}\" isn't {}=, {}=, or of a VORNI client protocolRev=", word, references[0],
                                       references[1]));
        }
    }
}

constexpr const char* firstClient = "first"; ///< in commands; its label is empty

Outcome useClient(CommandContext& context, Words words)
{
    requireWords(words, 1, 5);
    const std::string label = words[0] == firstClient ? "" : words[0];
    Client* known = context.hub().findClient(label);
    if (known != nullptr && words.size() > 1) {
        throw BadUsage("that client is there already, with references of its own");
    }
    if (known == nullptr) {
        Words assignments = words.subspan(1);
        const bool isRhune = !assignments.empty() && assignments.front() == rhuneLabel;
        assignments = assignments.subspan(isRhune ? 1 : 0);
        const auto protocol = isRhune || label == rhuneLabel ? Vorni::Protocol::rhune : Vorni::Protocol::vorni;
        ClientSettings settings = furtherClient(context, label, protocol);
        assignSettings(settings, assignments);
        known = &context.hub().addClient(std::move(settings));
    }
    context.use(*known);
    return {};
}

/// The clients by name; for a new one what may be said of it.
std::vector<std::string> completeClient(Words words)
{
    return words.size() == 1
               ? std::vector<std::string>{firstClient, rhuneLabel}
               : std::vector<std::string>{"rhune", "clientRef=", "serverRef=", "protocolRev=", "connectionRef="};
}

} // namespace

void addConnectionCommands(CommandTable& table)
{
    table.add({"connect", "", "connect and wait for the confirm", connect, nullptr});
    table.add({"begin-connect", "", "send the connection request, without waiting", beginConnect, nullptr});
    table.add({"disconnect", "", "delete the client's mailbox", disconnect, nullptr});
    table.add(
        {"wait-published", "[within SECONDS]", "wait for the server's mailbox to appear", waitPublished, nullptr});
    table.add({"wait-gone", "[within SECONDS]", "wait for the server's mailbox to disappear", waitGone, nullptr});
    table.add(
        {"client", "NAME [rhune] [clientRef=N] [serverRef=N] [protocolRev=N]",
         "go on as another client, made where it is new; \"first\" is the one from the start, \"rhune\" speaks RHUNE",
         useClient, completeClient});
    table.add({"status", "", "print the server and the clients", status, nullptr});
}

} // namespace VornClient
