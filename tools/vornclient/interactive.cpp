#include "vornclient/interactive.h"

#include "ostinel/commandClient.h"
#include "ulmo/lineEditor.h"
#include "vornclient/interrupt.h"

#include <fmt/format.h>

namespace VornClient {

namespace {

std::string prompt(CommandContext& context)
{
    const Client& client = context.client();
    const char* state = client.isConnected()                    ? "connected"
                        : context.hub().server() != KIV_NO_MBOX ? "not connected"
                                                                : "not published";
    const std::string& label = client.settings().label;
    return fmt::format("vornclient{} ({})> ", label.empty() ? "" : " " + label, state);
}

void report(CommandContext& context, const Outcome& outcome)
{
    if (outcome.verdict != Verdict::ok) {
        context.printer().error(outcome.message);
    }
}

void runWords(CommandContext& context, const std::vector<std::string>& words)
{
    Interrupt interrupt;
    context.hub().setInterruptFd(interrupt.fd());
    report(context, context.table().run(context, words));
    context.hub().setInterruptFd(-1);
}

std::vector<std::string> complete(CommandContext& context, const std::vector<std::string>& words)
{
    std::vector<std::string> candidates = context.table().complete(words);
    if (words.size() == 1) {
        candidates.insert(candidates.end(), {"help", "quit"});
    }
    return candidates;
}

/// "help", "help COMMAND" and "COMMAND --help". Returns whether it was one of them.
bool runHelp(CommandContext& context, const std::vector<std::string>& words)
{
    const bool isHelp = !words.empty() && words.front() == "help";
    if (isHelp && words.size() == 1) {
        fmt::print("{}  {:<46}{}\n  {:<46}{}\n", context.table().help(), "help [COMMAND]", "print this", "quit", "end");
        return true;
    }
    const bool isHelpOfOne = words.size() == 2 && (isHelp || words.back() == "--help");
    const auto help = isHelpOfOne ? context.table().help(words[isHelp ? 1 : 0]) : std::nullopt;
    fmt::print("{}", help.value_or(""));
    return help.has_value();
}

/// Returns whether to go on.
bool runLine(CommandContext& context, const std::string& line)
{
    const auto words = Ostinel::CommandClient::splitLine(line);
    if (!words) {
        context.printer().error("a quote isn't closed");
    } else if (runHelp(context, *words)) {
        return true;
    } else if (!words->empty() && (words->front() == "quit" || words->front() == "exit")) {
        return false;
    } else if (!words->empty()) {
        runWords(context, *words);
    }
    return true;
}

} // namespace

void runInteractive(CommandContext& context, bool connects)
{
    LineEditor editor({.program = "vornclient",
                       .prompt = [&] { return prompt(context); },
                       .completer = [&](const auto& words) { return complete(context, words); }});
    editor.serve(context.hub().fd(), [&] { context.hub().pump(); });
    if (connects) {
        runWords(context, {"connect"});
    }
    while (const auto line = editor.readLine()) {
        if (!runLine(context, *line)) {
            break;
        }
    }
}

} // namespace VornClient
