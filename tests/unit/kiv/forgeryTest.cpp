/// Peers that do not keep to the protocol: raw sockets instead of the library.

#include "peers.h"

#include "kiv/id.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace kivtest;
using kiv::FrameKind;
using kiv::Hello;

/// The victim is a process of its own; in it runs an echo. The test is the attacker, another echo the bystander.
class KivForgery : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");
    Peer victim{{"echo", "victim"}};
    kiv_mbox_id_t target = find("victim");

    ~KivForgery() override
    {
        // Whatever happened, the victim lives and serves others.
        send(target, 4711);
        const Msg msg = receive();
        EXPECT_TRUE(msg && msg->number == 4711);
        EXPECT_FALSE(readable());
        kiv_delete_mailbox(own);
    }
};

TEST_F(KivForgery, a_number_of_another_process_is_not_given_away)
{
    const Peer bystander({"echo", "bystander"});
    const kiv_mbox_id_t other = find("bystander");
    const std::uint32_t watched = kiv_monitor(other, kiv_alloc(4, 1));
    // Connected in its name, or simply used; also the victim's own name and that of nobody.
    for (const kiv_mbox_id_t forged : {other, target, kiv::makeId(999, 1, 1), kiv_mbox_id_t{0x20014001}, 0U}) {
        if (kiv::isMailboxId(forged)) {
            RawPeer opener(target);
            opener.hello({.process = kiv::processOf(forged), .queue = kiv::queueOf(target)});
            opener.packet({forged, target, 8, FrameKind::inlined}, "12345678");
            EXPECT_TRUE(opener.isCutOff());
        }
        RawPeer user(target);
        user.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
        user.packet({forged, target, 8, FrameKind::inlined}, "12345678");
        EXPECT_TRUE(user.isCutOff());

        RawPeer watcher(target);
        watcher.hello({.process = kiv::processOf(own)});
        watcher.packet({forged, target, 4, FrameKind::monitor}, "1234");
        EXPECT_TRUE(watcher.isCutOff());
    }
    EXPECT_FALSE(readable()) << "nothing was echoed to the bystander or to us, and the bystander lives";
    kiv_unmonitor(watched);
}

TEST_F(KivForgery, a_proven_process_is_believed)
{
    RawPeer raw(target);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
    raw.packet({{{KIV_NO_MBOX, target, 8, FrameKind::inlined}, "12345678"},
                {{own, target, 8, FrameKind::inlined}, "ABCDabcd"}});
    const Msg msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(std::memcmp(msg.get(), "ABCDabcd", 8), 0);
    EXPECT_TRUE(raw.isTaken());
}

TEST_F(KivForgery, a_connection_of_a_dead_child_does_not_speak_for_who_has_its_pid_now)
{
    // Taken in while the child lived or lay dead, or only when another process has its pid.
    for (const bool isStopped : {false, true}) {
        ::kill(victim.pid(), isStopped ? SIGSTOP : SIGCONT);
        pid_t child = -1;
        const RawPeer raw(target, child);
        const Peer honest({"echo", "honest"}, child);
        if (honest.pid() != child) {
            ::kill(victim.pid(), SIGCONT);
            GTEST_SKIP() << "no right to choose a pid";
        }
        const kiv_mbox_id_t other = find("honest");
        raw.hello({.process = kiv::processOf(other), .queue = kiv::queueOf(target)});
        raw.packet({other, target, 8, FrameKind::inlined}, "12345678");
        ::kill(victim.pid(), SIGCONT);
        EXPECT_TRUE(raw.isCutOff()) << isStopped;
    }
}

TEST_F(KivForgery, garbage_instead_of_a_hello_or_a_monitor_cuts_off)
{
    const Hello good{.process = kiv::processOf(own), .queue = kiv::queueOf(target)};
    const std::vector<std::string> openings = {"",
                                               "x",
                                               std::string(sizeof good, '\0'),
                                               std::string(sizeof good, '\xFF'),
                                               std::string(sizeof good + 1, 'y'),
                                               std::string(100'000, 'y')};
    for (const std::string& opening : openings) {
        RawPeer raw(target);
        raw.tell(opening);
        EXPECT_TRUE(raw.isCutOff());
    }
    for (const Hello& bad : {Hello{kiv::protocolVersion + 1, good.process, good.queue}, Hello{.queue = good.queue},
                             Hello{.process = good.process, .queue = kiv::lastQueue + 1},
                             Hello{.process = good.process, .queue = kiv::lastQueue}, // nobody's
                             Hello{.process = kiv::lastProcess + 1, .queue = good.queue}}) {
        RawPeer raw(target);
        raw.hello(bad);
        EXPECT_TRUE(raw.isCutOff());
    }
    for (const FrameKind kind : {FrameKind::inlined, FrameKind::dead, FrameKind{0}, FrameKind{77}}) {
        RawPeer raw(target);
        raw.hello({.process = good.process});
        raw.packet({own, target, 4, kind}, "1234");
        EXPECT_TRUE(raw.isCutOff());
    }
}

TEST_F(KivForgery, a_death_is_reported_by_its_process_alone)
{
    const Peer bystander({"echo", "bystander"});
    const kiv_mbox_id_t other = find("bystander");
    const std::uint32_t ref = kiv_monitor(other, kiv_alloc(4, 1));
    const std::string payload(reinterpret_cast<const char*>(&ref), sizeof ref);
    RawPeer raw(own);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(own)});
    raw.packet({own, own, 4, FrameKind::dead}, payload); // ours to say, but not what is watched
    raw.packet({other, own, 4, FrameKind::dead}, payload);
    // Nothing is delivered, however long it takes until the connection is read and ended.
    EXPECT_TRUE(eventually([&] {
        EXPECT_FALSE(receive(10));
        return raw.isCutOff(0);
    }));
    kiv_unmonitor(ref);
}

TEST_F(KivForgery, garbage_behind_the_hello_cuts_off)
{
    const int all = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    const int sealed = memfd(100'000, all);
    const int open = memfd(100'000, F_SEAL_SHRINK);
    const int file = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    const std::string big(70'000, 'b');
    const kiv_mbox_id_t nobody = KIV_NO_MBOX;
    const auto inlined = FrameKind::inlined;
    const auto asMemfd = FrameKind::memfd;
    const std::vector<std::function<void(RawPeer&)>> attacks = {
        [](RawPeer& raw) { ::send(raw.socket(), "", 0, 0); },
        [](RawPeer& raw) { ::send(raw.socket(), "short", 5, 0); },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 9, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 7, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 3, inlined}, "123");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 0, inlined}, "");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 70'000, inlined}, big);
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 8, FrameKind{3}}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, kiv::makeId(kiv::processOf(target) + 1, 1, 1), 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, kiv::makeId(kiv::processOf(target), 2, 1), 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) { // one bad frame behind a good one
            raw.packet({{{nobody, target, 8, inlined}, "12345678"}, {{nobody, target, 9, inlined}, "12345678"}});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, 0, 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 8, inlined}, "12345678", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "x", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'001, asMemfd}, "", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, KIV_MAX_SIZE + 1, asMemfd}, "", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {open});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {file});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {sealed, sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {file, file, file, file, file, file});
        },
    };
    for (std::size_t i = 0; i < attacks.size(); ++i) {
        RawPeer raw(target);
        raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
        attacks[i](raw);
        EXPECT_TRUE(raw.isCutOff()) << "attack " << i;
    }
    for (const int descriptor : {sealed, open, file}) {
        ::close(descriptor);
    }
}

TEST_F(KivForgery, a_peer_that_stops_sending_ends_the_connection)
{
    RawPeer raw(own);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(own)});
    raw.packet({KIV_NO_MBOX, own, 8, FrameKind::inlined}, "12345678");
    ::shutdown(raw.socket(), SHUT_WR);
    EXPECT_TRUE(receive());
    EXPECT_FALSE(receive(0));
    EXPECT_FALSE(readable());
    EXPECT_TRUE(raw.isCutOff());
}

} // namespace
