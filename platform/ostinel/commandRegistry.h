/// Ostinel::CommandRegistry: gives a command of the unit's command line to this process.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace Ostinel::CommandRegistry::V1 {

/// Runs a command: all its words, the command's name first, and where its output goes. Returns the exit code.
using Command = std::function<int(const std::vector<std::string>& args, std::ostream& out)>;

/// Where a command runs.
enum : std::uint32_t {
    onLoop = 0,     ///< on the event loop of the thread that registered it: it reads that thread's data without a race
    onOwnThread = 1 ///< on a thread of its own, for commands that block
};

/// A process with commands listens on a stream socket in "$RU_DIR/cmd"; a command line comes in, output and exit code
/// go back. The protocol is that of commandClient.h.
class CommandRegistryIf
{
public:
    /// The registry of the process.
    static CommandRegistryIf& getInstance();

    virtual ~CommandRegistryIf() = default;

    /// Registers a command for the life of the process. Returns 0, or an errno value: EEXIST where this process or
    /// another living one has a command of this name, or what the system said.
    virtual int registerCommand(const std::string& name, Command command, std::uint32_t where) = 0;

    /// Takes a command back: it isn't found any more, and one that runs on the loop doesn't start any more.
    virtual void unregisterCommand(const std::string& name) = 0;
};

} // namespace Ostinel::CommandRegistry::V1
