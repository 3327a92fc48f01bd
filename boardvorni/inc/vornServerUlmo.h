/// The server's debug commands on the unit's command line.
#pragma once

#include "zephrin/cmdTableHelper.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

class VornServerCmdHandler;

/// Spreads the command "vornsrv" over its handlers, by the command's second word.
class VornServerUlmo
{
public:
    static VornServerUlmo& getInstance();

    /// Registers the command tables; to be called on the server thread, where the commands run.
    void registerCommands();

    /// Adds a handler, which isn't owned. False, and the first one stays, where the name is taken.
    bool registerCmdHandler(const std::string& name, VornServerCmdHandler* handler);
    /// Takes a handler back before it goes.
    void unregisterCmdHandler(const std::string& name);

    /// Adds a further command. `where` is the command registry's: 0 on the server thread, 1 on the command's own.
    /// False where the name is taken.
    bool registerCmdTable(const std::string& name, Zephrin::CmdTableHelper::V2::CmdTable table,
                          std::uint32_t where = 0);

private:
    VornServerUlmo() = default;

    int dispatchByComponent(const std::vector<std::string>& args, std::ostream& out);

    std::map<std::string, VornServerCmdHandler*> m_handlers;
};
