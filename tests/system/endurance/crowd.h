/// The client processes of a run: a number of places, in each of which one client comes, goes or is killed, and the
/// next one comes. The first client stays to the end, since the server asks the board about its link once for all
/// clients, and forgets it with the last of them.
#pragma once

#include "ledger.h"
#include "programs.h"

#include <memory>
#include <string>
#include <vector>

namespace Endurance {

struct CrowdSettings {
    unsigned clients = 50;
    unsigned rhuneClients = 4;
    unsigned pause = 150;      ///< of a client between two bursts of requests, milliseconds, on average
    unsigned longestLife = 40; ///< of a client, seconds
    std::string ledgerPath;
};

class Crowd
{
public:
    Crowd(Programs& programs, Ledger& ledger, const CrowdSettings& settings, Random& random);

    /// Starts the client that stays; returns when it is connected.
    void startFirst();
    /// One client comes and goes.
    void warmUp();
    /// Starts whoever is due, kills and sends away whose time is over, looks who has gone.
    void look();
    /// Sends all away; nobody comes any more.
    void sendAllAway();
    bool isEmpty() const;
    /// Kills those that wait for nothing but answers that they aren't owed, because a server was away.
    void killHopeless(const Outages& outages);
    /// Kills those that haven't gone. Their number.
    unsigned killRest();

    unsigned present() const;
    std::uint64_t started() const { return m_started; }
    std::uint64_t killed() const { return m_killed; }
    /// Clients that ended by themselves with an error, or died.
    const std::vector<std::string>& failures() const { return m_failures; }

private:
    struct Place {
        unsigned slot = 0;
        bool isRhune = false;
        std::unique_ptr<Process> process;
        std::int64_t nextAt = 0;   ///< without a process: when it is started
        std::int64_t endAt = 0;    ///< with one: when its time is over
        bool isToBeKilled = false; ///< else it is told to go
        bool isToldToGo = false;
    };

    void start(Place& place, bool stays);
    void endTime(Place& place);
    void kill(Place& place);
    void lookAfterEnd(Place& place);
    std::int64_t randomTime(double fromSeconds, double toSeconds);

    Programs& m_programs;
    Ledger& m_ledger;
    CrowdSettings m_settings;
    Random& m_random;
    std::vector<Place> m_places;
    std::uint64_t m_started = 0;
    std::uint64_t m_killed = 0;
    bool m_isOver = false;
    std::vector<std::string> m_failures;
};

} // namespace Endurance
