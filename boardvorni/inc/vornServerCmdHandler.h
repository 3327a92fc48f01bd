/// Who handles the sub-commands of a debug command.
#pragma once

#include <ostream>
#include <string>
#include <vector>

class VornServerCmdHandler
{
public:
    virtual ~VornServerCmdHandler() = default;

    /// Runs a command: `args` holds all words of the line, the command's name first. True where it was handled.
    virtual bool handleCommand(const std::vector<std::string>& args, std::ostream& out) = 0;
};
