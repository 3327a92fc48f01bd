#include "faultTimes.h"

#include "measure.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

std::int64_t now()
{
    return nanoseconds(Clock::now().time_since_epoch()).count();
}

} // namespace

struct FaultTimes::Shared {
    std::atomic<std::int64_t> sent{0};
    std::atomic<std::int64_t> lastReceipt{0};
    std::atomic<unsigned> receipts{0};
    unsigned receivers = 0;
    sem_t done{};
};

FaultTimes::FaultTimes(int descriptor, const std::string& path) : m_shared(nullptr)
{
    void* memory = MAP_FAILED;
    if (descriptor >= 0) {
        if (::ftruncate(descriptor, sizeof(Shared)) == 0) {
            memory = ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        }
        ::close(descriptor);
    }
    if (memory == MAP_FAILED) {
        throw Failed(path + ": " + std::strerror(errno));
    }
    m_shared = static_cast<Shared*>(memory);
}

FaultTimes::FaultTimes(const std::string& path, unsigned receivers)
    : FaultTimes(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), path)
{
    static_assert(std::atomic<std::int64_t>::is_always_lock_free, "shared by processes");
    new (m_shared) Shared;
    m_shared->receivers = receivers;
    if (::sem_init(&m_shared->done, 1, 0) != 0) {
        throw Failed(std::string("semaphore: ") + std::strerror(errno));
    }
}

FaultTimes::FaultTimes(const std::string& path) : FaultTimes(::open(path.c_str(), O_RDWR | O_CLOEXEC), path) {}

FaultTimes::~FaultTimes()
{
    ::munmap(m_shared, sizeof(Shared));
}

void FaultTimes::noteSent()
{
    m_shared->sent = now();
}

void FaultTimes::noteReceipt()
{
    const std::int64_t receipt = now();
    if (++m_shared->receipts == m_shared->receivers) {
        m_shared->lastReceipt = receipt;
        m_shared->receipts = 0;
        ::sem_post(&m_shared->done);
    }
}

nanoseconds FaultTimes::awaitLastReceipt()
{
    timespec deadline{};
    ::clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += std::chrono::seconds(patience).count();
    while (::sem_clockwait(&m_shared->done, CLOCK_MONOTONIC, &deadline) != 0) {
        if (errno != EINTR) {
            throw Failed("a fault doesn't reach all its receivers");
        }
    }
    return nanoseconds(m_shared->lastReceipt - m_shared->sent);
}

nanoseconds FaultTimes::sinceSent() const
{
    return nanoseconds(now() - m_shared->sent);
}

} // namespace Bench
