/// What the user is told of the loading of a module, while it goes on and afterwards.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace VornClient {

enum class LoadResult {
    loaded,
    alreadyLoaded,
    running,   ///< already loaded, and what runs
    brokenOff, ///< not ended, as was asked for
};

struct LoadSummary {
    std::string loadModule;
    LoadResult result = LoadResult::loaded;
    std::uint64_t bytes = 0; ///< sent and acknowledged
    std::uint64_t blocks = 0;
    std::chrono::duration<double> time{}; ///< from the first block on

    double bytesPerSecond() const;
};

/// "loaded", "already loaded".
const char* loadResultName(LoadResult result);

/// "NAME: loaded, 8388608 bytes in 0.42 s, 19.97 MB/s".
std::string printLoadSummary(const LoadSummary& summary);

/// A bar with share, bytes, rate and the time that is left.
std::string printLoadProgress(const std::string& loadModule, std::uint64_t done, std::uint64_t total,
                              std::chrono::duration<double> elapsed);

} // namespace VornClient
