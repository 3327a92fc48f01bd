#include "sarna/store.h"

#include "sarna/sarna.h"

#include <new>
#include <pthread.h>

namespace sarna {

Lease::Lease(Store& store, HandleId id, bool isNode) : m_store(store)
{
    const std::lock_guard lock(m_store.m_mutex);
    if (const auto* handle = m_store.find(id, isNode)) {
        m_nodePath = handle->path;
        m_environment = handle->environment;
    }
}

Lease::~Lease()
{
    const std::lock_guard lock(m_store.m_mutex);
    m_environment.reset();
}

Store* Store::s_current = nullptr;

Store& Store::get()
{
    [[maybe_unused]] static const bool once = [] {
        if (s_current == nullptr) { // else the handlers failed before
            s_current = new Store(nullptr);
        }
        registerForkHandlers();
        return true;
    }();
    return *s_current;
}

/// Fork waits for the lock, so that no environment is half open in the child.
void Store::registerForkHandlers()
{
    const auto before = [] { s_current->m_mutex.lock(); };
    const auto inParent = [] { s_current->m_mutex.unlock(); };
    const auto inChild = [] {
        auto* const fresh = new Store(s_current);
        fresh->m_lastId = s_current->m_lastId; // the parent's handles must not be the child's by chance
        s_current = fresh;
    };
    if (::pthread_atfork(before, inParent, inChild) != 0) {
        throw std::bad_alloc();
    }
}

int Store::openGroup(const std::string& name, HandleId& id)
{
    const std::lock_guard lock(m_mutex);
    std::weak_ptr<Environment>& known = m_environments[name];
    std::shared_ptr<Environment> environment = known.lock();
    if (!environment) {
        environment = std::make_shared<Environment>();
        if (const int code = environment->open(name); code != SARNA_OK) {
            return code;
        }
        known = environment;
    }
    m_handles.try_emplace(m_lastId + 1, Handle{std::move(environment), 0, {}});
    id = ++m_lastId;
    return SARNA_OK;
}

int Store::openNode(HandleId group, const std::string& path, HandleId& id)
{
    const std::lock_guard lock(m_mutex);
    const Handle* handle = find(group, false);
    if (handle == nullptr) {
        return SARNA_BAD_HANDLE;
    }
    m_handles.try_emplace(m_lastId + 1, Handle{handle->environment, group, path});
    id = ++m_lastId;
    return SARNA_OK;
}

int Store::closeGroup(HandleId group)
{
    const std::lock_guard lock(m_mutex);
    if (find(group, false) == nullptr) {
        return SARNA_BAD_HANDLE;
    }
    std::erase_if(m_handles, [=](const auto& entry) { return entry.first == group || entry.second.group == group; });
    return SARNA_OK;
}

int Store::closeNode(HandleId node)
{
    const std::lock_guard lock(m_mutex);
    if (find(node, true) == nullptr) {
        return SARNA_BAD_HANDLE;
    }
    m_handles.erase(node);
    return SARNA_OK;
}

const Store::Handle* Store::find(HandleId id, bool isNode) const
{
    const auto handle = m_handles.find(id);
    return handle != m_handles.end() && (handle->second.group != 0) == isNode ? &handle->second : nullptr;
}

} // namespace sarna
