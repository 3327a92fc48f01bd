#include "ostinel/activeObject.h"

#include "ostinel/eventLoop.h"
#include "ostinel/guarded.h"
#include "ostinel/postQueue.h"

#include <pthread.h>
#include <sys/epoll.h>
#include <system_error>
#include <thread>
#include <utility>

namespace Ostinel::ActiveObject::V1 {
namespace {

using EventLoop::V1::EventLoopIf;

constexpr std::size_t longestThreadName = 15;

void serve(const std::shared_ptr<PostQueue>& queue)
{
    EventLoopIf& loop = EventLoopIf::getInstance();
    const int error = loop.addFd(queue->fd(), EPOLLIN, [queue](int) { queue->runNext(); });
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "the thread's queue");
    }
    loop.run();
    loop.removeFd(queue->fd());
}

/// Holds nothing of the object, which may be gone long before the thread ends.
void threadMain(const std::string& name, std::function<void()> body, const std::shared_ptr<PostQueue>& queue)
{
    pthread_setname_np(pthread_self(), name.substr(0, longestThreadName).c_str());
    guarded("a thread's body", body);
    body = nullptr;
    guarded("a thread's event loop", [&queue] { serve(queue); });
    queue->close();
}

/// The queue is the object's own, not the loop's: posts wait until the body has returned, even if that runs the loop.
class ActiveObject final : public ActiveObjectIf
{
public:
    ActiveObject(const std::string& name, std::function<void()> body)
        : m_thread(threadMain, name, std::move(body), m_queue)
    {
    }

    ~ActiveObject() override
    {
        const auto stopLoop = [] { EventLoopIf::getInstance().stop(); };
        if (m_thread.get_id() != std::this_thread::get_id()) {
            m_queue->post(stopLoop); // behind what was posted before
            m_thread.join();
            return;
        }
        m_thread.detach();
        if (!m_queue->isClosed()) { // closed: the thread is ending and its loop perhaps gone
            stopLoop();
        }
    }

    ActiveObject(const ActiveObject&) = delete;
    ActiveObject& operator=(const ActiveObject&) = delete;

    void post(std::function<void()> function) override { m_queue->post(std::move(function)); }

private:
    std::shared_ptr<PostQueue> m_queue = std::make_shared<PostQueue>();
    std::thread m_thread;
};

} // namespace

std::shared_ptr<ActiveObjectIf> ActiveObjectIf::create(const std::string& name, std::function<void()> body,
                                                       SchedulingPolicy /*policy*/)
{
    try {
        return std::make_shared<ActiveObject>(name, std::move(body));
    } catch (const std::system_error&) {
        return nullptr;
    }
}

} // namespace Ostinel::ActiveObject::V1
