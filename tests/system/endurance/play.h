/// The run: the unit's programs, the crowd of clients, the losses of servers, the samples of the server's memory; and
/// what is left when the clients have gone.
#pragma once

#include "crowd.h"
#include "ledger.h"
#include "losses.h"
#include "memory.h"
#include "outages.h"
#include "programs.h"
#include "remains.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Endurance {

struct PlaySettings {
    double minutes = 30;
    unsigned clients = 50;
    std::uint32_t seed = 1;
    bool isSmoke = false; ///< too short to judge memory by
    std::filesystem::path directory;
};

/// A thing that has to hold.
struct Check {
    std::string what;
    std::string found;
    std::string allowed;
    bool holds = false;
};

/// What a run has found.
struct Result {
    PlaySettings settings;
    double seconds = 0;
    std::uint64_t clientsStarted = 0;
    std::uint64_t clientsKilled = 0;
    std::uint64_t requests = 0;
    std::uint64_t answers = 0;
    std::uint64_t notOwed = 0; ///< unanswered, with a server away in the time for the answer
    std::uint64_t indications = 0;
    std::array<unsigned, backEndCount> losses{};
    std::vector<MemorySample> memory;
    MemoryTrend trend;
    std::vector<Check> checks;
    std::vector<Remaining> remains;
    std::vector<std::string> missing; ///< answers that were owed, one a line

    bool holds() const;
};

/// Plays a run; prints a line every ten seconds. Throws where the unit doesn't come up, or the server dies.
class Play
{
public:
    explicit Play(const PlaySettings& settings);

    Result run();

private:
    void startUp();
    void noteStart();
    void playOn();
    void windDown();
    Result judge();

    void stirBoard();
    void sampleMemory();
    void printProgress();
    void lookAtDeepSleepConnections();
    void awaitQuiet();
    void awaitHeapAtRest() const;
    void requireServer() const;
    double elapsed() const;
    std::uint64_t highestConnection() const;

    void judgeAnswers(Result& result) const;
    void judgeRemains(Result& result) const;
    void judgeProcess(Result& result) const;
    void judgeMemory(Result& result) const;
    std::vector<std::string> leftoverMailboxes() const;
    std::uint64_t rhuneConnectionsLeft() const;

    PlaySettings m_settings;
    Random m_random;
    Programs m_programs;
    std::unique_ptr<Ledger, void (*)(Ledger*)> m_ledger;
    Outages m_outages;
    std::unique_ptr<Crowd> m_crowd;
    std::unique_ptr<Losses> m_losses;
    std::int64_t m_start = 0;
    std::int64_t m_length = 0;
    std::int64_t m_nextSample = 0;
    std::int64_t m_nextProgress = 0;
    std::int64_t m_nextStir = 0;
    bool m_isFaultRaised = false;
    std::vector<MemorySample> m_samples;
    KernelView m_kernelAtStart;
    std::vector<std::string> m_mailboxesAtStart;
    std::uint64_t m_capabilitiesOfDunl = 0; ///< of one connection
    std::uint64_t m_capabilitiesOfFesk = 0;
    double m_heapAtStart = 0; ///< bytes in use, without what is described to stay
    std::vector<Remaining> m_deepSleepRemains;
    unsigned m_notGone = 0;
};

} // namespace Endurance
