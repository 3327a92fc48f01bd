/// The owner's side of a slot: its listening socket and the peers that come to it.
///
/// SlotSocket is the slot's existence. The queue holds it, and so does every claim of the slot that a receiver has not
/// yet confirmed: it checks a claim by looking who listens on the slot, so the socket outlives a thread that sends and
/// ends at once.
///
/// Gate accepts the connections and holds one Visitor for each. A visitor says hello first; what it asks for is in
/// channel.h.
///
/// Threads: SlotSocket is made and destroyed anywhere; Gate and Visitor live on the I/O thread, without locks.
#pragma once

#include "kiv/channel.h"
#include "kiv/queue.h"
#include "kiv/registry.h"

#include <deque>
#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace kiv {

class Gate;
class Process;

class SlotSocket
{
public:
    /// Starts to listen.
    SlotSocket(Process& process, Registry::Slot slot, const std::shared_ptr<Queue>& queue);
    ~SlotSocket();
    /// Whether it does.
    explicit operator bool() const { return m_token != 0; }
    SlotSocket(const SlotSocket&) = delete;
    SlotSocket& operator=(const SlotSocket&) = delete;

    std::uint32_t slot() const { return m_number; }
    /// Tells the peers that a mailbox of the slot is gone.
    void announceDeath(kiv_mbox_id_t mailbox);
    /// Tells them that all are; then the connections end.
    void announceEnd();

private:
    Process& m_process;
    const std::uint32_t m_number;
    std::shared_ptr<Gate> m_gate;
    std::uint64_t m_token;
};

/// One accepted control connection.
class Visitor : public Handler, public std::enable_shared_from_this<Visitor>
{
public:
    Visitor(Gate& gate, Process& process);
    void start(Descriptor socket);

    void onEvents(std::uint32_t events) override;
    /// Ends the connection; `reason` is for the log, null where there is nothing to tell.
    void end(const char* reason);
    /// Answers the monitors of this mailbox, or all of them with KIV_NO_MBOX.
    void announceDeath(kiv_mbox_id_t mailbox);

private:
    struct Monitor {
        kiv_mbox_id_t mailbox;
        std::uint32_t slot; ///< of the queue that waits
    };
    /// Null, or why the connection ends.
    const char* take(const ControlFrame& frame);
    const char* handle(const ControlFrame& frame);
    const char* handleProven(const ControlFrame& frame);
    const char* openData(std::uint32_t slot);
    const char* claim(std::uint32_t slot);
    void resume();
    const char* monitor(const ControlFrame& frame);
    bool sendDeath(std::uint32_t ref, const Monitor& monitor);

    Gate* m_gate; ///< null behind the end
    Process& m_process;
    Channel m_channel;
    pid_t m_pid = 0;
    bool m_greeted = false;
    std::uint64_t m_dataKey = 0;
    std::deque<ControlFrame> m_deferred; ///< waiting, in their order, until the first of them can be checked
    std::unordered_map<std::uint32_t, Monitor> m_monitors;
};

class Gate : public Handler, public std::enable_shared_from_this<Gate>
{
public:
    Gate(Process& process, Descriptor listening, const std::shared_ptr<Queue>& queue);

    void onEvents(std::uint32_t events) override;
    void watchWith(std::uint64_t token) { m_token = token; }

    std::shared_ptr<Queue> queue() const { return m_queue.lock(); }
    void forget(const std::shared_ptr<Visitor>& visitor) { m_visitors.erase(visitor); }
    void announceDeath(kiv_mbox_id_t mailbox);
    void endAll();
    /// Nobody is accepted any more.
    void close();
    int listening() const { return m_listening.get(); }

private:
    void pause();

    Process& m_process;
    Descriptor m_listening; ///< closed on the I/O thread, so that it never accepts on another's descriptor
    std::atomic<std::uint64_t> m_token = 0;
    std::weak_ptr<Queue> m_queue;
    std::unordered_set<std::shared_ptr<Visitor>> m_visitors;
};

} // namespace kiv
