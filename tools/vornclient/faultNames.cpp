#include "vornclient/faultNames.h"

#include "vornclient/signal.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <string_view>

namespace VornClient {

namespace {

constexpr std::string_view prefix = "OMLA_CONST_FH_FAULT_ID_";

std::string shortName(const std::string& name)
{
    return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
}

} // namespace

std::vector<std::string> faultNames()
{
    std::vector<std::string> names;
    for (const auto& [faultId, name] : Vorni::faultNames()) {
        names.push_back(shortName(name));
    }
    return names;
}

std::string printFaultId(std::uint16_t faultId)
{
    const auto& names = Vorni::faultNames();
    const auto found = names.find(faultId);
    return found == names.end() ? fmt::format("{:#x}", faultId)
                                : fmt::format("{} ({:#x})", shortName(found->second), faultId);
}

std::uint16_t parseFaultId(const std::string& word)
{
    std::string upper = word;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
    const std::string wanted = shortName(upper);
    for (const auto& [faultId, name] : Vorni::faultNames()) {
        if (shortName(name) == wanted) {
            return faultId;
        }
    }
    if (word.empty() || std::isdigit(static_cast<unsigned char>(word.front())) == 0) {
        throw BadUsage(fmt::format("there is no fault \"{}\"", word));
    }
    return static_cast<std::uint16_t>(parseNumber(word, UINT16_MAX));
}

} // namespace VornClient
