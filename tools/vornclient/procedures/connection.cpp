/// The connection, the server's publication, and the clients of this program.
#include "vornclient/command.h"
#include "vornclient/procedures/procedures.h"

#include <fmt/format.h>

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
    return context.send(connectRequest(context.client().settings()));
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

/// Settings of a further client: those of the first with a clientRef and a mailbox name of its own.
ClientSettings furtherClient(CommandContext& context, const std::string& label, Words assignments)
{
    ClientSettings settings = context.options().client;
    settings.label = label;
    settings.mailboxName += "_" + label;
    settings.references.clientRef += static_cast<std::uint32_t>(context.hub().clients().size());
    for (const std::string& word : assignments) {
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : word.substr(equals + 1);
        if (name == "clientRef") {
            settings.references.clientRef = static_cast<std::uint32_t>(parseNumber(value, UINT32_MAX));
        } else if (name == "serverRef") {
            settings.references.serverRef = static_cast<std::uint32_t>(parseNumber(value, UINT32_MAX));
        } else if (name == "protocolRev") {
            settings.protocolRev = static_cast<std::uint16_t>(parseNumber(value, UINT16_MAX));
        } else {
            throw BadUsage(fmt::format("\"{}\" isn't clientRef=, serverRef= or protocolRev=", word));
        }
    }
    return settings;
}

constexpr const char* firstClient = "first"; ///< in commands; its label is empty

Outcome useClient(CommandContext& context, Words words)
{
    requireWords(words, 1, 4);
    const std::string label = words[0] == firstClient ? "" : words[0];
    Client* known = context.hub().findClient(label);
    if (known != nullptr && words.size() > 1) {
        throw BadUsage("that client is there already, with references of its own");
    }
    context.use(known != nullptr ? *known : context.hub().addClient(furtherClient(context, label, words.subspan(1))));
    return {};
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
    table.add({"client", "NAME [clientRef=N] [serverRef=N] [protocolRev=N]",
               "go on as another client, made where it is new; \"first\" is the one from the start", useClient,
               nullptr});
    table.add({"status", "", "print the server and the clients", status, nullptr});
}

} // namespace VornClient
