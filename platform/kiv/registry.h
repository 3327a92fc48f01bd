/// Who has which slot and which name: a directory instead of a daemon.
///
///   lock          flock for the short moments in which slots and names are taken
///   last          number of the slot that was handed out last: slots go round, so that ids of the dead rest for long
///   slot/<n>      listening socket of the queue with slot n
///   name/<name>   symbolic link whose target is the id in decimal
///
/// A slot is alive while its socket takes connections, which the kernel ends with the process; so what a killed process
/// leaves behind is recognised and replaced. A name counts while its slot is alive. Who gives up a mailbox in order
/// removes the names before the socket; so names can only be stale where a stale socket lies, and they are cleared when
/// that slot is handed out again.
///
/// Sockets are addressed through /proc/self/fd, because a socket's path is limited to 107 bytes.
///
/// Threads: no state but the directories' descriptors, usable from all.
#pragma once

#include "kiv/descriptor.h"
#include "kiv/kiv.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace kiv {

class Registry
{
public:
    /// Makes and opens the directories. Returns 0 or an errno value.
    int open();

    /// Takes a free slot: number and listening socket. No descriptor, and errno set, on failure.
    struct Slot {
        std::uint32_t number = 0;
        Descriptor listening;
    };
    Slot claimSlot();
    /// To be called while the listening socket is still open.
    void removeSlot(std::uint32_t slot);

    /// Returns 0 or an errno value: EEXIST where the name belongs to a living slot.
    int addName(const std::string& name, kiv_mbox_id_t id);
    /// To be called while the slot is still alive. Leaves a name alone that belongs to another mailbox.
    void removeName(const std::string& name, kiv_mbox_id_t id);
    /// The id behind a name, alive or not; KIV_NO_MBOX where there is none.
    kiv_mbox_id_t readName(const std::string& name) const;

    /// A connection to a slot's socket, not blocking. No descriptor, and errno set, on failure: EAGAIN where the slot
    /// is alive but busy.
    Descriptor connectSlot(std::uint32_t slot) const;
    bool isAlive(std::uint32_t slot) const;
    /// The process that listens on a slot, as the kernel knows it; 0 where there is none. Nothing where that can't be
    /// told now, because the slot is busy (waited for a little, where `patient`) or the system is short of something.
    std::optional<pid_t> ownerOf(std::uint32_t slot, bool patient) const;

    const std::string& nameDirectory() const { return m_namePath; }
    /// The name of a mailbox as a file name: printable, without slashes.
    static std::string fileName(const std::string& name);

private:
    class Lock;
    std::uint32_t lastSlotNumber() const;
    void storeLastSlotNumber(std::uint32_t slot) const;
    bool freeStaleSlot(std::uint32_t slot) const;
    bool removeNamesOf(std::uint32_t slot) const;
    kiv_mbox_id_t readFile(const std::string& file) const;

    Descriptor m_directory;
    Descriptor m_slots;
    Descriptor m_names;
    std::string m_namePath;
};

/// The process at the other end of a connected socket, 0 where the kernel does not say.
pid_t peerProcess(int socket);

} // namespace kiv
