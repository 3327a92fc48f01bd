#include "signalNames.h"

#include <fmt/format.h>
#include <map>
#include <mutex>

namespace {

struct Names {
    std::mutex mutex; // commands look names up on their own threads
    std::map<std::uint32_t, std::string> table;
};

Names& names()
{
    static Names instance;
    return instance;
}

} // namespace

void addSignalName(std::uint32_t number, const std::string& name)
{
    const std::lock_guard lock(names().mutex);
    names().table.emplace(number, name);
}

const std::string& getSignalName(std::uint32_t number)
{
    const std::lock_guard lock(names().mutex);
    const auto found = names().table.find(number);
    if (found != names().table.end()) {
        return found->second; // entries are never removed
    }
    thread_local std::string hexadecimal;
    hexadecimal = fmt::format("{:#x}", number);
    return hexadecimal;
}
