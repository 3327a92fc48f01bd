/// The unit's faults by name, for what the user types and reads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VornClient {

/// The names without "OMLA_CONST_FH_FAULT_ID_", in the order of their numbers.
std::vector<std::string> faultNames();

/// "SW_ERROR (0x301)"; of a fault without a name the number alone.
std::string printFaultId(std::uint16_t faultId);

/// A fault by its name, with or without "OMLA_CONST_FH_FAULT_ID_" and in any case, or by its number. Throws BadUsage.
std::uint16_t parseFaultId(const std::string& word);

} // namespace VornClient
