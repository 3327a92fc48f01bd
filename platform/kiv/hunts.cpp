#include "kiv/hunts.h"

#include "kiv/process.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto lookInterval = 50ms;

} // namespace

class Hunts::Watcher : public Handler
{
public:
    explicit Watcher(Hunts& hunts) : m_hunts(hunts) {}

    void onEvents(std::uint32_t /*events*/) override
    {
        alignas(inotify_event) std::array<char, 4096> events;
        {
            // Which names came doesn't matter: there are few hunts at a time.
            const std::lock_guard lock(m_hunts.m_mutex);
            while (m_hunts.m_inotify && ::read(m_hunts.m_inotify.get(), events.data(), events.size()) > 0) {
            }
        }
        m_hunts.look();
    }

private:
    Hunts& m_hunts;
};

void Hunts::add(const std::string& name, std::uint32_t ref, const std::shared_ptr<Queue>& queue)
{
    {
        const std::lock_guard lock(m_mutex);
        m_hunts.push_back({name, ref, queue});
        watch();
    }
    // The name may have been there before.
    look();
}

void Hunts::cancel(std::uint32_t ref)
{
    const std::lock_guard lock(m_mutex);
    std::erase_if(m_hunts, [ref](const Hunt& hunt) { return hunt.ref == ref || hunt.queue.expired(); });
    unwatch();
}

void Hunts::watch()
{
    if (m_inotify) {
        return;
    }
    {
        const DescriptorScope scope;
        m_inotify = Descriptor(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    }
    const std::string directory = "/proc/self/fd/" + std::to_string(m_process.registry().nameDirectory());
    if (m_inotify && ::inotify_add_watch(m_inotify.get(), directory.c_str(), IN_CREATE | IN_MOVED_TO) >= 0) {
        m_token = m_process.io().add(m_inotify.get(), EPOLLIN, std::make_shared<Watcher>(*this));
        if (m_token != 0) {
            return;
        }
    }
    m_inotify.reset();
    lookLater(lookInterval);
}

void Hunts::unwatch()
{
    if (m_hunts.empty() && m_inotify) {
        m_process.io().remove(m_token, m_inotify.get());
        m_inotify.reset();
    }
}

/// With the lock held.
void Hunts::lookLater(IoThread::Clock::duration delay)
{
    if (std::exchange(m_looksLater, true)) {
        return;
    }
    m_process.io().after(delay, [this] {
        {
            const std::lock_guard lock(m_mutex);
            m_looksLater = false;
            if (!m_hunts.empty() && !m_inotify) {
                lookLater(lookInterval);
            }
        }
        look();
    });
}

void Hunts::look()
{
    std::set<std::string> names;
    {
        const std::lock_guard lock(m_mutex);
        for (const Hunt& hunt : m_hunts) {
            names.insert(hunt.name);
        }
    }
    for (const std::string& name : names) {
        const kiv_mbox_id_t mailbox = m_process.locate(name);
        if (mailbox == KIV_NO_MBOX) {
            continue;
        }
        if (const auto rest = m_process.restOf(mailbox); rest > rest.zero()) {
            const std::lock_guard lock(m_mutex);
            lookLater(rest);
            continue;
        }
        std::vector<Hunt> over;
        {
            const std::lock_guard lock(m_mutex);
            const auto own = std::stable_partition(m_hunts.begin(), m_hunts.end(),
                                                   [&](const Hunt& hunt) { return hunt.name != name; });
            std::move(own, m_hunts.end(), std::back_inserter(over));
            m_hunts.erase(own, m_hunts.end());
            unwatch();
        }
        for (const Hunt& hunt : over) {
            if (const auto queue = hunt.queue.lock()) {
                queue->deliver(hunt.ref, mailbox);
            }
        }
    }
}

} // namespace kiv
