/// The terminal that standard output may be.
#pragma once

#include <cstddef>

namespace VornClient {

struct Screen {
    bool isTerminal = false;
    std::size_t columns = 80; ///< also where it isn't a terminal
    bool isUtf8 = false;      ///< by the program's locale
};

/// As it is now: a window may be made wider at any time.
Screen currentScreen();

} // namespace VornClient
