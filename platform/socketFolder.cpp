#include "socketFolder.h"

#include "runDir.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t maxTarget = 255;
constexpr unsigned maxClaims = 1000; ///< of killed claimants of one entry
constexpr int maxAttempts = 50;      ///< to take a name over while others are at it
constexpr auto attemptInterval = 1ms;

/// Calls `bind` or `connect` with the address of a file. Returns 0 or an errno value.
template <typename Call>
int withAddress(Call call, int socket, const std::string& file)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + file;
    if (path.size() >= sizeof(address.sun_path)) {
        return ENAMETOOLONG;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    int result = 0;
    do {
        result = call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

UniqueFd newDatagramSocket()
{
    return UniqueFd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

/// Asks with a socket of another type, which a listener refuses without seeing it. `file` holds the socket's file.
int probe(int file)
{
    const UniqueFd socket = newDatagramSocket();
    return socket ? withAddress(::connect, socket.get(), std::to_string(file)) : errno;
}

bool isDeadSocket(int file, const struct stat& status)
{
    return S_ISSOCK(status.st_mode) && probe(file) == ECONNREFUSED;
}

/// The target of a link; `name` may be empty, for the link that `directory` holds.
std::optional<std::string> targetOf(int directory, const char* name)
{
    char target[maxTarget + 1];
    const ssize_t length = ::readlinkat(directory, name, target, sizeof(target));
    if (length < 0 || static_cast<std::size_t>(length) > maxTarget) {
        return std::nullopt;
    }
    return std::string(target, static_cast<std::size_t>(length));
}

struct HasTarget {
    const std::string& target;
    bool operator()(int file, const struct stat& status) const
    {
        return S_ISLNK(status.st_mode) && targetOf(file, "") == target;
    }
};

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

} // namespace

/// The right to take an entry off its name.
class SocketFolder::Claim
{
public:
    Claim(const SocketFolder& folder, ino_t entry)
        : m_folder(folder), m_prefix(".claim-" + std::to_string(entry) + '-'), m_socket(newDatagramSocket())
    {
        do {
            m_error = m_socket ? m_folder.bind(m_socket.get(), name(m_number)) : errno;
        } while (m_error == EADDRINUSE && m_folder.isDead(name(m_number)) && ++m_number < maxClaims);
    }
    /// The lower numbers are those of killed claimants, and nobody else removes them.
    ~Claim()
    {
        for (unsigned number = m_error == 0 ? m_number + 1 : 0; number-- > 0;) {
            m_folder.remove(name(number));
        }
    }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    /// 0, EADDRINUSE if another one has the claim, or what the system said.
    int error() const { return m_error; }

private:
    std::string name(unsigned number) const { return m_prefix + std::to_string(number); }

    const SocketFolder& m_folder;
    std::string m_prefix;
    UniqueFd m_socket;
    unsigned m_number = 0;
    int m_error = 0;
};

int SocketFolder::open(const char* folder)
{
    int error = 0;
    m_directory = openRuDir(folder, error);
    return error;
}

int SocketFolder::make(const char* folder)
{
    int error = 0;
    m_directory = makeAndOpenRuDir(folder, error);
    return error;
}

int SocketFolder::connect(int socket, const std::string& name) const
{
    return withAddress(::connect, socket, std::to_string(m_directory.get()) + '/' + name);
}

int SocketFolder::bind(int socket, const std::string& name) const
{
    return withAddress(::bind, socket, std::to_string(m_directory.get()) + '/' + name);
}

/// A descriptor of the entry itself, be it a socket or a link. While it is open no other file has its inode number.
UniqueFd SocketFolder::hold(const std::string& name, struct stat& status) const
{
    UniqueFd file(::openat(m_directory.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return file && ::fstat(file.get(), &status) == 0 ? std::move(file) : UniqueFd();
}

bool SocketFolder::isAlive(const std::string& name) const
{
    struct stat status = {};
    const UniqueFd file = hold(name, status);
    return file ? S_ISSOCK(status.st_mode) && probe(file.get()) != ECONNREFUSED : errno != ENOENT;
}

bool SocketFolder::isDead(const std::string& name) const
{
    struct stat status = {};
    const UniqueFd file = hold(name, status);
    return file && isDeadSocket(file.get(), status);
}

/// Removes an entry that is stale. Returns 0, EEXIST if it isn't stale, ENOENT if there is none or none any more,
/// EADDRINUSE if another one is removing it, or what the system said.
template <typename IsStale>
int SocketFolder::removeStale(const std::string& name, IsStale isStale) const
{
    struct stat status = {};
    const UniqueFd file = hold(name, status);
    if (!file) {
        return errno;
    }
    if (!isStale(file.get(), status)) {
        return EEXIST;
    }
    const Claim claim(*this, status.st_ino);
    if (claim.error() != 0) {
        return claim.error();
    }
    struct stat now = {};
    if (!hold(name, now) || now.st_ino != status.st_ino) {
        return ENOENT;
    }
    // A socket that was just being bound seemed dead: its file is there a moment sooner. The kernel does both under the
    // folder's own lock, which making the claim had to wait for, so this second answer is final.
    if (!isStale(file.get(), status)) {
        return EEXIST;
    }
    return ::unlinkat(m_directory.get(), name.c_str(), 0) == 0 ? 0 : errno;
}

/// Takes a name with `take`, whose errno value it returns, after a stale entry was removed if there is one.
template <typename Take, typename IsStale>
int SocketFolder::takeOver(const std::string& name, Take take, IsStale isStale) const
{
    int error = 0;
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        error = take();
        if (error != EADDRINUSE && error != EEXIST) {
            break;
        }
        const int removed = removeStale(name, isStale);
        if (removed == EADDRINUSE) {
            std::this_thread::sleep_for(attemptInterval);
        } else if (removed != 0 && removed != ENOENT) {
            break;
        }
    }
    return error;
}

int SocketFolder::listen(int socket, const std::string& name, int backlog, ino_t* file) const
{
    int error = takeOver(
        name, [&] { return bind(socket, name); }, isDeadSocket);
    struct stat status = {};
    if (error == 0 && (!hold(name, status) || ::listen(socket, backlog) != 0)) {
        error = errno;
        remove(name);
    }
    if (file != nullptr) {
        *file = status.st_ino;
    }
    return error;
}

std::optional<std::string> SocketFolder::readLink(const std::string& name) const
{
    return targetOf(m_directory.get(), name.c_str());
}

int SocketFolder::link(const std::string& name, const std::string& target) const
{
    return ::symlinkat(target.c_str(), m_directory.get(), name.c_str()) == 0 ? 0 : errno;
}

int SocketFolder::replaceLink(const std::string& name, const std::string& staleTarget,
                              const std::string& newTarget) const
{
    return takeOver(
        name, [&] { return link(name, newTarget); }, HasTarget{staleTarget});
}

void SocketFolder::remove(const std::string& name, ino_t file) const
{
    struct stat status = {};
    if (file == 0 || (hold(name, status) && status.st_ino == file)) {
        ::unlinkat(m_directory.get(), name.c_str(), 0);
    }
}

bool SocketFolder::removeLink(const std::string& name, const std::string& target) const
{
    return removeStale(name, HasTarget{target}) == 0;
}

bool SocketFolder::removeDead(const std::string& name) const
{
    return removeStale(name, isDeadSocket) == 0;
}

std::vector<std::string> SocketFolder::entries() const
{
    const int fd = ::openat(m_directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, CloseDirectory> directory(fd < 0 ? nullptr : ::fdopendir(fd));
    std::vector<std::string> names;
    while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}
