/// One fault to many subscribers: through vornserver, and the same over bare sockets.
///
/// A sender's message goes to a process in the middle, which sends each subscriber a signal of its own. The subscribers
/// are ends of this process, which one thread serves, or each in a process of its own.
#pragma once

#include "channels.h"
#include "swarm.h"

#include <chrono>
#include <memory>
#include <string>

namespace Bench {

enum class FaultStep : std::uint32_t { raise, cease };

class FanOut
{
public:
    FanOut() = default;
    virtual ~FanOut() = default;
    FanOut(const FanOut&) = delete;
    FanOut& operator=(const FanOut&) = delete;

    /// From the sending of a fault, or of its end, until the last subscriber has its signal. By turns.
    virtual std::chrono::nanoseconds run(FaultStep step) = 0;
};

/// The server runs in this process's run-time directory; the calling thread has a mailbox.
std::unique_ptr<FanOut> openKivFanOut(const std::string& serverProgram, Clients kind, unsigned subscribers);
/// `folder` holds nothing else.
std::unique_ptr<FanOut> openSocketFanOut(const std::string& folder, Clients kind, unsigned subscribers);

// The partners; those over sockets find each other in `folder`.
void runKivSubscriber(const std::string& name, const Ready& ready);
void runSocketFaultSender(const std::string& folder, const Ready& ready);
void runSocketFaultHub(const std::string& folder, unsigned subscribers, const Ready& ready);
void runSocketSubscriber(const std::string& folder, const Ready& ready);

} // namespace Bench
