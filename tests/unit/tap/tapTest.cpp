#include "tap/tap.h"
#include "tap/listener.h"
#include "tap/packet.h"

#include "peer.h"
#include "ploe/ploe.h"
#include "runDir.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using tap::Listener;
using tap::Record;

constexpr auto patience = 20s;

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

bool eventually(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
    }
    return true;
}

std::string textOf(const Record& record)
{
    return {reinterpret_cast<const char*>(record.bytes.data()), record.bytes.size()};
}

/// A message of this process, with a text.
tap::Copy messageOf(std::uint32_t sender, std::uint32_t receiver, const std::string& text)
{
    return {.carrier = tap::Carrier::kiv,
            .sender = sender,
            .receiver = receiver,
            .size = text.size(),
            .bytes = text.data()};
}

std::size_t filesOf(const std::string& kind)
{
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator(ruDir("tap"))) {
        count += entry.path().filename().string().starts_with(kind) ? 1U : 0U;
    }
    return count;
}

/// Counts what the peers' "send" sends, and checks the order within each thread.
class Tally
{
public:
    void take(const Record& record)
    {
        std::uint64_t& accounted = m_accounted[record.process];
        accounted += record.lost + (record.isCopy ? 1 : 0);
        lost += record.lost;
        if (record.isCopy) {
            std::uint32_t& last = m_last[{record.process, record.sender}];
            EXPECT_GT(record.receiver, last) << "process " << record.process << " thread " << record.sender;
            last = record.receiver;
        }
    }
    /// Copies that were received or are known to be lost.
    std::uint64_t accounted(pid_t process) { return m_accounted[process]; }

    std::uint64_t lost = 0;

private:
    std::map<pid_t, std::uint64_t> m_accounted;
    std::map<std::pair<pid_t, std::uint32_t>, std::uint32_t> m_last;
};

/// The test's own process has a tap in every test, so that the cases can also share a process.
class Tap : public testing::Test
{
protected:
    void SetUp() override { tap::start(); }
    static void openListener(Listener& opened, const tap::Options& options = {})
    {
        ASSERT_EQ(opened.open(options), 0) << std::strerror(errno);
    }
    Record next()
    {
        auto record = listener.next(patience);
        EXPECT_TRUE(record);
        return record.value_or(Record{});
    }
    /// Lets the listener work until the condition holds; nothing may arrive.
    bool idleUntil(const std::function<bool()>& condition)
    {
        return eventually([&] {
            EXPECT_FALSE(listener.next(10ms));
            return condition();
        });
    }

    Listener listener;
};

TEST_F(Tap, CopyHoldsWhatItsSenderKnows)
{
    openListener(listener, {.maxBytes = 5});
    ASSERT_TRUE(tap::isOpen());

    const std::string text = "message";
    tap::Copy first = messageOf(0x1000'4001, 0x1000'8001, text);
    const std::string longName(300, 'n');
    first.senderName = "client";
    first.receiverName = longName;
    const std::uint64_t before = tap::now();
    tap::copy(first);
    tap::copy(messageOf(0x1000'8001, 0x1000'4001, "cfm"));
    tap::Copy timed = messageOf(0, 0x1000'c001, "");
    timed.time = 12'345;
    tap::copy(timed);

    Record record = next();
    EXPECT_TRUE(record.isCopy);
    EXPECT_GE(record.time, before);
    EXPECT_LE(record.time, tap::now());
    EXPECT_EQ(record.process, ::getpid());
    EXPECT_EQ(record.lost, 0U);
    EXPECT_EQ(record.carrier, tap::Carrier::kiv);
    EXPECT_EQ(record.direction, tap::Direction::toReceiver);
    EXPECT_EQ(record.sender, 0x1000'4001U);
    EXPECT_EQ(record.receiver, 0x1000'8001U);
    EXPECT_EQ(record.senderName, "client");
    EXPECT_EQ(record.receiverName, longName.substr(0, tap::maxName));
    EXPECT_EQ(record.size, 7U);
    EXPECT_EQ(textOf(record), "messa");

    record = next();
    EXPECT_EQ(record.senderName, longName.substr(0, tap::maxName)) << "from the first message";
    EXPECT_EQ(record.receiverName, "client");
    EXPECT_EQ(textOf(record), "cfm");

    record = next();
    EXPECT_EQ(record.time, 12'345U);
    EXPECT_EQ(record.receiverName, "");
    EXPECT_EQ(record.size, 0U);
    EXPECT_FALSE(listener.next(0ms));
}

TEST_F(Tap, LargeMessagesAreCopiedUpToEachListenersLimit)
{
    Listener small;
    openListener(small, {.maxBytes = 1000, .buffer = 0});
    openListener(listener, {.maxBytes = std::size_t{1} << 30, .buffer = std::size_t{1} << 40});
    std::string message(std::size_t{16} << 20, '\0');
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<char>(i * 7 + i / 251);
    }
    tap::copy(messageOf(1, 2, message));
    const Record record = next();
    EXPECT_EQ(record.size, message.size());
    EXPECT_TRUE(textOf(record) == message.substr(0, tap::maxCopiedBytes));
    const auto beginning = small.next(patience);
    ASSERT_TRUE(beginning);
    EXPECT_EQ(beginning->size, message.size());
    EXPECT_TRUE(textOf(*beginning) == message.substr(0, 1000));
}

TEST_F(Tap, ConnectionsAreCopiedWithTheNameOfTheirAddress)
{
    struct Close {
        void operator()(ploe_socket* socket) const { ploe_close(socket); }
    };
    using Socket = std::unique_ptr<ploe_socket, Close>;
    openListener(listener);
    const Socket server(ploe_listen("ux:server", 1));
    const Socket client(ploe_connect("ux:server", 0));
    const Socket accepted(ploe_accept(server.get()));
    ASSERT_EQ(ploe_send(client.get(), "request", 7), 0);
    ASSERT_EQ(ploe_send(accepted.get(), "answer", 6), 0);
    EXPECT_EQ(ploe_send(accepted.get(), "", 0), -1);

    const Record request = next();
    EXPECT_EQ(request.carrier, tap::Carrier::ploe);
    EXPECT_EQ(request.direction, tap::Direction::toListener);
    EXPECT_EQ(request.senderName, "");
    EXPECT_EQ(request.receiverName, "server");
    EXPECT_EQ(textOf(request), "request");
    const Record answer = next();
    EXPECT_EQ(answer.direction, tap::Direction::toConnector);
    EXPECT_EQ(answer.senderName, "server");
    EXPECT_EQ(answer.receiverName, "");
    EXPECT_EQ(textOf(answer), "answer");
    EXPECT_LE(request.time, answer.time);
    EXPECT_FALSE(listener.next(0ms)) << "a message that wasn't sent";
}

TEST_F(Tap, EveryMessageOfTenProcessesIsAccountedFor)
{
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 0; i < 10; ++i) {
        if (i == 5) {
            openListener(listener);
        }
        peers.push_back(std::make_unique<Peer>());
    }
    for (const auto& peer : peers) {
        peer->ask("send 4 500 200");
    }
    Tally tally;
    for (const auto& peer : peers) {
        while (tally.accounted(peer->pid()) < 2000) {
            const auto record = listener.next(patience);
            ASSERT_TRUE(record) << tally.accounted(peer->pid());
            tally.take(*record);
        }
    }
    for (const auto& peer : peers) {
        EXPECT_EQ(peer->answer(), "sent");
        EXPECT_EQ(tally.accounted(peer->pid()), 2000U);
    }
    EXPECT_EQ(listener.processes(), peers.size() + 1);
    EXPECT_FALSE(listener.next(0ms));
}

TEST_F(Tap, SlowListenerIsToldWhatItLost)
{
    openListener(listener, {.buffer = 65'536});
    const Peer peer;
    EXPECT_EQ(peer.call("send 2 3000 1000"), "sent") << "while nobody reads";
    Tally tally;
    for (int i = 0; i < 10; ++i) {
        tally.take(next());
    }
    EXPECT_EQ(tally.lost, 0U);
    EXPECT_EQ(peer.call("send 1 1000 1000"), "sent");
    bool toldByCopy = false;
    bool toldAlone = false;
    while (tally.accounted(peer.pid()) < 7000) {
        const auto record = listener.next(patience);
        ASSERT_TRUE(record) << tally.accounted(peer.pid());
        tally.take(*record);
        (record->isCopy ? toldByCopy : toldAlone) |= record->lost > 0;
    }
    EXPECT_EQ(tally.accounted(peer.pid()), 7000U);
    EXPECT_TRUE(toldByCopy);
    EXPECT_TRUE(toldAlone) << "without a further message";
    EXPECT_FALSE(listener.next(0ms));
}

TEST_F(Tap, ListenersComeAndGoWhileMessagesAreSent)
{
    const Peer peer;
    EXPECT_EQ(peer.call("flood"), "flooding");
    for (int round = 0; round < 30; ++round) {
        openListener(listener);
        Tally tally;
        for (int i = 0; i < 20; ++i) {
            tally.take(next());
        }
        listener.close();
        EXPECT_FALSE(listener.next(0ms));
    }
    EXPECT_TRUE(eventually([&] { return peer.call("open?") == "closed"; }));
    EXPECT_EQ(peer.call("stop"), "stopped");
    EXPECT_EQ(filesOf("listener"), 0U);
}

TEST_F(Tap, KilledListenerIsForgottenAndItsFileCleared)
{
    const Peer peer;
    Peer killed;
    EXPECT_EQ(peer.call("flood"), "flooding");
    EXPECT_EQ(killed.call("listen"), "0");
    EXPECT_EQ(peer.call("open?"), "open");
    killed.kill();
    EXPECT_TRUE(eventually([&] { return peer.call("open?") == "closed"; }));
    EXPECT_EQ(filesOf("listener"), 1U);
    EXPECT_EQ(filesOf("process"), 3U);

    openListener(listener);
    EXPECT_EQ(filesOf("listener"), 1U) << "the new one";
    EXPECT_EQ(filesOf("process"), 2U);
    EXPECT_EQ(next().process, peer.pid());
    EXPECT_EQ(peer.call("stop"), "stopped");
}

TEST_F(Tap, FilesOfKilledProcessesDoNotPileUp)
{
    const pid_t child = ::fork();
    if (child == 0) {
        tap::Folder folder;
        bool bound = folder.open() == 0;
        for (int i = 0; i < 100; ++i) {
            std::string name;
            bound = folder.bind(tap::newSocket().get(), "process", "", name) == 0 && bound;
        }
        ::_exit(bound ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(filesOf("process"), 101U);
    const Peer peer;
    EXPECT_EQ(filesOf("process"), 2U);
}

TEST_F(Tap, OneListenerMoreThanAProcessServesIsRefused)
{
    std::vector<Listener> others(tap::maxListeners);
    for (Listener& other : others) {
        openListener(other);
    }
    EXPECT_EQ(listener.open(), EBUSY);
    EXPECT_EQ(others[0].open(), EALREADY);
    others[0].close();
    openListener(listener);
    tap::copy(messageOf(1, 2, "message"));
    EXPECT_EQ(textOf(next()), "message");
    EXPECT_TRUE(others[1].next(patience));
    EXPECT_FALSE(others[0].next(0ms));
}

TEST_F(Tap, MalformedPacketCutsOffItsSenderOnly)
{
    openListener(listener);
    const Peer peer;
    tap::Folder folder;
    std::vector<tap::SocketFile> files;
    ASSERT_EQ(folder.open(), 0);
    ASSERT_EQ(folder.files(files), 0);
    const auto file = std::find_if(files.begin(), files.end(), [](const auto& each) { return each.listens; });
    ASSERT_NE(file, files.end());

    const auto packet = [](const std::function<void(tap::PacketHeader&)>& change, std::size_t more) {
        tap::PacketHeader header;
        header.size = 10;
        change(header);
        std::string bytes(sizeof(header) + more, '\0');
        std::memcpy(bytes.data(), &header, sizeof(header));
        return bytes;
    };
    using Header = tap::PacketHeader;
    const std::vector<std::string> malformed = {
        "short",
        packet([](Header& header) { header.kind = tap::PacketKind{3}; }, 0),
        packet([](Header& header) { header.carrier = tap::Carrier{0}; }, 0),
        packet([](Header& header) { header.direction = tap::Direction{3}; }, 0),
        packet([](Header& header) { header.copied = 5; }, 4),
        packet([](Header& header) { header.copied = 5; }, 6),
        packet([](Header& header) { header.copied = 11; }, 11),
        packet([](Header& header) { header.copied = 0xFFFF'FFFF; }, 5),
        packet([](Header& header) { header.senderNameSize = 255; }, 254),
        packet([](Header& header) { header.size = header.copied = 80'000; }, 80'000),
    };
    for (std::size_t i = 0; i <= malformed.size(); ++i) {
        const UniqueFd intruder = tap::newSocket();
        ASSERT_EQ(folder.connect(intruder.get(), file->name), 0);
        const std::string good = packet([](Header& header) { header.copied = 5; }, 5);
        ASSERT_GT(::send(intruder.get(), good.data(), good.size(), MSG_NOSIGNAL), 0);
        EXPECT_EQ(next().process, ::getpid());
        if (i < malformed.size()) {
            ASSERT_GT(::send(intruder.get(), malformed[i].data(), malformed[i].size(), MSG_NOSIGNAL), 0);
            EXPECT_TRUE(idleUntil([&] { return listener.processes() == 2; })) << i;
        }
    }
    EXPECT_EQ(peer.call("send 1 1 10"), "sent");
    EXPECT_EQ(next().process, peer.pid());
}

TEST_F(Tap, PassedDescriptorsAreNotTaken)
{
    openListener(listener);
    tap::Folder folder;
    std::vector<tap::SocketFile> files;
    ASSERT_EQ(folder.open(), 0);
    ASSERT_EQ(folder.files(files), 0);
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe2(pipe.data(), O_CLOEXEC), 0);
    const UniqueFd reading(pipe[0]);
    {
        const UniqueFd writing(pipe[1]);
        for (const tap::SocketFile& file : files) {
            const UniqueFd socket = tap::newSocket();
            ASSERT_EQ(folder.connect(socket.get(), file.name), 0);
            tap::PacketHeader packet;
            iovec part{&packet, sizeof(packet)};
            alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(int))> control{};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            cmsghdr* rights = CMSG_FIRSTHDR(&message);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(sizeof(int));
            std::memcpy(CMSG_DATA(rights), &pipe[1], sizeof(int));
            ::sendmsg(socket.get(), &message, MSG_NOSIGNAL); // refused by kernels that can
        }
    }
    EXPECT_TRUE(eventually([&] {
        listener.next(10ms);
        char byte = 0;
        pollfd state{reading.get(), POLLIN, 0};
        return ::poll(&state, 1, 0) == 1 && ::read(reading.get(), &byte, 1) == 0;
    })) << "the other end of the pipe is still open";
}

TEST_F(Tap, NobodyElseListensOrIsHeard)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs to become another user";
    }
    const Peer peer;
    const Peer stranger;
    EXPECT_EQ(stranger.call("nobody"), "became");
    EXPECT_EQ(stranger.call("listen"), std::to_string(EACCES));

    // If the permissions of folder and files didn't keep others out:
    openListener(listener);
    EXPECT_EQ(listener.processes(), 2U);
    for (fs::path path = ruDir("tap"); path != fs::temp_directory_path(); path = path.parent_path()) {
        fs::permissions(path, fs::perms::all);
    }
    for (const auto& file : fs::directory_iterator(ruDir("tap"))) {
        fs::permissions(file.path(), fs::perms::all);
    }
    stranger.ask("intrude");
    EXPECT_TRUE(idleUntil([&] { return stranger.hasAnswered(); }));
    EXPECT_EQ(stranger.answer(), "cut off");
    listener.close();
    EXPECT_TRUE(eventually([&] { return peer.call("open?") == "closed"; }));
    EXPECT_EQ(peer.call("flood"), "flooding");
    EXPECT_EQ(stranger.call("lure"), "nothing");
    EXPECT_EQ(peer.call("stop"), "stopped");
}

TEST_F(Tap, ForkedChildBeginsAnew)
{
    openListener(listener);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool closed = !tap::isOpen();
        tap::copy(messageOf(1, 2, "nothing"));
        tap::start();
        tap::copy(messageOf(1, 2, "child"));
        ::_exit(closed && tap::isOpen() ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    Record record = next();
    EXPECT_EQ(record.process, child);
    EXPECT_EQ(textOf(record), "child");
    tap::copy(messageOf(1, 2, "parent"));
    record = next();
    EXPECT_EQ(record.process, ::getpid());
    EXPECT_EQ(textOf(record), "parent");
}

TEST_F(Tap, ForkedChildKeepsNothingOfItsParent)
{
    openListener(listener);
    Peer peer;
    EXPECT_EQ(peer.call("fork"), "forked");
    EXPECT_TRUE(idleUntil([&] { return listener.processes() == 2; }));
    peer.kill();
    EXPECT_TRUE(idleUntil([&] { return listener.processes() == 1; })) << "while the child lives";
}

TEST_F(Tap, ProcessThatCannotHaveATapGoesOnWithoutIt)
{
    const fs::path directory = fs::path(ruDir("")) / "other";
    fs::create_directories(directory);
    std::ofstream(directory / "tap") << "no folder";
    const Peer peer(directory.string());
    EXPECT_EQ(peer.call("open?"), "closed");
    EXPECT_EQ(peer.call("send 1 1 10"), "sent");
}

} // namespace
