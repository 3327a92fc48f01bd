#include "losses.h"

#include "kiv/kiv.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Endurance {

namespace {

constexpr double lossesFrom = 0.1;            // of the run's length
constexpr double softwareManagerAt = 0.75;    // without it the server isn't published again: no more legacy server dies
constexpr double deepSleepServerAt = 0.88;    // without it no client is connected any more
constexpr std::int64_t between = 20 * second; // losses of one server, on average
constexpr std::int64_t longestDown = 3 * second;
constexpr std::int64_t lookEvery = second / 20;

std::int64_t part(std::int64_t length, double share)
{
    return static_cast<std::int64_t>(static_cast<double>(length) * share);
}

} // namespace

Losses::Losses(Programs& programs, Outages& outages, Random& random, std::int64_t start, std::int64_t length)
    : m_programs(programs), m_outages(outages)
{
    planAll(random, start, length);
}

/// Two servers may be away at once; one that is away isn't killed again.
void Losses::planAll(Random& random, std::int64_t start, std::int64_t length)
{
    const std::int64_t down = std::min(longestDown, length / 20);
    const auto randomOf = [&](std::int64_t from, std::int64_t to) {
        return std::uniform_int_distribution<std::int64_t>(from, to)(random);
    };
    for (const BackEnd backEnd : {legacy, dunl, fesk}) {
        const std::int64_t last = start + part(length, backEnd == legacy ? softwareManagerAt - 0.05 : 0.95) - down;
        std::int64_t at = start + part(length, lossesFrom);
        const std::int64_t usual = std::min(between, (last - at) / 2);
        for (at += randomOf(0, usual); at < last; at += down + randomOf(usual / 2, 2 * usual)) {
            plan(backEnd, at, randomOf(down / 10, down));
        }
    }
    plan(ganti, start + part(length, softwareManagerAt), down);
    m_lastLoss = start + part(length, deepSleepServerAt);
    plan(yarrowi, m_lastLoss, down);
    std::stable_sort(m_steps.begin(), m_steps.end(),
                     [](const Step& left, const Step& right) { return left.at > right.at; });
}

void Losses::plan(BackEnd backEnd, std::int64_t at, std::int64_t downTime)
{
    m_steps.push_back({at, backEnd, true});
    m_steps.push_back({at + downTime, backEnd, false});
}

void Losses::look()
{
    while (!m_steps.empty() && now() >= m_steps.back().at && mayBeDone(m_steps.back())) {
        const Step step = m_steps.back();
        m_steps.pop_back();
        doStep(step);
    }
    lookForReturned();
}

/// The software manager waits for the publication that needs it.
bool Losses::mayBeDone(const Step& step) const
{
    return !step.isKill || step.backEnd != ganti || !m_outages.isOut(legacy);
}

void Losses::doStep(const Step& step)
{
    const bool isLegacyTooLate = step.backEnd == legacy && m_outages.count(ganti) != 0;
    if (!step.isKill) {
        if (!m_programs.isRunning(step.backEnd)) {
            m_programs.bringBack(step.backEnd);
        }
    } else if (!isLegacyTooLate) {
        m_outages.begin(step.backEnd, now());
        m_programs.kill(step.backEnd);
    }
}

void Losses::lookForReturned()
{
    const auto isAwaited = [this](BackEnd backEnd) {
        return m_outages.isOut(backEnd) && m_programs.isRunning(backEnd);
    };
    if (now() < m_lookedAt + lookEvery || !(isAwaited(legacy) || isAwaited(dunl) || isAwaited(fesk))) {
        return;
    }
    const Json counts = m_programs.counts(0);
    const auto endIf = [&](BackEnd backEnd, bool isBack) {
        if (isAwaited(backEnd) && isBack) {
            m_outages.end(backEnd, now());
        }
    };
    endIf(legacy, counts["published"]);
    endIf(dunl, counts["dunl"]["connected"]);
    endIf(fesk, counts["fesk"]["connected"]);
    m_lookedAt = now();
}

void Losses::bringAllBack()
{
    while (!m_steps.empty()) {
        const Step step = m_steps.back();
        m_steps.pop_back();
        if (!step.isKill) {
            doStep(step);
        }
    }
    const std::int64_t end = now() + std::chrono::nanoseconds(TestSystem::patience).count();
    while (m_outages.isOut(legacy) || m_outages.isOut(dunl) || m_outages.isOut(fesk)) {
        if (now() > end) {
            throw TestSystem::StepFailed("the server doesn't find its servers again");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        lookForReturned();
    }
}

} // namespace Endurance
