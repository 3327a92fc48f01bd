#include "ostinel/commandFolder.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <sys/socket.h>

namespace Ostinel {
namespace {

constexpr const char* folderName = "cmd";
constexpr int maxAttempts = 3; ///< to link a name that changes meanwhile
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

} // namespace

bool isCommandName(const std::string& name)
{
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos && !isSocketName(name);
}

int CommandFolder::open()
{
    return m_folder.open(folderName);
}

int CommandFolder::make()
{
    return m_folder.make(folderName);
}

std::optional<std::string> CommandFolder::socketOf(const std::string& command) const
{
    auto socket = m_folder.readLink(command);
    return socket && isSocketName(*socket) ? std::move(socket) : std::nullopt;
}

UniqueFd CommandFolder::connectTo(const std::string& command) const
{
    const auto socket = isCommandName(command) ? socketOf(command) : std::nullopt;
    UniqueFd fd(socket ? ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1);
    return fd && m_folder.connect(fd.get(), *socket) == 0 ? std::move(fd) : UniqueFd();
}

std::vector<std::string> CommandFolder::commands() const
{
    std::map<std::string, bool> alive; // by socket: a process is asked once
    std::vector<std::string> names;
    for (const std::string& name : m_folder.entries()) {
        const auto socket = isCommandName(name) ? socketOf(name) : std::nullopt;
        if (!socket) {
            continue;
        }
        const auto known = alive.find(*socket);
        const bool living = known != alive.end() ? known->second : (alive[*socket] = m_folder.isAlive(*socket));
        if (living) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void CommandFolder::clear() const
{
    for (const std::string& name : m_folder.entries()) {
        if (isSocketName(name)) {
            m_folder.removeDead(name);
        } else if (const auto socket = socketOf(name); socket && !m_folder.isAlive(*socket)) {
            m_folder.removeLink(name, *socket);
        }
    }
}

int CommandFolder::listen(UniqueFd& socket) const
{
    clear();
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int error = fd ? m_folder.listen(fd.get(), ownSocket(), SOMAXCONN) : errno;
    if (error == 0) {
        socket = std::move(fd);
    }
    return error;
}

int CommandFolder::link(const std::string& command) const
{
    const std::string own = ownSocket();
    int error = EEXIST;
    for (int attempt = 0; error == EEXIST && attempt < maxAttempts; ++attempt) {
        // One to our own pid was left behind by an earlier process: the registry links a name once.
        const auto socket = socketOf(command);
        if (socket && *socket != own && m_folder.isAlive(*socket)) {
            break;
        }
        error = m_folder.replaceLink(command, socket.value_or(""), own);
    }
    return error;
}

void CommandFolder::unlink(const std::string& command) const
{
    m_folder.removeLink(command, ownSocket());
}

void CommandFolder::removeSocket() const
{
    m_folder.remove(ownSocket());
}

} // namespace Ostinel
