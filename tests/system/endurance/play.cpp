#include "play.h"

#include "kiv/kiv.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <thread>

namespace Endurance {

namespace {

using TestSystem::StepFailed;

constexpr std::chrono::milliseconds lookUpEvery{10};
constexpr std::int64_t sampleEvery = 2 * second;
constexpr std::int64_t progressEvery = 10 * second;
constexpr std::int64_t timeToGo = 90 * second; ///< of a client that waits for a ticket
constexpr std::int64_t timeToBeQuiet = 10 * second;
constexpr double mebibyte = 1024 * 1024;

double inSeconds(std::int64_t time)
{
    return static_cast<double>(time) / static_cast<double>(second);
}

} // namespace

Play::Play(const PlaySettings& settings)
    : m_settings(settings), m_random(settings.seed), m_programs(settings.directory),
      m_ledger(createLedger(settings.directory / "ledger")),
      m_length(static_cast<std::int64_t>(settings.minutes * 60 * static_cast<double>(second)))
{
    if (kiv_create_mailbox("endurance") == KIV_NO_MBOX) {
        throw StepFailed("the driver has no mailbox");
    }
}

Result Play::run()
{
    startUp();
    playOn();
    windDown();
    return judge();
}

void Play::startUp()
{
    m_programs.bringUp();
    CrowdSettings crowd;
    crowd.clients = m_settings.clients;
    crowd.ledgerPath = m_settings.directory / "ledger";
    crowd.rhuneClients = std::min(4U, m_settings.clients);
    crowd.longestLife = static_cast<unsigned>(std::clamp(inSeconds(m_length) / 4, 2.0, 40.0));
    crowd.pause = m_settings.isSmoke ? 30 : 150;
    m_crowd = std::make_unique<Crowd>(m_programs, *m_ledger, crowd, m_random);
    m_crowd->warmUp();
    noteStart();
    m_crowd->startFirst();
    m_start = now();
    m_losses = std::make_unique<Losses>(m_programs, m_outages, m_random, m_start, m_length);
}

/// The connections with the driver and with all servers are there: the latter came with the first client.
void Play::noteStart()
{
    rhuneConnectionsLeft();
    awaitQuiet();
    const Json counts = m_programs.counts(0);
    m_capabilitiesOfDunl = counts["dunl"]["capabilities"];
    m_capabilitiesOfFesk = counts["fesk"]["capabilities"];
    m_heapAtStart = counts["heap"].get<double>() - memoryOfRemains(counts);
    m_kernelAtStart = kernelViewOf(m_programs.server().pid());
    m_mailboxesAtStart = livingMailboxes(m_programs.directory());
}

void Play::playOn()
{
    while (now() < m_start + m_length) {
        requireServer();
        if (now() >= m_losses->lastLoss()) {
            lookAtDeepSleepConnections();
        }
        m_losses->look();
        m_crowd->look();
        stirBoard();
        sampleMemory();
        printProgress();
        std::this_thread::sleep_for(lookUpEvery);
    }
}

void Play::requireServer() const
{
    if (!m_programs.server().isRunning()) {
        throw StepFailed("the server has ended:\n" + m_programs.server().output());
    }
}

double Play::elapsed() const
{
    return inSeconds(now() - m_start);
}

std::uint64_t Play::highestConnection() const
{
    constexpr std::uint64_t ofTheStart = 16;
    return m_ledger->procedures[connect].sent + ofTheStart;
}

/// Before they go with their server.
void Play::lookAtDeepSleepConnections()
{
    if (m_deepSleepRemains.empty()) {
        m_deepSleepRemains = deepSleepRemainsOf(m_programs.counts(highestConnection()), {*m_ledger, m_outages});
    }
}

/// A fault of the board comes and goes.
void Play::stirBoard()
{
    if (now() < m_nextStir || m_outages.isOut(dunl)) {
        return;
    }
    m_programs.tellBoard(dunl, {"dunl", m_isFaultRaised ? "cease" : "raise", m_isFaultRaised ? "all" : "HW_FAULT"});
    m_isFaultRaised = !m_isFaultRaised;
    m_nextStir = now() + static_cast<std::int64_t>(pick(m_random, 1, 5)) * second;
}

void Play::sampleMemory()
{
    if (now() >= m_nextSample) {
        const Memory memory = memoryOf(m_programs.server().pid());
        m_samples.push_back({elapsed(), memory, memoryOfRemains(m_programs.counts(0))});
        m_nextSample = now() + sampleEvery;
    }
}

void Play::printProgress()
{
    if (now() < m_nextProgress) {
        return;
    }
    std::uint64_t sent = 0;
    std::uint64_t answered = 0;
    for (const ProcedureCounts& counts : m_ledger->procedures) {
        sent += counts.sent;
        answered += counts.confirmed + counts.rejected;
    }
    std::string losses;
    for (unsigned i = 0; i < backEndCount; ++i) {
        losses += fmt::format(" {} {}", backEndNames[i], m_outages.count(static_cast<BackEnd>(i)));
    }
    const MemorySample& last = m_samples.back();
    fmt::print("{:6.0f} s  clients {} (started {}, killed {})  requests {}  answers {}  killed:{}  RSS {:.1f} MiB, "
               "anonymous {:.2f} MiB\n",
               elapsed(), m_crowd->present(), m_crowd->started(), m_crowd->killed(), sent, answered, losses,
               static_cast<double>(last.memory.resident) / mebibyte,
               static_cast<double>(last.memory.anonymous) / mebibyte);
    std::fflush(stdout);
    m_nextProgress = now() + progressEvery;
}

/// All servers there, no clients, nothing on its way.
void Play::windDown()
{
    m_losses->bringAllBack();
    m_crowd->sendAllAway();
    for (const std::int64_t end = now() + timeToGo; !m_crowd->isEmpty() && now() < end;) {
        requireServer();
        m_crowd->look();
        m_crowd->killHopeless(m_outages);
        sampleMemory();
        printProgress();
        std::this_thread::sleep_for(lookUpEvery);
    }
    m_notGone = m_crowd->killRest();
    awaitQuiet();
    if (!m_settings.isSmoke) {
        awaitHeapAtRest();
    }
}

/// What the library keeps for connections with the dead goes some seconds behind them.
void Play::awaitHeapAtRest() const
{
    constexpr unsigned secondsAtRest = 5;
    constexpr unsigned longest = 30;
    std::uint64_t lowest = m_programs.counts(0)["heap"];
    unsigned atRest = 0;
    for (unsigned i = 0; i < longest && atRest < secondsAtRest; ++i) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        const std::uint64_t heap = m_programs.counts(0)["heap"];
        atRest = heap < lowest ? 0 : atRest + 1;
        lowest = std::min(lowest, heap);
    }
}

/// Until the sessions have gone and nothing has changed for a second.
void Play::awaitQuiet()
{
    const std::int64_t end = now() + timeToBeQuiet;
    Json last;
    std::int64_t since = now();
    while (now() < end && now() < since + second) {
        requireServer();
        Json counts = m_programs.counts(0);
        counts.erase("heap"); // the asking itself changes it
        if (counts != last || counts["sessions"] != 0) {
            last = std::move(counts);
            since = now();
        }
        std::this_thread::sleep_for(10 * lookUpEvery);
    }
}

} // namespace Endurance
