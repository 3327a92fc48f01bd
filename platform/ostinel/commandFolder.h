/// The folder "$RU_DIR/cmd" with the sockets of the processes that have commands and the links that name the commands.
#pragma once

#include "socketFolder.h"

#include <optional>
#include <string>
#include <vector>

namespace Ostinel {

/// A killed process leaves its files behind: a link counts only while its socket answers, and the next process that
/// begins to listen clears away what doesn't.
class CommandFolder
{
public:
    /// Opens the folder that is there. Returns 0 or an errno value.
    int open();

    /// The same, and makes it where it is missing.
    int make();

    /// Connects to the process that has a command; no descriptor where there is none.
    UniqueFd connectTo(const std::string& command) const;

    /// The commands of living processes, sorted.
    std::vector<std::string> commands() const;

    /// Clears away what dead processes left behind, then binds and listens on the socket of this process.
    int listen(UniqueFd& socket) const;

    /// Links a command to this process. EEXIST where another living process has it.
    int link(const std::string& command) const;

    /// Removes the link of a command where it leads to this process.
    void unlink(const std::string& command) const;

    /// Removes the socket of this process.
    void removeSocket() const;

private:
    void clear() const;

    /// The socket that a link leads to; nothing where it is no link of ours.
    std::optional<std::string> socketOf(const std::string& command) const;

    SocketFolder m_folder;
};

/// Whether a command can have this name: a file name that is neither hidden nor taken for a process.
bool isCommandName(const std::string& name);

} // namespace Ostinel
