/// Peers that use up what a process or the unit has: descriptors, memory, numbers, names, time.

#include "peers.h"

#include "kiv/id.h"
#include "kiv/registry.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace kivtest;
using kiv::FrameKind;
using kiv::Hello;

constexpr std::size_t kibibytesPerMebibyte = 1024;

/// Connections that take 30 seconds to close: they have data to send that nobody reads. The end of this object resets
/// them.
class SlowToClose
{
public:
    SlowToClose()
    {
        ::setsockopt(m_listening.get(), SOL_SOCKET, SO_RCVBUF, &smallBuffer, sizeof smallBuffer);
        EXPECT_EQ(::bind(m_listening.get(), reinterpret_cast<const sockaddr*>(&m_address), m_size), 0);
        EXPECT_EQ(::listen(m_listening.get(), backlog), 0);
        ::getsockname(m_listening.get(), reinterpret_cast<sockaddr*>(&m_address), &m_size);
    }

    /// They have to be closed here while they are on their way to another process.
    std::vector<int> make(std::size_t count) const
    {
        std::vector<int> connections;
        while (connections.size() < count) {
            connections.push_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            const linger patient{1, 30};
            ::setsockopt(connections.back(), SOL_SOCKET, SO_SNDBUF, &smallBuffer, sizeof smallBuffer);
            ::setsockopt(connections.back(), SOL_SOCKET, SO_LINGER, &patient, sizeof patient);
            EXPECT_EQ(::connect(connections.back(), reinterpret_cast<const sockaddr*>(&m_address), m_size), 0);
            const std::string data(1U << 16, 'x');
            while (::send(connections.back(), data.data(), data.size(), MSG_DONTWAIT) > 0) {
            }
        }
        return connections;
    }

private:
    static constexpr int smallBuffer = 4096;
    static constexpr int backlog = 4096;

    UniqueFd m_listening = UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in m_address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t m_size = sizeof m_address;
};

/// The victim is a process of its own; in it runs an echo. The test is the attacker.
class KivHostile : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");
    Peer victim{{"echo", "victim"}};
    kiv_mbox_id_t target = find("victim");
    const Hello toQueue{.process = kiv::processOf(own), .queue = kiv::queueOf(target)};
    const Hello toProcess{.process = kiv::processOf(own)};

    ~KivHostile() override { kiv_delete_mailbox(own); }

    /// Descriptors for the victim as all the ways of getting them in.
    using Attack = std::function<void(const RawPeer&, const std::vector<int>&)>;
    std::vector<Attack> attacksWithDescriptors() const
    {
        const kiv::FrameHeader good{KIV_NO_MBOX, target, 8, FrameKind::inlined};
        const kiv::FrameHeader bad{KIV_NO_MBOX, target, 9, FrameKind::inlined};
        const kiv::FrameHeader monitor{own, target, 4, FrameKind::monitor};
        return {
            [=, this](const RawPeer& raw, const std::vector<int>& passed) { raw.hello(toQueue, passed); },
            [=, this](const RawPeer& raw, const std::vector<int>& passed) {
                raw.hello(toQueue);
                raw.packet(good, "12345678", passed);
            },
            [=, this](const RawPeer& raw, const std::vector<int>& passed) {
                raw.hello(toProcess);
                raw.packet(monitor, "1234", passed);
            },
            [=, this](const RawPeer& raw, const std::vector<int>& passed) { // not read any more
                raw.hello(toQueue);
                raw.packet(bad, "12345678");
                raw.packet(good, "12345678", passed);
            },
            [=, this](const RawPeer& raw, const std::vector<int>& passed) {
                raw.hello({.process = toQueue.process + 1, .queue = toQueue.queue});
                raw.packet(good, "12345678", passed);
            },
        };
    }
};

TEST_F(KivHostile, descriptors_that_are_slow_to_close_hold_nobody_up)
{
    ASSERT_TRUE(isServed("victim"));
    const std::size_t before = descriptorsOf(victim.pid());
    const SlowToClose slow;
    const auto pass = [&](const Attack& attack, const std::vector<int>& passed, const std::vector<int>& alsoClosed) {
        ::kill(victim.pid(), SIGSTOP); // or it may end the connection before all is on its way
        const RawPeer raw(target);
        attack(raw, passed);
        for (const auto& closed : {passed, alsoClosed}) {
            std::for_each(closed.begin(), closed.end(), ::close);
        }
        ::kill(victim.pid(), SIGCONT);
        EXPECT_TRUE(raw.isCutOff());
    };
    for (const Attack& attack : attacksWithDescriptors()) {
        pass(attack, slow.make(1), {});
        EXPECT_TRUE(isServed("victim"));
    }
    const Attack attack = attacksWithDescriptors()[1];
    pass(attack, slow.make(200), {});
    // They wait inside of a socket, or in a connection that waits to be accepted by one.
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM, SOCK_DGRAM}) {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
        const std::vector<int> inside = slow.make(1);
        sendDescriptors(ends[1], "x", inside);
        pass(attack, {ends[0]}, {ends[1], inside[0]});
    }
    {
        UniqueFd listening = bindNumber(kiv::lastProcess, 1);
        const std::vector<UniqueFd> waiting = fillNumber(kiv::lastProcess, 1);
        const std::vector<int> inside = slow.make(1);
        sendDescriptors(waiting[0].get(), "x", inside);
        pass(attack, {listening.release()}, inside);
    }
    EXPECT_TRUE(isServed("victim"));
    EXPECT_TRUE(eventually([&] { return descriptorsOf(victim.pid()) <= before; }))
        << descriptorsOf(victim.pid()) << " descriptors instead of " << before;
}

TEST_F(KivHostile, a_number_whose_owner_never_accepts_holds_nobody_up)
{
    const std::uint32_t number = kiv::lastProcess;
    const UniqueFd listening = bindNumber(number, 0);
    const std::vector<UniqueFd> full = fillNumber(number, 100);
    ASSERT_LT(full.size(), 100U);
    std::vector<std::unique_ptr<RawPeer>> raws;
    for (int i = 0; i < 100; ++i) {
        raws.push_back(std::make_unique<RawPeer>(target));
        raws.back()->hello({.process = number, .queue = toQueue.queue});
    }
    EXPECT_TRUE(isServed("victim"));
}

TEST_F(KivHostile, large_messages_of_many_at_once_take_little_memory)
{
    const std::size_t before = memoryOf(victim.pid(), "VmHWM");
    const int large = memfd(KIV_MAX_SIZE, F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE);
    std::vector<pid_t> attackers;
    ::kill(victim.pid(), SIGSTOP);
    for (int i = 0; i < 8; ++i) {
        attackers.push_back(::fork());
        if (attackers.back() == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            kiv::Registry registry;
            const kiv::Registry::Claim claim = registry.open() == 0 ? registry.claim() : kiv::Registry::Claim();
            const RawPeer raw(target);
            raw.hello({.process = claim.process, .queue = toQueue.queue});
            raw.packet({KIV_NO_MBOX, target, 8, FrameKind::inlined}, "12345678");
            for (int count = 0; count < 8; ++count) {
                raw.packet({KIV_NO_MBOX, target, KIV_MAX_SIZE, FrameKind::memfd}, "", {large});
            }
            ::shutdown(raw.socket(), SHUT_WR);
            ::_exit(raw.isCutOff() && raw.isTaken() ? EXIT_SUCCESS : EXIT_FAILURE);
        }
    }
    ::kill(victim.pid(), SIGCONT);
    for (const pid_t attacker : attackers) {
        int status = -1;
        ::waitpid(attacker, &status, 0);
        EXPECT_EQ(status, 0);
    }
    ::close(large);
    EXPECT_TRUE(isServed("victim"));
    EXPECT_LT(memoryOf(victim.pid(), "VmHWM") - before, maxCollected);
}

TEST_F(KivHostile, thousands_of_connections_leave_descriptors_for_others)
{
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const auto count = std::min<rlim_t>(7'000, limit.rlim_cur - 100);
    std::vector<std::unique_ptr<RawPeer>> raws;
    for (rlim_t i = 0; i < count; ++i) {
        raws.push_back(std::make_unique<RawPeer>(target));
        if (i % 3 != 0) {
            raws.back()->hello(i % 3 == 1 ? toQueue : toProcess);
        }
    }
    EXPECT_TRUE(isServed("victim", KIV_MAX_SIZE));
    EXPECT_LT(descriptorsOf(victim.pid()), 100U);
}

TEST_F(KivHostile, short_connections_leave_nothing_behind)
{
    const auto round = [this](int count) {
        for (int i = 0; i < count; ++i) {
            const RawPeer raw(target);
            EXPECT_EQ(kiv_locate("victim"), target);
        }
        EXPECT_TRUE(isServed("victim"));
    };
    round(9'000);
    const std::size_t memory = memoryOf(victim.pid(), "VmRSS");
    const std::size_t descriptors = descriptorsOf(victim.pid());
    round(9'000);
    EXPECT_TRUE(eventually([&] { return descriptorsOf(victim.pid()) <= descriptors; }));
    EXPECT_LT(memoryOf(victim.pid(), "VmRSS"), memory + 2 * kibibytesPerMebibyte);
}

TEST_F(KivHostile, too_many_monitors_cut_off_who_sets_them)
{
    const RawPeer raw(target);
    raw.hello(toProcess);
    for (std::uint32_t ref = 0; ref < 320 * 64;) {
        std::vector<std::pair<kiv::FrameHeader, std::string>> frames;
        for (int i = 0; i < 64; ++i, ++ref) {
            frames.emplace_back(kiv::FrameHeader{own, target, 4, FrameKind::monitor},
                                std::string(reinterpret_cast<const char*>(&ref), sizeof ref));
        }
        raw.packet(frames);
    }
    EXPECT_TRUE(raw.isCutOff());
    EXPECT_TRUE(isServed("victim"));
}

TEST_F(KivHostile, who_has_all_numbers_gives_one_back)
{
    constexpr int bound = -1;
    for (const int backlog : {bound, 0, 100}) {
        const pid_t hoarder = ::fork();
        if (hoarder == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::vector<UniqueFd> numbers;
            for (std::uint32_t process = 1; process <= kiv::lastProcess; ++process) {
                if (UniqueFd number = bindNumber(process, backlog)) {
                    numbers.push_back(std::move(number));
                }
            }
            ::raise(numbers.size() > 4'000 ? SIGSTOP : SIGKILL);
        }
        int status = 0;
        ::waitpid(hoarder, &status, WUNTRACED);
        EXPECT_TRUE(WIFSTOPPED(status));
        // More than once: who asks leaves a connection behind that is never accepted.
        for (int round = 0; round < 3; ++round) {
            EXPECT_TRUE(isServed("victim")) << "backlog " << backlog << ", round " << round;
        }
        ::kill(hoarder, SIGKILL);
        ::waitpid(hoarder, &status, 0);
    }
}

TEST_F(KivHostile, mailboxes_are_shared_fairly)
{
    const auto fill = [](kiv_mbox_id_t parent, const std::string& name) {
        int count = 0;
        while (count < 30'000 && kiv_clone_mailbox(parent, (name + std::to_string(count)).c_str()) != KIV_NO_MBOX) {
            ++count;
        }
        EXPECT_EQ(errno, ENOSPC);
        return count;
    };
    const int here = fill(own, "own/");
    std::thread([&] {
        const int there = fill(kiv_create_mailbox("there"), "there/");
        EXPECT_GT(here + there, 10'000);
        EXPECT_LT(here + there, 25'000);
    }).join();
    EXPECT_TRUE(isServed("victim"));
    std::thread([] { EXPECT_NE(kiv_create_mailbox("room"), KIV_NO_MBOX) << "the other thread's are gone"; }).join();
}

TEST_F(KivHostile, locks_of_files_hold_nobody_up)
{
    std::vector<UniqueFd> locked;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(std::getenv("RU_DIR"))) {
        UniqueFd file(::open(entry.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
        if (file) {
            EXPECT_EQ(::flock(file.get(), LOCK_EX | LOCK_NB), 0) << entry.path();
            locked.push_back(std::move(file));
        }
    }
    EXPECT_GE(locked.size(), 3U);
    // Creates, finds, clones and deletes.
    const Peer churn({"churn", "churn", "own"});
    for (int count = 0; count < 40; ++count) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        if (kiv_size(msg.get()) == 100'000) {
            send(kiv_sender(msg.get()), 1);
        }
    }
}

} // namespace
