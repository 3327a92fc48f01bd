/// The entries of a hardware log as signals carry them: zero-terminated texts, one behind the other.
#pragma once

#include "vorni/hwLog.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Reads `count` entries from the bytes that begin with the area of a request and end with the signal. An entry begins
/// inside the area; its zero may lie behind it, and one without a zero ends with the signal. Empty, with a trace, where
/// the entries aren't `count`.
std::vector<std::string> parseHwLogEntries(std::span<const std::byte> bytes, std::uint32_t count);

/// Writes entries, each up to its zero, to an area that is zeroed. One that doesn't fit is cut, and those behind it are
/// left out. How many are written.
template <typename Entries>
std::uint32_t writeHwLogEntries(const Entries& entries, std::uint8_t (&area)[vornHwLogAreaSize])
{
    std::uint32_t written = 0;
    for (std::size_t used = 0; const std::string& entry : entries) {
        const std::string_view text(entry.c_str());
        const std::size_t room = vornHwLogAreaSize - used;
        if (room == 0 || (room == 1 && !text.empty())) {
            break;
        }
        used += text.copy(reinterpret_cast<char*>(area) + used, room - 1) + 1;
        ++written;
    }
    return written;
}
