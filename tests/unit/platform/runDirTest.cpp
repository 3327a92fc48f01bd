#include "runDir.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr uid_t otherUser = 65534;
constexpr int childPatience = 10; ///< s, until a child that blocks is killed

class RunDir : public testing::Test
{
protected:
    RunDir()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
        readEnd = UniqueFd(ends[0]);
        writeEnd = UniqueFd(ends[1]);
        fs::remove_all(top);
        fs::create_directories(root);
        fs::permissions(root, fs::perms::owner_all);
        fs::current_path(top);
    }

    /// Runs in a child, which reads RU_DIR anew and has an end of the pipe as its standard error. Returns its result.
    int runWith(const std::string& ruDirValue, const std::function<int()>& function)
    {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(childPatience);
            ::setenv("RU_DIR", ruDirValue.c_str(), 1);
            ::dup2(writeEnd.get(), STDERR_FILENO);
            ::_exit(function());
        }
        int status = 0;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static int make()
    {
        int error = 0;
        const UniqueFd folder = makeAndOpenRuDir("folder", error);
        return static_cast<bool>(folder) == (error == 0) ? error : -1;
    }

    /// What the children have written so far.
    std::string lines() const
    {
        std::array<char, 65536> text;
        const ssize_t length = ::read(readEnd.get(), text.data(), text.size());
        return {text.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
    }

    const fs::path top = fs::path(std::getenv("RU_DIR")) / "top";
    const fs::path parent = top / "parent";
    const fs::path root = parent / "ru";
    const fs::path folder = root / "folder";
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

TEST_F(RunDir, RefusesWhatAnotherUserCouldHavePreparedAndSaysWhyOnce)
{
    const fs::path aside = top / "aside";
    const auto replaceByLink = [&](const fs::path& path) {
        fs::create_directories(path);
        fs::rename(path, aside);
        fs::create_symlink(aside, path);
    };
    const auto mode = [](const fs::path& path, mode_t bits) {
        fs::create_directories(path);
        ASSERT_EQ(::chmod(path.c_str(), bits), 0);
    };
    const auto owner = [](const fs::path& path) {
        fs::create_directories(path);
        ASSERT_EQ(::chown(path.c_str(), otherUser, otherUser), 0);
    };
    struct Case {
        std::function<void()> prepare;
        int error;
        std::string line; ///< none where it is empty
        bool onlyRoot = false;
    };
    const std::string foreign = ": belongs to user " + std::to_string(otherUser);
    const std::vector<Case> cases{
        {[] {}, 0, ""},
        {[&] { fs::remove_all(parent); }, 0, ""},
        {[&] { replaceByLink(parent); }, ELOOP, parent.string() + ": is a symbolic link"},
        {[&] { replaceByLink(root); }, ELOOP, root.string() + ": is a symbolic link"},
        {[&] { replaceByLink(folder); }, ELOOP, folder.string() + ": is a symbolic link"},
        {[&] { std::ofstream(folder) << "a file"; }, ENOTDIR, folder.string() + ": Not a directory"},
        {[&] { mode(parent, 01777); }, 0, ""},
        {[&] { mode(parent, 0777); }, EPERM, parent.string() + ": can be written by others and is not sticky"},
        {[&] { mode(root, 0770); }, EPERM, root.string() + ": can be written by group or others"},
        {[&] { mode(root, 01702); }, EPERM, root.string() + ": can be written by group or others"},
        {[&] { mode(folder, 0720); }, EPERM, folder.string() + ": can be written by group or others"},
        {[&] { owner(parent); }, EPERM, parent.string() + foreign, true},
        {[&] { owner(root); }, EPERM, root.string() + foreign, true},
        {[&] { owner(folder); }, EPERM, folder.string() + foreign, true},
    };
    for (const Case& step : cases) {
        SCOPED_TRACE(step.line);
        if (step.onlyRoot && ::geteuid() != 0) {
            continue;
        }
        fs::remove_all(parent);
        fs::remove_all(aside);
        fs::create_directories(root);
        fs::permissions(root, fs::perms::owner_all);
        step.prepare();
        EXPECT_EQ(runWith(root, [] { return make() == make() ? make() : -1; }), step.error);
        EXPECT_EQ(lines(), step.line.empty() ? "" : "run-time directory: " + step.line + '\n');
        EXPECT_FALSE(fs::exists(aside / "folder") || fs::exists(aside / "ru/folder")) << "nothing made behind a link";
    }
}

TEST_F(RunDir, IsMadeForItsUserAloneAndMayBeRelative)
{
    EXPECT_EQ(runWith("parent/new/none/..",
                      [] {
                          int error = 0;
                          const bool isMissing = !openRuDir("folder", error) && error == ENOENT;
                          return isMissing && make() == 0 && ::chdir("/") == 0 ? make() : -1;
                      }),
              0);
    EXPECT_EQ(lines(), "");
    for (const char* made : {"new", "new/folder"}) {
        EXPECT_EQ(fs::status(parent / made).permissions(), fs::perms::owner_all) << made;
    }
    EXPECT_FALSE(fs::exists(parent / "new/none"));

    EXPECT_EQ(runWith("relative",
                      [this] {
                          fs::create_directory(folder);
                          fs::current_path(folder);
                          fs::remove(folder);
                          return make();
                      }),
              ENOENT);
    EXPECT_EQ(lines(), "run-time directory: relative/folder: is relative, and the working directory has no path\n");
}

TEST_F(RunDir, FullPipeDoesNotStopIt)
{
    while (::write(writeEnd.get(), "x", 1) == 1) {
    }
    ASSERT_EQ(::fcntl(writeEnd.get(), F_SETFL, 0), 0);
    fs::permissions(root, fs::perms::all);
    EXPECT_EQ(runWith(root, make), EPERM);
}

} // namespace
