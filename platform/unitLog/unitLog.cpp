// Each record opens the file anew: records are rare, and whoever else moved the file away is then followed. Writers
// take no lock, since an append is whole by itself; only who moves the file does, and whoever finds the lock taken
// writes on, at worst into the file that is just being moved.

#include "unitLog/unitLog.h"

#include "runDir.h"
#include "uniqueFd.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr off_t capacity = 1024 * 1024;
constexpr std::size_t longestLine = 64 * 1024;
constexpr mode_t fileMode = 0600;

UniqueFd openFile(const std::string& path, int flags)
{
    return UniqueFd(::open(path.c_str(), flags | O_CREAT | O_CLOEXEC, fileMode));
}

void appendTime(std::string& line)
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm utc = {};
    ::gmtime_r(&now.tv_sec, &utc);
    char text[64];
    line.append(text, std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc));
    constexpr long nanosecondsPerMillisecond = 1000000;
    std::snprintf(text, sizeof(text), ".%03ldZ", now.tv_nsec / nanosecondsPerMillisecond);
    line += text;
}

void appendEscaped(std::string& line, std::string_view text)
{
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\t') {
            line += "\\t";
        } else if (code < 0x20 || code == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\x%02x", static_cast<unsigned>(code));
            line += escape;
        } else {
            line += character;
        }
        if (line.size() >= longestLine) {
            return;
        }
    }
}

bool isFull(const std::string& path, std::size_t size)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && status.st_size + static_cast<off_t>(size) > capacity;
}

void moveAway(const std::string& path, std::size_t size)
{
    const UniqueFd lock = openFile(path + ".lock", O_RDWR);
    if (!lock || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        return;
    }
    if (isFull(path, size)) { // asked again under the lock: another may have moved it meanwhile
        ::rename(path.c_str(), (path + ".1").c_str());
    }
    ::flock(lock.get(), LOCK_UN); // a child that was forked meanwhile may hold the descriptor too
}

void writeLine(const char* name, const std::string& line)
{
    int error = 0;
    const std::string path = makeRuDir("log", error) + '/' + name + ".log";
    if (error != 0) {
        return;
    }
    if (isFull(path, line.size())) {
        moveAway(path, line.size());
    }
    if (const UniqueFd log = openFile(path, O_WRONLY | O_APPEND)) {
        [[maybe_unused]] const auto written = ::write(log.get(), line.data(), line.size());
    }
}

} // namespace

void unitLogWrite(const char* name, std::initializer_list<std::string_view> fields) noexcept
{
    const int callersErrno = errno; // what is logged is often an error in the midst of its handling
    try {
        std::string line;
        appendTime(line);
        for (const std::string_view field : fields) {
            if (line.size() < longestLine) {
                line += ' ';
                appendEscaped(line, field);
            }
        }
        line += '\n';
        writeLine(name, line);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s\n", name, exception.what());
    }
    errno = callersErrno;
}
