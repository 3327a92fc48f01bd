#include "kiv/registry.h"

#include "kiv/id.h"
#include "runDir.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr int listenBacklog = 4096;
constexpr suseconds_t busyWaitUs = 100'000;
constexpr auto lockPatience = 5s;
constexpr auto lockInterval = 1ms;
constexpr std::size_t longestEscaped = 200;

Descriptor openDirectory(const std::string& path)
{
    const DescriptorScope scope;
    return Descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Descriptor makeSocket(int flags)
{
    const DescriptorScope scope;
    return Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

sockaddr_un slotAddress(int directory, std::uint32_t slot)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%u", directory, slot);
    return address;
}

int connectTo(int socket, int directory, std::uint32_t slot)
{
    const sockaddr_un address = slotAddress(directory, slot);
    int result = 0;
    do {
        result = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    return result;
}

/// For the rare name that is too long with its escapes: six bits a character.
std::string packed(const std::string& name)
{
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string text = "%%";
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : name) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (count += 8; count >= 6; count -= 6) {
            text += digits[bits >> (count - 6) & 63];
        }
    }
    if (count > 0) {
        text += digits[bits << (6 - count) & 63];
    }
    return text;
}

} // namespace

/// The registry's lock for as long as the object lives. A killed process gives it back; one that is stopped while it
/// has it holds up the others no longer than their patience.
class Registry::Lock
{
public:
    explicit Lock(const Registry& registry)
    {
        {
            const DescriptorScope scope;
            m_file = Descriptor(
                ::openat(registry.m_directory.get(), "lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        }
        const auto end = std::chrono::steady_clock::now() + lockPatience;
        while (m_file && ::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0) {
            const int error = errno;
            if (error != EINTR && error != EWOULDBLOCK) {
                fail(error);
            } else if (std::chrono::steady_clock::now() >= end) {
                fail(ETIMEDOUT);
            } else {
                std::this_thread::sleep_for(lockInterval);
            }
        }
    }
    /// Unlocks by itself: a child being forked right now may hold a copy of the descriptor.
    ~Lock()
    {
        if (m_file) {
            ::flock(m_file.get(), LOCK_UN);
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    explicit operator bool() const { return static_cast<bool>(m_file); }

private:
    void fail(int error)
    {
        m_file.reset();
        errno = error;
    }

    Descriptor m_file;
};

int Registry::open()
{
    int error = 0;
    const std::string directory = makeRuDir("kiv", error);
    const std::string slots = makeRuDir("kiv/slot", error);
    m_namePath = makeRuDir("kiv/name", error);
    if (error != 0) {
        return error;
    }
    m_directory = openDirectory(directory);
    m_slots = openDirectory(slots);
    m_names = openDirectory(m_namePath);
    return m_directory && m_slots && m_names ? 0 : errno;
}

std::uint32_t Registry::lastSlotNumber() const
{
    const DescriptorScope scope;
    const Descriptor file(::openat(m_directory.get(), "last", O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    std::uint32_t slot = 0;
    if (!file || ::read(file.get(), &slot, sizeof slot) != sizeof slot) {
        return 0;
    }
    return slot;
}

void Registry::storeLastSlotNumber(std::uint32_t slot) const
{
    const DescriptorScope scope;
    const Descriptor file(::openat(m_directory.get(), "last", O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    // Where this fails, slots are reused sooner: no harm beyond that.
    if (file && ::pwrite(file.get(), &slot, sizeof slot, 0) < 0) {
        return;
    }
}

/// Whether the slot can be taken; clears what a dead owner left.
bool Registry::freeStaleSlot(std::uint32_t slot) const
{
    const std::string file = std::to_string(slot);
    struct stat status {
    };
    if (::fstatat(m_slots.get(), file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT;
    }
    if (isAlive(slot)) {
        return false;
    }
    return removeNamesOf(slot) && ::unlinkat(m_slots.get(), file.c_str(), 0) == 0;
}

/// False where not all could be removed: the next owner of the slot would have them.
bool Registry::removeNamesOf(std::uint32_t slot) const
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(m_namePath.c_str()), ::closedir);
    if (!directory) {
        return false;
    }
    std::vector<std::string> stale;
    while (const dirent* entry = ::readdir(directory.get())) {
        const kiv_mbox_id_t id = readFile(entry->d_name);
        if (id != KIV_NO_MBOX && slotOf(id) == slot) {
            stale.emplace_back(entry->d_name);
        }
    }
    bool removed = true;
    for (const std::string& file : stale) {
        removed = (::unlinkat(m_names.get(), file.c_str(), 0) == 0 || errno == ENOENT) && removed;
    }
    return removed;
}

Registry::Slot Registry::claimSlot()
{
    Slot claimed;
    const Lock lock(*this);
    if (!lock) {
        return claimed;
    }
    const std::uint32_t last = lastSlotNumber();
    for (std::uint32_t step = 0; step < lastSlot; ++step) {
        const std::uint32_t slot = (last + step) % lastSlot + 1;
        if (!freeStaleSlot(slot)) {
            continue;
        }
        Descriptor listening = makeSocket(SOCK_NONBLOCK);
        const sockaddr_un address = slotAddress(m_slots.get(), slot);
        if (!listening || ::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            return claimed;
        }
        if (::listen(listening.get(), listenBacklog) != 0) {
            const int error = errno;
            removeSlot(slot);
            errno = error;
            return claimed;
        }
        storeLastSlotNumber(slot);
        claimed.number = slot;
        claimed.listening = std::move(listening);
        return claimed;
    }
    errno = ENOSPC;
    return claimed;
}

void Registry::removeSlot(std::uint32_t slot)
{
    ::unlinkat(m_slots.get(), std::to_string(slot).c_str(), 0);
}

int Registry::addName(const std::string& name, kiv_mbox_id_t id)
{
    const std::string file = fileName(name);
    const std::string target = std::to_string(id);
    const Lock lock(*this);
    if (!lock) {
        return errno;
    }
    if (::symlinkat(target.c_str(), m_names.get(), file.c_str()) == 0) {
        return 0;
    }
    if (errno != EEXIST) {
        return errno;
    }
    const kiv_mbox_id_t holder = readFile(file);
    if (holder != KIV_NO_MBOX && isAlive(slotOf(holder))) {
        return EEXIST;
    }
    ::unlinkat(m_names.get(), file.c_str(), 0);
    return ::symlinkat(target.c_str(), m_names.get(), file.c_str()) == 0 ? 0 : errno;
}

void Registry::removeName(const std::string& name, kiv_mbox_id_t id)
{
    const std::string file = fileName(name);
    if (readFile(file) == id) {
        ::unlinkat(m_names.get(), file.c_str(), 0);
    }
}

kiv_mbox_id_t Registry::readName(const std::string& name) const
{
    return readFile(fileName(name));
}

kiv_mbox_id_t Registry::readFile(const std::string& file) const
{
    char target[16];
    const ssize_t length = ::readlinkat(m_names.get(), file.c_str(), target, sizeof target);
    kiv_mbox_id_t id = KIV_NO_MBOX;
    if (length <= 0) {
        return id;
    }
    const auto [end, error] = std::from_chars(target, target + length, id);
    return error == std::errc() && end == target + length && isMailboxId(id) ? id : KIV_NO_MBOX;
}

Descriptor Registry::connectSlot(std::uint32_t slot) const
{
    Descriptor socket = makeSocket(SOCK_NONBLOCK);
    if (socket && connectTo(socket.get(), m_slots.get(), slot) != 0) {
        const int error = errno;
        socket.reset();
        errno = error;
    }
    return socket;
}

bool Registry::isAlive(std::uint32_t slot) const
{
    // Anything but a clear no is a yes: a name is rather kept too long than given away.
    return connectSlot(slot) || (errno != ECONNREFUSED && errno != ENOENT);
}

std::optional<pid_t> Registry::ownerOf(std::uint32_t slot, bool patient) const
{
    const Descriptor socket = makeSocket(patient ? 0 : SOCK_NONBLOCK);
    const timeval limit{0, busyWaitUs};
    if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) {
        return std::nullopt;
    }
    if (connectTo(socket.get(), m_slots.get(), slot) != 0) {
        const bool gone = errno == ECONNREFUSED || errno == ENOENT;
        return gone ? std::optional<pid_t>(0) : std::nullopt;
    }
    return peerProcess(socket.get());
}

std::string Registry::fileName(const std::string& name)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7F && c != '/' && c != '%' && (c != '.' || !text.empty())) {
            text += c;
        } else {
            text += '%';
            text += digits[byte >> 4];
            text += digits[byte & 15];
        }
    }
    return text.size() <= longestEscaped ? text : packed(name);
}

pid_t peerProcess(int socket)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

} // namespace kiv
