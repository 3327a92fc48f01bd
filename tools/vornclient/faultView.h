/// The faults that the server shows a client at the moment, put together from the signals of its subscription.
///
/// The server has one fault of an identifier at most and numbers nothing: a fault that is told again, in a replay or
/// because others that hid it have ceased, is the one that is known already, also where its case or text differ. A
/// fault that was hidden all its life is ceased all the same; such a cease changes nothing here.
#pragma once

#include "vornclient/signal.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace VornClient {

struct ShownFault {
    std::uint16_t faultId = 0;
    std::uint16_t faultCase = 0;
    std::string description;
    std::optional<std::uint32_t> recoveryTime;   ///< seconds; only in the form with label
    std::string label;                           ///< likewise; may be empty
    std::chrono::system_clock::time_point since; ///< when the client was told first
};

enum class FaultEvent {
    shown, ///< was there when the watch began
    raised,
    changed, ///< told again, with another case or text
    ceased,
    cleared, ///< all of them: with the connection goes what was known
};

struct FaultChange {
    FaultEvent event = FaultEvent::raised;
    ShownFault fault; ///< of FaultEvent::cleared: nothing
};

class FaultView
{
public:
    /// Takes a signal in; nothing where it says nothing new, is no fault signal or is too short to be one.
    std::optional<FaultChange> apply(const Signal& signal);
    /// Returns whether there was any.
    bool clear();
    /// By identifier.
    const std::map<std::uint16_t, ShownFault>& faults() const { return m_faults; }

private:
    std::optional<FaultChange> raise(ShownFault fault);
    std::optional<FaultChange> cease(std::uint16_t faultId);

    std::map<std::uint16_t, ShownFault> m_faults;
};

/// "raised", "ceased".
const char* faultEventName(FaultEvent event);

/// The change on one line, safe for a terminal.
std::string printFaultChange(const FaultChange& change);

/// The faults as a table, a line an entry; safe for a terminal.
std::vector<std::string> printFaultTable(const FaultView& view);

} // namespace VornClient
