#include "ploe/ploe.h"

#include "runDir.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern "C" int cClientRoundTrip(const char* address);

namespace {

namespace fs = std::filesystem;

/// All tests run in a folder whose path is longer than a socket's address can hold.
class LongRunDir : public testing::Environment
{
    void SetUp() override
    {
        const std::string path = std::string(std::getenv("RU_DIR")) + '/' + std::string(150, 'x');
        ::setenv("RU_DIR", path.c_str(), 1);
    }
};
[[maybe_unused]] const auto* const longRunDir = testing::AddGlobalTestEnvironment(new LongRunDir);

struct Close {
    void operator()(ploe_socket* socket) const { ploe_close(socket); }
};
using Socket = std::unique_ptr<ploe_socket, Close>;

Socket connectTo(const std::string& address)
{
    return Socket(ploe_connect(address.c_str(), 0));
}

Socket listenAt(const std::string& address, int backlog = 8)
{
    return Socket(ploe_listen(address.c_str(), backlog));
}

/// errno of a call that must have failed.
int errorOf(const Socket& socket)
{
    return socket == nullptr ? errno : 0;
}

int errorOf(ssize_t result)
{
    return result == -1 ? errno : 0;
}

/// A message that no other number gives, of any size.
std::string pattern(std::size_t size, std::size_t number)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>((i * 7 + i / 251 + number * 31) & 0xFF);
    }
    return text;
}

int send(const Socket& socket, const std::string& message)
{
    return ploe_send(socket.get(), message.data(), message.size());
}

/// The next message; nothing where the call fails, an empty one at the end of the connection.
std::optional<std::string> receive(const Socket& socket, std::size_t size = PLOE_MAX_MSG_SIZE)
{
    std::string buffer(size, '\0');
    const ssize_t length = ploe_receive(socket.get(), buffer.data(), buffer.size());
    if (length < 0) {
        return std::nullopt;
    }
    buffer.resize(static_cast<std::size_t>(length));
    return buffer;
}

bool isReadable(const Socket& socket)
{
    pollfd state{ploe_fd(socket.get()), POLLIN, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & POLLIN) != 0;
}

/// A process of its own that listens at an address until it is killed.
class ListeningProcess
{
public:
    explicit ListeningProcess(const std::string& address)
    {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const ploe_socket* listener = ploe_listen(address.c_str(), 8);
            const char result = listener != nullptr ? 'y' : 'n';
            [[maybe_unused]] const ssize_t told = ::write(ready[1], &result, 1);
            for (;;) {
                ::pause();
            }
        }
        ::close(ready[1]);
        char result = 'n';
        EXPECT_EQ(::read(ready[0], &result, 1), 1);
        EXPECT_EQ(result, 'y');
        ::close(ready[0]);
    }
    ~ListeningProcess() { kill(); }
    ListeningProcess(const ListeningProcess&) = delete;
    ListeningProcess& operator=(const ListeningProcess&) = delete;

    void kill()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
    }

private:
    pid_t m_pid = -1;
};

class Ploe : public testing::Test
{
protected:
    const std::string address = "ux:server";
    const fs::path file = ruDir("ploe") + "/server";
};

class PloeConnection : public Ploe
{
protected:
    void SetUp() override
    {
        for (const Socket* socket : {&listener, &client, &server}) {
            ASSERT_NE(*socket, nullptr) << std::strerror(errno);
        }
    }
    void setNonBlocking() const
    {
        ASSERT_EQ(ploe_set_blocking(client.get(), false), 0);
        ASSERT_EQ(ploe_set_blocking(server.get(), false), 0);
    }
    /// Sends numbered messages until no more fit.
    static std::size_t fill(const Socket& from, std::size_t size)
    {
        std::size_t count = 0;
        while (send(from, pattern(size, count)) == 0) {
            ++count;
        }
        EXPECT_EQ(errno, EAGAIN);
        return count;
    }

    Socket listener = listenAt(address);
    Socket client = connectTo(address);
    Socket server{client ? ploe_accept(listener.get()) : nullptr};
};

TEST_F(PloeConnection, MessagesKeepTheirBordersAndOrderBothWays)
{
    const std::vector<std::size_t> sizes{1, 8, 7, 65'544, 1, 300, 4096};
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        ASSERT_EQ(send(client, pattern(sizes[i], i)), 0);
        ASSERT_EQ(send(server, pattern(sizes[i], i + 100)), 0);
    }
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        EXPECT_EQ(receive(server), pattern(sizes[i], i));
        EXPECT_EQ(receive(client), pattern(sizes[i], i + 100));
    }
}

TEST_F(PloeConnection, NonBlockingSocketFailsWhereItWouldWait)
{
    setNonBlocking();
    char byte = 0;
    EXPECT_EQ(errorOf(ploe_receive(client.get(), &byte, 1)), EAGAIN);

    for (const auto& [size, atLeast] : {std::pair<std::size_t, std::size_t>{65'544, 6}, {PLOE_MAX_MSG_SIZE, 2}}) {
        const std::size_t count = fill(client, size);
        EXPECT_GE(count, atLeast);
        EXPECT_EQ(receive(server), pattern(size, 0));
        EXPECT_EQ(send(client, pattern(size, count)), 0) << "room for the one that was received";
        for (std::size_t i = 1; i <= count; ++i) {
            ASSERT_EQ(receive(server), pattern(size, i));
        }
        EXPECT_EQ(errorOf(ploe_receive(server.get(), &byte, 1)), EAGAIN) << "nothing of what didn't fit";
    }
}

TEST_F(PloeConnection, BlockingSocketWaits)
{
    ASSERT_EQ(ploe_set_blocking(client.get(), false), 0);
    ASSERT_EQ(ploe_set_blocking(client.get(), true), 0);
    constexpr std::size_t messages = 100; // more than any socket holds
    std::thread sender([this] {
        for (std::size_t i = 0; i < messages; ++i) {
            ASSERT_EQ(send(client, pattern(PLOE_MAX_MSG_SIZE, i)), 0);
        }
    });
    for (std::size_t i = 0; i < messages; ++i) {
        EXPECT_TRUE(receive(server) == pattern(PLOE_MAX_MSG_SIZE, i)) << i;
    }
    sender.join();
}

TEST_F(PloeConnection, SizeHasTheLimitsThatTheAttributeTells)
{
    std::uint64_t limit = 0;
    ASSERT_EQ(ploe_attr_get(client.get(), "ploe.max_msg_size", &limit, sizeof(limit)), 0);
    EXPECT_EQ(limit, PLOE_MAX_MSG_SIZE);
    setNonBlocking();
    for (const auto& [from, to] : {std::pair(&client, &server), std::pair(&server, &client)}) {
        const std::string longest = pattern(limit, 5);
        EXPECT_EQ(send(*from, longest), 0);
        EXPECT_TRUE(receive(*to, limit) == longest);
        EXPECT_EQ(errorOf(send(*from, pattern(limit + 1, 5))), EMSGSIZE);
        EXPECT_EQ(errorOf(send(*from, "")), EINVAL);
        EXPECT_FALSE(isReadable(*to));
    }

    EXPECT_EQ(errorOf(ploe_attr_get(client.get(), "ploe.min_msg_size", &limit, sizeof(limit))), ENOENT);
    EXPECT_EQ(errorOf(ploe_attr_get(client.get(), "ploe.max_msg_size", &limit, sizeof(limit) / 2)), EINVAL);
}

TEST_F(PloeConnection, MessageLongerThanTheBufferIsDroppedWhole)
{
    for (const char* message : {"12345678", "123456789", "next"}) {
        ASSERT_EQ(send(client, message), 0);
    }
    EXPECT_EQ(receive(server, 8), "12345678");
    EXPECT_EQ(receive(server, 8), std::nullopt);
    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(receive(server, 8), "next");
}

TEST_F(PloeConnection, CloseFromEitherSideIsToldBehindWhatWasSent)
{
    for (const bool clientCloses : {true, false}) {
        for (const bool leavesUnread : {true, false}) {
            SCOPED_TRACE(testing::Message() << clientCloses << leavesUnread);
            client = connectTo(address);
            server.reset(ploe_accept(listener.get()));
            Socket& closing = clientCloses ? client : server;
            const Socket& staying = clientCloses ? server : client;
            if (leavesUnread) {
                ASSERT_EQ(send(staying, "unread"), 0);
            }
            ASSERT_EQ(send(closing, "first"), 0);
            ASSERT_EQ(send(closing, "last"), 0);
            closing.reset();

            EXPECT_EQ(receive(staying), "first");
            EXPECT_EQ(receive(staying), "last");
            EXPECT_EQ(receive(staying), "");
            EXPECT_EQ(receive(staying), "") << "and again";
            EXPECT_EQ(errorOf(send(staying, "x")), EPIPE);
        }
    }
}

TEST_F(PloeConnection, SendingToAClosedEndFailsAlikeEachTime)
{
    ASSERT_EQ(send(client, "unread"), 0);
    server.reset();
    EXPECT_EQ(errorOf(send(client, "x")), EPIPE);
    EXPECT_EQ(errorOf(send(client, "x")), EPIPE);
    EXPECT_EQ(receive(client), "");
}

TEST_F(PloeConnection, DescriptorIsReadableExactlyWhileReceivingDoesNotWait)
{
    for (const Socket* socket : {&listener, &client, &server}) {
        ASSERT_EQ(ploe_await(socket->get(), 1), 0);
        EXPECT_FALSE(isReadable(*socket));
        EXPECT_NE(::fcntl(ploe_fd(socket->get()), F_GETFD) & FD_CLOEXEC, 0);
    }
    EXPECT_EQ(errorOf(ploe_await(client.get(), 2)), EINVAL);

    const Socket second = connectTo(address);
    EXPECT_TRUE(isReadable(listener));
    const Socket accepted(ploe_accept(listener.get()));
    EXPECT_FALSE(isReadable(listener));

    ASSERT_EQ(send(server, "one"), 0);
    ASSERT_EQ(send(server, "two"), 0);
    EXPECT_EQ(receive(client), "one");
    EXPECT_TRUE(isReadable(client));
    EXPECT_EQ(receive(client), "two");
    EXPECT_FALSE(isReadable(client));
    EXPECT_FALSE(isReadable(server));

    server.reset();
    EXPECT_TRUE(isReadable(client));
    EXPECT_EQ(receive(client), "");
    EXPECT_TRUE(isReadable(client));
}

TEST_F(Ploe, ConnectingDoesNotWaitForAListenerThatAcceptsNobody)
{
    const Socket listener = listenAt(address, 1);
    std::vector<Socket> clients;
    while (Socket client = connectTo(address)) {
        ASSERT_EQ(send(client, "early"), 0);
        clients.push_back(std::move(client));
    }
    EXPECT_EQ(errno, EAGAIN);
    ASSERT_FALSE(clients.empty());
    EXPECT_EQ(receive(Socket(ploe_accept(listener.get()))), "early");
    EXPECT_NE(connectTo(address), nullptr);
}

TEST_F(Ploe, ClosedListenerEndsWhoWasNotAccepted)
{
    Socket listener = listenAt(address);
    const Socket client = connectTo(address);
    listener.reset();
    EXPECT_EQ(receive(client), "");
}

TEST_F(Ploe, AddressIsCheckedAndNeedsAListener)
{
    const std::string longestName(PLOE_NAME_MAX, 'n');
    for (const char* bad :
         {"", "ux:", "ux", "server", "UX:server", "ux:.", "ux:..", "ux:../x", "ux:a/b", "ux:.hidden"}) {
        EXPECT_EQ(errorOf(connectTo(bad)), EINVAL) << bad;
        EXPECT_EQ(errorOf(listenAt(bad)), EINVAL) << bad;
    }
    EXPECT_EQ(errorOf(Socket(ploe_connect(nullptr, 0))), EINVAL);
    EXPECT_EQ(errorOf(Socket(ploe_connect("ux:server", 1))), EINVAL);
    EXPECT_EQ(errorOf(listenAt(address, 0)), EINVAL);
    EXPECT_EQ(errorOf(connectTo("ux:" + longestName + 'n')), ENAMETOOLONG);
    EXPECT_EQ(errorOf(listenAt("ux:" + longestName + 'n')), ENAMETOOLONG);

    EXPECT_EQ(errorOf(connectTo(address)), ENOENT);
    EXPECT_TRUE(cClientRoundTrip(("ux:" + longestName).c_str()));
}

TEST_F(Ploe, KilledListenerLeavesTheAddressFree)
{
    ListeningProcess process(address);
    EXPECT_EQ(errorOf(listenAt(address)), EADDRINUSE);
    EXPECT_NE(connectTo(address), nullptr);
    process.kill();
    ASSERT_TRUE(fs::exists(file));
    EXPECT_EQ(errorOf(connectTo(address)), ECONNREFUSED);

    const Socket listener = listenAt(address);
    ASSERT_NE(listener, nullptr) << std::strerror(errno);
    EXPECT_NE(connectTo(address), nullptr);
}

TEST_F(Ploe, LockThatSomebodyHoldsOnTheFolderStopsNobody)
{
    ListeningProcess(address).kill();
    const UniqueFd folder(::open(file.parent_path().c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(folder.get(), LOCK_EX), 0);
    auto listener = std::async(std::launch::async, [this] { return listenAt(address); });
    EXPECT_EQ(listener.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ASSERT_EQ(::flock(folder.get(), LOCK_UN), 0);
    EXPECT_NE(listener.get(), nullptr);
}

TEST_F(Ploe, LivingListenerKeepsTheAddressAndSeesNothingOfTheOther)
{
    Socket listener = listenAt(address);
    ASSERT_EQ(ploe_set_blocking(listener.get(), false), 0);
    EXPECT_EQ(errorOf(listenAt(address)), EADDRINUSE);
    EXPECT_EQ(errorOf(Socket(ploe_accept(listener.get()))), EAGAIN);
    EXPECT_NE(connectTo(address), nullptr);

    listener.reset();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(errorOf(connectTo(address)), ENOENT);
    EXPECT_NE(listenAt(address), nullptr);
}

TEST_F(Ploe, FilesOfOthersAreLeftAlone)
{
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "text";
    EXPECT_EQ(errorOf(listenAt(address)), EADDRINUSE);
    EXPECT_EQ(fs::file_size(file), 4U);
    fs::remove(file);

    Socket replaced = listenAt(address);
    fs::remove(file);
    const Socket listener = listenAt(address);
    replaced.reset();
    EXPECT_NE(connectTo(address), nullptr);
}

TEST_F(Ploe, ForkedChildLeavesTheListenerAlone)
{
    Socket listener = listenAt(address);
    const pid_t child = ::fork();
    if (child == 0) {
        listener.reset();
        ::_exit(0);
    }
    ASSERT_GT(child, 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    EXPECT_NE(connectTo(address), nullptr);
}

} // namespace
