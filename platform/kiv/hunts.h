/// Hunts: who waits for which name.
///
/// While there are hunts, the I/O thread watches the registry's directory of names with inotify. Where that can't be
/// had (the system limits the number of watchers), it looks every now and then. A mailbox that was cut off lately is
/// found only when its link has rested.
///
/// Threads: one lock, never held while a queue is called.
#pragma once

#include "kiv/ioThread.h"
#include "kiv/queue.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kiv {

class Process;

class Hunts
{
public:
    explicit Hunts(Process& process) : m_process(process) {}

    void add(const std::string& name, std::uint32_t ref, const std::shared_ptr<Queue>& queue);
    void cancel(std::uint32_t ref);

private:
    class Watcher;
    struct Hunt {
        std::string name;
        std::uint32_t ref;
        std::weak_ptr<Queue> queue;
    };
    void watch();
    void unwatch();
    void look();
    void lookLater(IoThread::Clock::duration delay);

    Process& m_process;
    std::mutex m_mutex;
    std::vector<Hunt> m_hunts;
    Descriptor m_inotify;
    std::uint64_t m_token = 0;
    bool m_looksLater = false;
};

} // namespace kiv
