/// What is described to stay in the server when its clients have gone, and how much of it there may be: a row for each,
/// with the reason, and bounds that follow from what was sent and which servers were away.
#pragma once

#include "ledger.h"
#include "outages.h"
#include "programs.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Endurance {

/// What a run has written down.
struct Evidence {
    const Ledger& ledger;
    const Outages& outages;

    const ProcedureCounts& of(ProcedureId id) const { return ledger.procedures[id]; }
    /// Requests that may have got no answer because one of these servers went.
    std::uint64_t lost(ProcedureId id, BackEnds backEnds) const;
    /// Requests whose client was killed while it waited.
    std::uint64_t cutShort(ProcedureId id) const;
    std::uint64_t count(Entry::Kind kind, ProcedureId id, BackEnds overlapping) const;
};

/// How many there may be.
struct Bounds {
    std::uint64_t least = 0;
    std::uint64_t most = 0;
};

/// A row of the result.
struct Remaining {
    std::string what;
    std::uint64_t found = 0;
    Bounds bounds;
    std::string reason; ///< empty: nothing may stay

    bool holds() const { return bounds.least <= found && found <= bounds.most; }
};

/// All rows, those of what is found and may not be there included.
std::vector<Remaining> remainsOf(const Json& counts, const Evidence& evidence);

/// The deep sleep connections, which go with their server: to be looked at before it is killed.
std::vector<Remaining> deepSleepRemainsOf(const Json& counts, const Evidence& evidence);

/// Bytes of memory that the described remains take, roughly.
double memoryOfRemains(const Json& counts);

} // namespace Endurance
