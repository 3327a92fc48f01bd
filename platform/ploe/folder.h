/// The folder "$RU_DIR/ploe" with the socket files of the listeners.
///
/// A killed listener leaves its file behind. Whether a file's listener lives is asked of the kernel, and one process at
/// a time asks and takes the name, so that two that start at once never both have it.
#pragma once

#include "uniqueFd.h"

#include <string>
#include <sys/types.h>

namespace ploe {

/// All functions that return an int give 0 or an errno value. A name is a file name of at most PLOE_NAME_MAX bytes.
class Folder
{
public:
    /// Opens the folder that is there.
    int open();

    /// The same, and makes it where it is missing.
    int make();

    /// Connects a socket to the listener of this name.
    int connect(int socket, const std::string& name) const;

    /// Binds a socket to the name where no living socket has it, and listens. `file` tells the socket file from others.
    int listen(int socket, const std::string& name, int backlog, ino_t& file) const;

    /// Removes the file of this name where it still is that file.
    void remove(const std::string& name, ino_t file) const;

private:
    bool isLeftover(const std::string& name) const;

    UniqueFd m_directory;
};

} // namespace ploe
