/// The plan by which the servers behind the server are killed and brought back: those that it connects to again at any
/// time, the software manager and the deep sleep server once, towards the end, because it doesn't look for them again.
#pragma once

#include "outages.h"
#include "programs.h"

#include <cstdint>
#include <vector>

namespace Endurance {

class Losses
{
public:
    /// Times count from `start`; `length` in nanoseconds.
    Losses(Programs& programs, Outages& outages, Random& random, std::int64_t start, std::int64_t length);

    /// Does what is due, and looks whether the server has found again what has come back.
    void look();
    /// Brings all back that the server connects to again, and waits until it has.
    void bringAllBack();
    /// When the deep sleep server is killed.
    std::int64_t lastLoss() const { return m_lastLoss; }

private:
    struct Step {
        std::int64_t at;
        BackEnd backEnd;
        bool isKill;
    };

    void planAll(Random& random, std::int64_t start, std::int64_t length);
    void plan(BackEnd backEnd, std::int64_t at, std::int64_t downTime);
    bool mayBeDone(const Step& step) const;
    void doStep(const Step& step);
    void lookForReturned();

    Programs& m_programs;
    Outages& m_outages;
    std::vector<Step> m_steps; ///< the next one last
    std::int64_t m_lastLoss = 0;
    std::int64_t m_lookedAt = 0;
};

} // namespace Endurance
