#include "tap/folder.h"

#include "runDir.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83 // newer than the headers; older kernels refuse it
#endif

namespace tap {
namespace {

constexpr const char* folderName = "tap";
constexpr std::size_t maxFiles = 16'384;
constexpr int maxAttempts = 64;

/// Enough for the longest name that bind() composes, of five numbers.
constexpr std::size_t maxFileName = 64;
static_assert(sizeof("/proc/self/fd//") + std::numeric_limits<int>::digits10 + 1 + maxFileName <=
                  sizeof(sockaddr_un::sun_path),
              "every name fits an address");

/// Through the descriptor: the path of the folder may be longer than an address can hold.
sockaddr_un addressOf(int directory, const std::string& name)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", directory, name.c_str());
    return address;
}

template <typename Call>
int errorOf(int socket, const sockaddr_un& address, Call call)
{
    return call(socket, reinterpret_cast<const sockaddr*>(&address), socklen_t{sizeof(address)}) == 0 ? 0 : errno;
}

/// The folder's lock, if nobody has it. It is given back by name: a forked child may have a copy of the descriptor.
class TriedLock
{
public:
    explicit TriedLock(int directory) : m_directory(directory), m_held(::flock(directory, LOCK_EX | LOCK_NB) == 0) {}
    ~TriedLock()
    {
        if (m_held) {
            ::flock(m_directory, LOCK_UN);
        }
    }
    TriedLock(const TriedLock&) = delete;
    TriedLock& operator=(const TriedLock&) = delete;

    explicit operator bool() const { return m_held; }

private:
    int m_directory;
    bool m_held;
};

/// "-NUMBER" at the beginning of the text, which is cut off.
template <typename Number>
bool takeNumber(std::string_view& text, Number& number)
{
    if (!text.starts_with('-')) {
        return false;
    }
    text.remove_prefix(1);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

} // namespace

std::optional<SocketFile> SocketFile::parse(std::string_view name)
{
    constexpr std::string_view process = "process";
    constexpr std::string_view listener = "listener";
    if (name.size() > maxFileName) {
        return std::nullopt;
    }
    SocketFile file;
    file.name = name;
    file.listens = name.starts_with(listener);
    if (!file.listens && !name.starts_with(process)) {
        return std::nullopt;
    }
    name.remove_prefix(file.listens ? listener.size() : process.size());
    std::uint32_t number = 0;
    if (!takeNumber(name, file.owner) || file.owner <= 0 || !takeNumber(name, number)) {
        return std::nullopt;
    }
    if (file.listens) {
        if (!takeNumber(name, file.version) || !takeNumber(name, file.maxBytes) || !takeNumber(name, file.buffer)) {
            return std::nullopt;
        }
    }
    return name.empty() ? std::optional(file) : std::nullopt;
}

int Folder::open()
{
    int error = 0;
    const std::string path = makeRuDir(folderName, error);
    if (error != 0) {
        return error;
    }
    m_directory = UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return m_directory ? 0 : errno;
}

int Folder::files(std::vector<SocketFile>& found) const
{
    struct Close {
        void operator()(DIR* directory) const { ::closedir(directory); }
    };
    // Opened anew: all that share a descriptor share its position in the directory.
    const int again = ::openat(m_directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (again < 0) {
        return errno;
    }
    const std::unique_ptr<DIR, Close> directory(::fdopendir(again));
    if (directory == nullptr) {
        const int error = errno;
        ::close(again);
        return error;
    }
    for (std::size_t read = 0; read < maxFiles; ++read) {
        const dirent* entry = ::readdir(directory.get());
        if (entry == nullptr) {
            break;
        }
        if (auto file = SocketFile::parse(entry->d_name)) {
            found.push_back(std::move(*file));
        }
    }
    return 0;
}

int Folder::connect(int socket, const std::string& name) const
{
    return errorOf(socket, addressOf(m_directory.get(), name), ::connect);
}

int Folder::bind(int socket, const char* prefix, const std::string& suffix, std::string& name) const
{
    static std::atomic<std::uint32_t> lastNumber = 0; // no two sockets of this process try one name
    int error = EADDRINUSE;
    for (int attempt = 0; attempt < maxAttempts && error == EADDRINUSE; ++attempt) {
        name = std::string(prefix) + '-' + std::to_string(::getpid()) + '-' + std::to_string(lastNumber++) + suffix;
        const sockaddr_un address = addressOf(m_directory.get(), name);
        error = errorOf(socket, address, ::bind);
        if (error == EADDRINUSE) {
            // Left by an earlier process with this id: if nobody else is removing files just now, it is replaced.
            if (const TriedLock lock(m_directory.get()); lock && isDead(name)) {
                remove(name);
                error = errorOf(socket, address, ::bind);
            }
        }
    }
    return error;
}

void Folder::remove(const std::string& name) const
{
    ::unlinkat(m_directory.get(), name.c_str(), 0);
}

/// A socket of another type asks: a living one refuses it as the wrong type, whether it listens already or not.
bool Folder::isDead(const std::string& name) const
{
    const UniqueFd probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return probe && connect(probe.get(), name) == ECONNREFUSED;
}

void Folder::clear(std::vector<SocketFile>& files) const
{
    const TriedLock lock(m_directory.get());
    if (!lock) {
        return;
    }
    std::erase_if(files, [&](const SocketFile& file) {
        // A process that lives may have made the file and be about to make its socket.
        const bool dead = ::kill(file.owner, 0) != 0 && errno == ESRCH && isDead(file.name);
        if (dead) {
            remove(file.name);
        }
        return dead;
    });
}

UniqueFd newSocket()
{
    UniqueFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket) {
        refuseDescriptors(socket.get());
    }
    return socket;
}

void refuseDescriptors(int socket)
{
    const int off = 0;
    ::setsockopt(socket, SOL_SOCKET, SO_PASSRIGHTS, &off, sizeof(off));
}

std::optional<pid_t> ownUsersPeer(int socket)
{
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != ::geteuid()) {
        return std::nullopt;
    }
    return peer.pid;
}

} // namespace tap
