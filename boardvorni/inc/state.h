/// The O&M state of a client's session and the coordinated O&M state of the board.
#pragma once

#include <cstdint>

enum class State : std::uint32_t {
    DISABLED = 0,
    STARTING = 1,
    OPERATIONAL = 2,
};

/// "DISABLED", "STARTING", "OPERATIONAL"; "Unknown" for any other value.
const char* stateName(State state);
