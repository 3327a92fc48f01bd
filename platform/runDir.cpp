#include "runDir.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <sys/stat.h>

namespace {

constexpr mode_t folderMode = 0700;
constexpr std::size_t maxPathInReason = 512;

enum class IfMissing { fail, make };

/// Absolute and without "." and "..". No link is followed, so ".." is its text's parent.
const std::string& root()
{
    static const std::string directory = [] {
        const char* value = std::getenv("RU_DIR");
        const std::filesystem::path given = value != nullptr && *value != '\0' ? value : "/run/ru";
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(given, error);
        std::string path = error ? given.string() : absolute.lexically_normal().string();
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        return path;
    }();
    return directory;
}

bool wouldBlock()
{
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    // POLLERR: nobody reads it any more, and writing would raise SIGPIPE.
    return ::poll(&output, 1, 0) != 1 || (output.revents & (POLLOUT | POLLERR | POLLHUP | POLLNVAL)) != POLLOUT;
}

/// Writes each text once.
void report(const std::string& path, const std::string& problem)
{
    static std::atomic<std::uint64_t> reported = 0; // a bit for each text, by its hash
    const std::string line = "run-time directory: " + path.substr(0, maxPathInReason) + ": " + problem + '\n';
    const std::uint64_t bit = std::uint64_t{1} << std::hash<std::string>()(line) % 64;
    if ((reported.fetch_or(bit) & bit) == 0 && !wouldBlock()) {
        [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
    }
}

/// Returns what is wrong with a directory, or an empty text.
std::string objection(const struct stat& status, bool isUnits)
{
    if (status.st_uid != ::geteuid() && (isUnits || status.st_uid != 0)) {
        return "belongs to user " + std::to_string(status.st_uid);
    }
    if (isUnits) {
        return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "can be written by group or others" : "";
    }
    return (status.st_mode & (S_IWOTH | S_ISVTX)) == S_IWOTH ? "can be written by others and is not sticky" : "";
}

/// Opens the directory of this name in another one, or says in `problem` why not.
UniqueFd openStep(int parent, const std::string& name, int flags, IfMissing ifMissing, int& error, std::string& problem)
{
    const auto attempt = [&] {
        UniqueFd directory(::openat(parent, name.c_str(), flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        error = directory ? 0 : errno;
        return directory;
    };
    UniqueFd directory = attempt();
    if (error == ENOENT && ifMissing == IfMissing::make) {
        if (::mkdirat(parent, name.c_str(), folderMode) == 0 || errno == EEXIST) {
            directory = attempt();
        } else {
            error = errno;
        }
    }
    struct stat status = {};
    if (error == ENOTDIR && ::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(status.st_mode)) {
        error = ELOOP;
    }
    if (error != 0) {
        problem = error == ELOOP ? "is a symbolic link" : std::strerror(error);
    }
    return directory;
}

UniqueFd openFolder(const char* folder, IfMissing ifMissing, int& error)
{
    const std::string path = ruDir(folder);
    std::string problem;
    std::size_t end = 0; // of the part that is open
    UniqueFd directory;
    if (path.front() == '/') {
        directory = openStep(AT_FDCWD, "/", O_PATH, IfMissing::fail, error, problem);
    } else {
        error = ENOENT;
        end = path.size();
        problem = "is relative, and the working directory has no path";
    }
    while (error == 0) {
        struct stat status = {};
        if (::fstat(directory.get(), &status) != 0) {
            error = errno;
            problem = std::strerror(error);
            break;
        }
        problem = objection(status, end >= root().size());
        if (!problem.empty()) {
            error = EPERM;
            break;
        }
        const std::size_t begin = path.find_first_not_of('/', end);
        if (begin == std::string::npos) {
            return directory;
        }
        end = std::min(path.find('/', begin), path.size());
        // A parent need not be readable.
        const bool isLast = path.find_first_not_of('/', end) == std::string::npos;
        directory = openStep(directory.get(), path.substr(begin, end - begin), isLast ? O_RDONLY : O_PATH, ifMissing,
                             error, problem);
    }
    if (error != ENOENT || ifMissing == IfMissing::make) {
        report(path.substr(0, std::max<std::size_t>(end, 1)), problem);
    }
    return {};
}

} // namespace

std::string ruDir(const char* folder)
{
    return root() + '/' + folder;
}

UniqueFd openRuDir(const char* folder, int& error)
{
    return openFolder(folder, IfMissing::fail, error);
}

UniqueFd makeAndOpenRuDir(const char* folder, int& error)
{
    return openFolder(folder, IfMissing::make, error);
}

std::string makeRuDir(const char* folder, int& error)
{
    makeAndOpenRuDir(folder, error);
    return ruDir(folder);
}
