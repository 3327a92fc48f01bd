#include "vornServerUlmo.h"

#include "ostinel/commandRegistry.h"
#include "trace/trace.h"
#include "vornServerCmdHandler.h"

namespace {

using Args = std::vector<std::string>;
using Zephrin::CmdTableHelper::V2::CmdTableHelperIf;

constexpr int handled = 0;
constexpr int failed = 20;

constexpr const char* vornsrvUsage = "VORN Server debug commands\n"
                                     "Usage: vornsrv all ready        list components that are not ready to publish\n"
                                     "       vornsrv all sessions     list all sessions\n"
                                     "       vornsrv fm list          list faults in VornServer::FaultManager\n"
                                     "       vornsrv fault subscriber list clients that have subscribed for faults\n";

int printVornsrvUsage(const Args&, std::ostream& out)
{
    out << vornsrvUsage;
    return handled;
}

} // namespace

VornServerUlmo& VornServerUlmo::getInstance()
{
    static VornServerUlmo instance;
    return instance;
}

void VornServerUlmo::registerCommands()
{
    const auto dispatch = [this](const Args& args, std::ostream& out) { return dispatchByComponent(args, out); };
    const bool isRegistered = registerCmdTable(
        "vornsrv",
        {
            {"vornsrv all ready", "List all components that are not ready to publish", dispatch},
            {"vornsrv all sessions", "List the client sessions", dispatch},
            {"vornsrv fm list", "List faults in VornServer::FaultManager", dispatch},
            {"vornsrv fault subscriber", "List clients that have subscribed with VornServer for faults", dispatch},
            {"vornsrv { -h | --help }", "vornsrv help", printVornsrvUsage},
        });
    if (!isRegistered) {
        TRACE_ERROR("ABN: the command \"vornsrv\" can't be registered");
    }
}

bool VornServerUlmo::registerCmdHandler(const std::string& name, VornServerCmdHandler* handler)
{
    if (!m_handlers.emplace(name, handler).second) {
        TRACE_INFO("\"{}\" is already registered", name);
        return false;
    }
    return true;
}

void VornServerUlmo::unregisterCmdHandler(const std::string& name)
{
    m_handlers.erase(name);
}

bool VornServerUlmo::registerCmdTable(const std::string& name, Zephrin::CmdTableHelper::V2::CmdTable table,
                                      std::uint32_t where)
{
    using Ostinel::CommandRegistry::V1::CommandRegistryIf;
    const auto run = [](const Args& args, std::ostream& out) { return CmdTableHelperIf::getInstance().run(args, out); };
    if (CommandRegistryIf::getInstance().registerCommand(name, run, where) != 0) {
        return false;
    }
    CmdTableHelperIf::getInstance().registerCmdTable(name, std::move(table));
    return true;
}

int VornServerUlmo::dispatchByComponent(const Args& args, std::ostream& out)
{
    if (args.size() < 3) {
        out << "invalid command\n" << vornsrvUsage;
        return failed;
    }
    const auto found = m_handlers.find(args[1]);
    if (found == m_handlers.end()) {
        out << "invalid component ID: " << args[1] << '\n' << vornsrvUsage;
        return failed;
    }
    return found->second->handleCommand(args, out) ? handled : failed;
}
