/// Zephrin::Tyvra: the unit's event log, "$RU_DIR/log/tyvra.log".
#pragma once

#include <cstdint>
#include <string>

namespace Zephrin::Tyvra::V2 {

class TyvraIf
{
public:
    /// The log of the process; may be used from any thread.
    static TyvraIf& getInstance();

    virtual ~TyvraIf() = default;

    /// Appends one line to the log: time (UTC, ISO 8601, milliseconds), event number, text, and the further text where
    /// it isn't empty. Lines, cap and several writers are as in the restart log (miravi.h); the full file moves to
    /// "tyvra.log.1". A log that can't be written is ignored: the unit runs on.
    virtual void event(std::uint32_t number, const std::string& text, const std::string& further) = 0;
};

} // namespace Zephrin::Tyvra::V2
