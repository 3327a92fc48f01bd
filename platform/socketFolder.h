/// A folder of the run-time directory in which processes find each other: socket files, and symbolic links whose
/// targets are words, not paths.
///
/// A killed process leaves its entries behind, and another one takes their names over. This needs no lock that somebody
/// could keep:
///
///   claim    A process that found an entry stale binds a socket to ".claim-<inode>-<n>". Only one process can, and
///            while it lives, nobody else takes this entry off its name. The others try again for 50 ms at most.
///   check    The claimant checks that the name still belongs to that entry and that the entry is still stale. It keeps
///            the entry open from before the first check on, so that no new file gets the same inode number.
///   removal  It removes the entry, then the claim. The name is free now: the first one who asks for it gets it.
///
/// The claim of a killed process doesn't count: the next claimant uses the next n, and removes both.
///
/// Names that begin with a dot are reserved for the claims. The only state is the folder's descriptor, so all threads
/// may use one object. Sockets are addressed through /proc/self/fd, because a path may exceed the 107 bytes of an
/// address.
#pragma once

#include "uniqueFd.h"

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

/// All functions that return an int return 0 or an errno value.
class SocketFolder
{
public:
    /// Opens "$RU_DIR/<folder>", as runDir.h says.
    int open(const char* folder);

    /// The same, and makes it if it is missing.
    int make(const char* folder);

    /// The folder's descriptor, readable.
    int descriptor() const { return m_directory.get(); }

    /// Connects a socket to the one that is bound to this name. Blocks if the socket does.
    int connect(int socket, const std::string& name) const;

    /// Returns whether a living socket is bound to this name, also when that can't be found out. A listener sees
    /// nothing of the question.
    bool isAlive(const std::string& name) const;

    /// Binds a socket to this name and listens. Takes over the file of a dead socket. EADDRINUSE if a living one or a
    /// file that is no socket has the name. `file`: receives the inode number of the socket file.
    int listen(int socket, const std::string& name, int backlog, ino_t* file = nullptr) const;

    /// Returns the target of a link; nothing if the name is no link or the target is longer than 255 bytes.
    std::optional<std::string> readLink(const std::string& name) const;

    /// Makes a link. EEXIST if the name is taken.
    int link(const std::string& name, const std::string& target) const;

    /// The same; takes over the link of this name if it has the stale target. EEXIST if something else has the name.
    int replaceLink(const std::string& name, const std::string& staleTarget, const std::string& newTarget) const;

    /// Removes what has this name, for its owner. `file`: only if it has this inode number.
    void remove(const std::string& name, ino_t file = 0) const;

    /// Removes the link of this name if it has this target. Returns whether it did.
    bool removeLink(const std::string& name, const std::string& target) const;

    /// Removes the file of this name if it is that of a dead socket. Returns whether it did.
    bool removeDead(const std::string& name) const;

    /// The names in the folder, in no order.
    std::vector<std::string> entries() const;

private:
    class Claim;
    UniqueFd hold(const std::string& name, struct stat& status) const;
    int bind(int socket, const std::string& name) const;
    bool isDead(const std::string& name) const;
    template <typename IsStale>
    int removeStale(const std::string& name, IsStale isStale) const;
    template <typename Take, typename IsStale>
    int takeOver(const std::string& name, Take take, IsStale isStale) const;

    UniqueFd m_directory;
};
