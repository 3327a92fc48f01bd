/// A line of input edited on the terminal: prompt, history that outlives the program, completion of words, and
/// descriptors that are served while the user types.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// One editor per program: it owns the terminal while a line is read. Ctrl-C clears the line, Ctrl-D on an empty one
/// ends the input.
class LineEditor
{
public:
    /// What may stand in place of the last of `words`, which is empty behind a blank. Candidates that don't begin
    /// with it are left out by the editor.
    using Completer = std::function<std::vector<std::string>(const std::vector<std::string>& words)>;

    struct Settings {
        std::string program; ///< names the history file
        std::function<std::string()> prompt;
        Completer completer;
    };

    explicit LineEditor(Settings settings);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /// Calls `onReadable` whenever `fd` is readable while a line is read. What it prints appears above the line, which
    /// is drawn again below.
    void serve(int fd, std::function<void()> onReadable);

    /// The next line without its end; nothing at the end of the input.
    std::optional<std::string> readLine();

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

/// "$XDG_STATE_HOME/<program>/history", by default below "~/.local/state"; empty where the user has no home. Makes the
/// folder.
std::string historyFile(const std::string& program);
