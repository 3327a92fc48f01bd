/// The C interface: checks arguments and names, keeps exceptions inside.

#include "sarna/sarna.h"

#include "sarna/store.h"

#include <cstring>
#include <exception>
#include <string>
#include <string_view>

namespace {

using namespace sarna;

/// Short of memory is the one thing that is thrown inside.
template <typename Call>
int guarded(Call call) noexcept
{
    try {
        return call();
    } catch (const std::exception&) {
        return SARNA_NO_MEMORY;
    }
}

HandleId idOf(const void* handle)
{
    return reinterpret_cast<HandleId>(handle);
}

template <typename Handle>
Handle handleOf(HandleId id)
{
    return reinterpret_cast<Handle>(id);
}

int checkGroupName(const char* name)
{
    const std::size_t length = ::strnlen(name, SARNA_GROUP_NAME_MAX + 1);
    if (length > SARNA_GROUP_NAME_MAX) {
        return SARNA_NAME_TOO_LONG;
    }
    constexpr const char* allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    return length > 0 && std::strspn(name, allowed) == length ? SARNA_OK : SARNA_BAD_NAME;
}

int checkPath(const char* text, bool isNode)
{
    const std::string_view path(text, ::strnlen(text, SARNA_PATH_MAX + 1));
    if (path.size() > SARNA_PATH_MAX) {
        return SARNA_NAME_TOO_LONG;
    }
    const bool formed = path.starts_with('/') && path.ends_with('/') == isNode && path.find("//") == path.npos;
    return formed ? SARNA_OK : SARNA_BAD_NAME;
}

/// Calls `call` with the environment and the path of the value under this key.
template <typename Call>
int withValue(sarna_node_t node, const char* key, Call call)
{
    const Lease lease(Store::get(), idOf(node), true);
    if (lease.environment() == nullptr) {
        return SARNA_BAD_HANDLE;
    }
    const std::string_view name(key, ::strnlen(key, SARNA_PATH_MAX + 1));
    if (name.size() + lease.nodePath().size() > SARNA_PATH_MAX) {
        return SARNA_NAME_TOO_LONG;
    }
    if (name.empty() || name.find('/') != name.npos) {
        return SARNA_BAD_NAME;
    }
    return call(*lease.environment(), lease.nodePath() + std::string(name));
}

/// Calls `call` with the environment, for a path that is in order.
template <typename Call>
int withGroup(sarna_db_group_t group, const char* path, Call call)
{
    const Lease lease(Store::get(), idOf(group), false);
    if (lease.environment() == nullptr) {
        return SARNA_BAD_HANDLE;
    }
    const int code = checkPath(path, false);
    return code == SARNA_OK ? call(*lease.environment()) : code;
}

} // namespace

int sarna_open_db_group(const char* name, sarna_db_group_t* group)
{
    return guarded([=] {
        if (group == nullptr) {
            return static_cast<int>(SARNA_BAD_ARGUMENT);
        }
        *group = nullptr;
        if (name == nullptr) {
            return static_cast<int>(SARNA_BAD_ARGUMENT);
        }
        HandleId id = 0;
        int code = checkGroupName(name);
        if (code == SARNA_OK) {
            code = Store::get().openGroup(name, id);
        }
        *group = handleOf<sarna_db_group_t>(id);
        return code;
    });
}

int sarna_open_node(sarna_db_group_t group, const char* path, sarna_node_t* node)
{
    return guarded([=] {
        if (node == nullptr) {
            return static_cast<int>(SARNA_BAD_ARGUMENT);
        }
        *node = nullptr;
        if (path == nullptr) {
            return static_cast<int>(SARNA_BAD_ARGUMENT);
        }
        HandleId id = 0;
        int code = checkPath(path, true);
        if (code == SARNA_OK) {
            code = Store::get().openNode(idOf(group), path, id);
        }
        *node = handleOf<sarna_node_t>(id);
        return code;
    });
}

int sarna_get_value_size(sarna_node_t node, const char* key, size_t* size)
{
    if (key == nullptr || size == nullptr) {
        return SARNA_BAD_ARGUMENT;
    }
    return guarded([=] {
        return withValue(node, key, [=](Environment& environment, const std::string& path) {
            return environment.size(path, *size);
        });
    });
}

int sarna_get_value(sarna_node_t node, const char* key, void* buffer, size_t* size)
{
    if (key == nullptr || size == nullptr || (buffer == nullptr && *size > 0)) {
        return SARNA_BAD_ARGUMENT;
    }
    return guarded([=] {
        return withValue(node, key, [=](Environment& environment, const std::string& path) {
            return environment.get(path, buffer, *size);
        });
    });
}

int sarna_set_value(sarna_db_group_t group, const char* path, const void* value, size_t size, uint32_t flags,
                    uint32_t reserved)
{
    if (path == nullptr || (value == nullptr && size > 0) || flags != 0 || reserved != 0) {
        return SARNA_BAD_ARGUMENT;
    }
    return guarded([=] {
        return withGroup(group, path, [=](Environment& environment) {
            return size <= SARNA_VALUE_MAX ? environment.set(path, value, size) : SARNA_VALUE_TOO_BIG;
        });
    });
}

int sarna_delete_key(sarna_db_group_t group, const char* path)
{
    if (path == nullptr) {
        return SARNA_BAD_ARGUMENT;
    }
    return guarded(
        [=] { return withGroup(group, path, [=](Environment& environment) { return environment.remove(path); }); });
}

int sarna_close_node(sarna_node_t node)
{
    return guarded([=] { return Store::get().closeNode(idOf(node)); });
}

int sarna_close_db_group(sarna_db_group_t group)
{
    return guarded([=] { return Store::get().closeGroup(idOf(group)); });
}

const char* sarna_error_text(int error)
{
    switch (error) {
    case SARNA_OK:
        return "success";
    case SARNA_BAD_ARGUMENT:
        return "bad argument";
    case SARNA_BAD_HANDLE:
        return "no open handle";
    case SARNA_BAD_NAME:
        return "malformed name";
    case SARNA_NAME_TOO_LONG:
        return "name too long";
    case SARNA_VALUE_TOO_BIG:
        return "value too big";
    case SARNA_NOT_FOUND:
        return "no such value";
    case SARNA_TOO_SMALL:
        return "buffer too small";
    case SARNA_FULL:
        return "store full";
    case SARNA_BUSY:
        return "too many readers";
    case SARNA_NO_ACCESS:
        return "no access";
    case SARNA_DAMAGED:
        return "files damaged";
    case SARNA_NO_MEMORY:
        return "out of memory";
    case SARNA_SYSTEM:
        return "system failure";
    default:
        return "unknown error";
    }
}
