/// What a process collects for others that don't read, and whom that holds up.

#include "peers.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kivtest;

constexpr std::uint32_t size = 65'000;

class KivFlow : public ::testing::Test
{
protected:
    ~KivFlow() override { kiv_delete_mailbox(own); }

    /// An ask; returns when it has sent all. It goes on when told to end.
    void flood(const std::string& echo, std::uint32_t count, std::uint32_t messageSize)
    {
        const std::string name = "client" + std::to_string(m_clients.size());
        m_clients.push_back(std::make_unique<Peer>(
            std::vector<std::string>{"ask", name, echo, std::to_string(count), std::to_string(messageSize), "own"}));
    }
    void waitUntilAllHaveSent()
    {
        while (m_mailboxes.size() < m_clients.size()) {
            const Msg msg = receive();
            ASSERT_TRUE(msg);
            m_mailboxes.push_back(kiv_sender(msg.get()));
        }
    }
    void expectAllAreAnswered()
    {
        for (const kiv_mbox_id_t mailbox : m_mailboxes) {
            send(mailbox, 0);
        }
        for (const auto& client : m_clients) {
            EXPECT_EQ(client->wait(), 0);
        }
    }
    /// Messages there and back, one after the other.
    void exchange(kiv_mbox_id_t echo, std::uint32_t count)
    {
        for (std::uint32_t number = 1; number <= count; ++number) {
            send(echo, number);
            const Msg msg = receive(patience, echo);
            ASSERT_TRUE(msg) << number;
            ASSERT_EQ(msg->number, number);
        }
    }
    pid_t client(std::size_t index) const { return m_clients[index]->pid(); }

    kiv_mbox_id_t own = kiv_create_mailbox("own");

private:
    std::vector<std::unique_ptr<Peer>> m_clients;
    std::vector<kiv_mbox_id_t> m_mailboxes;
};

/// With a relay between two servers and many clients.
class KivRelay : public KivFlow
{
protected:
    KivRelay() { exchange(toServer, 1); }
    ~KivRelay() override
    {
        EXPECT_LT(memoryOf(relay.pid(), "VmHWM"), maxCollected);
        exchange(toServer, 1);
        const std::string log = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(log.find("cut off"), std::string::npos) << log;
    }

    const bool isCaptured = (::testing::internal::CaptureStderr(), true); // of the peers too
    const Peer server{{"echo", "server"}};
    const Peer second{{"echo", "second"}};
    const Peer relay{{"relay", "relay", "server", "second"}};
    const kiv_mbox_id_t toSecond = find("relay/0");
    const kiv_mbox_id_t toServer = find("relay");
};

TEST_F(KivRelay, a_server_that_sleeps_is_waited_for)
{
    ::kill(server.pid(), SIGSTOP);
    for (int i = 0; i < 8; ++i) {
        flood("relay", 200, size);
    }
    waitUntilAllHaveSent();
    exchange(toSecond, 100);
    ::kill(server.pid(), SIGCONT);
    expectAllAreAnswered();
}

TEST_F(KivRelay, a_server_that_sleeps_is_waited_for_with_large_messages)
{
    ::kill(server.pid(), SIGSTOP);
    flood("relay", 3, KIV_MAX_SIZE);
    waitUntilAllHaveSent();
    exchange(toSecond, 100);
    for (int i = 0; i < 8; ++i) {
        flood("relay", 200, size);
    }
    waitUntilAllHaveSent();
    exchange(toSecond, 100);
    ::kill(server.pid(), SIGCONT);
    expectAllAreAnswered();
}

TEST_F(KivRelay, a_client_that_never_reads_its_answers_holds_up_itself_alone)
{
    flood("relay", 900, size);
    waitUntilAllHaveSent();
    ::kill(client(0), SIGSTOP);
    exchange(toServer, 200);
    exchange(toSecond, 200);
    ::kill(client(0), SIGCONT);
    expectAllAreAnswered();
}

TEST_F(KivFlow, who_receives_selectively_collects_little_and_misses_nothing)
{
    Peer selective({"selective", "selective", "own", "9", "400"});
    const Msg told = receive();
    ASSERT_TRUE(told);
    const kiv_mbox_id_t mailbox = kiv_sender(told.get());
    const std::size_t before = memoryOf(selective.pid(), "VmHWM");
    std::vector<std::unique_ptr<Peer>> senders;
    for (int i = 0; i < 9; ++i) {
        const std::string name = "sender" + std::to_string(i);
        senders.push_back(std::make_unique<Peer>(
            std::vector<std::string>{"burst", name, "selective", "400", std::to_string(size), "1", "stay"}));
        find(name);
    }
    exchange(mailbox, 200);
    EXPECT_LT(memoryOf(selective.pid(), "VmHWM") - before, maxCollected);
    send(mailbox, 0);
    EXPECT_EQ(selective.wait(), 0);
}

TEST_F(KivFlow, who_never_receives_collects_little_of_its_own_process)
{
    constexpr std::uint32_t mebibyte = 1U << 20;
    ::testing::internal::CaptureStderr();
    for (std::uint32_t number = 0; number < 100; ++number) {
        kiv_msg* msg = kiv_alloc(mebibyte, number);
        kiv_send(&msg, own, own);
    }
    ::testing::internal::GetCapturedStderr();
    std::uint32_t count = 0;
    for (Msg msg = receive(0); msg; msg = receive(0)) {
        EXPECT_EQ(msg->number, count++);
    }
    EXPECT_GE(count, 60U);
    EXPECT_LE(count, 65U);
}

} // namespace
