/// One line on standard error, for what the people who run the unit should know.
#pragma once

namespace kiv {

[[gnu::format(printf, 1, 2)]] void logLine(const char* format, ...);

} // namespace kiv
