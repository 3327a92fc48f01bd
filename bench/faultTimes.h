/// When a fault is sent and when its last receiver has it, in memory that the processes of a fan-out share.
///
/// So nobody sends a message to tell a time while a fault is on its way.
#pragma once

#include <chrono>
#include <string>

namespace Bench {

class FaultTimes
{
public:
    /// Makes the file at `path`, which is to be written by the others too.
    FaultTimes(const std::string& path, unsigned receivers);
    /// The file that another process has made.
    explicit FaultTimes(const std::string& path);
    ~FaultTimes();
    FaultTimes(const FaultTimes&) = delete;
    FaultTimes& operator=(const FaultTimes&) = delete;

    /// Called by the sender just before it sends.
    void noteSent();
    /// Called by each receiver once; the last one wakes who waits.
    void noteReceipt();
    /// From the sending to `noteReceipt` of the last receiver. The next fault may be sent afterwards.
    std::chrono::nanoseconds awaitLastReceipt();
    /// From the sending to now.
    std::chrono::nanoseconds sinceSent() const;

private:
    struct Shared;

    FaultTimes(int descriptor, const std::string& path);

    Shared* m_shared;
};

} // namespace Bench
