/// vornclient: a DU client of the board control server.
#include "kiv/kiv.h"
#include "vornclient/command.h"
#include "vornclient/interactive.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <clocale>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace VornClient;

constexpr const char* description =
    "A DU client: connects to \"VornServer\", sends requests, and prints every signal that is sent (->) and that "
    "arrives (<-). Without a command it is interactive.";

constexpr const char* footer = "Exit codes: 0 confirmed, 1 rejected or not as expected, 2 bad usage, 3 no answer in "
                               "time,\n4 the server isn't published or goes away.\n"
                               "RU_DIR is the unit's run-time directory, by default /run/ru.";

struct Arguments {
    Options options;
    PrinterSettings printer;
    bool noConnect = false;
    std::vector<std::string> words;
};

void defineOptions(CLI::App& app, Arguments& arguments, double& timeout, double& wait)
{
    Options& options = arguments.options;
    const CLI::Validator seconds = CLI::Range(0.0, 1e6).description("");
    app.add_option("--client-ref", options.client.references.clientRef, "the client's reference")
        ->capture_default_str();
    app.add_option("--server-ref", options.client.references.serverRef, "the server's reference")
        ->capture_default_str();
    app.add_option("--revision", options.client.protocolRev, "the protocol revision")->capture_default_str();
    app.add_option("--name", options.client.mailboxName, "the mailbox's name; by default unique")
        ->check(
            CLI::Validator([](std::string& name) { return name.empty() ? "may not be empty" : std::string{}; }, ""));
    app.add_option("--timeout", timeout, "seconds to wait for an answer")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(seconds);
    app.add_option("--wait", wait, "seconds to wait for the server to be published")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(seconds);
    app.add_flag("--json", arguments.printer.json, "print JSON lines");
    app.add_flag("--quiet", arguments.printer.quiet, "print errors only");
    app.add_flag("--times", arguments.printer.times, "print the time before each line");
    app.add_flag("--no-connect", arguments.noConnect, "interactive: don't connect at start");
}

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::round<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
}

/// The words of one command; "then" stands between two.
std::vector<std::vector<std::string>> splitCommands(const std::vector<std::string>& words)
{
    std::vector<std::vector<std::string>> commands(1);
    for (const std::string& word : words) {
        if (word == "then") {
            commands.emplace_back();
        } else {
            commands.back().push_back(word);
        }
    }
    return commands;
}

int runOneShot(CommandContext& context, const std::vector<std::string>& words)
{
    for (const auto& command : splitCommands(words)) {
        const Outcome outcome = context.table().run(context, command);
        if (outcome.verdict != Verdict::ok) {
            context.printer().error(outcome.message);
            return exitCode(outcome.verdict);
        }
    }
    return exitCode(Verdict::ok);
}

int run(Arguments arguments, const CommandTable& table)
{
    const std::string unique = fmt::format("vornclient_{}", ::getpid());
    if (arguments.options.client.mailboxName.empty()) {
        arguments.options.client.mailboxName = unique;
    }
    arguments.options.connectsByItself = !arguments.words.empty();
    arguments.options.isInteractive = arguments.words.empty();
    const auto printer = Printer::create(arguments.printer);
    ClientHub hub(unique + "_hub", *printer);
    CommandContext context(hub, *printer, table, arguments.options);
    if (!arguments.words.empty()) {
        return runOneShot(context, arguments.words);
    }
    runInteractive(context, !arguments.noConnect);
    return exitCode(Verdict::ok);
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, "");
    const CommandTable table = allCommands();
    Arguments arguments;
    double timeout = std::chrono::duration<double>(arguments.options.answerTimeout).count();
    double wait = std::chrono::duration<double>(arguments.options.publishedTimeout).count();
    CLI::App app(description, "vornclient");
    app.footer("Commands, as in \"vornclient [OPTIONS] COMMAND... [then COMMAND...]\"; those that ask something of the "
               "server\nconnect first; COMMAND --help tells of one:\n" +
               table.help() + "\n" + footer);
    defineOptions(app, arguments, timeout, wait);
    // What isn't an option of the program is the command's, options of its own included.
    app.allow_extras();
    try {
        app.parse(argc, argv);
        arguments.words = app.remaining();
        arguments.options.answerTimeout = milliseconds(timeout);
        arguments.options.publishedTimeout = milliseconds(wait);
        if (arguments.words.empty() && ::isatty(STDIN_FILENO) == 0) {
            fmt::print(stderr, "vornclient: no command, and standard input isn't a terminal; see --help\n");
            return exitCode(Verdict::badUsage);
        }
        return run(std::move(arguments), table);
    } catch (const CLI::CallForHelp& call) {
        const auto words = app.remaining();
        const auto help = words.empty() ? std::nullopt : table.help(words.front());
        return help ? (fmt::print("{}", *help), 0) : app.exit(call);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : exitCode(Verdict::badUsage);
    } catch (const std::exception& error) {
        fmt::print(stderr, "vornclient: {}\n", error.what());
        return exitCode(Verdict::failed);
    }
}
