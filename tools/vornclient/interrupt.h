/// Ctrl-C as an end of what is being waited for rather than of the program.
#pragma once

#include <csignal>

namespace VornClient {

/// While it lives, SIGINT makes fd() readable instead of ending the process. One at a time.
class Interrupt
{
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    int fd() const;

private:
    struct sigaction m_previous {
    };
};

} // namespace VornClient
