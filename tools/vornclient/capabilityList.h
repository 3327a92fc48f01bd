/// What the unit can do, as its answer tells it, and the names that the user types and reads.
#pragma once

#include "vornclient/shownFields.h"
#include "vornclient/signal.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VornClient {

struct Outcome;
class CommandContext;

struct Capability {
    std::uint16_t number = 0;
    std::vector<ShownFields> parameters; ///< a row for each entry of a list; empty where there is nothing to tell
};

/// Asks the unit. The list is as the outcome is: of an answer that isn't one it stays empty.
Outcome fetchCapabilities(CommandContext& context, std::vector<Capability>& capabilities);

/// Those of an answer. Records that it says it has and hasn't are left out.
std::vector<Capability> capabilitiesOf(const Signal& answer);

/// The block size that the unit wants loads to have, as it says it: any number.
std::optional<std::int64_t> loadingBlockSize(const std::vector<Capability>& capabilities);

/// The identities of the unit's FRU description files.
std::vector<std::string> fdfIds(const std::vector<Capability>& capabilities);

/// Null for a number without a name.
const char* capabilityName(std::uint16_t number);
std::vector<std::string> capabilityNames();
/// "HwPid (3)"; of a number without a name the number alone.
std::string printCapability(std::uint16_t number);
/// A capability by its name, in any case, or by its number. Throws BadUsage.
std::uint16_t parseCapability(const std::string& word);

/// A table with a line for each.
std::vector<std::string> printCapabilityTable(const std::vector<Capability>& capabilities);

} // namespace VornClient
