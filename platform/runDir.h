/// The unit's run-time directory, under which every stand-in of the platform keeps its files.
#pragma once

#include <string>

/// "$RU_DIR/<folder>", by default "/run/ru/<folder>". RU_DIR is read once per process.
std::string ruDir(const char* folder);

/// The same, and makes it (mode 0700) with its parents where it is missing. Returns 0 or an errno value in `error`.
std::string makeRuDir(const char* folder, int& error);
