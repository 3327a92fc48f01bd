#include "kiv/descriptor.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <unistd.h>

namespace kiv {
namespace {

constexpr std::size_t wordBits = 64;

/// One bit per descriptor, enough for the usual hard limit of 1,048,576; pages of it that are not used cost nothing.
std::array<std::atomic<std::uint64_t>, (1U << 20) / wordBits> noted;

std::atomic<std::size_t> highestWord = 0;

thread_local unsigned scopeDepth = 0;

void note(int descriptor, bool open)
{
    const auto number = static_cast<std::size_t>(descriptor);
    const std::size_t word = number / wordBits;
    if (word >= noted.size()) {
        return;
    }
    const std::uint64_t bit = std::uint64_t{1} << number % wordBits;
    if (open) {
        noted[word] |= bit;
        std::size_t highest = highestWord;
        while (highest < word && !highestWord.compare_exchange_weak(highest, word)) {
        }
    } else {
        noted[word] &= ~bit;
    }
}

} // namespace

void NotedFd::opened(int descriptor)
{
    note(descriptor, true);
}

void NotedFd::close(int descriptor)
{
    const DescriptorScope scope;
    note(descriptor, false);
    ::close(descriptor);
}

void NotedFd::forget(int descriptor)
{
    note(descriptor, false);
}

DescriptorScope::DescriptorScope()
{
    if (scopeDepth++ == 0) {
        descriptorMutex().lock();
    }
}

DescriptorScope::~DescriptorScope()
{
    if (--scopeDepth == 0) {
        descriptorMutex().unlock();
    }
}

std::mutex& descriptorMutex()
{
    static std::mutex mutex;
    return mutex;
}

void closeAllDescriptors()
{
    for (std::size_t word = 0; word <= highestWord; ++word) {
        const std::uint64_t bits = noted[word].exchange(0);
        for (std::size_t bit = 0; bit < wordBits; ++bit) {
            if ((bits >> bit & 1) != 0) {
                ::close(static_cast<int>(word * wordBits + bit));
            }
        }
    }
}

} // namespace kiv
