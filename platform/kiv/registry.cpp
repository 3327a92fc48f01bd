#include "kiv/registry.h"

#include "kiv/id.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace kiv {
namespace {

constexpr int listenBacklog = 4096;
constexpr std::size_t maxEscaped = 200;
constexpr int birthField = 22; ///< of /proc/<pid>/stat, counted from 1
// Socket options that not every system's headers know.
constexpr int peerPidfdOption = 77;  ///< SO_PEERPIDFD
constexpr int passRightsOption = 83; ///< SO_PASSRIGHTS

Descriptor makeSocket()
{
    const DescriptorScope scope;
    return Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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

std::uint64_t birthOf(pid_t pid)
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    char text[1024];
    ssize_t length = 0;
    {
        const DescriptorScope scope;
        const Descriptor file(::open(path, O_RDONLY | O_CLOEXEC));
        length = file ? ::read(file.get(), text, sizeof text) : 0;
    }
    // The second field is the program's name in brackets, which may hold anything.
    std::string_view rest(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    rest.remove_prefix(std::min(rest.rfind(')') + 1, rest.size()));
    for (int field = 3; field < birthField && !rest.empty(); ++field) {
        rest.remove_prefix(std::min(rest.find(' ', 1), rest.size()));
    }
    std::uint64_t birth = 0;
    std::from_chars(rest.data() + (rest.empty() ? 0 : 1), rest.data() + rest.size(), birth);
    return birth;
}

/// Returns whether the process at the other end of a socket still has its pid; true if the system can't tell.
bool hasItsPid(int socket)
{
    const DescriptorScope scope;
    int file = -1;
    socklen_t size = sizeof file;
    if (::getsockopt(socket, SOL_SOCKET, peerPidfdOption, &file, &size) != 0) {
        return errno == ENOPROTOOPT;
    }
    const Descriptor process(file);
    return ::syscall(SYS_pidfd_send_signal, file, 0, nullptr, 0) == 0 || errno != ESRCH;
}

} // namespace

Identity peerOf(int socket)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || credentials.pid == 0) {
        return {};
    }
    const Identity identity{credentials.pid, birthOf(credentials.pid)};
    // Asked last: the time of birth may be that of another process, which has the pid by now.
    return hasItsPid(socket) ? identity : Identity();
}

int Registry::open()
{
    for (const auto& [folder, path] :
         {std::pair(&m_directory, "kiv"), std::pair(&m_processes, "kiv/process"), std::pair(&m_names, "kiv/name")}) {
        if (const int error = folder->make(path); error != 0) {
            return error;
        }
    }
    return 0;
}

std::uint64_t Registry::lastCount() const
{
    const DescriptorScope scope;
    const Descriptor file(::openat(m_directory.descriptor(), "last", O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::uint64_t count = 0;
    return file && ::read(file.get(), &count, sizeof count) == sizeof count ? count : 0;
}

void Registry::storeCount(std::uint64_t count) const
{
    const DescriptorScope scope;
    const Descriptor file(
        ::openat(m_directory.descriptor(), "last", O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
    // Where this fails, or two do it at once, numbers are reused sooner: no harm beyond that.
    if (file && ::pwrite(file.get(), &count, sizeof count, 0) < 0) {
        return;
    }
}

/// False where the number is another's; errno tells of everything else.
bool Registry::listenAs(std::uint32_t process, Claim& claim) const
{
    const std::string file = std::to_string(process);
    struct stat status {
    };
    const bool wasUsed = ::fstatat(m_processes.descriptor(), file.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    Descriptor listening = makeSocket();
    errno = listening ? m_processes.listen(listening.get(), file, listenBacklog) : errno;
    if (errno != 0) {
        return false;
    }
    if (wasUsed) {
        removeNamesOf(process);
    }
    claim.process = process;
    claim.listening = std::move(listening);
    return true;
}

Registry::Claim Registry::claim()
{
    Claim claim;
    const std::uint64_t last = lastCount();
    for (std::uint64_t count = last; count < last + lastProcess; ++count) {
        if (listenAs(static_cast<std::uint32_t>(count % lastProcess) + 1, claim)) {
            claim.round = static_cast<std::uint32_t>(count / lastProcess);
            storeCount(count + 1);
            return claim;
        }
        if (errno != EADDRINUSE) {
            return claim;
        }
    }
    if (!takeFromHoarder(claim)) {
        errno = ENOSPC;
    }
    return claim;
}

/// Takes back a number of the process that has the most, or one on which nobody listens. If nobody has more than one,
/// and most processes seem to be busy, takes one of theirs: a hoarder that never accepts can't be told from them.
bool Registry::takeFromHoarder(Claim& claim) const
{
    std::map<pid_t, std::vector<std::uint32_t>> numbers;
    for (std::uint32_t process = 1; process <= lastProcess; ++process) {
        const Descriptor socket = connectTo(process);
        numbers[socket ? peerOf(socket.get()).pid : errno == ECONNREFUSED ? 0 : -1].push_back(process);
    }
    std::vector<std::uint32_t> busy = std::move(numbers[-1]);
    numbers.erase(-1);
    const auto hoarder = std::max_element(numbers.begin(), numbers.end(), [](const auto& one, const auto& other) {
        return one.second.size() < other.second.size();
    });
    const bool isKnown = hoarder != numbers.end() && hoarder->second.size() > 1;
    if (!isKnown && busy.size() <= lastProcess / 2) {
        return false;
    }
    for (const std::uint32_t process : isKnown ? hoarder->second : busy) {
        m_processes.remove(std::to_string(process));
        if (listenAs(process, claim)) {
            removeNamesOf(process);
            return true;
        }
    }
    return false;
}

void Registry::removeProcess(std::uint32_t process)
{
    m_processes.remove(std::to_string(process));
}

/// What the number's last owner, which was killed, left behind.
void Registry::removeNamesOf(std::uint32_t process) const
{
    for (const std::string& file : m_names.entries()) {
        const kiv_mbox_id_t id = readFile(file);
        if (id != KIV_NO_MBOX && processOf(id) == process) {
            m_names.removeLink(file, std::to_string(id));
        }
    }
}

int Registry::addName(const std::string& name, kiv_mbox_id_t id)
{
    const std::string file = fileName(name);
    const std::string target = std::to_string(id);
    const int error = m_names.link(file, target);
    const auto holder = error == EEXIST ? m_names.readLink(file) : std::nullopt;
    if (!holder) {
        return error;
    }
    const kiv_mbox_id_t held = readFile(file);
    return held != KIV_NO_MBOX && isAlive(processOf(held)) ? EEXIST : m_names.replaceLink(file, *holder, target);
}

void Registry::removeName(const std::string& name, kiv_mbox_id_t id)
{
    m_names.removeLink(fileName(name), std::to_string(id));
}

kiv_mbox_id_t Registry::readName(const std::string& name) const
{
    return readFile(fileName(name));
}

kiv_mbox_id_t Registry::readFile(const std::string& file) const
{
    const auto target = m_names.readLink(file);
    kiv_mbox_id_t id = KIV_NO_MBOX;
    if (!target) {
        return id;
    }
    const char* last = target->data() + target->size();
    const auto [end, error] = std::from_chars(target->data(), last, id);
    return error == std::errc() && end == last && isMailboxId(id) ? id : KIV_NO_MBOX;
}

Descriptor Registry::connectTo(std::uint32_t process) const
{
    Descriptor socket = makeSocket();
    if (!socket) {
        return socket;
    }
    // Nothing is expected back; fails on systems that don't know it.
    const int none = 0;
    ::setsockopt(socket.get(), SOL_SOCKET, passRightsOption, &none, sizeof none);
    if (const int error = m_processes.connect(socket.get(), std::to_string(process)); error != 0) {
        socket.reset();
        errno = error;
    }
    return socket;
}

bool Registry::isAlive(std::uint32_t process) const
{
    return m_processes.isAlive(std::to_string(process));
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
    return text.size() <= maxEscaped ? text : packed(name);
}

} // namespace kiv
