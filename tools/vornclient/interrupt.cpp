#include "vornclient/interrupt.h"

#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace VornClient {

namespace {

int interruptFd = -1;

extern "C" void noteInterrupt(int)
{
    const int error = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(interruptFd, &one, sizeof(one));
    errno = error;
}

} // namespace

Interrupt::Interrupt()
{
    interruptFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (interruptFd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    struct sigaction action {
    };
    action.sa_handler = noteInterrupt;
    ::sigaction(SIGINT, &action, &m_previous);
}

Interrupt::~Interrupt()
{
    ::sigaction(SIGINT, &m_previous, nullptr);
    ::close(interruptFd);
    interruptFd = -1;
}

int Interrupt::fd() const
{
    return interruptFd;
}

} // namespace VornClient
