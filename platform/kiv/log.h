/// One line on standard error, for what the people who run the unit should know. Never blocks: what standard error
/// doesn't take at once is dropped, and so is what exceeds a number of lines a second.
#pragma once

namespace kiv {

[[gnu::format(printf, 1, 2)]] void logLine(const char* format, ...);

} // namespace kiv
