/// Ostinel::KivMessageSubscription: a table from message number to handler.
#pragma once

#include "kiv/kiv.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace Ostinel::KivMessageSubscription::V1 {

using Handler = std::function<void(const std::shared_ptr<kiv_msg>&)>;

/// A table only: it doesn't receive. Whoever receives on the thread's mailbox looks the handler up and calls it.
class KivMessageSubscriptionIf
{
public:
    /// The table of the calling thread; it lives as long as the thread.
    static KivMessageSubscriptionIf& getInstance();

    virtual ~KivMessageSubscriptionIf() = default;

    /// Enters the handler of a number. A number has one handler: returns EEXIST, and keeps the first, where it is
    /// taken; 0 otherwise.
    virtual int subscribe(std::uint32_t number, Handler handler) = 0;

    /// Returns 0, or ENOENT where the number has no handler.
    virtual int unsubscribe(std::uint32_t number) = 0;

    /// Copies the number's handler to `handler` and returns 0, or returns ENOENT.
    virtual int lookUp(std::uint32_t number, Handler& handler) const = 0;
};

/// Wraps a received message; the last copy frees it with kiv_free.
std::shared_ptr<kiv_msg> makeShared(kiv_msg* msg);

} // namespace Ostinel::KivMessageSubscription::V1
