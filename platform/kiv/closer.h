/// Closes what peers had a hand in, on a thread of its own ("kiv-close").
///
/// A peer can pass any descriptor along with a packet, one too that takes as long to close as its maker likes: a
/// connection with unsent data and SO_LINGER, a file of a file system in user space. Closing a socket closes the
/// descriptors that wait in it as well. So neither a program's thread nor the I/O thread closes such a descriptor; and
/// lingering is switched off first, so that this thread isn't held up either.
///
/// Threads: usable from all.
#pragma once

#include "kiv/descriptor.h"

#include <condition_variable>
#include <mutex>
#include <vector>

namespace kiv {

class Closer
{
public:
    /// Of a socket, what still waits in it is dropped.
    void close(Descriptor descriptor);
    void close(std::vector<Descriptor>& descriptors);

private:
    static void* threadMain(void* self);
    void run();

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::vector<Descriptor> m_waiting;
    bool m_running = false;
};

} // namespace kiv
