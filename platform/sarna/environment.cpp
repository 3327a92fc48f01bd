#include "sarna/environment.h"

#include "runDir.h"
#include "sarna/sarna.h"
#include "uniqueFd.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>

namespace sarna {

namespace {

using namespace std::chrono_literals;

/// Much more than a group may hold: a write needs free pages beside those of the value that it replaces, and what frees
/// them, a deletion above all, must never fail for lack of them.
constexpr std::size_t mapSize = std::size_t{4} * SARNA_GROUP_MAX;
constexpr unsigned maxReaders = 126;
constexpr off_t lockFileSize = 8192; ///< the table of that many readers
constexpr mdb_mode_t fileMode = 0600;
constexpr mode_t folderMode = 0700;
constexpr const char* folderName = "sarna";
constexpr auto lockPatience = 5s;
constexpr auto lockInterval = 1ms;

int codeOf(int error)
{
    switch (error) {
    case MDB_SUCCESS:
        return SARNA_OK;
    case MDB_NOTFOUND:
        return SARNA_NOT_FOUND;
    case MDB_MAP_FULL:
    case ENOSPC:
    case EDQUOT:
        return SARNA_FULL;
    case MDB_READERS_FULL:
    case EWOULDBLOCK:
        return SARNA_BUSY;
    case EACCES:
    case EPERM:
    case EROFS:
        return SARNA_NO_ACCESS;
    case MDB_INVALID:
    case MDB_CORRUPTED:
    case MDB_PAGE_NOTFOUND:
    case MDB_VERSION_MISMATCH:
    case MDB_INCOMPATIBLE:
        return SARNA_DAMAGED;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return SARNA_NO_MEMORY;
    default:
        return SARNA_SYSTEM;
    }
}

/// LMDB doesn't write to a key; its type merely can't say so.
MDB_val valOf(const void* data, std::size_t size)
{
    return {size, const_cast<void*>(data)};
}

/// Holds the lock of the folder. It is unlocked by name: a child that was forked meanwhile has a copy of the
/// descriptor, which would keep it.
class FolderLock
{
public:
    explicit FolderLock(const UniqueFd& folder) : m_folder(folder.get())
    {
        const auto end = std::chrono::steady_clock::now() + lockPatience;
        while ((m_error = ::flock(m_folder, LOCK_EX | LOCK_NB) == 0 ? 0 : errno) == EWOULDBLOCK &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(lockInterval);
        }
    }
    ~FolderLock() { ::flock(m_folder, LOCK_UN); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// 0, EWOULDBLOCK if another process kept the lock, or what the system said.
    int error() const { return m_error; }

private:
    int m_folder;
    int m_error = 0;
};

/// The lock file is written through a mapping: on a full file system that would be SIGBUS, unless its blocks are there.
int reserveLockFile(const std::string& directory)
{
    const UniqueFd file(::open((directory + "/lock.mdb").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, fileMode));
    return codeOf(file ? ::posix_fallocate(file.get(), 0, lockFileSize) : errno);
}

bool isFileSystemFull(MDB_env* environment)
{
    int fd = -1;
    struct statvfs state = {};
    return ::mdb_env_get_fd(environment, &fd) == MDB_SUCCESS && ::fstatvfs(fd, &state) == 0 && state.f_bavail == 0;
}

/// LMDB does it for its other descriptors only. Fork waits while an environment is opened, so that no child gets
/// between.
void closeOnExec(MDB_env* environment)
{
    int fd = -1;
    if (::mdb_env_get_fd(environment, &fd) == MDB_SUCCESS) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

} // namespace

Environment::~Environment()
{
    if (m_environment != nullptr) {
        ::mdb_env_close(m_environment);
    }
}

/// A new group is made aside and moved to its place: a process that dies in the midst, or a file system without room,
/// would else leave files that are neither new nor whole.
int Environment::open(const std::string& group)
{
    int error = 0;
    const UniqueFd folder = makeAndOpenRuDir(folderName, error);
    if (error != 0) {
        return codeOf(error);
    }
    // One process opens at a time. LMDB's first opener resets what the others go by and puts it right at the end: if it
    // is killed in between, one that waits inside LMDB would go on from what is half done, and overwrite what was
    // written. This descriptor is older than LMDB's, so that the kernel gives this lock back last.
    const FolderLock lock(folder);
    if (lock.error() != 0) {
        return codeOf(lock.error());
    }
    const std::string directory = ruDir(folderName) + '/' + group;
    if (::access((directory + "/data.mdb").c_str(), F_OK) == 0) {
        return openFiles(directory);
    }
    const std::string fresh = directory + ".new"; // no name of a group has a dot
    std::error_code ignored;
    std::filesystem::remove_all(fresh, ignored); // of one that died
    if (::mkdir(fresh.c_str(), folderMode) != 0) {
        return codeOf(errno);
    }
    int code = reserveLockFile(fresh);
    if (code == SARNA_OK) {
        Environment first;
        code = first.openFiles(fresh);
    }
    if (code == SARNA_OK && ::rename(fresh.c_str(), directory.c_str()) != 0) {
        code = codeOf(errno);
    }
    if (code != SARNA_OK) {
        std::filesystem::remove_all(fresh, ignored);
        return code;
    }
    return openFiles(directory);
}

int Environment::openFiles(const std::string& directory)
{
    int error = ::mdb_env_create(&m_environment);
    if (error == MDB_SUCCESS) {
        error = ::mdb_env_set_mapsize(m_environment, mapSize);
    }
    if (error == MDB_SUCCESS) {
        error = ::mdb_env_set_maxreaders(m_environment, maxReaders);
    }
    if (error == MDB_SUCCESS) { // MDB_NOTLS: a reader's slot is free when it has read, not when its thread ends
        error = ::mdb_env_open(m_environment, directory.c_str(), MDB_NOTLS, fileMode);
    }
    MDB_txn* transaction = nullptr;
    if (error == MDB_SUCCESS) {
        closeOnExec(m_environment);
        forgetDeadReaders();
        error = ::mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &transaction);
    }
    if (error == MDB_SUCCESS) {
        error = ::mdb_dbi_open(transaction, nullptr, 0, &m_database);
        ::mdb_txn_abort(transaction);
    }
    return codeOf(error);
}

int Environment::size(const std::string& path, std::size_t& size)
{
    return read(path, [&](const MDB_val& value) {
        size = value.mv_size;
        return SARNA_OK;
    });
}

int Environment::get(const std::string& path, void* buffer, std::size_t& size)
{
    return read(path, [&](const MDB_val& value) {
        const bool fits = value.mv_size <= size;
        if (fits && value.mv_size > 0) {
            std::memcpy(buffer, value.mv_data, value.mv_size);
        }
        size = value.mv_size;
        return fits ? SARNA_OK : SARNA_TOO_SMALL;
    });
}

int Environment::set(const std::string& path, const void* value, std::size_t size)
{
    return write([&](MDB_txn* transaction) {
        MDB_val key = valOf(path.data(), path.size());
        MDB_val data = valOf(value, size);
        const int error = ::mdb_put(transaction, m_database, &key, &data, 0);
        return error == MDB_SUCCESS ? checkGroupSize(transaction) : error;
    });
}

int Environment::remove(const std::string& path)
{
    return write([&](MDB_txn* transaction) {
        MDB_val key = valOf(path.data(), path.size());
        return ::mdb_del(transaction, m_database, &key, nullptr);
    });
}

/// Gives the value of this path to `step`, whose result is the call's.
template <typename Step>
int Environment::read(const std::string& path, Step step)
{
    MDB_txn* transaction = nullptr;
    int error = ::mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &transaction);
    if (error == MDB_READERS_FULL && forgetDeadReaders()) {
        error = ::mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &transaction);
    }
    if (error != MDB_SUCCESS) {
        return codeOf(error);
    }
    MDB_val key = valOf(path.data(), path.size());
    MDB_val value = {};
    error = ::mdb_get(transaction, m_database, &key, &value);
    const int code = error == MDB_SUCCESS ? step(value) : codeOf(error);
    ::mdb_txn_abort(transaction);
    return code;
}

template <typename Step>
int Environment::write(Step step)
{
    const auto attempt = [&] {
        MDB_txn* transaction = nullptr;
        int error = ::mdb_txn_begin(m_environment, nullptr, 0, &transaction);
        if (error != MDB_SUCCESS) {
            return error;
        }
        error = step(transaction);
        if (error != MDB_SUCCESS) {
            ::mdb_txn_abort(transaction);
            return error;
        }
        return ::mdb_txn_commit(transaction);
    };
    int error = attempt();
    if (error == MDB_MAP_FULL && forgetDeadReaders()) { // the dead ones kept pages from being used again
        error = attempt();
    }
    // A write that only a part of found room is an EIO of LMDB's own.
    return error == EIO && isFileSystemFull(m_environment) ? SARNA_FULL : codeOf(error);
}

int Environment::checkGroupSize(MDB_txn* transaction)
{
    MDB_stat stat = {};
    const int error = ::mdb_stat(transaction, m_database, &stat);
    if (error != MDB_SUCCESS) {
        return error;
    }
    const std::size_t pages = stat.ms_branch_pages + stat.ms_leaf_pages + stat.ms_overflow_pages;
    return pages * stat.ms_psize <= SARNA_GROUP_MAX ? MDB_SUCCESS : MDB_MAP_FULL;
}

/// Frees the slots of readers whose process has died; tells whether there were any.
bool Environment::forgetDeadReaders()
{
    int dead = 0;
    return ::mdb_reader_check(m_environment, &dead) == MDB_SUCCESS && dead > 0;
}

} // namespace sarna
