/// A client of the endurance run: it connects and uses the procedures at random, several at once, until it is told to
/// go or is killed. What it sends and gets stands in the ledger.
#pragma once

#include "ledger.h"
#include "procedures.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <set>
#include <string>

namespace Endurance {

/// Set by SIGTERM: the client ends what it has begun and goes.
extern volatile std::sig_atomic_t isToldToGo;

struct ClientSettings {
    std::string name; ///< of its mailbox
    unsigned slot = 0;
    std::uint32_t seed = 0;
    bool stays = false;               ///< goes when it is told to, and at no other time
    unsigned pause = 150;             ///< between two bursts of requests, milliseconds, on average
    unsigned softwareEvery = 60'000;  ///< a visit to the software store, milliseconds, on average
    unsigned restartsEvery = 200'000; ///< an order to restart
};

class Client
{
public:
    Client(Ledger& ledger, const ClientSettings& settings);

    void run();

private:
    enum class Answer { confirmed, rejected, none };

    // The connection
    bool awaitPublished();
    bool connectToServer();
    bool followServer();
    void watchServer();

    // Requests and answers
    bool isOpen(ProcedureId id) const;
    bool maySend(ProcedureId id) const;
    /// Writes a request down as open. Its answer is noted by whoever receives it.
    void note(ProcedureId id);
    void send(ProcedureId id);
    /// Waits until it is answered, or isn't.
    Answer await(ProcedureId id);
    template <typename Record, typename Fill>
    Answer call(ProcedureId id, Fill&& fill, std::size_t sizeBehind = 0);
    void awaitAll();
    void receiveOne(std::int64_t until);
    void receive(const kiv_msg& signal);
    void takeAnswer(OpenRequest& request, const kiv_msg& signal);
    void follow(ProcedureId id, Answer answer, const kiv_msg& signal);
    void giveUpOverdue();
    void acknowledgeFruDescription(const kiv_msg& part);
    void rest(unsigned milliseconds);

    // What it does
    void burst();
    ProcedureId choose();
    bool isTimeFor(unsigned every);
    void visitSoftwareStore();
    void load(const std::string& module);
    void list();
    void orderRestarts();

    Ledger& m_ledger;
    ClientSettings m_settings;
    Slot& m_slot;
    Random m_random;
    Way m_way;
    std::array<Answer, procedureCount> m_lastAnswer{};
    std::array<bool, procedureCount> m_missed{}; ///< an answer may come late
    std::set<ProcedureId> m_sent;                ///< in this session
    std::set<ProcedureId> m_confirmed;
    std::uint32_t m_loadInitResult = 0;
    bool m_isListOver = true;
    bool m_isServerGone = false;
};

} // namespace Endurance
