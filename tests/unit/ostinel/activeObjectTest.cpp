#include "ostinel/activeObject.h"

#include "ostinel/eventLoop.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Ostinel::ActiveObject::V1::ActiveObjectIf;
using Ostinel::EventLoop::V1::EventLoopIf;

constexpr auto deadline = 10s;

template <typename Value>
Value get(std::future<Value> future)
{
    if (future.wait_for(deadline) != std::future_status::ready) {
        throw std::runtime_error("nothing came in time");
    }
    return future.get();
}

/// Tells when the last copy of a function that holds it is gone.
struct Tell {
    std::promise<void> gone;
    ~Tell() { gone.set_value(); }
};

TEST(ActiveObject, RunsBodyThenPostsOnItsNamedThread)
{
    std::promise<void> allowed;
    std::vector<int> order; // touched on the thread alone until it is joined
    std::string name;
    auto object = ActiveObjectIf::create("a-name-longer-than-allowed",
                                         [&, wait = allowed.get_future().share()] {
                                             wait.wait();
                                             char text[64] = {};
                                             pthread_getname_np(pthread_self(), text, sizeof(text));
                                             name = text;
                                             EventLoopIf::getInstance().post([&] { order.push_back(2); });
                                             EventLoopIf::getInstance().runOnce(
                                                 0us); // the object's posts still wait for the body's end
                                             order.push_back(3);
                                         },
                                         {});
    ASSERT_TRUE(object);
    object->post([&] { order.push_back(4); });
    object->post([&] { order.push_back(5); });
    allowed.set_value();
    object.reset(); // joins behind what was posted
    EXPECT_EQ(name, "a-name-longer-t");
    EXPECT_THAT(order, testing::ElementsAre(2, 3, 4, 5));
}

TEST(ActiveObject, ExceptionOfBodyDoesNotEndTheThread)
{
    testing::internal::CaptureStderr();
    bool posted = false;
    auto object = ActiveObjectIf::create("throws", [] { throw std::runtime_error("from body"); }, {});
    object->post([&] { posted = true; });
    object.reset();
    EXPECT_TRUE(posted);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("from body"));
}

TEST(ActiveObject, DestroyedOnItsOwnThread)
{
    auto tell = std::make_shared<Tell>();
    auto ended = tell->gone.get_future();
    std::promise<std::shared_ptr<ActiveObjectIf>> self;
    auto object = ActiveObjectIf::create("own",
                                         [held = std::move(tell), me = self.get_future().share()] {
                                             // The timer's function holds the object; the thread's end takes the loop
                                             // and so `held` with it.
                                             auto owner = std::make_shared<std::shared_ptr<ActiveObjectIf>>(me.get());
                                             EventLoopIf::getInstance().addTimer(0us, [owner] { owner->reset(); });
                                             EventLoopIf::getInstance().addTimer(1h, [held] {});
                                         },
                                         {});
    self.set_value(std::move(object));
    self = {};
    EXPECT_EQ(ended.wait_for(deadline), std::future_status::ready);
}

TEST(ActiveObject, PostToEndedThreadIsDropped)
{
    std::promise<void> finishing;
    auto object = ActiveObjectIf::create("ends", [] { EventLoopIf::getInstance().stop(); }, {});
    for (;;) { // until a post is refused, which drops it here, or dropped with the queue there
        auto tell = std::make_shared<Tell>();
        auto gone = tell->gone.get_future();
        auto ran = std::make_shared<std::atomic<bool>>(false);
        object->post([tell, ran] { *ran = true; });
        tell.reset();
        ASSERT_EQ(gone.wait_for(deadline), std::future_status::ready);
        if (!*ran) {
            break;
        }
    }
    object.reset();
}

TEST(ActiveObject, ManyObjectsPostToEachOtherWhileTheyEnd)
{
    std::atomic<int> ran = 0;
    constexpr int rounds = 50;
    for (int round = 0; round < rounds; ++round) {
        auto left = ActiveObjectIf::create("left", [] {}, {});
        auto right = ActiveObjectIf::create("right", [] {}, {});
        left->post([right, &ran] { right->post([&ran] { ++ran; }); });
        right->post([&ran] { ++ran; });
        right.reset(); // the function posted to the left may hold the last reference
        left.reset();
    }
    EXPECT_EQ(ran, 2 * rounds);
}

} // namespace
