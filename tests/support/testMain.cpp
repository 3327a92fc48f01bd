/// main of all test programs: gives the process a run-time directory of its own and removes it at the end, and writes
/// which signals its tests have covered.

#include "signalCoverage.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

/// The process that made the directory removes it: a forked child that exits leaves it alone.
struct PrivateRuDir {
    std::string path;
    pid_t owner = ::getpid();

    PrivateRuDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "ruXXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("mkdtemp");
            std::exit(EXIT_FAILURE);
        }
        path = pattern;
        ::setenv("RU_DIR", path.c_str(), 1);
    }
    ~PrivateRuDir()
    {
        if (owner == ::getpid()) {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }
    PrivateRuDir(const PrivateRuDir&) = delete;
    PrivateRuDir& operator=(const PrivateRuDir&) = delete;
};

} // namespace

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new SignalCoverage::Listener); // which gtest deletes
    const PrivateRuDir ruDir;
    return RUN_ALL_TESTS();
}
