#include "ostinel/eventLoop.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Ostinel::EventLoop::V1::EventLoopIf;

constexpr auto deadline = 10s;

EventLoopIf& loop()
{
    return EventLoopIf::getInstance();
}

template <typename Condition>
bool runUntil(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition() && std::chrono::steady_clock::now() < end) {
        loop().runOnce(100ms);
    }
    return condition();
}

/// Two connected sockets; what is written to `far` can be read from `near`.
struct Pair {
    Pair() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0); }
    ~Pair()
    {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    int near() const { return ends[0]; }
    void write() const { EXPECT_EQ(::write(ends[1], "x", 1), 1); }
    void read() const
    {
        char byte = 0;
        EXPECT_EQ(::read(ends[0], &byte, 1), 1);
    }

    std::array<int, 2> ends = {};
};

TEST(EventLoop, DescriptorIsReportedWhileReadable)
{
    const Pair pair;
    int reports = 0;
    ASSERT_EQ(loop().addFd(pair.near(), EPOLLIN,
                           [&](int fd) {
                               EXPECT_EQ(fd, pair.near());
                               ++reports;
                               pair.read(); // one byte a report: the rest is reported again
                           }),
              0);
    loop().runOnce(0us);
    EXPECT_EQ(reports, 0);
    for (int i = 0; i < 3; ++i) {
        pair.write();
    }
    EXPECT_TRUE(runUntil([&] { return reports == 3; }));
    loop().runOnce(0us);
    EXPECT_EQ(reports, 3);
    EXPECT_EQ(loop().removeFd(pair.near()), 0);
    pair.write();
    loop().runOnce(0us);
    EXPECT_EQ(reports, 3);
}

TEST(EventLoop, DescriptorErrors)
{
    const Pair pair;
    const auto nothing = [](int) {};
    EXPECT_EQ(loop().addFd(-1, EPOLLIN, nothing), EBADF);
    EXPECT_EQ(loop().addFd(9999, EPOLLIN, nothing), EBADF);
    EXPECT_EQ(loop().addFd(pair.near(), EPOLLIN, nothing), 0);
    EXPECT_EQ(loop().addFd(pair.near(), EPOLLOUT, nothing), EEXIST);
    EXPECT_EQ(loop().modifyFd(pair.ends[1], EPOLLIN), ENOENT);
    EXPECT_EQ(loop().removeFd(pair.ends[1]), ENOENT);
    EXPECT_EQ(loop().removeFd(pair.near()), 0);
    EXPECT_EQ(loop().removeFd(pair.near()), ENOENT);
}

TEST(EventLoop, ModifiedEventsCount)
{
    const Pair pair;
    int reports = 0;
    ASSERT_EQ(loop().addFd(pair.near(), EPOLLIN,
                           [&](int) {
                               ++reports;
                               loop().modifyFd(pair.near(), 0);
                           }),
              0);
    loop().runOnce(0us);
    EXPECT_EQ(reports, 0);
    EXPECT_EQ(loop().modifyFd(pair.near(), EPOLLOUT), 0);
    EXPECT_TRUE(runUntil([&] { return reports == 1; }));
    loop().runOnce(0us);
    EXPECT_EQ(reports, 1) << "no events are asked for any more";
    loop().removeFd(pair.near());
}

TEST(EventLoop, CallbackRemovesItselfAndOthersAndAddsAnew)
{
    const Pair first;
    const Pair second;
    first.write();
    second.write();
    auto alive = std::make_shared<int>(0);
    int removedOther = 0;
    int again = 0;
    const auto callback = [&, alive](int fd) {
        // Whichever of the two comes first removes both: the other one must not be called, though it is ready.
        EXPECT_EQ(loop().removeFd(first.near()), 0);
        EXPECT_EQ(loop().removeFd(second.near()), 0);
        ++removedOther;
        EXPECT_EQ(loop().addFd(fd, EPOLLIN,
                               [&](int again_fd) {
                                   ++again;
                                   loop().removeFd(again_fd);
                               }),
                  0);
        ++*alive; // what the callback holds is there to its end
    };
    ASSERT_EQ(loop().addFd(first.near(), EPOLLIN, callback), 0);
    ASSERT_EQ(loop().addFd(second.near(), EPOLLIN, callback), 0);
    EXPECT_TRUE(runUntil([&] { return again == 1; }));
    EXPECT_EQ(removedOther, 1);
    EXPECT_EQ(*alive, 1);
}

TEST(EventLoop, TimersFireOnceInOrderAndNotEarly)
{
    std::vector<int> fired;
    const auto start = std::chrono::steady_clock::now();
    loop().addTimer(20ms, [&] {
        EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
        fired.push_back(3);
    });
    loop().addTimer(10ms, [&] { fired.push_back(2); });
    loop().addTimer(-5s, [&] { fired.push_back(1); });
    const std::uint32_t far = loop().addTimer(std::chrono::microseconds::max(), [&] { fired.push_back(4); });
    EXPECT_TRUE(runUntil([&] { return fired.size() == 3; }));
    EXPECT_THAT(fired, testing::ElementsAre(1, 2, 3));
    loop().removeTimer(far);
    loop().runOnce(0us);
    EXPECT_EQ(fired.size(), 3U);
}

TEST(EventLoop, TimersAreRemovedAlsoByCallbacks)
{
    int fired = 0;
    std::uint32_t self = 0;
    std::uint32_t other = 0;
    self = loop().addTimer(0us, [&] {
        ++fired;
        loop().removeTimer(self); // has fired: ignored
        loop().removeTimer(other);
        loop().addTimer(0us, [&] { fired += 10; });
    });
    other = loop().addTimer(0us, [&] { fired += 100; });
    EXPECT_NE(self, 0U);
    EXPECT_NE(other, self);
    loop().removeTimer(0);
    loop().removeTimer(4711);
    EXPECT_TRUE(runUntil([&] { return fired == 11; }));
    loop().runOnce(0us);
    EXPECT_EQ(fired, 11);
}

TEST(EventLoop, PostsOfAThreadRunInOrder)
{
    constexpr int posters = 3;
    constexpr int posts = 2000;
    EventLoopIf& target = loop();
    std::array<int, posters> next = {};
    int total = 0;
    std::vector<std::thread> threads;
    for (int poster = 0; poster < posters; ++poster) {
        threads.emplace_back([&, poster] {
            for (int i = 0; i < posts; ++i) {
                target.post([&, poster, i] {
                    EXPECT_EQ(next[static_cast<std::size_t>(poster)]++, i);
                    ++total;
                });
            }
        });
    }
    EXPECT_TRUE(runUntil([&] { return total == posters * posts; }));
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(EventLoop, BusyCallbacksLetEachOtherRun)
{
    const Pair pair;
    pair.write(); // never read: ready for ever
    int reports = 0;
    bool timer = false;
    std::function<void()> repost = [&] { loop().post(repost); };
    ASSERT_EQ(loop().addFd(pair.near(), EPOLLIN, [&](int) { ++reports; }), 0);
    loop().post(repost);
    loop().addTimer(1ms, [&] { timer = true; });
    EXPECT_TRUE(runUntil([&] { return timer && reports > 3; })) << "runOnce returns in spite of both";
    loop().removeFd(pair.near());
}

TEST(EventLoop, StopEndsRunFromAnotherThreadAndBeforehand)
{
    EventLoopIf& target = loop();
    target.stop();
    target.run(); // returns at once, and the stop is used up
    int posted = 0;
    target.post([&] { ++posted; });
    target.post([&] {
        ++posted;
        target.stop();
    });
    target.post([&] { ++posted; });
    target.run();
    EXPECT_EQ(posted, 2);

    std::thread other([&] { target.stop(); });
    target.run();
    other.join();
    target.runOnce(0us);
    EXPECT_EQ(posted, 3) << "a stop loses no post";
}

TEST(EventLoop, ExceptionsAreReportedAndDropped)
{
    const Pair pair;
    pair.write();
    testing::internal::CaptureStderr();
    int calls = 0;
    ASSERT_EQ(loop().addFd(pair.near(), EPOLLIN,
                           [&](int fd) {
                               ++calls;
                               loop().removeFd(fd);
                               throw std::runtime_error("from descriptor");
                           }),
              0);
    loop().addTimer(0us, [&] {
        ++calls;
        throw std::runtime_error("from timer");
    });
    loop().post([&] {
        ++calls;
        throw 5;
    });
    EXPECT_TRUE(runUntil([&] { return calls == 3; }));
    const std::string reported = testing::internal::GetCapturedStderr();
    EXPECT_THAT(reported, testing::HasSubstr("from descriptor"));
    EXPECT_THAT(reported, testing::HasSubstr("from timer"));
    EXPECT_THAT(reported, testing::HasSubstr("posted function"));
}

TEST(EventLoop, EachThreadHasItsOwnAndItGoesWithTheThread)
{
    const auto marker = std::make_shared<int>(0);
    EventLoopIf* others = nullptr;
    std::thread([&] {
        others = &loop();
        EXPECT_EQ(others, &loop());
        const int fd = ::dup(0);
        // What a callback holds may use the loop when it goes with it.
        struct Holder {
            std::shared_ptr<int> marker;
            ~Holder() { loop().removeTimer(1); }
        };
        const auto holder = std::make_shared<Holder>(Holder{marker});
        const Pair pair;
        loop().addFd(pair.near(), EPOLLIN, [holder](int) {});
        loop().addTimer(1h, [holder] {});
        loop().addTimer(2h, [holder] {});
        loop().post([holder] {});
        ::close(fd);
    }).join();
    EXPECT_NE(others, &loop());
    EXPECT_EQ(marker.use_count(), 1);
}

} // namespace
