/// The commands of the client: one table for the command line, the interactive mode and session files, and what a
/// command needs to do its work. A procedure family adds its commands from a file of its own in procedures/.
#pragma once

#include "vornclient/clientHub.h"
#include "vornclient/printer.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace VornClient {

/// The words behind a command's name.
using Words = std::span<const std::string>;

enum class Verdict {
    ok,
    rejected, ///< the server refused
    failed,   ///< something else came than what was expected
    badUsage,
    timedOut,
    noServer, ///< not published, or gone before it answered
    interrupted,
};

/// The program's exit code: 0, 1 (rejected, failed), 2, 3, 4, 130.
int exitCode(Verdict verdict);

/// How a command ended.
struct Outcome {
    Verdict verdict = Verdict::ok;
    std::string message;          ///< why it isn't ok
    std::optional<Signal> answer; ///< of a request that was answered
};

/// The numbers that answer a request; 0 where there is no such answer.
struct Answers {
    std::uint32_t confirm = 0;
    std::uint32_t reject = 0;
    /// Tells answers to this request from those to others, where a client may have more than one open.
    std::function<bool(const Signal&)> isMine = nullptr;
};

/// How long an answer is waited for, and what the progress line says meanwhile.
struct Waiting {
    std::optional<std::chrono::milliseconds> atMost = std::nullopt; ///< by default the options' answerTimeout
    std::string progress = {};                                      ///< empty for no progress line
};

struct Options {
    ClientSettings client;
    std::chrono::milliseconds answerTimeout{5000};
    std::chrono::milliseconds publishedTimeout{10000};
    bool connectsByItself = false; ///< a request of a client that isn't connected connects first, but in a session file
    bool isInteractive = false;    ///< the user is there, and connects
};

class CommandTable;

/// What the commands work on: the clients, the one among them that is in use, and the ways to speak with the server.
class CommandContext
{
public:
    CommandContext(ClientHub& hub, Printer& printer, const CommandTable& table, Options options);

    ClientHub& hub() { return m_hub; }
    Printer& printer() { return m_printer; }
    const CommandTable& table() const { return m_table; }
    const Options& options() const { return m_options; }
    Client& client() { return *m_client; }
    void use(Client& client) { m_client = &client; }
    /// The client in use where it speaks RHUNE, else the one labelled "rhune", made where there is none.
    Client& rhuneClient();
    /// The client that a signal of this number is for: the one in use, but for RHUNE's where that one speaks VORNI.
    Client& clientFor(std::uint32_t signalNumber);

    /// Waits for the server to be published, with a progress line.
    Outcome waitPublished(std::chrono::milliseconds atMost);
    /// Waits for the server to go away, if it hasn't since it was last used or waited for.
    Outcome waitGone(std::chrono::milliseconds atMost);
    /// Asks for a connection and waits for the answer.
    Outcome connect();
    /// Whether a command does by itself what has to come first: one-shot and at the prompt, but not in a session file.
    bool actsByItself() const { return (m_options.connectsByItself || m_options.isInteractive) && playDepth == 0; }
    /// Connects where the options say that a client does so by itself.
    Outcome beConnected();
    /// Sends without waiting for an answer; waits for the server first.
    Outcome send(Client& sender, std::vector<std::byte> bytes);
    /// Sends and waits for one of the answers.
    Outcome transact(Client& sender, std::vector<std::byte> bytes, const Answers& answers, const Waiting& waiting = {});
    /// Waits for one of the answers among the signals from `since` on.
    Outcome await(Client& receiver, const Answers& answers, std::uint64_t since, const Waiting& waiting = {});
    /// Sends and waits as a connected client of VORNI. `make` gives the signal for the references, which are those of
    /// the connection.
    template <typename Make>
    Outcome requestSignal(const Answers& answers, Make&& make, const Waiting& waiting = {})
    {
        requireVorni();
        Outcome connected = beConnected();
        return connected.verdict != Verdict::ok ? connected
                                                : transact(client(), make(client().references()), answers, waiting);
    }
    /// The same with a request record: `fill` writes what isn't number and references.
    template <typename Request, typename Fill>
    Outcome request(const Answers& answers, Fill&& fill, const Waiting& waiting = {})
    {
        return requestSignal(
            answers, [&](const References& references) { return makeSignal<Request>(references, fill); }, waiting);
    }
    template <typename Request>
    Outcome request(const Answers& answers)
    {
        return request<Request>(answers, [](Request&) {});
    }

    /// Throws BadUsage where the client in use doesn't speak VORNI.
    void requireVorni() const;

    /// Session files that are being played: a file may play others, within reason.
    int playDepth = 0;

private:
    Outcome waitFor(const ServerMailbox& server, std::chrono::milliseconds atMost);
    Outcome judge(Signal answer, const Answers& answers) const;

    ClientHub& m_hub;
    Printer& m_printer;
    const CommandTable& m_table;
    Options m_options;
    Client* m_client;
    unsigned m_lossesNoted = 0; ///< the hub's server losses when the server was last known to be there
};

struct Command {
    const char* name;
    const char* arguments; ///< for the usage line
    const char* help;
    /// Throws BadUsage for words that make no sense.
    Outcome (*run)(CommandContext& context, Words words);
    /// What may stand in place of the last word; null for nothing.
    std::vector<std::string> (*complete)(Words words);
};

class CommandTable
{
public:
    void add(const Command& command) { m_commands.push_back(command); }
    const std::vector<Command>& commands() const { return m_commands; }
    /// Null where there is none.
    const Command* find(const std::string& name) const;
    /// Runs a command, its name the first word.
    Outcome run(CommandContext& context, Words words) const;
    /// Candidates for the last word of a line.
    std::vector<std::string> complete(Words words) const;
    /// The commands with arguments and help, one a line.
    std::string help() const;
    /// The same of one; nothing for a word that is no command.
    std::optional<std::string> help(const std::string& name) const;

private:
    std::vector<Command> m_commands;
};

/// The table with all commands.
CommandTable allCommands();

// Help for the procedures' files.

/// The label of the client that RHUNE's commands are for where none such is in use.
constexpr const char* rhuneLabel = "rhune";

/// Settings of a further client: those of the first with a label, mailbox name and reference of its own.
ClientSettings furtherClient(CommandContext& context, const std::string& label, Vorni::Protocol protocol);

/// Throws BadUsage unless there are `atLeast` to `atMost` words.
void requireWords(Words words, std::size_t atLeast, std::size_t atMost);

/// Takes "within SECONDS" off the end of the words.
std::optional<std::chrono::milliseconds> takeWithin(Words& words);

/// Takes "with TEXT" off the end of the words.
std::optional<std::string> takeWith(Words& words);

/// Files whose path begins with a word. A folder that is the only one stands for what is in it.
std::vector<std::string> completePath(const std::string& word);

/// The last of the signals that nobody has asked for: the first thing to know when an expected one hasn't come.
std::string printUnread(const Inbox& inbox);

/// "5 s", "0.3 s".
std::string printSeconds(std::chrono::milliseconds time);

} // namespace VornClient
