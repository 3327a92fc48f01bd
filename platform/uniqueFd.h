/// A file descriptor that is closed with its holder.
#pragma once

#include <unistd.h>
#include <utility>

/// The policy's `opened` is called with each descriptor that is taken, its `close` closes one.
template <class Policy>
class BasicFd
{
public:
    BasicFd() = default;
    explicit BasicFd(int fd) : m_fd(fd)
    {
        if (fd >= 0) {
            Policy::opened(fd);
        }
    }
    BasicFd(BasicFd&& other) noexcept : m_fd(other.release()) {}
    BasicFd& operator=(BasicFd&& other) noexcept
    {
        if (this != &other) {
            reset();
            m_fd = other.release();
        }
        return *this;
    }
    ~BasicFd() { reset(); }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

    /// Closes it.
    void reset()
    {
        if (m_fd >= 0) {
            Policy::close(std::exchange(m_fd, -1));
        }
    }

    /// Returns it and doesn't close it any more.
    int release() { return std::exchange(m_fd, -1); }

private:
    int m_fd = -1;
};

struct PlainFd {
    static void opened(int) {}
    static void close(int fd) { ::close(fd); }
};

using UniqueFd = BasicFd<PlainFd>;
