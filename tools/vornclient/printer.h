/// What the user sees: every signal and every step, as text or as JSON lines.
#pragma once

#include "vornclient/client.h"

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
    virtual void error(const std::string& text) = 0;

    /// A line that is overwritten by the next and by any other output; only on a terminal.
    void progress(const std::string& text);
    void endProgress();

protected:
    explicit Printer(bool showsProgress) : m_showsProgress(showsProgress) {}
    /// Null where none is being watched.
    const Client* watched() const { return m_watched; }
    void setWatched(const Client& client) { m_watched = &client; }
    /// One whole line.
    void writeLine(std::FILE* stream, const std::string& line);

private:
    bool m_showsProgress;
    bool m_progressShown = false;
    const Client* m_watched = nullptr;
};

} // namespace VornClient
