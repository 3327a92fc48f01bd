#include "nonVolatile.h"

#include "sarna/handles.h"
#include "trace/trace.h"

namespace {

/// What a failed read gives instead of a value.
struct ReadFailures {
    const char* size;
    const char* value;
};

/// Null where the store can't be opened: the operations on it then fail by their own codes.
SarnaGroup openGroup()
{
    sarna_db_group_t group = nullptr;
    const int code = sarna_open_db_group("sys_bpar", &group);
    if (code != SARNA_OK) {
        TRACE_INFO("ABN: sarna_open_db_group returned with value {}", code);
    }
    return SarnaGroup(group);
}

SarnaNode openNode(const SarnaGroup& group)
{
    sarna_node_t node = nullptr;
    const int code = sarna_open_node(group.get(), "/sys/vorn/", &node);
    if (code != SARNA_OK) {
        TRACE_INFO("ABN: sarna_open_node returned with {}", code);
    }
    return SarnaNode(node);
}

/// `operation` is the name that the traces have.
std::uint32_t store(const char* operation, const char* path, const std::string& text)
{
    TRACE_INFO("VornServerUlmo::{}() input: {}", operation, text);
    const SarnaGroup group = openGroup();
    const int code = sarna_set_value(group.get(), path, text.c_str(), text.size() + 1, 0, 0);
    if (code != SARNA_OK) {
        TRACE_INFO("ABN: {} returned with {}", operation, code);
    }
    return static_cast<std::uint32_t>(code);
}

std::string read(const char* key, ReadFailures failures)
{
    const SarnaGroup group = openGroup();
    const SarnaNode node = openNode(group);
    const SarnaText value = readSarnaText(node, key);
    if (value.sizeCode != SARNA_OK) {
        TRACE_INFO("ABN: sarna_get_value_size returned with {}", value.sizeCode);
        return failures.size;
    }
    if (value.valueCode != SARNA_OK) {
        TRACE_INFO("ABN: sarna_get_value returned with {}", value.valueCode);
        return failures.value;
    }
    return value.text;
}

} // namespace

std::uint32_t sarnaStorePid(const std::string& text)
{
    return store("sarnaStorePid", "/sys/vorn/pid_id", text);
}

std::uint32_t sarnaStoreFdf(std::uint32_t flag, const std::string& text)
{
    switch (flag) {
    case sarnaFdfId:
        return store("sarnaStoreFdf", "/sys/vorn/fdf_id", text);
    case sarnaFdfFile:
        return store("sarnaStoreFdf", "/sys/vorn/fdf_file", text);
    default:
        return store("sarnaStoreFdf", nullptr, text); // refused by the store
    }
}

std::string sarnaReadPid()
{
    return read("pid_id", {"", ""});
}

std::string sarnaReadFdf(std::uint32_t flag)
{
    constexpr ReadFailures failures{"sarna_get_value_size error", "sarna_get_value error"};
    switch (flag) {
    case sarnaFdfId:
        return read("fdf_id", failures);
    case sarnaFdfFile:
        return read("fdf_file", failures);
    default:
        return "ABN:invalid flag";
    }
}
