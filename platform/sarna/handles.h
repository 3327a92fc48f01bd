/// Handles of the store that close themselves, for C++.
#pragma once

#include "sarna/sarna.h"

#include <memory>

struct CloseSarnaHandle {
    void operator()(sarna_db_group_t group) const { sarna_close_db_group(group); }
    void operator()(sarna_node_t node) const { sarna_close_node(node); }
};

using SarnaGroup = std::unique_ptr<sarna_db_group, CloseSarnaHandle>;
using SarnaNode = std::unique_ptr<sarna_node, CloseSarnaHandle>;
