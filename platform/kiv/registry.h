/// Who has which process number and which name: directories instead of a daemon.
///
///   process/<n>   listening socket of the process with number n
///   name/<name>   symbolic link whose target is the mailbox's id in decimal
///   last          counts the numbers handed out: they go round, so that ids of the dead rest for long
///
/// A process is alive while its socket is, which the kernel ends with it; so what a killed process leaves behind is
/// recognised and replaced. A name counts while its process is alive. A process that ends in order removes its names
/// before its socket; so names can only be stale where a stale socket lies, and they are cleared by whoever gets that
/// number next. There are no locks: every step is one atomic operation on a directory.
///
/// A process has one number. Where all are taken, those of a process that has several are taken back.
///
/// Threads: no state but the directories' descriptors, usable from all.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/kiv.h"
#include "socketFolder.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace kiv {

/// Tells a process from a later one that has its pid again.
struct Identity {
    pid_t pid = 0;
    std::uint64_t birth = 0; ///< start time as the system counts it, 0 where it can't be told

    explicit operator bool() const { return pid != 0; }
    bool operator==(const Identity&) const = default;
};

/// The process at the other end of a connected socket.
Identity peerOf(int socket);

class Registry
{
public:
    /// Makes and opens the directories. Returns 0 or an errno value.
    int open();

    /// Takes a free number and listens. No descriptor, and errno set, on failure.
    struct Claim {
        std::uint32_t process = 0;
        std::uint32_t round = 0; ///< how often the numbers have gone round
        Descriptor listening;
    };
    Claim claim();
    /// To be called while the listening socket is still open.
    void removeProcess(std::uint32_t process);

    /// A connection to a process, not blocking. No descriptor, and errno set, on failure: EAGAIN where it is alive but
    /// busy.
    Descriptor connectTo(std::uint32_t process) const;
    bool isAlive(std::uint32_t process) const;

    /// Returns 0 or an errno value: EEXIST where the name belongs to a living process.
    int addName(const std::string& name, kiv_mbox_id_t id);
    /// To be called while the process is still alive. Leaves a name alone that belongs to another mailbox.
    void removeName(const std::string& name, kiv_mbox_id_t id);
    /// The id behind a name, alive or not; KIV_NO_MBOX where there is none.
    kiv_mbox_id_t readName(const std::string& name) const;

    int nameDirectory() const { return m_names.descriptor(); }
    /// The name of a mailbox as a file name: printable, without slashes.
    static std::string fileName(const std::string& name);

private:
    bool listenAs(std::uint32_t process, Claim& claim) const;
    bool takeFromHoarder(Claim& claim) const;
    std::uint64_t lastCount() const;
    void storeCount(std::uint64_t count) const;
    void removeNamesOf(std::uint32_t process) const;
    kiv_mbox_id_t readFile(const std::string& file) const;

    SocketFolder m_directory;
    SocketFolder m_processes;
    SocketFolder m_names;
};

} // namespace kiv
