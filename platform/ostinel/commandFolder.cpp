#include "ostinel/commandFolder.h"

#include "folderLock.h"
#include "runDir.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/socket.h>

namespace Ostinel {
namespace {

constexpr const char* folderName = "cmd";
constexpr std::size_t longestSocketName = 20;

std::string ownSocket()
{
    return std::to_string(::getpid());
}

bool isSocketName(const std::string& name)
{
    return !name.empty() && name.size() <= longestSocketName &&
           name.find_first_not_of("0123456789") == std::string::npos;
}

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

} // namespace

bool isCommandName(const std::string& name)
{
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos && !isSocketName(name);
}

int CommandFolder::open()
{
    m_directory = UniqueFd(::open(ruDir(folderName).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return m_directory ? 0 : errno;
}

int CommandFolder::make()
{
    int error = 0;
    makeRuDir(folderName, error);
    return error != 0 ? error : open();
}

/// Through the descriptor: the path of the folder may be longer than an address can hold.
sockaddr_un CommandFolder::address(const std::string& socket) const
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", m_directory.get(), socket.c_str());
    return address;
}

std::optional<std::string> CommandFolder::socketOf(const std::string& command) const
{
    char target[longestSocketName + 1];
    const ssize_t length = ::readlinkat(m_directory.get(), command.c_str(), target, sizeof(target));
    std::string socket(target, length < 0 ? 0 : static_cast<std::size_t>(length));
    return isSocketName(socket) ? std::optional(std::move(socket)) : std::nullopt;
}

UniqueFd CommandFolder::connectToSocket(const std::string& socket, int flags, int& error) const
{
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    const sockaddr_un to = address(socket);
    error = 0;
    if (!fd || ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&to), sizeof(to)) != 0) {
        error = errno;
    }
    return fd;
}

bool CommandFolder::isAlive(const std::string& socket) const
{
    int error = 0;
    connectToSocket(socket, SOCK_NONBLOCK, error);
    return error != ECONNREFUSED && error != ENOENT; // EAGAIN: there, with many clients waiting
}

UniqueFd CommandFolder::connectTo(const std::string& command) const
{
    const auto socket = isCommandName(command) ? socketOf(command) : std::nullopt;
    if (!socket) {
        return {};
    }
    int error = 0;
    UniqueFd fd = connectToSocket(*socket, 0, error);
    return error == 0 ? std::move(fd) : UniqueFd();
}

std::vector<std::string> CommandFolder::entries() const
{
    const int fd = ::openat(m_directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseDirectory> directory(fd < 0 ? nullptr : ::fdopendir(fd));
    std::vector<std::string> names;
    while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
        names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> CommandFolder::commands() const
{
    std::map<std::string, bool> alive; // by socket: a process is asked once
    std::vector<std::string> names;
    for (const std::string& name : entries()) {
        const auto socket = isCommandName(name) ? socketOf(name) : std::nullopt;
        if (!socket) {
            continue;
        }
        const auto known = alive.find(*socket);
        const bool living = known != alive.end() ? known->second : (alive[*socket] = isAlive(*socket));
        if (living) {
            names.push_back(name);
        }
    }
    return names;
}

void CommandFolder::clear() const
{
    for (const std::string& name : entries()) {
        const auto socket = isSocketName(name) ? std::optional(name) : socketOf(name);
        if (socket && !isAlive(*socket)) {
            ::unlinkat(m_directory.get(), name.c_str(), 0);
        }
    }
}

int CommandFolder::listen(UniqueFd& socket) const
{
    const FolderLock lock(m_directory.get());
    clear();
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un at = address(ownSocket());
    if (!fd || ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&at), sizeof(at)) != 0 ||
        ::listen(fd.get(), SOMAXCONN) != 0) {
        return errno;
    }
    socket = std::move(fd);
    return 0;
}

int CommandFolder::link(const std::string& command) const
{
    const FolderLock lock(m_directory.get());
    const std::string own = ownSocket();
    if (const auto socket = socketOf(command)) {
        // One to our own pid was left behind by an earlier process: the registry links a name once.
        if (*socket != own && isAlive(*socket)) {
            return EEXIST;
        }
        ::unlinkat(m_directory.get(), command.c_str(), 0);
    }
    return ::symlinkat(own.c_str(), m_directory.get(), command.c_str()) == 0 ? 0 : errno;
}

void CommandFolder::unlink(const std::string& command) const
{
    if (socketOf(command) == ownSocket()) {
        ::unlinkat(m_directory.get(), command.c_str(), 0);
    }
}

void CommandFolder::removeSocket() const
{
    ::unlinkat(m_directory.get(), ownSocket().c_str(), 0);
}

} // namespace Ostinel
