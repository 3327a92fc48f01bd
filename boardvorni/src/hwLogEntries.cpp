#include "hwLogEntries.h"

#include "trace/trace.h"

#include <algorithm>
#include <cstring>

namespace {

/// What can be printed of an area; a backslash for what can't.
std::string printArea(std::span<const std::byte> area)
{
    std::string text;
    std::transform(area.begin(), area.end(), std::back_inserter(text), [](std::byte byte) {
        constexpr int firstPrintable = 32;
        return std::to_integer<int>(byte) < firstPrintable ? '\\' : std::to_integer<char>(byte);
    });
    return text;
}

} // namespace

std::vector<std::string> parseHwLogEntries(std::span<const std::byte> bytes, std::uint32_t count)
{
    const auto area = bytes.first(std::min(bytes.size(), vornHwLogAreaSize));
    std::vector<std::string> entries;
    for (std::size_t used = 0; used < area.size() && entries.size() < count;) {
        const char* begin = reinterpret_cast<const char*>(bytes.data()) + used;
        const std::string entry(begin, ::strnlen(begin, bytes.size() - used));
        if (entry.empty()) {
            break;
        }
        entries.push_back(entry);
        TRACE_INFO("HW Log #{}: \"{}\" (size {})", entries.size(), entry, entry.size());
        used += entry.size() + 1;
    }
    if (entries.size() < count) {
        TRACE_INFO("ABN: Malformed HwLog data can't find all {} entries: \"{}\"", count, printArea(area));
        entries.clear();
    }
    return entries;
}
