/// Ostinel::ActiveObject: a thread that runs a function and then its event loop.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Ostinel::ActiveObject::V1 {

/// How the thread is scheduled; 0 is the framework's default, the only one there is.
struct SchedulingPolicy {
    std::uint32_t policy = 0;
};

/// A running thread. Destroying the object ends the thread: its event loop is told to stop and the destructor waits
/// for the thread, unless it runs on that very thread, which then ends as soon as its loop gets control again.
class ActiveObjectIf
{
public:
    /// Starts a thread named `name` that runs `body` and then its event loop. Null where no thread can be had.
    static std::shared_ptr<ActiveObjectIf> create(const std::string& name, std::function<void()> body,
                                                  SchedulingPolicy policy);

    virtual ~ActiveObjectIf() = default;

    /// Runs `function` on the thread, from its event loop, after `body` has returned. May be called from any thread.
    virtual void post(std::function<void()> function) = 0;
};

} // namespace Ostinel::ActiveObject::V1
