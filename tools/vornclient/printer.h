/// What the user sees: every signal and every step, as text or as JSON lines.
#pragma once

#include "vornclient/capabilityList.h"
#include "vornclient/client.h"
#include "vornclient/loadSummary.h"
#include "vornclient/report.h"

#include <memory>
#include <string>

namespace VornClient {

struct PrinterSettings {
    bool json = false;
    bool quiet = false; ///< errors only
    bool times = false; ///< a time before each line of text; JSON lines always have one
};

/// Standard output has one line an event; errors and the progress line go to standard error.
class Printer : public ClientListener
{
public:
    static std::unique_ptr<Printer> create(const PrinterSettings& settings);

    /// A step of a session file; `place` is "file:line".
    virtual void step(const std::string& place, const std::string& command) = 0;
    /// The output of a command of the unit's command line.
    virtual void unitOutput(const std::string& command, const std::string& output, int exitCode) = 0;
    virtual void status(const ClientHub& hub, const Client& inUse) = 0;
    /// The O&M state of a client's session, in words.
    virtual void oamState(const Client& client, const std::string& state) = 0;
    /// The faults that a client is shown.
    virtual void faults(const Client& client) = 0;
    /// From here to endWatch the changes of a client's faults are printed instead of signals: on a terminal the table
    /// is drawn anew for each.
    virtual void beginWatch(const Client& client) = 0;
    void endWatch() { m_watched = nullptr; }
    virtual void loaded(const Client& client, const LoadSummary& summary) = 0;
    /// The list of software components, or a part of it.
    virtual void softwareList(const Client& client, const std::string& text) = 0;
    virtual void runningModule(const Client& client, const std::string& loadModule) = 0;
    /// The fields of an answer that tells product data; `kind` is the command that asked for them.
    virtual void productData(const Client& client, const char* kind, const ShownFields& fields) = 0;
    virtual void logEntries(const Client& client, std::uint32_t logId, const std::vector<std::string>& entries) = 0;
    /// A FRU description, which was written to a file unless that is empty.
    virtual void fruDescription(const Client& client, const std::string& fdfId, const std::string& text,
                                const std::string& file) = 0;
    virtual void capabilities(const Client& client, const std::vector<Capability>& capabilities) = 0;
    virtual void report(const Client& client, const Report& report) = 0;
    /// From here to endLive no signals are printed, but a view in each of its states: on a terminal it is drawn anew.
    void beginLive() { m_isLive = true; }
    virtual void live(const Client& client, const LiveReport& view) = 0;
    void endLive() { m_isLive = false; }
    /// From here to endLoad a client's blocks and their acknowledgements aren't printed.
    void beginLoad(const Client& client) { m_loading = &client; }
    void endLoad() { m_loading = nullptr; }
    virtual void error(const std::string& text) = 0;

    /// A line that is overwritten by the next and by any other output; only on a terminal.
    void progress(const std::string& text);
    void endProgress();

protected:
    explicit Printer(bool showsProgress) : m_showsProgress(showsProgress) {}
    /// Null where none is being watched.
    const Client* watched() const { return m_watched; }
    void setWatched(const Client& client) { m_watched = &client; }
    /// Whether a signal goes without a line of its own.
    bool isMuted(const Client& client, const Signal& signal) const;
    /// One whole line.
    void writeLine(std::FILE* stream, const std::string& line);

private:
    bool m_showsProgress;
    bool m_progressShown = false;
    const Client* m_watched = nullptr;
    const Client* m_loading = nullptr;
    bool m_isLive = false;
};

/// The printer shows a live view rather than signals while this lives.
class LivePrinting
{
public:
    explicit LivePrinting(Printer& printer) : m_printer(printer) { printer.beginLive(); }
    ~LivePrinting() { m_printer.endLive(); }
    LivePrinting(const LivePrinting&) = delete;
    LivePrinting& operator=(const LivePrinting&) = delete;

private:
    Printer& m_printer;
};

} // namespace VornClient
