/// The provider without anyone who listens: a program that traces must run as if it did not.
#include "trace/trace.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Traces every event, past the macros' question whether it is enabled.
void emitAll()
{
    using VornTrace::Event;
    const VornTrace::Place place{"file.cpp", 1};
    VornTrace::error(place, "text");
    VornTrace::info(place, "text");
    for (int event = 0; event < static_cast<int>(VornTrace::eventCount); ++event) {
        VornTrace::trace(static_cast<Event>(event), place, "-", "text");
        VornTrace::traceUts(static_cast<Event>(event), place, {0, 0, nullptr}, "text", nullptr, 0);
    }
    VornTrace::recSig(place, "-", 1, "text");
    VornTrace::sendSig(place, "-", 1, 2, "text");
    VornTrace::data(place, "-", "text", nullptr, 0);
}

/// The exit status of a child process that does `work`; one that hangs is ended by the test's time limit.
template <typename Work>
int exitStatusOfChild(Work work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

TEST(LttngTraces, namesAreThoseOfTheProvider)
{
    std::string names;
    for (std::size_t event = 0; event < VornTrace::eventCount; ++event) {
        names += VornTrace::eventName(static_cast<VornTrace::Event>(event));
        names += ' ';
    }
    EXPECT_EQ(names, "ERROR INFO STATE_CHANGE TRACE1 TRACE2 TRACE3 TRACE4 TRACE5 TRACE6 TRACE7 REC_SIG SEND_SIG DATA "
                     "TRACE_UTS1 TRACE_UTS2 TRACE_UTS3 TRACE_UTS4 TRACE_UTS5 TRACE_UTS6 TRACE_UTS7 ");
}

TEST(LttngTraces, aForkedChildTracesAndEnds)
{
    emitAll();
    EXPECT_EQ(exitStatusOfChild(emitAll), 0);
    EXPECT_EQ(exitStatusOfChild([] { EXPECT_EQ(exitStatusOfChild(emitAll), 0); }), 0);
}

} // namespace
