/// The server's memory over the time of a run. What is described to stay grows; its share is taken off, so that the
/// rest has to be flat.
#pragma once

#include <cstdint>
#include <sys/types.h>
#include <vector>

namespace Endurance {

/// Bytes, as the kernel counts them.
struct Memory {
    std::uint64_t resident = 0;
    std::uint64_t anonymous = 0; ///< without what is mapped from files
};
Memory memoryOf(pid_t process);

struct MemorySample {
    double time = 0; ///< seconds since the start of the run
    Memory memory;
    double staying = 0; ///< bytes of what is described to stay

    double rest() const { return static_cast<double>(memory.anonymous) - staying; }
};

struct MemoryTrend {
    double slope = 0;  ///< of the line of least squares, bytes a minute
    double growth = 0; ///< from the mean of the first tenth to the mean of the last tenth, bytes
    double spread = 0; ///< between the lowest and the highest sample, bytes
    std::size_t samples = 0;
};
/// Of the samples from a time on.
MemoryTrend trendOf(const std::vector<MemorySample>& samples, double from);

} // namespace Endurance
