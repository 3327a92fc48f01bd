/// What a process has open: its handles and, shared by them, one environment per group.
///
/// One lock guards both, and every environment is opened and closed under it, so that a group's old environment is
/// closed before a new one is opened. It isn't held while values are read or written: a Lease keeps the environment
/// open.
///
/// A handle is a number that is looked up, never a pointer that is followed: a stale one is found out.
#pragma once

#include "sarna/environment.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace sarna {

using HandleId = std::uintptr_t; ///< never 0

class Store;

/// An open handle's environment for the time of one call.
class Lease
{
public:
    Lease(Store& store, HandleId id, bool isNode);
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    Environment* environment() const { return m_environment.get(); } ///< null: there is no such handle
    const std::string& nodePath() const { return m_nodePath; }       ///< empty for a group

private:
    Store& m_store;
    std::shared_ptr<Environment> m_environment;
    std::string m_nodePath;
};

class Store
{
public:
    /// The process's store. A forked child has an empty one of its own; what it inherited is kept, since closing it
    /// would disturb the parent, and never touched.
    static Store& get();

    /// These give an error code of sarna.h.
    int openGroup(const std::string& name, HandleId& id);
    int openNode(HandleId group, const std::string& path, HandleId& id);
    int closeGroup(HandleId group);
    int closeNode(HandleId node);

private:
    friend class Lease;

    struct Handle {
        std::shared_ptr<Environment> environment; ///< given up under the lock only
        HandleId group;                           ///< of a node: the group's handle; of a group: 0
        std::string path;                         ///< of a node
    };

    explicit Store(Store* inherited) : m_inherited(inherited) {}
    static void registerForkHandlers();
    const Handle* find(HandleId id, bool isNode) const;

    static Store* s_current;

    [[maybe_unused]] Store* const m_inherited; ///< so that it isn't taken for a leak
    std::mutex m_mutex;
    std::map<std::string, std::weak_ptr<Environment>> m_environments; ///< by group
    std::map<HandleId, Handle> m_handles;
    HandleId m_lastId = 0;
};

} // namespace sarna
