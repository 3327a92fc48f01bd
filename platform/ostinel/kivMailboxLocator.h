/// Ostinel::KivMailboxLocator: a callback when a mailbox of a name exists.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Ostinel::KivMailboxLocator::V1 {

/// The answer comes as a message on the thread's own mailbox, dispatched through the thread's KivMessageSubscription:
/// a callback therefore runs on the thread that asked, never inside locate, and only once the thread receives.
class KivMailboxLocatorIf
{
public:
    /// The locator of the calling thread, which needs a mailbox by the time of the first locate.
    static KivMailboxLocatorIf& getInstance();

    virtual ~KivMailboxLocatorIf() = default;

    /// Calls `callback` once with the mailbox's id when the name exists, at once or much later.
    /// Returns 0, or an errno value where the name can't be looked for.
    virtual int locate(const std::string& name, std::function<void(std::uint32_t)> callback) = 0;
};

} // namespace Ostinel::KivMailboxLocator::V1
