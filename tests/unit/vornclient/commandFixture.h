/// A client of the program under test with a printer that remembers.
#pragma once

#include "scriptedServer.h"
#include "vornclient/command.h"
#include "vornclient/faultNames.h"
#include "vorni/connection.h"

#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sstream>

namespace VornClient {

inline Signal signalOf(const std::vector<std::string>& words)
{
    Signal signal;
    signal.bytes = buildSignal(words, {});
    return signal;
}

/// Answers with a signal built from words, whose references are those of the request.
inline void reply(const ScriptedServer& server, const kiv_msg* request, const std::vector<std::string>& words)
{
    const Signal signal = signalOf(words);
    server.reply(request, signal.number(),
                 {reinterpret_cast<const char*>(signal.bytes.data()) + 12, signal.bytes.size() - 12});
}

/// Keeps what would be printed of the signals.
class SilentPrinter : public Printer
{
public:
    SilentPrinter() : Printer(false) {}
    void onSent(const Client& client, const Signal& signal) override
    {
        note(client, "->", signal);
        sent.push_back(signal);
    }
    void onReceived(const Client& client, const Signal& signal) override { note(client, "<-", signal); }
    void onServerPublished(kiv_mbox_id_t) override { log.emplace_back("published"); }
    void onServerGone(kiv_mbox_id_t) override { log.emplace_back("gone"); }
    void step(const std::string&, const std::string&) override {}
    void unitOutput(const std::string&, const std::string&, int) override {}
    void status(const ClientHub&, const Client&) override {}
    void oamState(const Client&, const std::string& state) override { log.push_back("state " + state); }
    void faults(const Client& client) override
    {
        for (const auto& [faultId, fault] : client.faults().faults()) {
            log.push_back("fault " + printFaultId(faultId));
        }
    }
    void beginWatch(const Client& client) override { setWatched(client); }
    void onFaultChange(const Client&, const FaultChange& change) override
    {
        const bool hasFault = change.event != FaultEvent::cleared;
        log.push_back(faultEventName(change.event) + (hasFault ? " " + printFaultId(change.fault.faultId) : ""));
        if (whenFaultChanges) {
            whenFaultChanges();
        }
    }
    void loaded(const Client&, const LoadSummary& summary) override
    {
        log.push_back(summary.loadModule + " " + loadResultName(summary.result));
    }
    void softwareList(const Client&, const std::string& text) override { log.push_back("list " + text); }
    void runningModule(const Client&, const std::string& name) override { log.push_back("running " + name); }
    void productData(const Client&, const char*, const ShownFields& fields) override
    {
        for (const ShownField& field : fields) {
            log.push_back(field.name + " " + printValue(field));
        }
    }
    void logEntries(const Client&, std::uint32_t, const std::vector<std::string>& entries) override
    {
        log.insert(log.end(), entries.begin(), entries.end());
    }
    void fruDescription(const Client&, const std::string& fdfId, const std::string& text,
                        const std::string& file) override
    {
        log.push_back(fdfId + " " + (file.empty() ? text : "in a file"));
    }
    void capabilities(const Client&, const std::vector<Capability>& capabilities) override
    {
        const auto lines = printCapabilityTable(capabilities);
        log.insert(log.end(), lines.begin(), lines.end());
    }
    void report(const Client&, const Report& report) override
    {
        log.insert(log.end(), report.lines.begin(), report.lines.end());
    }
    void live(const Client&, const LiveReport& view) override
    {
        log.insert(log.end(), view.news.begin(), view.news.end());
        if (whenLive) {
            whenLive();
        }
    }
    void error(const std::string&) override {}

    std::vector<std::string> log;
    std::vector<Signal> sent;
    std::function<void()> whenFaultChanges;
    std::function<void()> whenLive;

private:
    void note(const Client& client, const char* arrow, const Signal& signal)
    {
        log.push_back(client.settings().label + arrow + Vorni::signalName(signal.number()));
    }
};

/// Runs commands against a server that the test scripts.
class VornClientCommand : public testing::Test
{
protected:
    void serve(ScriptedServer::Script script) { m_server = std::make_unique<ScriptedServer>(std::move(script)); }

    /// The script has had all that was sent when this returns, and runs no more.
    void stopServing() { m_server.reset(); }

    void TearDown() override { stopServing(); }

    /// Answers connection requests; the rest is the script's.
    void serveConnected(ScriptedServer::Script script)
    {
        serve([script = std::move(script)](ScriptedServer& server, const kiv_msg* signal) {
            if (signal->number == OmlaVornConnEstablishReqS::number) {
                server.reply(signal, OmlaVornConnEstablishCfmS::number);
            } else {
                script(server, signal);
            }
        });
    }

    Outcome run(std::vector<std::string> words)
    {
        if (!m_context) {
            m_hub = std::make_unique<ClientHub>("hub", printer);
            m_context = std::make_unique<CommandContext>(*m_hub, printer, m_table, options);
        }
        return m_table.run(*m_context, words);
    }

    Verdict verdict(std::vector<std::string> words) { return run(std::move(words)).verdict; }

    /// Runs lines, which must all have this verdict.
    void expectAll(Verdict expected, const std::vector<std::string>& lines)
    {
        for (const std::string& line : lines) {
            std::istringstream words(line);
            EXPECT_EQ(verdict({std::istream_iterator<std::string>(words), {}}), expected) << line;
        }
    }

    CommandContext& context() { return *m_context; }

    SilentPrinter printer;
    Options options{.client = {.label = "", .mailboxName = "client", .references = {}, .protocolRev = 3},
                    .answerTimeout = std::chrono::milliseconds(10000),
                    .publishedTimeout = std::chrono::milliseconds(10000),
                    .connectsByItself = false};

private:
    const CommandTable m_table = allCommands();
    std::unique_ptr<ScriptedServer> m_server;
    std::unique_ptr<ClientHub> m_hub;
    std::unique_ptr<CommandContext> m_context;
};

} // namespace VornClient
