/// The table by which traces print signal and message numbers.
#pragma once

#include <cstdint>
#include <string>

/// Adds a name to the process-wide table; a number that is there keeps its name.
void addSignalName(std::uint32_t number, const std::string& name);

/// The number's name, or the number as "0x..." in a string that the thread's next such look-up overwrites.
const std::string& getSignalName(std::uint32_t number);
