/// What a tap costs: the question whether somebody listens, and messages with a listener that reads them.

#include "child.h"
#include "mailbox.h"
#include "results.h"
#include "roles.h"
#include "tap/listener.h"
#include "tap/tap.h"

#include <atomic>
#include <chrono>
#include <iostream>
#include <thread>

namespace Bench {
namespace {

constexpr unsigned questions = 10'000'000;

/// Nanoseconds for each time that the sender of a message asks.
double timeQuestion()
{
    unsigned open = 0;
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned i = 0; i < questions; ++i) {
        open += tap::isOpen() ? 1 : 0;
        asm volatile("" : "+r"(open) : : "memory"); // asked anew each time
    }
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begin;
    return time.count() / questions;
}

/// Reads all copies on a thread of its own.
class Reader
{
public:
    Reader()
    {
        if (m_listener.open() != 0) {
            throw Failed("no tap can be opened");
        }
        m_thread = std::thread([this] {
            while (!m_stop) {
                if (const auto record = m_listener.next(std::chrono::milliseconds(10))) {
                    m_lost = m_lost + static_cast<double>(record->lost);
                    m_read = m_read + 1;
                }
            }
        });
    }
    ~Reader()
    {
        m_stop = true;
        m_thread.join();
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    double lostShare() const { return m_read + m_lost == 0 ? 0 : m_lost / (m_read + m_lost); }

private:
    tap::Listener m_listener;
    std::atomic<bool> m_stop = false;
    std::atomic<double> m_read = 0;
    std::atomic<double> m_lost = 0;
    std::thread m_thread;
};

} // namespace

void measureTap(const std::string& /*folder*/, const std::string& /*serverProgram*/, const Effort& effort,
                Results& results)
{
    for (const Processors processors : {Processors::one, Processors::all}) {
        std::cerr << "tap ...\n";
        runOn(processors);
        const Child echo = startRole({"kivEcho", "tapEcho"});
        const auto channel = openKivChannel(awaitMailbox("tapEcho"));
        measureThroughput(*channel, effort.roundTrips); // warms up
        TapFigures figures{processors, {}, {}, {}, {}};
        for (unsigned round = 0; round < effort.rounds; ++round) {
            figures.question.push_back(timeQuestion());
            figures.without.push_back(measureThroughput(*channel, effort.messages));
            const Reader reader;
            figures.with.push_back(measureThroughput(*channel, effort.messages));
            figures.lost.push_back(reader.lostShare());
        }
        results.tap.push_back(figures);
    }
}

} // namespace Bench
