/// When the servers behind the server were away, as the driver saw it: from just before a server was killed until the
/// server was seen connected to it again, or published again. A lost deep sleep server or software manager stays away.
#pragma once

#include "procedures.h"

#include <cstdint>
#include <vector>

namespace Endurance {

class Outages
{
public:
    void begin(BackEnd backEnd, std::int64_t at);
    void end(BackEnd backEnd, std::int64_t at);

    bool isOut(BackEnd backEnd) const;
    unsigned count(BackEnd backEnd) const;
    /// Whether one of them was away at some time of this.
    bool overlap(BackEnds backEnds, std::int64_t from, std::int64_t to) const;

private:
    struct Outage {
        BackEnd backEnd;
        std::int64_t from;
        std::int64_t to;
    };
    std::vector<Outage> m_outages;
};

} // namespace Endurance
