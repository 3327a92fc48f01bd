/// How long the server takes from its start until clients find it, with all board servers there before it.

#include "mailbox.h"
#include "results.h"

#include <iostream>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::uint32_t died = 2;

/// Times from just before the server's process is made. The server is gone afterwards, and its name free.
void timeStart(const std::string& serverProgram, StartFigures& figures)
{
    const auto begin = Clock::now();
    kiv_mbox_id_t publicMbox = KIV_NO_MBOX;
    {
        const Child server(serverProgram, {}, Child::Io::none);
        publicMbox = awaitMailbox("VornServer");
        figures.times.push_back(Milliseconds(Clock::now() - begin).count());
        figures.processor.push_back(Milliseconds(server.processorTime()).count());
    }
    kiv_monitor(publicMbox, kiv_alloc(sizeof(std::uint32_t), died));
    if (receiveMessage()->number != died) {
        throw Failed("a message comes before the server's death");
    }
    if (kiv_locate("VornServer") != KIV_NO_MBOX) {
        throw Failed("the server's name outlives it");
    }
}

} // namespace

void measureStarts(const std::string& /*folder*/, const std::string& serverProgram, const Effort& effort,
                   Results& results)
{
    for (const Processors processors : {Processors::one, Processors::all}) {
        std::cerr << "start ...\n";
        runOn(processors);
        const Child board = startRole({"board"});
        StartFigures warmUp{};
        timeStart(serverProgram, warmUp);
        results.starts.push_back({processors, {}, {}});
        for (unsigned i = 0; i < effort.starts; ++i) {
            timeStart(serverProgram, results.starts.back());
        }
    }
}

} // namespace Bench
