#include "ploe/folder.h"

#include "folderLock.h"
#include "ploe/ploe.h"
#include "runDir.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace ploe {
namespace {

constexpr const char* folderName = "ploe";

static_assert(sizeof("/proc/self/fd//") + std::numeric_limits<int>::digits10 + 1 + PLOE_NAME_MAX <=
                  sizeof(sockaddr_un::sun_path),
              "every name fits an address");

/// Through the descriptor: the path of the folder may be longer than an address can hold.
class Address
{
public:
    Address(const UniqueFd& directory, const std::string& name)
    {
        m_address.sun_family = AF_UNIX;
        std::snprintf(m_address.sun_path, sizeof(m_address.sun_path), "/proc/self/fd/%d/%s", directory.get(),
                      name.c_str());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&m_address); }
    static constexpr socklen_t size = sizeof(sockaddr_un);

private:
    sockaddr_un m_address = {};
};

} // namespace

int Folder::open()
{
    m_directory = UniqueFd(::open(ruDir(folderName).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return m_directory ? 0 : errno;
}

int Folder::make()
{
    int error = 0;
    makeRuDir(folderName, error);
    return error != 0 ? error : open();
}

int Folder::connect(int socket, const std::string& name) const
{
    const Address address(m_directory, name);
    return ::connect(socket, address.get(), Address::size) == 0 ? 0 : errno;
}

/// Whether the name is a socket file that no living socket is bound to. A socket of another type asks: a living
/// listener refuses it as the wrong one and sees nothing of it.
bool Folder::isLeftover(const std::string& name) const
{
    struct stat status = {};
    if (::fstatat(m_directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const UniqueFd probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return probe && connect(probe.get(), name) == ECONNREFUSED;
}

int Folder::listen(int socket, const std::string& name, int backlog, ino_t& file) const
{
    const FolderLock lock(m_directory.get());
    if (isLeftover(name)) {
        ::unlinkat(m_directory.get(), name.c_str(), 0);
    }
    const Address address(m_directory, name);
    if (::bind(socket, address.get(), Address::size) != 0) {
        return errno;
    }
    struct stat status = {};
    if (::fstatat(m_directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        ::listen(socket, backlog) != 0) {
        const int error = errno;
        ::unlinkat(m_directory.get(), name.c_str(), 0);
        return error;
    }
    file = status.st_ino;
    return 0;
}

void Folder::remove(const std::string& name, ino_t file) const
{
    const FolderLock lock(m_directory.get());
    struct stat status = {};
    if (::fstatat(m_directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_ino == file) {
        ::unlinkat(m_directory.get(), name.c_str(), 0);
    }
}

} // namespace ploe
