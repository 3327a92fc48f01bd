/// Messages between processes.

#include "peers.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// The test of fork forks with threads around, on purpose.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}

namespace {

using namespace kivtest;
using namespace std::chrono_literals;

class KivProcess : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");

    ~KivProcess() override { kiv_delete_mailbox(own); }
};

TEST_F(KivProcess, messages_of_all_sizes_come_back_whole_from_the_clone_they_went_to)
{
    const Peer peer({"echo", "echo", "1"});
    const kiv_mbox_id_t first = find("echo");
    const kiv_mbox_id_t clone = find("echo/0");
    for (const std::uint32_t size : {4U, 5U, 4096U, 65536U, 66560U, 66561U, 1'000'000U, KIV_MAX_SIZE}) {
        for (const kiv_mbox_id_t target : {first, clone}) {
            send(target, size, size);
            const Msg msg = receive();
            ASSERT_TRUE(msg);
            EXPECT_EQ(msg->number, size);
            EXPECT_EQ(kiv_size(msg.get()), size);
            EXPECT_TRUE(isIntact(*msg));
            EXPECT_EQ(kiv_sender(msg.get()), target);
            EXPECT_EQ(kiv_receiver(msg.get()), own);
        }
    }
    EXPECT_FALSE(readable());
}

TEST_F(KivProcess, large_and_small_messages_keep_their_order)
{
    // More in large messages than may be on the way at once.
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    constexpr std::uint32_t count = 24;
    for (std::uint32_t number = 0; number < count; ++number) {
        send(echo, number, number % 4 == 0 ? 9U << 20 : 100);
    }
    for (std::uint32_t number = 0; number < count; ++number) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, number);
        ASSERT_TRUE(isIntact(*msg));
    }
}

TEST_F(KivProcess, a_burst_over_clones_arrives_in_order)
{
    kiv_clone_mailbox(own, "own/1");
    kiv_clone_mailbox(own, "own/2");
    constexpr std::uint32_t count = 100'000;
    Peer peer({"burst", "sender", "own", std::to_string(count), "40", "3", "stay"});
    ASSERT_TRUE(readable(static_cast<int>(patience)));
    for (std::uint32_t number = 0; number < count; ++number) {
        ASSERT_TRUE(readable(static_cast<int>(patience)));
        const Msg msg = receive(0);
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, number);
        ASSERT_EQ(kiv_receiver(msg.get()), own + number % 3);
        ASSERT_TRUE(isIntact(*msg));
    }
    EXPECT_FALSE(readable());
    send(find("sender"), 0);
    EXPECT_EQ(peer.wait(), 0);
    EXPECT_FALSE(receive(0));
    EXPECT_FALSE(readable());
}

TEST_F(KivProcess, a_burst_waits_for_a_receiver_that_sleeps)
{
    constexpr std::uint32_t count = 100'000;
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    ::kill(peer.pid(), SIGSTOP);
    for (std::uint32_t number = 0; number < count; ++number) {
        send(echo, number, 64);
    }
    ::kill(peer.pid(), SIGCONT);
    for (std::uint32_t number = 0; number < count; ++number) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, number);
    }
}

TEST_F(KivProcess, threads_that_send_and_end_lose_nothing)
{
    constexpr std::uint32_t threads = 8;
    constexpr std::uint32_t count = 300;
    Peer peer({"threads", "t", "own", std::to_string(threads), std::to_string(count)});
    std::map<kiv_mbox_id_t, std::uint32_t> next;
    for (std::uint32_t i = 0; i < threads * count; ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg) << i;
        ASSERT_EQ(msg->number, next[kiv_sender(msg.get())]++);
    }
    EXPECT_EQ(next.size(), threads);
    EXPECT_EQ(peer.wait(), 0);
}

TEST_F(KivProcess, both_kinds_of_senders_reach_one_queue)
{
    constexpr std::uint32_t count = 5'000;
    Peer peer({"burst", "sender", "own", std::to_string(count), "100", "1"});
    std::thread local([target = own] {
        kiv_create_mailbox("local");
        for (std::uint32_t number = 0; number < count; ++number) {
            send(target, number);
        }
        receive(); // keeps the mailbox until the end
    });
    std::map<kiv_mbox_id_t, std::uint32_t> next;
    for (std::uint32_t i = 0; i < 2 * count; ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, next[kiv_sender(msg.get())]++);
    }
    send(kiv_locate("local"), 0);
    local.join();
}

TEST_F(KivProcess, a_peer_that_never_reads_is_cut_off_and_heals)
{
    Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    constexpr std::uint32_t size = 60'000;
    ::kill(peer.pid(), SIGSTOP);
    for (const auto rest : {100ms, 200ms}) {
        kiv_monitor(echo, kiv_alloc(4, 0xDEAD));
        ::testing::internal::CaptureStderr();
        std::chrono::steady_clock::time_point earliest;
        std::uint32_t sent = 0;
        for (; !readable() && sent < 200U << 20; sent += size) {
            earliest = sent <= 64U << 20 ? std::chrono::steady_clock::now() : earliest;
            send(echo, 1, size);
        }
        const std::string log = ::testing::internal::GetCapturedStderr();
        EXPECT_GT(sent, 64U << 20);
        EXPECT_LT(sent, 80U << 20);
        EXPECT_NE(log.find("more than 64 MiB waiting"), std::string::npos) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
        const Msg dead = receive();
        ASSERT_TRUE(dead);
        EXPECT_EQ(dead->number, 0xDEADU);
        EXPECT_EQ(kiv_sender(dead.get()), echo);

        kiv_hunt("echo", kiv_alloc(4, 2));
        const Msg found = receive();
        ASSERT_TRUE(found);
        EXPECT_EQ(kiv_sender(found.get()), echo);
        EXPECT_GE(std::chrono::steady_clock::now() - earliest, rest) << "it rests, longer each time";
    }
    // The next message makes a new connection, and what died of the old one can be watched again.
    kiv_monitor(echo, kiv_alloc(4, 0xDEAE));
    send(echo, 5);
    ::kill(peer.pid(), SIGCONT);
    Msg msg = receive();
    for (; msg && msg->number == 1; msg = receive()) { // what had gone out before
        EXPECT_EQ(kiv_size(msg.get()), size);
    }
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->number, 5U);
    EXPECT_FALSE(readable(20));
    peer.kill();
    EXPECT_EQ(receive()->number, 0xDEAEU);
}

TEST_F(KivProcess, names_are_unique_between_processes)
{
    Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    EXPECT_EQ(kiv_clone_mailbox(own, "echo"), KIV_NO_MBOX);
    EXPECT_EQ(errno, EEXIST);
    send(echo, 0xE4D0E4D0);
    EXPECT_EQ(peer.wait(), 0);
    EXPECT_EQ(kiv_locate("echo"), KIV_NO_MBOX);
    EXPECT_NE(kiv_clone_mailbox(own, "echo"), KIV_NO_MBOX);
}

TEST_F(KivProcess, a_hunt_finds_a_process_that_comes_later)
{
    kiv_hunt("echo", kiv_alloc(4, 1));
    EXPECT_FALSE(readable());
    const Peer peer({"echo", "echo"});
    const Msg msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(kiv_sender(msg.get()), kiv_locate("echo"));
}

TEST_F(KivProcess, a_forked_child_starts_without_mailboxes_and_leaves_the_parents_alone)
{
    send(own, 1);
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    send(echo, 2);
    const pid_t child = ::fork();
    if (child == 0) {
        bool good = kiv_current_mbox() == KIV_NO_MBOX && kiv_get_fd() == -1 && kiv_delete_mailbox(own) == ENOENT;
        good = good && kiv_locate("own") == own && kiv_create_mailbox("child") != KIV_NO_MBOX;
        send(echo, 3);
        const Msg answer = receive();
        good = good && answer && answer->number == 3;
        send(own, 4);
        // Orderly, as far as a forked test can: its mailbox, but not the parent's test.
        const Msg end = receive();
        kiv_delete_mailbox(kiv_current_mbox());
        ::_exit(good && end ? 0 : 1);
    }
    std::uint32_t numbers = 0;
    kiv_mbox_id_t childMailbox = KIV_NO_MBOX;
    for (int i = 0; i < 3; ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        numbers += msg->number;
        childMailbox = msg->number == 4 ? kiv_sender(msg.get()) : childMailbox;
    }
    EXPECT_EQ(numbers, 1U + 2U + 4U);
    EXPECT_EQ(childMailbox, kiv_locate("child"));
    kiv_monitor(childMailbox, kiv_alloc(4, 5));
    send(childMailbox, 6);
    const Msg dead = receive();
    ASSERT_TRUE(dead);
    EXPECT_EQ(dead->number, 5U);
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    send(echo, 7);
    EXPECT_EQ(receive()->number, 7U);
}

} // namespace
