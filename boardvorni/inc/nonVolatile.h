/// Temporary product data that a developer lays over the unit's own. It survives a restart and goes with a power cycle.
///
/// The values are texts in the store's group "sys_bpar" under "/sys/vorn/", kept with their terminating zero. Each
/// operation opens the store and closes it again, and may be called on any thread. A value is deleted by storing an
/// empty text.
#pragma once

#include <cstdint>
#include <string>

inline constexpr std::uint32_t sarnaFdfId = 1;
inline constexpr std::uint32_t sarnaFdfFile = 2;

/// Stores the product number that replaces the unit's own. Returns 0 or the store's error code.
std::uint32_t sarnaStorePid(const std::string& text);
/// The same for the FRU description: `flag` is sarnaFdfId or sarnaFdfFile.
std::uint32_t sarnaStoreFdf(std::uint32_t flag, const std::string& text);

/// The stored product number; empty where there is none, and on every failure.
std::string sarnaReadPid();
/// What is stored of the FRU description, or what went wrong, in words for who reads the command's output:
/// "ABN:invalid flag", "sarna_get_value_size error" (nothing stored, too), "sarna_get_value error".
std::string sarnaReadFdf(std::uint32_t flag);
