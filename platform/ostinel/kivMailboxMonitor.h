/// Ostinel::KivMailboxMonitor: a callback when a mailbox disappears.
#pragma once

#include <cstdint>
#include <functional>

namespace Ostinel::KivMailboxMonitor::V1 {

/// Works through the thread's mailbox and subscription table as the locator does: the callback comes behind every
/// message that the mailbox had sent to this thread.
class KivMailboxMonitorIf
{
public:
    /// The monitor of the calling thread, which needs a mailbox by the time of the first monitor.
    static KivMailboxMonitorIf& getInstance();

    virtual ~KivMailboxMonitorIf() = default;

    /// Calls `callback` once with the mailbox's id when it disappears, soon where it is gone already, never inside
    /// this call. Returns the monitor's id, or 0xFFFFFFFF where it can't be monitored.
    virtual std::uint32_t monitor(std::uint32_t mboxId, std::function<void(std::uint32_t)> callback) = 0;

    /// After this the callback isn't called any more. An unknown id is ignored.
    virtual void stopMonitor(std::uint32_t monitorId) = 0;
};

} // namespace Ostinel::KivMailboxMonitor::V1
