#include "signalCoverage.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace SignalCoverage {

namespace {

std::set<std::uint32_t> s_noted; // by the running test
unsigned s_pauses = 0;

/// Programs may have tests of the same name.
std::filesystem::path fileOf(const std::filesystem::path& directory, const std::string& test)
{
    std::string name = std::filesystem::read_symlink("/proc/self/exe").filename().string() + '.' + test;
    std::replace(name.begin(), name.end(), '/', '_'); // of a parametrised test
    return directory / name;
}

} // namespace

void note(std::uint32_t number)
{
    if (s_pauses == 0) {
        s_noted.insert(number);
    }
}

Pause::Pause()
{
    ++s_pauses;
}

Pause::~Pause()
{
    --s_pauses;
}

void Listener::OnTestStart(const ::testing::TestInfo&)
{
    s_noted.clear();
}

void Listener::OnTestEnd(const ::testing::TestInfo& test)
{
    const char* directory = std::getenv("VORN_SIGNAL_COVERAGE");
    if (directory == nullptr) {
        return;
    }
    const std::string name = std::string(test.test_suite_name()) + '.' + test.name();
    const std::filesystem::path path = fileOf(directory, name);
    if (s_noted.empty() || !test.result()->Passed()) { // what an earlier run has left isn't true any more
        std::filesystem::remove(path);
        return;
    }
    std::filesystem::create_directories(directory);
    std::ofstream file(path);
    file << name << '\n';
    for (const std::uint32_t number : s_noted) {
        file << number << '\n';
    }
    if (!file.flush()) {
        ADD_FAILURE() << "can't write " << path;
    }
}

} // namespace SignalCoverage
