/// Messages that are collected and travel in one packet.

#include "peers.h"

#include "kiv/loop.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kivtest;

class KivPacket : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");

    ~KivPacket() override { kiv_delete_mailbox(own); }
};

TEST_F(KivPacket, threads_that_collect_and_threads_that_do_not_keep_their_order)
{
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    const auto exchange = [echo](const std::string& name, bool collects) {
        constexpr std::uint32_t count = 3'000;
        constexpr std::array<std::uint32_t, 7> aroundTheLimit = {66'536, 66'537, 66'559, 66'560,
                                                                 66'561, 33'264, 33'265};
        kiv_create_mailbox(name.c_str());
        for (std::uint32_t number = 0; number < count;) {
            std::optional<kiv::Dispatch> dispatch;
            if (collects) {
                dispatch.emplace();
            }
            for (std::uint32_t end = number + 150; number < end; ++number) {
                send(echo, number, number % 50 == 49 ? aroundTheLimit[number / 50 % 7] : 4 + number % 7 * 200);
            }
        }
        for (std::uint32_t number = 0; number < count; ++number) {
            const Msg msg = receive();
            ASSERT_TRUE(msg);
            ASSERT_EQ(msg->number, number);
            ASSERT_TRUE(isIntact(*msg));
        }
    };
    std::vector<std::thread> threads;
    for (const bool collects : {true, false, true}) {
        threads.emplace_back(exchange, "thread" + std::to_string(threads.size()), collects);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(KivPacket, what_a_thread_collected_goes_out_while_it_blocks)
{
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    std::promise<kiv_mbox_id_t> created;
    std::promise<void> arrived;
    std::thread receiver([&] {
        created.set_value(kiv_create_mailbox("receiver"));
        for (int count = 0; count < 3 && receive(); ++count) {
        }
        arrived.set_value();
    });
    const kiv_mbox_id_t other = created.get_future().get();
    {
        const kiv::Dispatch dispatch;
        for (std::uint32_t number = 0; number < 3; ++number) {
            send(echo, number, 8, other);
        }
        EXPECT_EQ(arrived.get_future().wait_for(std::chrono::milliseconds(patience)), std::future_status::ready);
    }
    receiver.join();
}

TEST_F(KivPacket, what_was_collected_outlives_its_thread_and_its_process)
{
    constexpr std::uint32_t count = 100;
    const Peer peer({"echo", "echo"});
    const kiv_mbox_id_t echo = find("echo");
    std::thread([=, this] {
        alignas(kiv::Dispatch) std::byte unfinished[sizeof(kiv::Dispatch)];
        new (unfinished) kiv::Dispatch;
        for (std::uint32_t number = 0; number < count; ++number) {
            send(echo, number, 8, own);
        }
    }).join();
    Peer process({"packed", "packed", "own", std::to_string(count), "8"});
    EXPECT_EQ(process.wait(), 0);
    std::map<bool, std::uint32_t> next;
    for (std::uint32_t i = 0; i < 2 * count; ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, next[kiv_sender(msg.get()) == echo]++);
    }
    EXPECT_FALSE(readable());
}

TEST_F(KivPacket, one_dispatch_reaches_many_mailboxes)
{
    constexpr std::size_t each = 100;
    std::vector<std::unique_ptr<Peer>> peers;
    std::vector<kiv_mbox_id_t> mailboxes;
    for (const std::string name : {"a", "b", "c"}) {
        peers.push_back(std::make_unique<Peer>(std::vector<std::string>{"echo", name, std::to_string(each)}));
        for (std::size_t i = 0; i < each; ++i) {
            mailboxes.push_back(find(name + "/" + std::to_string(i)));
        }
    }
    {
        const kiv::Dispatch dispatch;
        for (const kiv_mbox_id_t mailbox : mailboxes) {
            send(mailbox, mailbox, 4 + mailbox % 2000);
        }
    }
    std::map<kiv_mbox_id_t, int> answers;
    for (std::size_t i = 0; i < mailboxes.size(); ++i) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        EXPECT_TRUE(isIntact(*msg));
        EXPECT_EQ(msg->number, kiv_sender(msg.get()));
        ++answers[msg->number];
    }
    EXPECT_EQ(answers.size(), mailboxes.size());
}

} // namespace
