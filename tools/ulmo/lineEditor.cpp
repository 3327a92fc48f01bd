#include "ulmo/lineEditor.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <histedit.h>
#include <poll.h>
#include <sstream>
#include <unistd.h>
#include <utility>

namespace {

constexpr int historySize = 1000;
constexpr const char* eraseLine = "\r\033[K";

std::vector<std::string> wordsUpTo(const char* begin, const char* end)
{
    std::istringstream text{std::string(begin, end)};
    std::vector<std::string> words;
    for (std::string word; text >> word;) {
        words.push_back(word);
    }
    if (begin == end || end[-1] == ' ') {
        words.emplace_back();
    }
    return words;
}

/// The longest beginning that all of them share.
std::string commonPrefix(const std::vector<std::string>& candidates)
{
    std::string prefix = candidates.front();
    for (const std::string& candidate : candidates) {
        const auto differ = std::mismatch(prefix.begin(), prefix.end(), candidate.begin(), candidate.end());
        prefix.erase(differ.first, prefix.end());
    }
    return prefix;
}

} // namespace

std::string historyFile(const std::string& program)
{
    std::filesystem::path folder;
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
        folder = state;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
        folder = std::filesystem::path(home) / ".local" / "state";
    } else {
        return {};
    }
    folder /= program;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return error ? std::string{} : (folder / "history").string();
}

class LineEditor::Impl
{
public:
    explicit Impl(Settings settings) : m_settings(std::move(settings)), m_historyFile(historyFile(m_settings.program))
    {
        m_history = history_init();
        m_editor = el_init(m_settings.program.c_str(), stdin, stdout, stderr);
        if (m_history == nullptr || m_editor == nullptr) {
            throw std::bad_alloc();
        }
        setUpHistory();
        setUpEditor();
    }

    ~Impl()
    {
        el_end(m_editor);
        history_end(m_history);
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void serve(int fd, std::function<void()> onReadable) { m_served.push_back({fd, std::move(onReadable)}); }

    std::optional<std::string> readLine()
    {
        m_prompt = m_settings.prompt();
        int length = 0;
        const char* text = el_gets(m_editor, &length);
        if (text == nullptr || length <= 0) {
            std::fputc('\n', stdout);
            return std::nullopt;
        }
        std::string line(text, static_cast<std::size_t>(length));
        line.erase(line.find_last_not_of("\r\n") + 1);
        remember(line);
        return line;
    }

private:
    struct Served {
        int fd;
        std::function<void()> onReadable;
    };

    static Impl& of(EditLine* editor)
    {
        void* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return *static_cast<Impl*>(self);
    }

    void setUpHistory()
    {
        HistEvent event{};
        history(m_history, &event, H_SETSIZE, historySize);
        history(m_history, &event, H_SETUNIQUE, 1);
        if (!m_historyFile.empty()) {
            history(m_history, &event, H_LOAD, m_historyFile.c_str());
        }
    }

    void setUpEditor()
    {
        el_set(m_editor, EL_CLIENTDATA, this);
        el_set(m_editor, EL_EDITOR, "emacs");
        el_set(m_editor, EL_HIST, history, m_history);
        // What goes through the variable arguments has to be a function pointer, hence the casts.
        el_set(m_editor, EL_PROMPT,
               static_cast<char* (*)(EditLine*)>([](EditLine* editor) { return of(editor).m_prompt.data(); }));
        el_set(m_editor, EL_GETCFN, static_cast<el_rfunc_t>([](EditLine* editor, wchar_t* character) {
                   return of(editor).readCharacter(*character);
               }));
        addFunction(L"complete-word", L"Complete the word", L"\t",
                    [](EditLine* editor, int) { return static_cast<unsigned char>(of(editor).complete()); });
        addFunction(L"clear-line", L"Clear the line", L"^C",
                    [](EditLine* editor, int) { return static_cast<unsigned char>(of(editor).clearLine()); });
        // While a line is edited Ctrl-C is a key like any other; while a command runs it is the terminal's again.
        el_set(m_editor, EL_SETTY, "-d", "-isig", nullptr);
        el_set(m_editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    }

    using Function = unsigned char (*)(EditLine*, int);

    /// The wide call keeps the strings; the other one leaks copies of them.
    void addFunction(const wchar_t* name, const wchar_t* help, const wchar_t* key, Function function)
    {
        el_wset(m_editor, EL_ADDFN, name, help, function);
        el_wset(m_editor, EL_BIND, key, name, nullptr);
    }

    /// The next character of the terminal; serves the other descriptors until there is one. Returns 1, or 0 at the
    /// end, or -1.
    int readCharacter(wchar_t& character)
    {
        std::mbstate_t state{};
        while (true) {
            if (!waitForTerminal()) {
                return -1;
            }
            char byte = 0;
            const ssize_t size = ::read(STDIN_FILENO, &byte, 1);
            if (size == 0) {
                return 0;
            }
            if (size < 0) {
                if (errno == EINTR || errno == EAGAIN) {
                    continue;
                }
                return -1;
            }
            const std::size_t used = std::mbrtowc(&character, &byte, 1, &state);
            if (used == 0 || used == 1) {
                return 1;
            }
            if (used == static_cast<std::size_t>(-1)) {
                state = {}; // not a character of this locale: the byte is skipped
            }
        }
    }

    bool waitForTerminal()
    {
        while (true) {
            std::vector<pollfd> polled{{STDIN_FILENO, POLLIN, 0}};
            for (const Served& served : m_served) {
                polled.push_back({served.fd, POLLIN, 0});
            }
            if (::poll(polled.data(), polled.size(), -1) < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return false;
            }
            for (std::size_t index = 0; index < m_served.size(); ++index) {
                if (polled[index + 1].revents != 0) {
                    printAbove(m_served[index].onReadable);
                }
            }
            if (polled[0].revents != 0) {
                return true;
            }
        }
    }

    void printAbove(const std::function<void()>& print)
    {
        std::fputs(eraseLine, stdout);
        print();
        std::fflush(stdout);
        m_prompt = m_settings.prompt();
        el_set(m_editor, EL_REFRESH);
    }

    int complete()
    {
        const LineInfo* line = el_line(m_editor);
        const std::vector<std::string> words = wordsUpTo(line->buffer, line->cursor);
        const std::string& word = words.back();
        std::vector<std::string> candidates = m_settings.completer(words);
        std::erase_if(candidates, [&](const std::string& candidate) { return !candidate.starts_with(word); });
        if (candidates.empty()) {
            return CC_ERROR;
        }
        std::string insertion = commonPrefix(candidates).substr(word.size());
        if (candidates.size() == 1) {
            insertion += candidates.front().ends_with('=') ? "" : " ";
        } else if (insertion.empty()) {
            listCandidates(candidates);
            return CC_REDISPLAY;
        }
        return el_insertstr(m_editor, insertion.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    static void listCandidates(std::vector<std::string>& candidates)
    {
        std::sort(candidates.begin(), candidates.end());
        std::fputc('\n', stdout);
        for (const std::string& candidate : candidates) {
            std::fprintf(stdout, "%s\n", candidate.c_str());
        }
        std::fflush(stdout);
    }

    int clearLine()
    {
        const LineInfo* line = el_line(m_editor);
        const auto toEnd = static_cast<int>(line->lastchar - line->cursor);
        const auto length = static_cast<int>(line->lastchar - line->buffer);
        el_cursor(m_editor, toEnd);
        el_deletestr(m_editor, length);
        return CC_REFRESH;
    }

    void remember(const std::string& line)
    {
        if (line.find_first_not_of(' ') == std::string::npos) {
            return;
        }
        HistEvent event{};
        history(m_history, &event, H_ENTER, line.c_str());
        if (!m_historyFile.empty()) {
            history(m_history, &event, H_SAVE, m_historyFile.c_str());
        }
    }

    Settings m_settings;
    std::string m_historyFile;
    std::string m_prompt;
    std::vector<Served> m_served;
    History* m_history = nullptr;
    EditLine* m_editor = nullptr;
};

LineEditor::LineEditor(Settings settings) : m_impl(std::make_unique<Impl>(std::move(settings))) {}

LineEditor::~LineEditor() = default;

void LineEditor::serve(int fd, std::function<void()> onReadable)
{
    m_impl->serve(fd, std::move(onReadable));
}

std::optional<std::string> LineEditor::readLine()
{
    return m_impl->readLine();
}
