/// A group's files: an LMDB environment, as far as the store needs it.
///
/// Transactions never outlive a call. A process may have an environment open only once: closing a second one of the
/// same folder would drop the file locks of the first. See Store for how that is kept.
#pragma once

#include <cstddef>
#include <lmdb.h>
#include <string>

namespace sarna {

/// Its calls give an error code of sarna.h, and may come from several threads at once.
class Environment
{
public:
    Environment() = default;
    ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    /// Opens the files of this group, and makes them where they are missing. To be called once; an environment that
    /// can't be opened is of no use.
    int open(const std::string& group);

    int size(const std::string& path, std::size_t& size);
    int get(const std::string& path, void* buffer, std::size_t& size);
    int set(const std::string& path, const void* value, std::size_t size);
    int remove(const std::string& path);

private:
    int openFiles(const std::string& directory);
    template <typename Step>
    int read(const std::string& path, Step step);
    template <typename Step>
    int write(Step step);
    int checkGroupSize(MDB_txn* transaction);
    bool forgetDeadReaders();

    MDB_env* m_environment = nullptr;
    MDB_dbi m_database = 0;
};

} // namespace sarna
