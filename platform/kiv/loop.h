/// For an event loop that dispatches on a thread with a mailbox: not for programs.
///
/// With it the loop asks the system less. While it dispatches, what the thread sends is collected and goes out in
/// packets when the dispatch is over; and where more messages lie in memory already, the loop can call back for the
/// next one without waiting for the descriptor to be reported.
#pragma once

namespace kiv {

/// While it lives the calling thread is inside of a loop's dispatch. May be nested.
class Dispatch
{
public:
    Dispatch();
    ~Dispatch();
    Dispatch(const Dispatch&) = delete;
    Dispatch& operator=(const Dispatch&) = delete;
};

/// Whether `descriptor` is that of the calling thread's mailbox, and kiv_receive has a message in memory.
bool hasQueued(int descriptor);

} // namespace kiv
