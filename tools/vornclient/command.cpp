#include "vornclient/command.h"

#include "vornclient/procedures/procedures.h"
#include "vorni/connection.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace VornClient {

namespace {

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

Outcome CommandContext::waitPublished(std::chrono::milliseconds atMost)
{
    const auto showProgress = [&](ClientHub::Clock::duration waited) {
        m_printer.progress(fmt::format("waiting for \"{}\" to be published: {:.1f} of {}", ClientHub::serverName,
                                       std::chrono::duration<double>(waited).count(), printSeconds(atMost)));
    };
    const WaitResult result =
        m_hub.waitUntil([&] { return m_hub.server() != KIV_NO_MBOX; }, ClientHub::Clock::now() + atMost, showProgress);
    m_printer.endProgress();
    switch (result) {
    case WaitResult::fulfilled:
        m_lossesNoted = m_hub.serverLosses();
        return {};
    case WaitResult::interrupted:
        return interrupted();
    case WaitResult::timedOut:
        break;
    }
    return {Verdict::noServer,
            fmt::format("\"{}\" wasn't published within {}", ClientHub::serverName, printSeconds(atMost)),
            {}};
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
    return transact(connectRequest(client().settings()),
                    {OmlaVornConnEstablishCfmS::number, OmlaVornConnEstablishRejS::number});
}

Outcome CommandContext::beConnected()
{
    return m_options.connectsByItself && playDepth == 0 && !client().isConnected() ? connect() : Outcome{};
}

Outcome CommandContext::send(std::vector<std::byte> bytes)
{
    if (Outcome published = waitPublished(m_options.publishedTimeout); published.verdict != Verdict::ok) {
        return published;
    }
    if (std::string hindrance = client().send(std::move(bytes)); !hindrance.empty()) {
        return {Verdict::failed, std::move(hindrance), {}};
    }
    return {};
}

Outcome CommandContext::transact(std::vector<std::byte> bytes, const Answers& answers)
{
    const std::uint64_t mark = client().inbox().nextSequence();
    if (Outcome sent = send(std::move(bytes)); sent.verdict != Verdict::ok) {
        return sent;
    }
    const unsigned losses = m_hub.serverLosses();
    std::optional<Signal> answer;
    const auto isAnswer = [&](const Signal& signal) {
        return signal.number() == answers.confirm || signal.number() == answers.reject;
    };
    const WaitResult result = m_hub.waitUntil(
        [&] {
            answer = client().inbox().take(isAnswer, mark);
            return answer.has_value() || m_hub.serverLosses() != losses;
        },
        ClientHub::Clock::now() + m_options.answerTimeout);
    if (answer) {
        return judge(std::move(*answer), answers);
    }
    switch (result) {
    case WaitResult::fulfilled:
        return {
            Verdict::noServer,
            fmt::format("\"{}\" went away before it answered with {}", ClientHub::serverName, printAnswers(answers)),
            {}};
    case WaitResult::interrupted:
        return interrupted();
    case WaitResult::timedOut:
        break;
    }
    return {Verdict::timedOut,
            fmt::format("expected {} within {}, came: {}", printAnswers(answers), printSeconds(m_options.answerTimeout),
                        printUnread(client().inbox())),
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
        text += fmt::format("{}\n", command.help);
    }
    return text;
}

CommandTable allCommands()
{
    CommandTable table;
    addConnectionCommands(table);
    addMmiCommands(table);
    addTimeCommands(table);
    addLinkSupervisionCommands(table);
    addDeepSleepCommands(table);
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
