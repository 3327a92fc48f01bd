#include "socketFolder.h"

#include "runDir.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

UniqueFd newSocket(int type = SOCK_SEQPACKET)
{
    return UniqueFd(::socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

/// The one that succeeded, if all others failed with this error.
std::optional<std::size_t> winner(const std::vector<int>& errors, int others)
{
    const auto found = std::find(errors.begin(), errors.end(), 0);
    const auto failed = std::count(errors.begin(), errors.end(), others);
    if (found == errors.end() || static_cast<std::size_t>(failed) != errors.size() - 1) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - errors.begin());
}

class SocketFolders : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::remove_all(ruDir("sockets")); // where the cases share a process
        ASSERT_EQ(folder.make("sockets"), 0);
    }
    /// Leaves the socket file of one that died. Returns its inode number.
    ino_t leaveDead(const std::string& name) const
    {
        ino_t file = 0;
        EXPECT_EQ(folder.listen(newSocket().get(), name, 1, &file), 0);
        return file;
    }
    /// Claims such a file, as a process does that is about to remove it.
    UniqueFd claim(ino_t file, int number) const
    {
        UniqueFd socket = newSocket(SOCK_DGRAM);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/.claim-%ju-%d", folder.descriptor(),
                      static_cast<std::uintmax_t>(file), number);
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return socket;
    }
    std::size_t filesInFolder() const
    {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(ruDir("sockets")), {}));
    }

    SocketFolder folder;
};

TEST_F(SocketFolders, OneOfManyTakesANameOver)
{
    for (const std::size_t contenders : {2U, 20U}) {
        for (int round = 0; round < 100; ++round) {
            if (round % 4 != 0) { // else the names are free
                leaveDead("socket");
                ASSERT_EQ(folder.link("link", "stale"), 0);
            }
            std::vector<UniqueFd> sockets(contenders);
            std::vector<int> socketErrors(contenders);
            std::vector<int> linkErrors(contenders);
            std::vector<std::thread> threads;
            std::latch start(static_cast<std::ptrdiff_t>(contenders));
            for (std::size_t i = 0; i < contenders; ++i) {
                threads.emplace_back([&, i] {
                    sockets[i] = newSocket();
                    start.arrive_and_wait();
                    socketErrors[i] = folder.listen(sockets[i].get(), "socket", 1);
                    linkErrors[i] = folder.replaceLink("link", "stale", std::to_string(i));
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            const auto listener = winner(socketErrors, EADDRINUSE);
            const auto linked = winner(linkErrors, EEXIST);
            ASSERT_TRUE(listener && linked);
            const UniqueFd client = newSocket();
            ASSERT_EQ(folder.connect(client.get(), "socket"), 0);
            ASSERT_TRUE(UniqueFd(::accept(sockets[*listener].get(), nullptr, nullptr)));
            ASSERT_EQ(folder.readLink("link"), std::to_string(*linked));
            ASSERT_EQ(filesInFolder(), 2U);
            folder.remove("socket");
            folder.remove("link");
        }
    }
}

TEST_F(SocketFolders, ClaimCountsWhileItsProcessLives)
{
    const ino_t file = leaveDead("name");
    claim(file, 0);
    UniqueFd living = claim(file, 1);
    const UniqueFd socket = newSocket();
    EXPECT_EQ(folder.listen(socket.get(), "name", 1), EADDRINUSE);
    EXPECT_FALSE(folder.removeDead("name"));
    living.reset();
    EXPECT_EQ(folder.listen(socket.get(), "name", 1), 0);
    EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(SocketFolders, ListenerSeesNothingOfTheQuestionWhetherItLives)
{
    leaveDead("dead");
    std::ofstream(ruDir("sockets") + "/file") << "text";
    ASSERT_EQ(folder.link("link", "living"), 0);
    const UniqueFd listener = newSocket();
    ASSERT_EQ(folder.listen(listener.get(), "living", 0), 0);
    EXPECT_TRUE(folder.isAlive("living"));
    EXPECT_EQ(folder.listen(newSocket().get(), "living", 1), EADDRINUSE);
    EXPECT_EQ(::accept(listener.get(), nullptr, nullptr), -1);

    const UniqueFd waiting = newSocket();
    ASSERT_EQ(folder.connect(waiting.get(), "living"), 0);
    ASSERT_EQ(folder.connect(newSocket().get(), "living"), EAGAIN) << "nobody else can wait";
    EXPECT_TRUE(folder.isAlive("living"));
    for (const char* name : {"dead", "file", "link", "missing"}) {
        EXPECT_FALSE(folder.isAlive(name)) << name;
    }
    for (const char* name : {"file", "link"}) {
        EXPECT_EQ(folder.listen(newSocket().get(), name, 1), EADDRINUSE) << name;
    }
    EXPECT_EQ(filesInFolder(), 4U);
}

TEST_F(SocketFolders, LinkIsReplacedAndRemovedForItsTargetOnly)
{
    ASSERT_EQ(folder.link("link", "one"), 0);
    EXPECT_EQ(folder.replaceLink("link", "two", "three"), EEXIST);
    EXPECT_FALSE(folder.removeLink("link", "two"));
    EXPECT_EQ(folder.replaceLink("link", "one", std::string(255, 'x')), 0);
    EXPECT_EQ(folder.readLink("link"), std::string(255, 'x'));
    EXPECT_TRUE(folder.removeLink("link", std::string(255, 'x')));
    ASSERT_EQ(folder.link("link", std::string(256, 'x')), 0);
    EXPECT_EQ(folder.readLink("link"), std::nullopt);
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"link"});
}

} // namespace
