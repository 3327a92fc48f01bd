/// Descriptors that a forked child can find and close.
///
/// A child of fork must not keep a copy of the library's sockets: as long as one copy is open, the others do not see
/// that the parent died. So every descriptor of the library is noted in a table that needs no lock to read, and whoever
/// makes descriptors holds a DescriptorScope until they are noted, which fork waits for.
#pragma once

#include <mutex>

namespace kiv {

class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor);
    Descriptor(Descriptor&& other) noexcept : m_descriptor(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }

    int get() const { return m_descriptor; }
    explicit operator bool() const { return m_descriptor >= 0; }
    void reset();

private:
    int release();

    int m_descriptor = -1;
};

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
