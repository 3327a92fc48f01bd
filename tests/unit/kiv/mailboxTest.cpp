/// Mailboxes, messages and names within one process.

#include "peers.h"

#include "kiv/registry.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

extern "C" int cClientRoundTrip(void);

namespace {

using namespace kivtest;

class KivMailbox : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");

    ~KivMailbox() override { kiv_delete_mailbox(own); }
};

TEST(KivMessage, is_zeroed_and_of_allowed_size)
{
    const Msg msg(kiv_alloc(5000, 0x1234));
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->number, 0x1234U);
    EXPECT_EQ(kiv_size(msg.get()), 5000U);
    EXPECT_EQ(kiv_sender(msg.get()), KIV_NO_MBOX);
    EXPECT_EQ(kiv_receiver(msg.get()), KIV_NO_MBOX);
    const auto* bytes = reinterpret_cast<const unsigned char*>(msg.get());
    EXPECT_TRUE(std::all_of(bytes + 4, bytes + 5000, [](unsigned char byte) { return byte == 0; }));
    EXPECT_EQ(kiv_alloc(3, 1), nullptr);
    EXPECT_EQ(kiv_alloc(KIV_MAX_SIZE + 1, 1), nullptr);
    kiv_free(nullptr);
}

TEST(KivMessage, without_a_mailbox_nothing_is_received_but_sending_works)
{
    EXPECT_EQ(kiv_current_mbox(), KIV_NO_MBOX);
    EXPECT_EQ(kiv_get_fd(), -1);
    EXPECT_EQ(kiv_receive(nullptr, KIV_NO_WAIT, KIV_ANY_SENDER), nullptr);
    EXPECT_EQ(kiv_monitor(1, kiv_alloc(4, 1)), 0U);
    EXPECT_EQ(kiv_hunt("somebody", kiv_alloc(4, 1)), 0U);
    EXPECT_EQ(kiv_delete_mailbox(0x10014001), ENOENT);
    for (const kiv_mbox_id_t nobody : {0U, 1U, 0x10014001U, 0x20004001U, KIV_NO_MBOX, KIV_CURRENT_MBOX}) {
        kiv_msg* msg = kiv_alloc(4, 1);
        kiv_send(&msg, nobody, KIV_NO_MBOX);
        EXPECT_EQ(msg, nullptr);
    }
}

TEST_F(KivMailbox, ids_and_names_are_unique_and_names_are_checked)
{
    EXPECT_EQ(kiv_create_mailbox("second"), KIV_NO_MBOX);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(kiv_clone_mailbox(own, "own"), KIV_NO_MBOX);
    EXPECT_EQ(errno, EEXIST);
    for (const std::string& name : {std::string(), std::string(KIV_NAME_MAX + 1, 'x')}) {
        EXPECT_EQ(kiv_clone_mailbox(own, name.c_str()), KIV_NO_MBOX);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(kiv_clone_mailbox(own + 1, "clone"), KIV_NO_MBOX);
    EXPECT_EQ(errno, EINVAL);

    const std::vector<std::string> names = {".",   "..",       "a/b", "%2F", "/", std::string(KIV_NAME_MAX, '/'),
                                            "%%x", "\xC3\xA4", " ",   "A"};
    std::vector<kiv_mbox_id_t> ids{own};
    for (const std::string& name : names) {
        ids.push_back(kiv_clone_mailbox(own, name.c_str()));
        EXPECT_GT(ids.back(), 1U);
        EXPECT_LT(ids.back(), 0xFFF00000U) << name;
        EXPECT_EQ(kiv_locate(name.c_str()), ids.back()) << name;
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
    EXPECT_EQ(kiv_locate("a"), KIV_NO_MBOX);
}

TEST_F(KivMailbox, a_c_program_can_use_it)
{
    EXPECT_TRUE(cClientRoundTrip());
}

TEST_F(KivMailbox, the_descriptor_is_readable_exactly_while_a_message_waits)
{
    const int descriptor = kiv_get_fd();
    EXPECT_FALSE(readable());
    send(own, 1);
    send(own, 2);
    EXPECT_TRUE(readable());

    const std::array<std::uint32_t, 2> onlyTwo = {1, 2};
    const std::array<std::uint32_t, 2> onlyThree = {1, 3};
    EXPECT_EQ(kiv_receive(onlyThree.data(), 5, KIV_ANY_SENDER), nullptr);
    EXPECT_EQ(kiv_receive(nullptr, KIV_NO_WAIT, own + 1), nullptr);
    EXPECT_TRUE(readable());
    const Msg two(kiv_receive(onlyTwo.data(), KIV_NO_WAIT, KIV_ANY_SENDER));
    ASSERT_TRUE(two);
    EXPECT_EQ(two->number, 2U);
    EXPECT_TRUE(readable());
    EXPECT_EQ(receive(0)->number, 1U);
    EXPECT_FALSE(readable());
    EXPECT_EQ(kiv_get_fd(), descriptor);
}

TEST_F(KivMailbox, deleting_a_clone_drops_what_is_queued_for_it)
{
    const kiv_mbox_id_t clone = kiv_clone_mailbox(own, "clone");
    send(clone, 1);
    send(own, 2, 8, clone);
    EXPECT_EQ(kiv_delete_mailbox(clone), 0);
    EXPECT_EQ(kiv_delete_mailbox(clone), ENOENT);
    EXPECT_EQ(kiv_locate("clone"), KIV_NO_MBOX);
    send(clone, 3);
    send(own, 4, 8, clone); // its queue lives: the clone may still be the sender
    for (const std::uint32_t number : {2U, 4U}) {
        const Msg msg = receive(0);
        ASSERT_TRUE(msg);
        EXPECT_EQ(msg->number, number);
        EXPECT_EQ(kiv_sender(msg.get()), clone);
    }
    EXPECT_FALSE(readable());
    EXPECT_NE(kiv_clone_mailbox(own, "clone"), clone);
}

TEST_F(KivMailbox, a_mailbox_deleted_by_another_thread_wakes_its_receiver)
{
    std::promise<kiv_mbox_id_t> created;
    std::thread receiver([&] {
        created.set_value(kiv_create_mailbox("other"));
        EXPECT_EQ(kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER), nullptr);
        EXPECT_EQ(kiv_current_mbox(), KIV_NO_MBOX);
        EXPECT_NE(kiv_create_mailbox("other"), KIV_NO_MBOX);
    });
    EXPECT_EQ(kiv_delete_mailbox(created.get_future().get()), 0);
    receiver.join();
    EXPECT_EQ(kiv_locate("other"), KIV_NO_MBOX);
}

TEST_F(KivMailbox, threads_exchange_messages_in_order_and_die_with_a_message)
{
    constexpr std::uint32_t count = 20'000;
    std::promise<kiv_mbox_id_t> created;
    std::thread sender([&] {
        const kiv_mbox_id_t id = kiv_create_mailbox("sender");
        created.set_value(id);
        receive(); // go
        for (std::uint32_t number = 0; number < count; ++number) {
            send(own, number);
        }
    });
    const kiv_mbox_id_t id = created.get_future().get();
    kiv_monitor(id, kiv_alloc(8, count));
    send(id, 1);
    for (std::uint32_t number = 0; number <= count; ++number) {
        const Msg msg = receive();
        ASSERT_TRUE(msg);
        ASSERT_EQ(msg->number, number);
        ASSERT_EQ(kiv_sender(msg.get()), id);
    }
    sender.join();
    EXPECT_FALSE(readable());
    EXPECT_EQ(kiv_locate("sender"), KIV_NO_MBOX);
    EXPECT_NE(kiv_clone_mailbox(own, "sender"), KIV_NO_MBOX);
}

TEST_F(KivMailbox, monitors_and_hunts_can_be_cancelled_also_when_delivered)
{
    const kiv_mbox_id_t clone = kiv_clone_mailbox(own, "clone");
    const std::uint32_t early = kiv_monitor(clone, kiv_alloc(4, 1));
    const std::uint32_t late = kiv_monitor(clone, kiv_alloc(4, 2));
    const std::uint32_t kept = kiv_monitor(clone, kiv_alloc(4, 3));
    EXPECT_TRUE(early != late && late != kept && early != 0 && late != 0 && kept != 0);
    kiv_unmonitor(early);
    kiv_delete_mailbox(clone);
    kiv_unmonitor(late);
    const Msg msg = receive(0);
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->number, 3U);
    EXPECT_EQ(kiv_sender(msg.get()), clone);
    EXPECT_EQ(kiv_receiver(msg.get()), own);
    kiv_unmonitor(kept);

    const std::uint32_t found = kiv_hunt("own", kiv_alloc(4, 4));
    const std::uint32_t pending = kiv_hunt("later", kiv_alloc(4, 5));
    EXPECT_TRUE(readable());
    kiv_unhunt(found);
    kiv_unhunt(pending);
    EXPECT_NE(kiv_clone_mailbox(own, "later"), KIV_NO_MBOX);
    EXPECT_FALSE(readable());
}

TEST_F(KivMailbox, a_cancelled_monitor_is_silent_also_when_the_death_comes_meanwhile)
{
    std::promise<kiv_mbox_id_t> created;
    std::thread killer([&] {
        created.set_value(kiv_create_mailbox("killer"));
        for (Msg victim = receive(); victim && victim->number != 0; victim = receive()) {
            kiv_delete_mailbox(victim->number);
            send(kiv_sender(victim.get()), 1);
        }
    });
    const kiv_mbox_id_t id = created.get_future().get();
    for (int round = 0; round < 300; ++round) {
        const kiv_mbox_id_t clone = kiv_clone_mailbox(own, "victim");
        const std::uint32_t ref = kiv_monitor(clone, kiv_alloc(4, 0xDEAD));
        send(id, clone);
        const Msg done = round % 2 == 0 ? receive(patience, id) : nullptr;
        kiv_unmonitor(ref);
        ASSERT_TRUE(done || receive(patience, id));
        ASSERT_FALSE(receive(0)) << round;
    }
    send(id, 0);
    killer.join();
}

TEST_F(KivMailbox, a_name_is_removed_for_its_owner_only)
{
    kiv::Registry registry;
    ASSERT_EQ(registry.open(), 0);
    registry.removeName("own", own + 1);
    EXPECT_EQ(kiv_locate("own"), own);
    registry.removeName("own", own);
    EXPECT_EQ(kiv_locate("own"), KIV_NO_MBOX);
}

TEST_F(KivMailbox, a_clone_made_while_its_queue_is_deleted_leaves_nothing)
{
    for (int round = 0; round < 50; ++round) {
        std::promise<kiv_mbox_id_t> created;
        kiv_mbox_id_t clone = KIV_NO_MBOX;
        std::thread owner([&] {
            const kiv_mbox_id_t first = kiv_create_mailbox("first");
            created.set_value(first);
            clone = kiv_clone_mailbox(first, "clone");
        });
        kiv_delete_mailbox(created.get_future().get()); // or the thread's end does it first
        owner.join();
        ASSERT_EQ(kiv_locate("clone"), KIV_NO_MBOX) << round;
        ASSERT_EQ(kiv_delete_mailbox(clone), ENOENT);
    }
}

TEST_F(KivMailbox, a_hunt_finds_what_is_there_and_what_comes)
{
    kiv_hunt("own", kiv_alloc(4, 1));
    EXPECT_EQ(kiv_sender(receive(0).get()), own);
    kiv_hunt("to/come", kiv_alloc(4, 2));
    EXPECT_FALSE(readable());
    const kiv_mbox_id_t clone = kiv_clone_mailbox(own, "to/come");
    const Msg msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(msg->number, 2U);
    EXPECT_EQ(kiv_sender(msg.get()), clone);
    kiv_delete_mailbox(clone);
    EXPECT_NE(kiv_clone_mailbox(own, "to/come"), KIV_NO_MBOX);
    EXPECT_FALSE(readable()) << "a hunt delivers once";
}

TEST_F(KivMailbox, a_thousand_mailboxes_live_at_once)
{
    constexpr unsigned threads = 100;
    constexpr unsigned clones = 9;
    std::atomic<unsigned> failures = 0;
    std::vector<std::thread> owners;
    for (unsigned i = 0; i < threads; ++i) {
        owners.emplace_back([&, i] {
            const std::string name = "m" + std::to_string(i);
            const kiv_mbox_id_t first = kiv_create_mailbox(name.c_str());
            for (unsigned c = 0; c < clones; ++c) {
                if (kiv_clone_mailbox(first, (name + "/" + std::to_string(c)).c_str()) == KIV_NO_MBOX) {
                    ++failures;
                }
            }
            send(own, i);
            if (Msg end = receive(); !end) {
                ++failures;
            }
        });
    }
    std::vector<kiv_mbox_id_t> firsts;
    for (unsigned i = 0; i < threads; ++i) {
        const Msg ready = receive();
        ASSERT_TRUE(ready);
        firsts.push_back(kiv_sender(ready.get()));
    }
    for (unsigned i = 0; i < threads; ++i) {
        EXPECT_NE(kiv_locate(("m" + std::to_string(i) + "/8").c_str()), KIV_NO_MBOX);
    }
    for (const kiv_mbox_id_t first : firsts) {
        send(first, 1);
    }
    for (std::thread& owner : owners) {
        owner.join();
    }
    EXPECT_EQ(failures, 0U);
    EXPECT_EQ(kiv_locate("m5/3"), KIV_NO_MBOX);
}

} // namespace
