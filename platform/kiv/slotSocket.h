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
    SlotSocket(const SlotSocket&) = delete;
    SlotSocket& operator=(const SlotSocket&) = delete;

    std::uint32_t slot() const { return m_slot.number; }
    /// Tells the peers that a mailbox of the slot is gone.
    void announceDeath(kiv_mbox_id_t mailbox);
    /// Tells them that all are; then the connections end.
    void announceEnd();

private:
    Process& m_process;
    Registry::Slot m_slot;
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
    const char* handle(const ControlFrame& frame);
    const char* openData(std::uint32_t slot);
    const char* claim(std::uint32_t slot);
    const char* monitor(const ControlFrame& frame);
    bool sendDeath(std::uint32_t ref, const Monitor& monitor);

    Gate* m_gate; ///< null behind the end
    Process& m_process;
    Channel m_channel;
    pid_t m_pid = 0;
    bool m_greeted = false;
    std::uint64_t m_dataKey = 0;
    std::unordered_map<std::uint32_t, Monitor> m_monitors;
};

class Gate : public Handler, public std::enable_shared_from_this<Gate>
{
public:
    Gate(Process& process, int listening, const std::shared_ptr<Queue>& queue);

    void onEvents(std::uint32_t events) override;
    void watchWith(std::uint64_t token) { m_token = token; }

    std::shared_ptr<Queue> queue() const { return m_queue.lock(); }
    void forget(const std::shared_ptr<Visitor>& visitor) { m_visitors.erase(visitor); }
    void announceDeath(kiv_mbox_id_t mailbox);
    void endAll();

private:
    void pause();

    Process& m_process;
    const int m_listening;
    std::atomic<std::uint64_t> m_token = 0;
    std::weak_ptr<Queue> m_queue;
    std::unordered_set<std::shared_ptr<Visitor>> m_visitors;
};

} // namespace kiv
