#include "signalNames.h"

#include <fmt/format.h>
#include <map>

namespace {

std::map<std::uint32_t, std::string>& names()
{
    static std::map<std::uint32_t, std::string> table;
    return table;
}

} // namespace

void addSignalName(std::uint32_t number, const std::string& name)
{
    names().emplace(number, name);
}

const std::string& getSignalName(std::uint32_t number)
{
    const auto found = names().find(number);
    if (found != names().end()) {
        return found->second;
    }
    thread_local std::string hexadecimal; // commands look names up on their own threads
    hexadecimal = fmt::format("{:#x}", number);
    return hexadecimal;
}
