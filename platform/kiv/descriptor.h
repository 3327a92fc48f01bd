/// Descriptors that a forked child can find and close.
///
/// A child of fork must not keep a copy of the library's sockets: as long as one copy is open, the others do not see
/// that the parent died. So every descriptor of the library is noted in a table that needs no lock to read, and whoever
/// makes descriptors holds a DescriptorScope until they are noted, which fork waits for.
#pragma once

#include "uniqueFd.h"

#include <mutex>

namespace kiv {

struct NotedFd {
    static void opened(int descriptor);
    static void close(int descriptor);
    /// It is noted no more: whoever released it closes it without holding off fork.
    static void forget(int descriptor);
};

using Descriptor = BasicFd<NotedFd>;

/// Holds off fork while descriptors are made or closed. Scopes of one thread may be nested; no other lock is taken in
/// one.
class DescriptorScope
{
public:
    DescriptorScope();
    ~DescriptorScope();
    DescriptorScope(const DescriptorScope&) = delete;
    DescriptorScope& operator=(const DescriptorScope&) = delete;
};

/// For the handlers of fork: the lock that DescriptorScope takes, and the child's clean-up.
std::mutex& descriptorMutex();
void closeAllDescriptors();

} // namespace kiv
