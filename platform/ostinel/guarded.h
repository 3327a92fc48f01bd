/// Calls a function that isn't ours: what it throws is reported on standard error and goes no further.
#pragma once

#include <cstdio>
#include <exception>

namespace Ostinel {

template <typename Function>
void guarded(const char* what, Function&& function) noexcept
{
    try {
        function();
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "ostinel: exception from %s: %s\n", what, exception.what());
    } catch (...) {
        std::fprintf(stderr, "ostinel: exception from %s\n", what);
    }
}

} // namespace Ostinel
