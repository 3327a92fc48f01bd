/// The simulated board: all its servers, and the command that drives them.
#pragma once

#include "tools/boardsim/boardControl.h"
#include "tools/boardsim/core/command.h"
#include "tools/boardsim/core/json.h"
#include "tools/boardsim/core/serverThread.h"

#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace boardsim {

class BoardSim
{
public:
    /// Names of all servers that there are.
    static std::vector<std::string> serverNames();

    /// Starts all servers but those left out; these can be started by command. Throws std::runtime_error.
    explicit BoardSim(const std::set<std::string>& leftOut = {});
    ~BoardSim();
    BoardSim(const BoardSim&) = delete;
    BoardSim& operator=(const BoardSim&) = delete;

    /// "board ...": all words of the line. Returns the exit code: 0, or 1 with the reason in `out`. From any thread,
    /// several at once.
    int command(const Words& words, std::ostream& out);

    /// For good: what servers have ordered for the board doesn't start them again.
    void stopAll();

private:
    void run(const Words& words, std::ostream& out);
    void help(std::ostream& out);
    void show(const Words& args, std::ostream& out);
    void wait(ServerThread& server, const Words& args);
    ServerThread& findServer(const std::string& name);

    void wakeUp();
    std::function<void()> takeDown();

    BoardControl m_control; ///< servers hold on to it: it goes last
    std::vector<std::unique_ptr<ServerThread>> m_servers;
};

} // namespace boardsim
