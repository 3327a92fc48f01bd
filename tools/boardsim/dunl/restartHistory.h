/// Where the board keeps the history of its restarts: a file, so that it outlives the simulator.
#pragma once

#include "dunl/numbers.h"

#include <cstddef>

namespace boardsim {

class RestartHistory
{
public:
    static constexpr std::size_t max = 50; ///< restarts
    static constexpr std::size_t maxText = 1024;

    /// Fills in all restarts, the latest first. Throws std::runtime_error, also where the file is damaged.
    static void read(tolme::dunl::GetRestartHistoryCfm& history);

    /// Adds the latest as it is told; the oldest goes when there are too many, and all of a damaged history. What is
    /// longer than `maxText` is cut. Throws std::runtime_error.
    static void add(const tolme::dunl::RestartBoardNotificationInd& restart);

    static void clear(); ///< throws std::runtime_error
};

} // namespace boardsim
