#include "vornclient/command.h"

#include "vornclient/procedures/procedures.h"
#include "vorni/connection.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <sstream>
#include <system_error>
#include <utility>

namespace VornClient {

namespace {

constexpr std::size_t helpWidth = 72; ///< of what stands behind a command's usage

std::string printAnswers(const Answers& answers)
{
    if (answers.confirm == 0 || answers.reject == 0) {
        return Vorni::signalName(std::max(answers.confirm, answers.reject));
    }
    return Vorni::signalName(answers.confirm) + " or " + Vorni::signalName(answers.reject);
}

Outcome interrupted()
{
    return {Verdict::interrupted, "interrupted", {}};
}

std::string usageOf(const Command& command)
{
    return fmt::format("{} {}", command.name, command.arguments);
}

/// The text with line breaks, each line behind the first indented.
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent)
{
    std::string result;
    std::istringstream words(text);
    std::size_t used = 0;
    for (std::string word; words >> word; used += word.size()) {
        if (used != 0 && used + 1 + word.size() > width) {
            result += "\n" + std::string(indent, ' ');
            used = 0;
        } else if (used != 0) {
            result += ' ';
            ++used;
        }
        result += word;
    }
    return result;
}

} // namespace

int exitCode(Verdict verdict)
{
    switch (verdict) {
    case Verdict::ok:
        return 0;
    case Verdict::rejected:
    case Verdict::failed:
        return 1;
    case Verdict::badUsage:
        return 2;
    case Verdict::timedOut:
        return 3;
    case Verdict::noServer:
        return 4;
    case Verdict::interrupted:
        break;
    }
    return 130;
}

CommandContext::CommandContext(ClientHub& hub, Printer& printer, const CommandTable& table, Options options)
    : m_hub(hub), m_printer(printer), m_table(table), m_options(std::move(options)),
      m_client(&hub.addClient(m_options.client))
{
}

Client& CommandContext::rhuneClient()
{
    if (m_client->settings().protocol == Vorni::Protocol::rhune) {
        return *m_client;
    }
    Client* known = m_hub.findClient(rhuneLabel);
    return known != nullptr ? *known : m_hub.addClient(furtherClient(*this, rhuneLabel, Vorni::Protocol::rhune));
}

Client& CommandContext::clientFor(std::uint32_t signalNumber)
{
    const Vorni::SignalInfo* info = Vorni::findSignal(signalNumber);
    return info != nullptr && info->protocol == Vorni::Protocol::rhune ? rhuneClient() : client();
}

Outcome CommandContext::waitPublished(std::chrono::milliseconds atMost)
{
    Outcome outcome = waitFor(m_hub.serverFor(Vorni::Protocol::vorni), atMost);
    if (outcome.verdict == Verdict::ok) {
        m_lossesNoted = m_hub.serverLosses();
    }
    return outcome;
}

Outcome CommandContext::waitFor(const ServerMailbox& server, std::chrono::milliseconds atMost)
{
    const auto showProgress = [&](ClientHub::Clock::duration waited) {
        m_printer.progress(fmt::format("waiting for \"{}\" to be published: {:.1f} of {}", server.name,
                                       std::chrono::duration<double>(waited).count(), printSeconds(atMost)));
    };
    const WaitResult result =
        m_hub.waitUntil([&] { return server.id != KIV_NO_MBOX; }, ClientHub::Clock::now() + atMost, showProgress);
    m_printer.endProgress();
    switch (result) {
    case WaitResult::fulfilled:
        return {};
    case WaitResult::interrupted:
        return interrupted();
    case WaitResult::timedOut:
        break;
    }
    return {Verdict::noServer, fmt::format("\"{}\" wasn't published within {}", server.name, printSeconds(atMost)), {}};
}

Outcome CommandContext::waitGone(std::chrono::milliseconds atMost)
{
    // A server that restarts fast is back before anybody looks.
    const auto isGone = [&] { return m_hub.server() == KIV_NO_MBOX || m_hub.serverLosses() != m_lossesNoted; };
    switch (m_hub.waitUntil(isGone, ClientHub::Clock::now() + atMost)) {
    case WaitResult::fulfilled:
        return {};
    case WaitResult::interrupted:
        return interrupted();
    case WaitResult::timedOut:
        break;
    }
    return {Verdict::timedOut,
            fmt::format("\"{}\" is still published after {}", ClientHub::serverName, printSeconds(atMost)),
            {}};
}

Outcome CommandContext::connect()
{
    requireVorni();
    return transact(client(), connectRequest(client().settings()),
                    {OmlaVornConnEstablishCfmS::number, OmlaVornConnEstablishRejS::number});
}

void CommandContext::requireVorni() const
{
    if (m_client->settings().protocol != Vorni::Protocol::vorni) {
        throw BadUsage(fmt::format("client {} speaks RHUNE; \"client first\" goes back", m_client->settings().label));
    }
}

Outcome CommandContext::beConnected()
{
    const bool connects = m_options.connectsByItself && playDepth == 0 && !client().isConnected() &&
                          client().settings().protocol == Vorni::Protocol::vorni;
    return connects ? connect() : Outcome{};
}

Outcome CommandContext::send(Client& sender, std::vector<std::byte> bytes)
{
    const Vorni::Protocol protocol = sender.settings().protocol;
    Outcome published = protocol == Vorni::Protocol::vorni
                            ? waitPublished(m_options.publishedTimeout)
                            : waitFor(m_hub.serverFor(protocol), m_options.publishedTimeout);
    if (published.verdict != Verdict::ok) {
        return published;
    }
    if (std::string hindrance = sender.send(std::move(bytes)); !hindrance.empty()) {
        return {Verdict::failed, std::move(hindrance), {}};
    }
    return {};
}

Outcome CommandContext::transact(Client& sender, std::vector<std::byte> bytes, const Answers& answers,
                                 const Waiting& waiting)
{
    const std::uint64_t mark = sender.inbox().nextSequence();
    Outcome sent = send(sender, std::move(bytes));
    return sent.verdict == Verdict::ok ? await(sender, answers, mark, waiting) : sent;
}

Outcome CommandContext::await(Client& receiver, const Answers& answers, std::uint64_t since, const Waiting& waiting)
{
    const auto atMost = waiting.atMost.value_or(m_options.answerTimeout);
    const ServerMailbox& server = m_hub.serverFor(receiver.settings().protocol);
    const unsigned losses = server.losses;
    std::optional<Signal> answer;
    const auto isAnswer = [&](const Signal& signal) {
        return (signal.number() == answers.confirm || signal.number() == answers.reject) &&
               (!answers.isMine || answers.isMine(signal));
    };
    const auto showProgress = [&](ClientHub::Clock::duration waited) {
        m_printer.progress(fmt::format("{}: {:.1f} of {}", waiting.progress,
                                       std::chrono::duration<double>(waited).count(), printSeconds(atMost)));
    };
    const WaitResult result = m_hub.waitUntil(
        [&] {
            answer = receiver.inbox().take(isAnswer, since);
            return answer.has_value() || server.losses != losses;
        },
        ClientHub::Clock::now() + atMost, waiting.progress.empty() ? ClientHub::Tick() : ClientHub::Tick(showProgress));
    m_printer.endProgress();
    if (answer) {
        return judge(std::move(*answer), answers);
    }
    switch (result) {
    case WaitResult::fulfilled:
        return {Verdict::noServer,
                fmt::format("\"{}\" went away before it answered with {}", server.name, printAnswers(answers)),
                {}};
    case WaitResult::interrupted:
        return interrupted();
    case WaitResult::timedOut:
        break;
    }
    return {Verdict::timedOut,
            fmt::format("expected {} within {}, came: {}", printAnswers(answers), printSeconds(atMost),
                        printUnread(receiver.inbox())),
            {}};
}

Outcome CommandContext::judge(Signal answer, const Answers& answers) const
{
    Outcome outcome;
    if (answer.decode().truncated) {
        outcome = {Verdict::failed, "the answer is shorter than its record: " + answer.print(), {}};
    } else if (answer.number() == answers.reject) {
        outcome = {Verdict::rejected, "rejected: " + answer.print(), {}};
    }
    outcome.answer = std::move(answer);
    return outcome;
}

const Command* CommandTable::find(const std::string& name) const
{
    const auto found = std::find_if(m_commands.begin(), m_commands.end(),
                                    [&](const Command& command) { return name == command.name; });
    return found == m_commands.end() ? nullptr : &*found;
}

Outcome CommandTable::run(CommandContext& context, Words words) const
{
    const Command* command = words.empty() ? nullptr : find(words.front());
    if (command == nullptr) {
        return {Verdict::badUsage, fmt::format("there is no command \"{}\"", words.empty() ? "" : words.front()), {}};
    }
    context.hub().pump();
    try {
        return command->run(context, words.subspan(1));
    } catch (const BadUsage& error) {
        return {Verdict::badUsage, fmt::format("{}\nusage: {}", error.what(), usageOf(*command)), {}};
    }
}

std::vector<std::string> CommandTable::complete(Words words) const
{
    if (words.size() <= 1) {
        std::vector<std::string> names;
        for (const Command& command : m_commands) {
            names.emplace_back(command.name);
        }
        return names;
    }
    const Command* command = find(words.front());
    return command != nullptr && command->complete != nullptr ? command->complete(words.subspan(1))
                                                              : std::vector<std::string>{};
}

std::string CommandTable::help() const
{
    constexpr std::size_t column = 46;
    std::string text;
    for (const Command& command : m_commands) {
        const std::string usage = usageOf(command);
        text += usage.size() < column ? fmt::format("  {:<{}}", usage, column)
                                      : fmt::format("  {}\n  {:<{}}", usage, "", column);
        text += wrapped(command.help, helpWidth, column + 2) + "\n";
    }
    return text;
}

std::optional<std::string> CommandTable::help(const std::string& name) const
{
    const Command* command = find(name);
    return command == nullptr ? std::nullopt
                              : std::optional(fmt::format("  {}\n      {}\n", usageOf(*command),
                                                          wrapped(command->help, helpWidth, 6)));
}

CommandTable allCommands()
{
    CommandTable table;
    addConnectionCommands(table);
    addMmiCommands(table);
    addTimeCommands(table);
    addLinkSupervisionCommands(table);
    addDeepSleepCommands(table);
    addOamStateCommands(table);
    addFaultCommands(table);
    addSoftwareCommands(table);
    addProductDataCommands(table);
    addHwLogCommands(table);
    addFruDescriptionCommands(table);
    addCapabilityCommands(table);
    addTemperatureCommands(table);
    addRestartCommands(table);
    addVisualIndicationCommands(table);
    addMaintenanceStateCommands(table);
    addHereIAmCommands(table);
    addOpticalIndicatorCommands(table);
    addPanelCommands(table);
    addRhuneCommands(table);
    addSignalCommands(table);
    addSessionCommands(table);
    return table;
}

void requireWords(Words words, std::size_t atLeast, std::size_t atMost)
{
    if (words.size() < atLeast || words.size() > atMost) {
        throw BadUsage(words.size() < atLeast ? "words are missing" : "there are too many words");
    }
}

ClientSettings furtherClient(CommandContext& context, const std::string& label, Vorni::Protocol protocol)
{
    const auto others = static_cast<std::uint32_t>(context.hub().clients().size());
    ClientSettings settings = context.options().client;
    settings.label = label;
    settings.mailboxName += "_" + label;
    settings.protocol = protocol;
    if (protocol == Vorni::Protocol::rhune) {
        settings.references = {.clientRef = 0, .serverRef = others}; // the procedures count from 1
    } else {
        settings.references.clientRef += others;
    }
    return settings;
}

std::optional<std::chrono::milliseconds> takeWithin(Words& words)
{
    constexpr std::size_t count = 2;
    if (words.size() < count || words[words.size() - count] != "within") {
        return std::nullopt;
    }
    const auto time = parseSeconds(words.back());
    words = words.first(words.size() - count);
    return time;
}

std::optional<std::string> takeWith(Words& words)
{
    constexpr std::size_t count = 2;
    if (words.size() < count || words[words.size() - count] != "with") {
        return std::nullopt;
    }
    const std::string& text = words.back();
    words = words.first(words.size() - count);
    return text;
}

std::vector<std::string> completePath(const std::string& word)
{
    const std::string folder = word.substr(0, word.rfind('/') + 1); // all of the word where there is no slash: none
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder.empty() ? "." : folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code unknownKind;
        std::string path = folder + entry->path().filename().string();
        if (path.starts_with(word)) {
            paths.push_back(std::move(path) + (entry->is_directory(unknownKind) ? "/" : ""));
        }
    }
    const bool isOnlyFolder = paths.size() == 1 && paths.front().ends_with('/');
    std::vector<std::string> inside = isOnlyFolder ? completePath(paths.front()) : std::vector<std::string>{};
    return inside.empty() ? paths : inside;
}

std::string printUnread(const Inbox& inbox)
{
    constexpr std::size_t limit = 10;
    const auto& signals = inbox.signals();
    if (signals.empty()) {
        return "nothing";
    }
    std::string text = signals.size() > limit ? "..." : "";
    for (std::size_t at = signals.size() - std::min(signals.size(), limit); at < signals.size(); ++at) {
        text += (text.empty() ? "" : ", ") + signals[at].print();
    }
    return text;
}

std::string printSeconds(std::chrono::milliseconds time)
{
    return fmt::format("{:g} s", std::chrono::duration<double>(time).count());
}

} // namespace VornClient
