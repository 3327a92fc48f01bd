/// A lock that the processes of a unit take on a folder of the run-time directory.
#pragma once

#include <cerrno>
#include <sys/file.h>

/// Waits for the lock and holds it. It is given back by name: a child that was forked meanwhile has a copy of the
/// descriptor, which would keep it.
class FolderLock
{
public:
    explicit FolderLock(int directory) : m_directory(directory)
    {
        do {
            m_error = ::flock(m_directory, LOCK_EX) == 0 ? 0 : errno;
        } while (m_error == EINTR);
    }
    ~FolderLock() { ::flock(m_directory, LOCK_UN); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// 0, or why it isn't held.
    int error() const { return m_error; }

private:
    int m_directory;
    int m_error = 0;
};
