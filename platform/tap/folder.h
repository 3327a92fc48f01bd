/// The folder "$RU_DIR/tap" with the sockets of the sending processes and of the listeners.
///
/// A process that is killed leaves its sockets' files behind. A listener that opens removes them, and so does a process
/// that finds many files. Another process's file is removed only under the folder's lock. Nobody waits for that lock:
/// if it is held, nothing is removed.
#pragma once

#include "uniqueFd.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace tap {

/// A socket's file by its name.
struct SocketFile {
    std::string name;
    pid_t owner = 0;
    bool listens = false; ///< a listener's; otherwise a sending process's

    // Of a listener:
    std::uint32_t version = 0;
    std::uint32_t maxBytes = 0; ///< of a message that a copy holds
    std::uint32_t buffer = 0;   ///< that a sending process keeps, bytes

    static std::optional<SocketFile> parse(std::string_view name);
};

/// Functions that return an int give 0 or an errno value.
class Folder
{
public:
    /// Makes the folder if it is missing.
    int open();

    /// Lists the sockets' files, as many as a unit can have.
    int files(std::vector<SocketFile>& found) const;

    /// Connects without waiting. EAGAIN: too many wait there to be accepted. ECONNREFUSED: nobody listens.
    int connect(int socket, const std::string& name) const;

    /// Binds the socket to a name that is not in use: "PREFIX-PID-N", followed by `suffix`.
    int bind(int socket, const char* prefix, const std::string& suffix, std::string& name) const;

    void remove(const std::string& name) const;

    /// Removes the files whose socket and process are gone, also from the list.
    void clear(std::vector<SocketFile>& files) const;

    /// Whether nobody has the socket of this file any more.
    bool isDead(const std::string& name) const;

private:
    UniqueFd m_directory;
};

/// A new socket of the kind that the tap uses: packets, non-blocking, closed on exec, and deaf to passed descriptors.
UniqueFd newSocket();

/// Lets no peer pass descriptors, which could block whoever drops them.
void refuseDescriptors(int socket);

/// Who is at the other end; nothing if it isn't the user of this process.
std::optional<pid_t> ownUsersPeer(int socket);

} // namespace tap
