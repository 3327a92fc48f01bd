#include "ostinel/activeObject.h"
#include "ostinel/eventLoop.h"
#include "ostinel/kivMailboxLocator.h"
#include "ostinel/kivMailboxMonitor.h"
#include "ostinel/kivMessageSubscription.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Ostinel::ActiveObject::V1::ActiveObjectIf;
using Ostinel::KivMailboxLocator::V1::KivMailboxLocatorIf;
using Ostinel::KivMailboxMonitor::V1::KivMailboxMonitorIf;
using Ostinel::KivMessageSubscription::V1::Handler;
using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;
using Ostinel::KivMessageSubscription::V1::makeShared;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t deadlineMs = 10000;
constexpr std::uint32_t locatorNumber = 0xFFFFFF01;
constexpr std::uint32_t monitorNumber = 0xFFFFFF02;
constexpr std::uint32_t markNumber = 7;

KivMessageSubscriptionIf& table()
{
    return KivMessageSubscriptionIf::getInstance();
}

std::uint32_t monitor(kiv_mbox_id_t mbox, std::function<void(std::uint32_t)> callback)
{
    return KivMailboxMonitorIf::getInstance().monitor(mbox, std::move(callback));
}

void stopMonitor(std::uint32_t id)
{
    KivMailboxMonitorIf::getInstance().stopMonitor(id);
}

int locate(const std::string& name, std::function<void(std::uint32_t)> callback)
{
    return KivMailboxLocatorIf::getInstance().locate(name, std::move(callback));
}

/// Receives one message and hands it to its subscriber. False where none came.
bool dispatchOne(std::uint32_t timeoutMs)
{
    const auto msg = makeShared(kiv_receive(nullptr, timeoutMs, KIV_ANY_SENDER));
    Handler handler;
    if (msg && table().lookUp(msg->number, handler) == 0) {
        handler(msg);
    }
    return msg != nullptr;
}

template <typename Condition>
bool dispatchUntil(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadlineMs);
    while (!condition() && std::chrono::steady_clock::now() < end && dispatchOne(deadlineMs)) {
    }
    return condition();
}

void send(kiv_mbox_id_t to, std::uint32_t number, std::uint32_t size = 4, int fill = 0)
{
    kiv_msg* msg = kiv_alloc(size, number);
    std::memset(reinterpret_cast<char*>(msg) + 4, fill, size - 4);
    kiv_send(&msg, to, KIV_CURRENT_MBOX);
}

/// A mailbox on a thread of its own, which ends with the object.
class Peer
{
public:
    explicit Peer(const std::string& name)
    {
        run([&] { id = kiv_create_mailbox(name.c_str()); });
        EXPECT_NE(id, KIV_NO_MBOX);
    }

    void run(const std::function<void()>& function)
    {
        std::promise<void> done;
        m_thread->post([&] {
            function();
            done.set_value();
        });
        done.get_future().wait();
    }
    void end() { m_thread.reset(); }

    kiv_mbox_id_t id = KIV_NO_MBOX;

private:
    std::shared_ptr<ActiveObjectIf> m_thread = ActiveObjectIf::create("peer", [] {}, {});
};

/// A process that makes a mailbox when told to; killed at the end. Forked at once, since one that is forked beside
/// running threads can't start threads under the thread sanitizer.
class PeerProcess
{
public:
    PeerProcess()
    {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, m_ends), 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            serve();
        }
    }
    ~PeerProcess()
    {
        kill();
        ::close(m_ends[0]);
        ::close(m_ends[1]);
    }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    kiv_mbox_id_t create(const std::string& name) const
    {
        kiv_mbox_id_t id = KIV_NO_MBOX;
        EXPECT_GT(::send(m_ends[0], name.c_str(), name.size() + 1, 0), 0);
        EXPECT_EQ(::recv(m_ends[0], &id, sizeof(id), 0), static_cast<ssize_t>(sizeof(id)));
        return id;
    }

    void kill()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            EXPECT_EQ(::waitpid(m_pid, nullptr, 0), m_pid);
            m_pid = -1;
        }
    }

private:
    [[noreturn]] void serve() const
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        char name[KIV_NAME_MAX + 1] = {};
        if (::recv(m_ends[1], name, sizeof(name), 0) > 0) {
            const kiv_mbox_id_t id = kiv_create_mailbox(name);
            ::send(m_ends[1], &id, sizeof(id), 0);
        }
        for (;;) {
            ::pause();
        }
    }

    int m_ends[2] = {-1, -1};
    pid_t m_pid = -1;
};

/// The calling thread has a mailbox and collects the ids that callbacks bring.
class KivCallback : public testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(own, KIV_NO_MBOX); }

    std::function<void(std::uint32_t)> collect()
    {
        return [this](std::uint32_t id) { ids.push_back(id); };
    }

    /// Handles all that was sent to this thread so far: a mark to itself comes behind it.
    bool handleAll()
    {
        bool marked = false;
        table().subscribe(markNumber, [&](const auto&) { marked = true; });
        send(own, markNumber);
        const bool handled = dispatchUntil([&] { return marked; });
        table().unsubscribe(markNumber);
        return handled;
    }

    PeerProcess process; // before all that starts threads
    const kiv_mbox_id_t own = kiv_create_mailbox("own");
    std::vector<std::uint32_t> ids;
};

TEST_F(KivCallback, TableHasOneHandlerANumber)
{
    int called = 0;
    Handler handler;
    EXPECT_EQ(table().lookUp(5, handler), ENOENT);
    EXPECT_EQ(table().subscribe(5, [&](const auto&) { ++called; }), 0);
    EXPECT_EQ(table().subscribe(5, [&](const auto&) { called += 100; }), EEXIST);
    EXPECT_EQ(table().lookUp(5, handler), 0);
    EXPECT_EQ(table().unsubscribe(5), 0);
    EXPECT_EQ(table().unsubscribe(5), ENOENT);
    handler(makeShared(kiv_alloc(4, 5))); // the copy is whoever's looked it up
    EXPECT_EQ(called, 1);
    std::thread([&] { EXPECT_EQ(table().subscribe(5, handler), 0); }).join();
    EXPECT_EQ(table().lookUp(5, handler), ENOENT) << "each thread has a table of its own";
}

TEST_F(KivCallback, LocatesWhatIsThereAndWhatComesLater)
{
    Peer early("early");
    EXPECT_EQ(locate("early", collect()), 0);
    EXPECT_EQ(locate("late", collect()), 0);
    EXPECT_EQ(locate("late", collect()), 0);
    EXPECT_THAT(ids, IsEmpty()) << "never inside the call";
    EXPECT_TRUE(dispatchUntil([&] { return !ids.empty(); }));
    EXPECT_TRUE(handleAll());
    EXPECT_THAT(ids, ElementsAre(early.id));
    const kiv_mbox_id_t late = process.create("late");
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 3; }));
    EXPECT_THAT(ids, ElementsAre(early.id, late, late));
    EXPECT_TRUE(handleAll());
    EXPECT_EQ(ids.size(), 3U) << "each once";
}

TEST_F(KivCallback, LocateTellsWhatCannotBeLookedFor)
{
    for (const std::string& bad : {std::string(), std::string(129, 'x'), std::string("a\0b", 3)}) {
        EXPECT_EQ(locate(bad, collect()), EINVAL);
    }
    std::thread([&] {
        EXPECT_NE(locate("own", collect()), 0) << "no mailbox to hear of it";
        EXPECT_EQ(monitor(own, collect()), 0xFFFFFFFFU);
    }).join();
    EXPECT_EQ(table().subscribe(locatorNumber, [](const auto&) {}), 0);
    EXPECT_EQ(locate("own", collect()), EEXIST);
    EXPECT_EQ(table().unsubscribe(locatorNumber), 0);
    EXPECT_EQ(locate("own", collect()), 0);
    EXPECT_TRUE(dispatchUntil([&] { return !ids.empty(); }));
    EXPECT_EQ(table().unsubscribe(locatorNumber), 0);
    EXPECT_EQ(locate("own", collect()), 0) << "enters its number anew";
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 2; }));
}

TEST_F(KivCallback, MonitorsThreadsProcessesAndTheDead)
{
    Peer thread("thread");
    const kiv_mbox_id_t processId = process.create("process");
    EXPECT_NE(monitor(thread.id, collect()), 0xFFFFFFFFU);
    EXPECT_NE(monitor(processId, collect()), 0xFFFFFFFFU);
    EXPECT_TRUE(handleAll());
    EXPECT_THAT(ids, IsEmpty());
    thread.end();
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 1; }));
    process.kill();
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 2; }));
    EXPECT_NE(monitor(thread.id, collect()), 0xFFFFFFFFU);
    EXPECT_EQ(ids.size(), 2U) << "never inside the call";
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 3; }));
    EXPECT_THAT(ids, ElementsAre(thread.id, processId, thread.id));
}

TEST_F(KivCallback, DeathComesBehindTheLastMessage)
{
    Peer peer("peer");
    monitor(peer.id, collect());
    int before = 0;
    table().subscribe(9, [&](const auto&) { before += ids.empty() ? 1 : 0; });
    peer.run([&] {
        for (int i = 0; i < 100; ++i) {
            send(own, 9);
        }
    });
    peer.end();
    EXPECT_TRUE(dispatchUntil([&] { return !ids.empty(); }));
    EXPECT_EQ(before, 100);
}

TEST_F(KivCallback, StoppedMonitorIsSilent)
{
    Peer peer("peer");
    const std::uint32_t kept = monitor(peer.id, collect());
    const std::uint32_t stopped = monitor(peer.id, [&](std::uint32_t) { FAIL(); });
    const std::uint32_t late = monitor(peer.id, [&](std::uint32_t) { FAIL(); });
    EXPECT_NE(kept, stopped);
    stopMonitor(stopped);
    stopMonitor(stopped);
    stopMonitor(0);
    stopMonitor(0xFFFFFFFF);
    std::thread([&] { stopMonitor(kept); }).join(); // another thread's: unknown there
    peer.end();
    pollfd readable = {kiv_get_fd(), POLLIN, 0};
    ASSERT_EQ(::poll(&readable, 1, deadlineMs), 1);
    stopMonitor(late); // its message may be in the queue already
    EXPECT_TRUE(dispatchUntil([&] { return !ids.empty(); }));
    EXPECT_TRUE(handleAll());
    EXPECT_THAT(ids, ElementsAre(peer.id));
    stopMonitor(kept);
}

TEST_F(KivCallback, StoppedInsideACallback)
{
    Peer peer("peer");
    std::vector<std::uint32_t> monitors;
    const auto stopOthers = [&](std::uint32_t id) {
        ids.push_back(id);
        for (const std::uint32_t each : monitors) {
            stopMonitor(each); // its own has fired: ignored
        }
        monitor(id, collect());
    };
    monitors = {monitor(peer.id, stopOthers), monitor(peer.id, stopOthers)};
    peer.end();
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 2; }));
    EXPECT_TRUE(handleAll());
    EXPECT_THAT(ids, ElementsAre(peer.id, peer.id));
}

/// Any peer, the monitored one included, may send the reserved numbers with any bytes.
TEST_F(KivCallback, ForgedMessagesHaveNoEffect)
{
    Peer peer("peer");
    monitor(peer.id, collect());
    locate("later", collect());
    peer.run([&] {
        for (const std::uint32_t number : {locatorNumber, monitorNumber}) {
            for (const std::uint32_t size : {4U, 5U, 8U, 11U, 12U, 13U, 16U, 1000U}) {
                for (const int fill : {0, 1, 0xff}) {
                    send(own, number, size, fill);
                }
            }
        }
        send(own, 9);
    });
    bool all = false;
    table().subscribe(9, [&](const auto&) { all = true; });
    EXPECT_TRUE(dispatchUntil([&] { return all; }));
    EXPECT_THAT(ids, IsEmpty());

    const Peer later("later");
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 1; }));
    peer.end();
    EXPECT_TRUE(dispatchUntil([&] { return ids.size() == 2; }));
    EXPECT_THAT(ids, ElementsAre(later.id, peer.id)) << "the real ones still count";
}

/// A true message counts once, and a monitor's only from the mailbox that it is about.
TEST_F(KivCallback, ReplayedMessagesHaveNoEffect)
{
    Peer peer("peer");
    Peer other("other");
    monitor(peer.id, collect());
    Handler handler;
    ASSERT_EQ(table().lookUp(monitorNumber, handler), 0);
    peer.end();
    const auto real = makeShared(kiv_receive(nullptr, deadlineMs, KIV_ANY_SENDER));
    ASSERT_TRUE(real);
    ASSERT_EQ(real->number, monitorNumber);
    const auto replay = [&] {
        kiv_msg* copy = kiv_alloc(kiv_size(real.get()), real->number);
        std::memcpy(copy, real.get(), kiv_size(real.get()));
        kiv_send(&copy, own, KIV_CURRENT_MBOX);
    };
    other.run(replay);
    EXPECT_TRUE(dispatchOne(deadlineMs));
    EXPECT_THAT(ids, IsEmpty()) << "from another mailbox";
    handler(real);
    handler(real);
    EXPECT_THAT(ids, ElementsAre(peer.id));
}

/// What the loop reports while messages wait and another descriptor is ready all the time: 'm' a message, 'o' the
/// other.
class KivRow : public KivCallback
{
protected:
    ~KivRow() override
    {
        loop.removeFd(kiv_get_fd());
        loop.removeFd(other);
        ::close(other);
        handleAll();
    }

    void queue(int count) const
    {
        for (int i = 0; i < count; ++i) {
            send(own, markNumber);
        }
    }
    /// `onMessage` is called behind each message with the count of all so far.
    void watch(std::function<void(std::size_t)> onMessage)
    {
        ASSERT_EQ(loop.addFd(other, EPOLLIN, [this](int) { reports += 'o'; }), 0);
        ASSERT_EQ(loop.addFd(kiv_get_fd(), EPOLLIN,
                             [this, onMessage = std::move(onMessage)](int) {
                                 const auto msg = makeShared(kiv_receive(nullptr, KIV_NO_WAIT, KIV_ANY_SENDER));
                                 EXPECT_TRUE(msg) << "a report of its own for each";
                                 reports += 'm';
                                 onMessage(count('m'));
                             }),
                  0);
    }
    std::size_t count(char report) const
    {
        return static_cast<std::size_t>(std::count(reports.begin(), reports.end(), report));
    }
    template <typename Condition>
    void runUntil(Condition condition)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(deadlineMs);
        while (!condition() && std::chrono::steady_clock::now() < end) {
            loop.runOnce(std::chrono::milliseconds(100));
        }
        EXPECT_TRUE(condition());
    }

    Ostinel::EventLoop::V1::EventLoopIf& loop = Ostinel::EventLoop::V1::EventLoopIf::getInstance();
    const int other = ::eventfd(1, EFD_CLOEXEC);
    std::string reports;
};

TEST_F(KivRow, IsLimitedAndOthersHaveTheirTurn)
{
    constexpr std::size_t limit = 64;
    queue(200);
    watch([](std::size_t) {});
    runUntil([this] { return count('m') == 200; });
    EXPECT_THAT(reports, testing::HasSubstr(std::string(limit, 'm')));
    EXPECT_THAT(reports, testing::Not(testing::HasSubstr(std::string(limit + 1, 'm'))));
}

TEST_F(KivRow, EndsWithACallbackThatRemovesItselfOrThrows)
{
    queue(3);
    watch([this](std::size_t messages) {
        if (messages == 2) {
            loop.removeFd(kiv_get_fd());
        }
    });
    runUntil([this] { return count('o') > 2; });
    EXPECT_EQ(count('m'), 2U);
    EXPECT_THAT(reports, testing::HasSubstr("mm"));

    loop.removeFd(other);
    reports.clear();
    queue(2);
    watch([](std::size_t messages) {
        if (messages == 2) {
            throw std::runtime_error("from a message");
        }
    });
    testing::internal::CaptureStderr();
    runUntil([this] { return count('m') == 3; });
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("from a message"));
    EXPECT_THAT(reports, testing::HasSubstr("mmo"));
}

TEST_F(KivRow, EndsWithTheLoop)
{
    queue(3);
    watch([this](std::size_t messages) {
        if (messages == 2) {
            loop.stop();
        }
    });
    loop.run();
    EXPECT_EQ(count('m'), 2U);
    EXPECT_THAT(reports, testing::EndsWith("mm"));
}

TEST_F(KivCallback, ThreadsMayEndWithCallbacksPending)
{
    const auto marker = std::make_shared<int>(0);
    std::thread([&] {
        KivMailboxLocatorIf::getInstance(); // before there is a mailbox
        KivMailboxMonitorIf::getInstance();
        ASSERT_NE(kiv_create_mailbox("pending"), KIV_NO_MBOX);
        EXPECT_EQ(locate("never", [marker](std::uint32_t) {}), 0);
        EXPECT_NE(monitor(own, [marker](std::uint32_t) {}), 0xFFFFFFFFU);
        table().subscribe(9, [marker](const auto&) {});
    }).join();
    EXPECT_EQ(marker.use_count(), 1);
}

} // namespace
