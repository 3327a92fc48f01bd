/// The load of a module: from a client through vornserver to the software manager, and the same over bare sockets.
///
/// A client sends blocks and has at most so many of them unacknowledged; whoever gets them acknowledges each. The
/// blocks and the acknowledgements go through a process in the middle.
#pragma once

#include "channels.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Bench {

struct LoadShape {
    std::size_t blockSize; ///< bytes
    unsigned window;       ///< blocks that are not acknowledged yet
};

class Load
{
public:
    Load() = default;
    virtual ~Load() = default;
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

    /// Returns when the last block is acknowledged.
    void run(const LoadShape& shape, unsigned blocks);
    /// Of the process in the middle.
    virtual std::chrono::nanoseconds processorTime() const = 0;

protected:
    virtual void sendBlock(std::uint16_t sequence, std::size_t size) = 0;
    virtual void awaitAck(std::uint16_t sequence) = 0;

private:
    std::uint16_t m_nextSent = 0;
    std::uint16_t m_nextAcknowledged = 0;
};

class Unit;

/// A client of `unit` with a ticket, in the middle of a load. The calling thread has a mailbox, and no other client.
std::unique_ptr<Load> openKivLoad(const Unit& unit);
/// `folder` holds nothing else.
std::unique_ptr<Load> openSocketLoad(const std::string& folder);

// The partners; they find each other in `folder`.
void runSocketLoadRelay(const std::string& folder, const Ready& ready);
void runSocketLoadSink(const std::string& folder, const Ready& ready);

} // namespace Bench
