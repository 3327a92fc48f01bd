#include "vornServerUlmo.h"

#include "nonVolatile.h"
#include "ostinel/commandRegistry.h"
#include "trace/trace.h"
#include "vornServerCmdHandler.h"

namespace {

using Args = std::vector<std::string>;
using Zephrin::CmdTableHelper::V2::CmdTableHelperIf;

constexpr int handled = 0;
constexpr int partlyHandled = 10;
constexpr int failed = 20;
constexpr int commandFailed = 2;         ///< what the command line gets for it
constexpr std::uint32_t onOwnThread = 1; ///< for what waits for the store

constexpr const char* vornsrvUsage = "VORN Server debug commands\n"
                                     "Usage: vornsrv all ready        list components that are not ready to publish\n"
                                     "       vornsrv all sessions     list all sessions\n"
                                     "       vornsrv fm list          list faults in VornServer::FaultManager\n"
                                     "       vornsrv fault subscriber list clients that have subscribed for faults\n";

constexpr const char* pidManipulationUsage =
    "Manipulate PID handling on RU\n"
    "Usage: pid_manipulation [options]\n"
    "Options:\n"
    "  -h | --help           print this help\n"
    "  -d | --delete         Delete all temporary PID data that has been added by this tool\n"
    "  -a | --add            Add a PID to temporarily replace the original PID ID\n"
    "  (no options)          print this help\n"
    "\n"
    "Description:\n"
    "Add temporary PID data.\n"
    "Temporary PID will be added to persistent memory, and the data will survive restart. Existing RU PID is not "
    "edited.\n"
    "The VORN server will use the temporary PID instead of the existing PID, if there is temporary data stored in "
    "persistent memory.\n"
    "Use -d or --delete to remove all temporary data. A power cycle will always remove the temporary data.\n";

constexpr const char* fdfManipulationUsage =
    "Manipulate FDF file handling on RU\n"
    "Usage: fdf_manipulation [options]\n"
    "Options:\n"
    "  -h | --help           print this help\n"
    "  -d | --delete         Delete all temporary FDF data that has been added by this tool\n"
    "  -i | --id             Add a FDF ID to temporarily replace the original FDF ID\n"
    "  -f | --file           Add a FDF file to temporarily replace the original FDF file\n"
    "  -r | --read           Read FDF ID and FILE temporarily values\n"
    "  (no options)          print this help\n"
    "\n"
    "Description:\n"
    "Add temporary FDF data.\n"
    "Temporary FDF data will be added to persistent memory, and the data will survive restart. Existing RU FDF data is "
    "not edited.\n"
    "The VORN server will use the temporary FDF data instead of the existing FDF data, if there is temporary data "
    "stored in persistent memory.\n"
    "Use -d or --delete to remove all temporary data. A power cycle will always remove the temporary data.\n";

constexpr const char* sysconreadUsage = "Prints System Constants on AAS\n"
                                        "Usage: sysconread [options]\n"
                                        "Options:\n"
                                        "  -h | --help      print this help\n"
                                        "  name             print the System Constant on AAS for the specified name\n"
                                        "  (no options)     print all System Constants on AAS\n"
                                        "\n";

auto print(const char* usage)
{
    return [usage](const Args&, std::ostream& out) {
        out << usage;
        return handled;
    };
}

bool storeFdf(std::uint32_t flag, const std::string& text, std::ostream& out)
{
    const std::uint32_t error = sarnaStoreFdf(flag, text);
    if (error != 0) {
        out << "sarna_set_value returned with " << error << '\n';
    }
    return error == 0;
}

int addFdf(std::uint32_t flag, const Args& args, std::ostream& out)
{
    constexpr std::size_t wordCount = 3;
    return args.size() == wordCount && storeFdf(flag, args[2], out) ? handled : failed;
}

int fdfAddId(const Args& args, std::ostream& out)
{
    return addFdf(sarnaFdfId, args, out);
}

int fdfAddFile(const Args& args, std::ostream& out)
{
    return addFdf(sarnaFdfFile, args, out);
}

int fdfDelete(const Args&, std::ostream& out)
{
    const bool isIdDeleted = storeFdf(sarnaFdfId, "", out);
    const bool isFileDeleted = storeFdf(sarnaFdfFile, "", out);
    return isIdDeleted && isFileDeleted ? handled : failed;
}

int fdfRead(const Args&, std::ostream& out)
{
    out << "FDF_ID: " << sarnaReadFdf(sarnaFdfId) << '\n';
    out << "FDF_FILE: " << sarnaReadFdf(sarnaFdfFile) << '\n';
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
    const auto byName = [this](const Args& args, std::ostream& out) { return dispatchByName(args, out); };
    const auto byComponent = [this](const Args& args, std::ostream& out) { return dispatchByComponent(args, out); };
    registerCmdTable("pid_manipulation",
                     {
                         {"pid_manipulation { -h | --help }", "pid_manipulation help", print(pidManipulationUsage)},
                         {"pid_manipulation { -a | --add } <value>", "pid_manipulation add", byName},
                         {"pid_manipulation { -d | --delete }", "pid_manipulation delete", byName},
                     });
    registerCmdTable("fdf_manipulation",
                     {
                         {"fdf_manipulation { -h | --help }", "fdf_manipulation help", print(fdfManipulationUsage)},
                         {"fdf_manipulation { -i | --id } <value>", "fdf_manipulation add id", fdfAddId},
                         {"fdf_manipulation { -f | --file } <value>", "fdf_manipulation add file", fdfAddFile},
                         {"fdf_manipulation { -d | --delete }", "fdf_manipulation delete", fdfDelete},
                         {"fdf_manipulation { -r | --read }", "fdf_manipulation read", fdfRead},
                     },
                     onOwnThread);
    registerCmdTable(
        "vornsrv",
        {
            {"vornsrv all ready", "List all components that are not ready to publish", byComponent},
            {"vornsrv all sessions", "List the client sessions", byComponent},
            {"vornsrv fm list", "List faults in VornServer::FaultManager", byComponent},
            {"vornsrv fault subscriber", "List clients that have subscribed with VornServer for faults", byComponent},
            {"vornsrv { -h | --help }", "vornsrv help", print(vornsrvUsage)},
        });
    registerCmdTable("sysconread", {
                                       {"sysconread { -h | --help }", "sysconread help", print(sysconreadUsage)},
                                       {"sysconread <name>", "read a system constant", byName},
                                       {"sysconread", "read all system constants", byName},
                                   });
}

bool VornServerUlmo::registerCmdHandler(const std::string& name, VornServerCmdHandler* handler)
{
    if (!m_handlers.emplace(name, handler).second) {
        TRACE_INFO("\"{}\" is already registered", name);
        return false;
    }
    return true;
}

void VornServerUlmo::unregisterCmdHandler(const std::string& name, const VornServerCmdHandler* handler)
{
    const auto found = m_handlers.find(name);
    if (found != m_handlers.end() && found->second == handler) {
        m_handlers.erase(found);
    }
}

bool VornServerUlmo::registerCmdTable(const std::string& name, Zephrin::CmdTableHelper::V2::CmdTable table,
                                      std::uint32_t where)
{
    using Ostinel::CommandRegistry::V1::CommandRegistryIf;
    const auto run = [](const Args& args, std::ostream& out) {
        const int result = CmdTableHelperIf::getInstance().run(args, out);
        return result == handled || result == partlyHandled ? 0 : commandFailed;
    };
    if (CommandRegistryIf::getInstance().registerCommand(name, run, where) != 0) {
        TRACE_ERROR("ABN: the command \"{}\" can't be registered", name);
        return false;
    }
    CmdTableHelperIf::getInstance().registerCmdTable(name, std::move(table));
    return true;
}

/// The table itself stays, out of reach.
void VornServerUlmo::unregisterCmdTable(const std::string& name)
{
    Ostinel::CommandRegistry::V1::CommandRegistryIf::getInstance().unregisterCommand(name);
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

int VornServerUlmo::dispatchByName(const Args& args, std::ostream& out)
{
    const auto found = m_handlers.find(args[0]);
    if (found == m_handlers.end()) {
        out << args[0] << " is not registered\n";
        return failed;
    }
    return found->second->handleCommand(args, out) ? handled : failed;
}
