/// How long the server takes from its start until clients find it, with all board servers there before it.

#include "mailbox.h"
#include "results.h"

#include <iostream>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::uint32_t died = 2;

/// From just before the server's process is made, in milliseconds. The server is gone afterwards, and its name free.
double timeStart(const std::string& serverProgram)
{
    const auto begin = Clock::now();
    kiv_mbox_id_t publicMbox = KIV_NO_MBOX;
    double time = 0;
    {
        const Child server(serverProgram, {}, Child::Io::none);
        publicMbox = awaitMailbox("VornServer");
        time = Milliseconds(Clock::now() - begin).count();
    }
    kiv_monitor(publicMbox, kiv_alloc(sizeof(std::uint32_t), died));
    if (receiveMessage()->number != died) {
        throw Failed("a message comes before the server's death");
    }
    return time;
}

} // namespace

void measureStarts(const std::string& /*folder*/, const std::string& serverProgram, const Effort& effort,
                   Results& results)
{
    for (const Processors processors : {Processors::one, Processors::all}) {
        std::cerr << "start ...\n";
        runOn(processors);
        const Child board = startRole({"board"});
        timeStart(serverProgram); // warms up
        results.starts.push_back({processors, {}});
        for (unsigned i = 0; i < effort.starts; ++i) {
            results.starts.back().times.push_back(timeStart(serverProgram));
        }
    }
}

} // namespace Bench
