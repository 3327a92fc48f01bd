/// The store for C++: handles that close themselves, and values that are texts.
#pragma once

#include "sarna/sarna.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>

struct CloseSarnaHandle {
    void operator()(sarna_db_group_t group) const { sarna_close_db_group(group); }
    void operator()(sarna_node_t node) const { sarna_close_node(node); }
};

using SarnaGroup = std::unique_ptr<sarna_db_group, CloseSarnaHandle>;
using SarnaNode = std::unique_ptr<sarna_node, CloseSarnaHandle>;

/// A value up to its first zero, which it need not have. Where it can't be read the text is empty, and the code of the
/// step that has failed isn't SARNA_OK.
struct SarnaText {
    int sizeCode = SARNA_OK;
    int valueCode = SARNA_OK;
    std::string text;
};

inline SarnaText readSarnaText(const SarnaNode& node, const char* key)
{
    SarnaText result;
    std::size_t size = 0;
    result.sizeCode = sarna_get_value_size(node.get(), key, &size);
    if (result.sizeCode != SARNA_OK) {
        return result;
    }
    std::string value(size, '\0');
    result.valueCode = sarna_get_value(node.get(), key, value.data(), &size);
    if (result.valueCode == SARNA_OK) {
        result.text = value.substr(0, std::min(size, value.find('\0'))); // it may have become shorter in between
    }
    return result;
}
