/// The server's debug commands on the unit's command line.
#pragma once

#include "zephrin/cmdTableHelper.h"

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

class VornServerCmdHandler;

/// Holds the server's command tables, and leads a line to its handler: one of "vornsrv" by the second word, the others
/// by the command's name.
class VornServerUlmo
{
public:
    static VornServerUlmo& getInstance();

    /// Registers the command tables; to be called on the server thread, where the commands run.
    void registerCommands();

    /// Adds a handler, which isn't owned. False, and the first one stays, where the name is taken.
    bool registerCmdHandler(const std::string& name, VornServerCmdHandler* handler);
    /// Takes a handler back before it goes; one that isn't that of the name is nobody's.
    void unregisterCmdHandler(const std::string& name, const VornServerCmdHandler* handler);

    /// Adds a further command. `where` is the command registry's: 0 on the server thread, 1 on the command's own.
    /// False, with a trace, where the name is taken.
    bool registerCmdTable(const std::string& name, Zephrin::CmdTableHelper::V2::CmdTable table,
                          std::uint32_t where = 0);
    /// Takes a command back that registerCmdTable has added.
    void unregisterCmdTable(const std::string& name);

private:
    VornServerUlmo() = default;

    int dispatchByName(const std::vector<std::string>& args, std::ostream& out);
    int dispatchByComponent(const std::vector<std::string>& args, std::ostream& out);

    std::map<std::string, VornServerCmdHandler*> m_handlers;
};
