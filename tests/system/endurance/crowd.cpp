#include "crowd.h"

#include <algorithm>
#include <csignal>
#include <fmt/format.h>
#include <limits>
#include <thread>

namespace Endurance {

namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
constexpr std::chrono::milliseconds lookUpEvery{10};

} // namespace

Crowd::Crowd(Programs& programs, Ledger& ledger, const CrowdSettings& settings, Random& random)
    : m_programs(programs), m_ledger(ledger), m_settings(settings), m_random(random)
{
    const unsigned all = m_settings.clients + m_settings.rhuneClients;
    for (unsigned i = 0; i < all; ++i) {
        Place& place = m_places.emplace_back();
        place.slot = i;
        place.isRhune = i >= m_settings.clients;
        place.nextAt = now() + randomTime(0, 2);
    }
}

std::int64_t Crowd::randomTime(double fromSeconds, double toSeconds)
{
    return static_cast<std::int64_t>(std::uniform_real_distribution<double>(fromSeconds, toSeconds)(m_random) *
                                     static_cast<double>(second));
}

void Crowd::startFirst()
{
    Place& first = m_places.front();
    start(first, true);
    const std::int64_t end = now() + std::chrono::nanoseconds(TestSystem::patience).count();
    while (!m_ledger.slots[first.slot].isConnected) {
        if (now() > end || !first.process->isRunning()) {
            throw TestSystem::StepFailed("the first client isn't connected");
        }
        std::this_thread::sleep_for(lookUpEvery);
    }
}

void Crowd::warmUp()
{
    startFirst();
    Place& first = m_places.front();
    first.process->signal(SIGTERM);
    lookAfterEnd(first);
}

/// Every eighth lives so shortly that it is caught while it connects.
void Crowd::start(Place& place, bool stays)
{
    m_ledger.slots[place.slot].clear();
    Words arguments{"--ledger", m_settings.ledgerPath,      "--slot",  std::to_string(place.slot),
                    "--seed",   std::to_string(m_random()), "--pause", std::to_string(m_settings.pause)};
    if (stays) {
        arguments.emplace_back("--stays");
    }
    if (place.isRhune) {
        arguments.emplace_back("--rhune");
    }
    place.process = m_programs.startClient(arguments, fmt::format("client{}.out", place.slot));
    const bool isShort = pick(m_random, 0, 7) == 0;
    const std::int64_t life = isShort ? randomTime(0, 0.2) : randomTime(1, m_settings.longestLife);
    place.endAt = stays ? never : now() + life;
    place.isToBeKilled = pick(m_random, 0, 1) == 0;
    place.isToldToGo = false;
    ++m_started;
}

void Crowd::look()
{
    for (Place& place : m_places) {
        if (place.process == nullptr) {
            if (!m_isOver && now() >= place.nextAt) {
                start(place, false);
            }
        } else if (!place.process->isRunning()) {
            lookAfterEnd(place);
        } else if (now() >= place.endAt) {
            endTime(place);
        }
    }
}

void Crowd::endTime(Place& place)
{
    if (place.isToBeKilled) {
        kill(place);
    } else if (!place.isToldToGo) {
        place.isToldToGo = true;
        place.process->signal(SIGTERM);
    }
}

void Crowd::kill(Place& place)
{
    place.process->signal(SIGKILL);
    place.process->wait();
    place.process.reset();
    place.nextAt = now() + randomTime(0, 1);
    ++m_killed;
    Slot& slot = m_ledger.slots[place.slot];
    for (const OpenRequest& request : slot.open) {
        if (request.procedure != OpenRequest::none) {
            m_ledger.add({Entry::clientKilled, request.procedure, request.sentAt, now()});
        }
    }
    if (slot.measuringSince != 0) {
        m_ledger.add({Entry::measuring, measureTemperature, slot.measuringSince, now()});
    }
    slot.clear();
}

/// One that couldn't connect goes by itself. One that is told to go before it has begun to listen ends by the signal.
void Crowd::lookAfterEnd(Place& place)
{
    const int exitCode = place.process->wait();
    if (exitCode != 0 && exitCode != TestSystem::Process::diedOfSignal + SIGTERM) {
        m_failures.push_back(fmt::format("a client in place {} ended with {}", place.slot, exitCode));
    }
    place.process.reset();
    place.nextAt = now() + randomTime(0, 1);
}

void Crowd::sendAllAway()
{
    m_isOver = true;
    for (Place& place : m_places) {
        if (place.process != nullptr) {
            place.process->signal(SIGTERM);
            place.endAt = never;
        }
    }
}

void Crowd::killHopeless(const Outages& outages)
{
    const auto isHopeless = [&](const OpenRequest& request) {
        const std::uint32_t id = request.procedure;
        return id == OpenRequest::none || outages.overlap(needsOf(id), request.sentAt, now());
    };
    const auto isOpen = [](const OpenRequest& request) { return request.procedure != OpenRequest::none; };
    for (Place& place : m_places) {
        const auto& open = m_ledger.slots[place.slot].open;
        if (place.process != nullptr && std::any_of(open.begin(), open.end(), isOpen) &&
            std::all_of(open.begin(), open.end(), isHopeless)) {
            kill(place);
        }
    }
}

bool Crowd::isEmpty() const
{
    return present() == 0;
}

unsigned Crowd::killRest()
{
    unsigned rest = 0;
    for (Place& place : m_places) {
        if (place.process != nullptr) {
            kill(place);
            ++rest;
        }
    }
    return rest;
}

unsigned Crowd::present() const
{
    return static_cast<unsigned>(
        std::count_if(m_places.begin(), m_places.end(), [](const Place& place) { return place.process != nullptr; }));
}

} // namespace Endurance
