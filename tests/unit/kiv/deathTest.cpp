/// The end of mailboxes, in order and by SIGKILL.

#include "peers.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace kivtest;
using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr auto promised = std::chrono::milliseconds(1000);
#else
constexpr auto promised = std::chrono::milliseconds(100);
#endif

class KivDeath : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");

    ~KivDeath() override { kiv_delete_mailbox(own); }
};

TEST_F(KivDeath, a_killed_process_fires_all_monitors_and_frees_its_names_at_once)
{
    Peer peer({"echo", "echo", "3"});
    std::vector<kiv_mbox_id_t> mailboxes{find("echo"), find("echo/0"), find("echo/1"), find("echo/2")};
    for (const kiv_mbox_id_t mailbox : mailboxes) {
        kiv_monitor(mailbox, kiv_alloc(4, mailbox));
    }
    send(mailboxes[0], 1);
    ASSERT_TRUE(receive());
    EXPECT_FALSE(readable());
    peer.kill();
    const auto killed = Clock::now();
    EXPECT_EQ(kiv_locate("echo"), KIV_NO_MBOX);
    EXPECT_NE(kiv_clone_mailbox(own, "echo"), KIV_NO_MBOX);
    EXPECT_NE(kiv_clone_mailbox(own, "echo/1"), KIV_NO_MBOX);
    for (std::size_t i = 0; i < mailboxes.size(); ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        EXPECT_EQ(msg->number, kiv_sender(msg.get()));
    }
    EXPECT_LT(Clock::now() - killed, promised);
    // A death leaves the descriptor quiet.
    EXPECT_FALSE(readable(50));
    send(mailboxes[0], 1);
    EXPECT_FALSE(readable());
}

TEST_F(KivDeath, monitors_of_dead_mailboxes_fire_at_once)
{
    Peer peer({"echo", "echo", "1"});
    const kiv_mbox_id_t echo = find("echo");
    const kiv_mbox_id_t clone = find("echo/0");
    kiv_monitor(clone, kiv_alloc(4, 1));
    send(clone, 0xE4D0E4D0); // deletes the clone alone
    EXPECT_EQ(receive()->number, 1U);
    EXPECT_EQ(kiv_locate("echo/0"), KIV_NO_MBOX);
    kiv_monitor(clone, kiv_alloc(4, 2));
    EXPECT_EQ(receive()->number, 2U);
    kiv_monitor(echo, kiv_alloc(4, 3));
    EXPECT_FALSE(readable(20));
    peer.kill();
    EXPECT_EQ(receive()->number, 3U);
    kiv_monitor(echo, kiv_alloc(4, 4));
    EXPECT_EQ(receive()->number, 4U);
    for (const kiv_mbox_id_t nobody : {0U, 1U, 0x1FFFFFFFU, 0x20004001U, KIV_NO_MBOX}) {
        kiv_monitor(nobody, kiv_alloc(4, 5));
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        EXPECT_EQ(kiv_sender(msg.get()), nobody);
    }
}

TEST_F(KivDeath, a_cancelled_monitor_of_another_process_stays_silent)
{
    Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    const std::uint32_t cancelled = kiv_monitor(echo, kiv_alloc(4, 1));
    const std::uint32_t delivered = kiv_monitor(echo, kiv_alloc(4, 2));
    kiv_monitor(echo, kiv_alloc(4, 3));
    kiv_unmonitor(cancelled);
    peer.kill();
    const Msg msg = receive(patience);
    ASSERT_TRUE(msg);
    // The two were fired in no particular order.
    if (msg->number == 3) {
        EXPECT_TRUE(readable(static_cast<int>(patience)));
        kiv_unmonitor(delivered);
    } else {
        EXPECT_EQ(receive()->number, 3U);
    }
    EXPECT_FALSE(readable(20));
}

TEST_F(KivDeath, the_death_message_comes_behind_what_was_sent)
{
    constexpr std::uint32_t count = 20'000;
    // Enough to fill the socket, so that much of it waits in the sender when its thread ends.
    Peer peer({"burst", "sender", "own", std::to_string(count), "200", "1"});
    ASSERT_TRUE(readable(static_cast<int>(patience)));
    kiv_mbox_id_t sender = KIV_NO_MBOX;
    for (std::uint32_t number = 0; number < count; ++number) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, number);
        if (number == 0) {
            sender = kiv_sender(msg.get());
            kiv_monitor(sender, kiv_alloc(4, count));
        }
    }
    const Msg dead = receive();
    ASSERT_TRUE(dead);
    EXPECT_EQ(dead->number, count);
    EXPECT_EQ(kiv_sender(dead.get()), sender);
    EXPECT_FALSE(readable());
}

TEST_F(KivDeath, what_a_killed_process_had_sent_comes_before_its_death)
{
    Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    kiv_monitor(echo, kiv_alloc(4, 0xDEAD));
    constexpr std::uint32_t count = 100;
    for (std::uint32_t number = 0; number < count; ++number) {
        send(echo, number);
    }
    const std::uint32_t last[] = {1, count - 1};
    const Msg end(kiv_receive(last, patience, KIV_ANY_SENDER)); // all has come by now
    ASSERT_TRUE(end);
    send(echo, count);
    ASSERT_TRUE(readable());
    peer.kill();
    std::uint32_t next = 0;
    for (Msg msg = receive(); msg && msg->number != 0xDEAD; msg = receive()) {
        ASSERT_EQ(msg->number, next == count - 1 ? count : next);
        ++next;
    }
    EXPECT_GE(next, count - 1);
    EXPECT_FALSE(readable(20));
}

TEST_F(KivDeath, sigkill_at_any_moment_damages_nothing)
{
    std::mt19937 random(7);
    constexpr int rounds = 60;
    for (int round = 0; round < rounds; ++round) {
        Peer peer({"churn", "churn", "own"});
        kiv_mbox_id_t sender = KIV_NO_MBOX;
        const auto end = Clock::now() + std::chrono::seconds(20);
        std::uint32_t left = std::uniform_int_distribution<std::uint32_t>(1, 400)(random);
        while (left > 0 && Clock::now() < end) {
            const Msg msg = receive();
            ASSERT_TRUE(msg);
            ASSERT_TRUE(isIntact(*msg));
            --left;
            if (kiv_size(msg.get()) == 100'000) {
                sender = kiv_sender(msg.get());
                send(sender, 1);
            }
        }
        const kiv_mbox_id_t victim = kiv_locate("churn");
        ASSERT_NE(victim, KIV_NO_MBOX);
        kiv_monitor(victim, kiv_alloc(4, 0));
        ::kill(peer.pid(), SIGKILL);
        peer.wait();
        const auto killed = Clock::now();
        Msg msg = receive();
        for (; msg && msg->number != 0; msg = receive()) {
            ASSERT_TRUE(isIntact(*msg));
        }
        ASSERT_TRUE(msg);
        EXPECT_EQ(kiv_sender(msg.get()), victim);
        EXPECT_LT(Clock::now() - killed, promised);
        const kiv_mbox_id_t name = kiv_clone_mailbox(own, "churn");
        const kiv_mbox_id_t clone = kiv_clone_mailbox(own, "churn/clone");
        ASSERT_NE(name, KIV_NO_MBOX);
        ASSERT_NE(clone, KIV_NO_MBOX);
        kiv_delete_mailbox(name);
        kiv_delete_mailbox(clone);
        EXPECT_FALSE(readable());
    }
}

TEST_F(KivDeath, peers_killed_while_they_start_leave_no_trace)
{
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        Peer peer({"churn", "starting", "own"});
        pollfd none{-1, 0, 0};
        ::poll(&none, 1, std::uniform_int_distribution<int>(0, 12)(random)); // the moment of the kill is the test
        peer.kill();
        ASSERT_TRUE(eventually([&] {
            while (receive(0)) {
            }
            const kiv_mbox_id_t taken = kiv_clone_mailbox(own, "starting");
            return kiv_delete_mailbox(taken) == 0;
        }));
    }
}

} // namespace
