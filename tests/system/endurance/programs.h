/// The unit's programs: the server that counts, and each server of the board as a process of its own, so that it can be
/// killed. All of them share mailboxes and message sockets; each board process has a command line of its own.
#pragma once

#include "ledger.h"
#include "outages.h"
#include "system.h"

#include <array>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Endurance {

using TestSystem::Process;
using TestSystem::Words;
using Json = nlohmann::json;

class Programs
{
public:
    /// The process's run-time directory becomes this one.
    explicit Programs(std::filesystem::path directory);

    /// All of them, up to the server's publication.
    void bringUp();

    /// Returns when the process is gone.
    void kill(BackEnd backEnd);
    void bringBack(BackEnd backEnd);
    bool isRunning(BackEnd backEnd) const;
    /// "board WORDS...", by the command of this server's process. What it says isn't looked at.
    void tellBoard(BackEnd backEnd, const Words& words);

    const Process& server() const { return *m_server; }
    std::unique_ptr<Process> startClient(const Words& arguments, const std::string& output);

    /// What the server says is inside. Of the deep sleep connections those with a reference up to this.
    Json counts(std::uint64_t highestConnection) const;
    /// The lines of "vornsrv fault subscriber" that are subscribers.
    std::size_t faultSubscribers() const;

    const std::filesystem::path& directory() const { return m_directory; }
    /// Texts of a program's output that no program may end with: empty where there are none.
    std::string complaints() const;

private:
    std::unique_ptr<Process> start(const char* program, const Words& arguments, const std::string& output) const;
    std::string runCommand(const Words& words) const;

    std::filesystem::path m_directory;
    std::array<std::unique_ptr<Process>, backEndCount> m_board;
    std::unique_ptr<Process> m_server;
    unsigned m_legacyStarts = 0;
};

/// What the kernel shows of a process.
struct KernelView {
    std::size_t descriptors = 0;
    std::size_t sockets = 0;
    std::size_t threads = 0;
};
KernelView kernelViewOf(pid_t process);

/// The names of all mailboxes of the unit that are alive.
std::vector<std::string> livingMailboxes(const std::filesystem::path& directory);

} // namespace Endurance
