#include "kiv/log.h"

#include <cstdarg>
#include <cstdio>
#include <unistd.h>

namespace kiv {

void logLine(const char* format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // One call, so that lines of several processes do not mix.
    ::dprintf(STDERR_FILENO, "kiv[%d]: %s\n", static_cast<int>(::getpid()), text);
}

} // namespace kiv
