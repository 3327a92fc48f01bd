#include "ostinel/commandClient.h"

#include "ostinel/commandFolder.h"
#include "ostinel/commandProtocol.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <poll.h>
#include <sys/socket.h>

namespace Ostinel::CommandClient {
namespace {

/// Takes a line apart character by character.
class LineSplitter
{
public:
    std::optional<std::vector<std::string>> split(const std::string& line)
    {
        for (std::size_t at = 0; at < line.size(); ++at) {
            const bool escapes = line[at] == '\\' && at + 1 < line.size() && escapable(line[at + 1]);
            if (escapes) {
                ++at;
                take(line[at]);
            } else {
                put(line[at]);
            }
        }
        endWord();
        return m_quote == '\0' ? std::optional(std::move(m_words)) : std::nullopt;
    }

private:
    /// Whether a backslash takes the meaning from a character, where we are.
    bool escapable(char character) const
    {
        return m_quote == '\0' || (m_quote == '"' && (character == '"' || character == '\\'));
    }

    void put(char character)
    {
        if (m_quote != '\0') {
            if (character == m_quote) {
                m_quote = '\0';
            } else {
                take(character);
            }
        } else if (character == '\'' || character == '"') {
            m_quote = character;
            m_inWord = true; // also for a word of two quotes alone
        } else if (character == ' ' || character == '\t' || character == '\n') {
            endWord();
        } else {
            take(character);
        }
    }

    void take(char character)
    {
        m_word += character;
        m_inWord = true;
    }

    void endWord()
    {
        if (m_inWord) {
            m_words.push_back(std::move(m_word));
        }
        m_word.clear();
        m_inWord = false;
    }

    std::vector<std::string> m_words;
    std::string m_word;
    bool m_inWord = false;
    char m_quote = '\0';
};

/// Reads what a process answers, within the limits.
class Answer
{
public:
    Answer(int fd, const RunLimits& limits) : m_fd(fd), m_limits(limits) {}

    std::optional<std::uint32_t> readLength()
    {
        char bytes[lengthSize];
        return readAll(bytes, sizeof(bytes)) ? std::optional(getLength(bytes)) : std::nullopt;
    }

    bool copyBlock(std::uint32_t length, std::ostream& out)
    {
        std::vector<char> buffer(std::min<std::size_t>(length, longestBlock));
        for (std::size_t left = length; left > 0;) {
            const std::size_t part = std::min(left, buffer.size());
            if (!readAll(buffer.data(), part)) {
                return false;
            }
            out.write(buffer.data(), static_cast<std::streamsize>(part));
            left -= part;
        }
        out.flush();
        return true;
    }

    /// Why there was no more to read.
    RunError error() const { return m_error; }

private:
    bool readAll(char* to, std::size_t size)
    {
        while (size > 0) {
            if (!waitReadable()) {
                return false;
            }
            const ssize_t got = ::recv(m_fd, to, size, 0);
            if (got == 0 || (got < 0 && errno != EINTR)) {
                return false;
            }
            if (got > 0) {
                to += got;
                size -= static_cast<std::size_t>(got);
            }
        }
        return true;
    }

    bool waitReadable()
    {
        for (;;) {
            std::array<pollfd, 2> waited{pollfd{m_fd, POLLIN, 0}, pollfd{m_limits.interruptFd, POLLIN, 0}};
            const int ready = ::poll(waited.data(), waited.size(), timeLeft());
            if (ready > 0 && waited[0].revents != 0) {
                return true;
            }
            if (ready > 0) {
                m_error = RunError::interrupted;
                return false;
            }
            if (ready == 0) {
                m_error = RunError::timedOut;
                return false;
            }
            if (errno != EINTR) {
                return false;
            }
        }
    }

    /// For poll.
    int timeLeft() const
    {
        if (!m_limits.deadline) {
            return -1;
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*m_limits.deadline - std::chrono::steady_clock::now()).count();
        return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
    }

    int m_fd;
    const RunLimits& m_limits;
    RunError m_error = RunError::brokenOff;
};

} // namespace

std::optional<std::vector<std::string>> splitLine(const std::string& line)
{
    return LineSplitter().split(line);
}

std::vector<std::string> listCommands()
{
    CommandFolder folder;
    return folder.open() == 0 ? folder.commands() : std::vector<std::string>();
}

RunResult run(const std::vector<std::string>& words, std::ostream& out, const RunLimits& limits)
{
    CommandFolder folder;
    const UniqueFd fd = words.empty() || folder.open() != 0 ? UniqueFd() : folder.connectTo(words[0]);
    if (!fd) {
        return {RunError::notFound};
    }
    sendAll(fd.get(), frameWords(words)); // one that didn't get all of it doesn't answer with an exit code
    Answer answer(fd.get(), limits);
    while (const auto length = answer.readLength()) {
        if (*length == endMark) {
            const auto exitCode = answer.readLength();
            return exitCode ? RunResult{std::nullopt, static_cast<int>(*exitCode)} : RunResult{answer.error()};
        }
        if (!answer.copyBlock(*length, out)) {
            break;
        }
    }
    return {answer.error()};
}

} // namespace Ostinel::CommandClient
