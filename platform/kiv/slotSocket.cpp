#include "kiv/slotSocket.h"

#include "kiv/id.h"
#include "kiv/log.h"
#include "kiv/process.h"

#include <cerrno>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto acceptPause = 100ms;
/// What one peer can make this process remember.
constexpr std::size_t mostMonitors = 65'536;
constexpr int acceptsAtOnce = 64;

} // namespace

SlotSocket::SlotSocket(Process& process, Registry::Slot slot, const std::shared_ptr<Queue>& queue)
    : m_process(process), m_slot(std::move(slot)),
      m_gate(std::make_shared<Gate>(process, m_slot.listening.get(), queue)),
      m_token(process.io().add(m_slot.listening.get(), EPOLLIN, m_gate))
{
    m_gate->watchWith(m_token);
}

SlotSocket::~SlotSocket()
{
    m_process.io().remove(m_token, m_slot.listening.get());
    m_process.registry().removeSlot(m_slot.number);
    m_process.io().post([gate = m_gate] { gate->endAll(); });
}

void SlotSocket::announceDeath(kiv_mbox_id_t mailbox)
{
    m_process.io().post([gate = m_gate, mailbox] { gate->announceDeath(mailbox); });
}

void SlotSocket::announceEnd()
{
    m_process.io().post([gate = m_gate] {
        gate->announceDeath(KIV_NO_MBOX);
        gate->endAll();
    });
}

Gate::Gate(Process& process, int listening, const std::shared_ptr<Queue>& queue)
    : m_process(process), m_listening(listening), m_queue(queue)
{
}

void Gate::onEvents(std::uint32_t /*events*/)
{
    for (int i = 0; i < acceptsAtOnce; ++i) {
        Descriptor socket;
        {
            const DescriptorScope scope;
            socket = Descriptor(::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        }
        if (!socket) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
                pause();
            }
            return;
        }
        const auto visitor = std::make_shared<Visitor>(*this, m_process);
        m_visitors.insert(visitor);
        visitor->start(std::move(socket));
    }
}

/// Out of descriptors: the connections wait in the kernel meanwhile.
void Gate::pause()
{
    logLine("no descriptors left for new peers");
    m_process.io().modify(m_token, m_listening, 0);
    m_process.io().after(acceptPause, [weak = weak_from_this()] {
        if (const auto gate = weak.lock()) {
            gate->m_process.io().modify(gate->m_token, gate->m_listening, EPOLLIN);
        }
    });
}

void Gate::announceDeath(kiv_mbox_id_t mailbox)
{
    const std::vector<std::shared_ptr<Visitor>> visitors(m_visitors.begin(), m_visitors.end());
    for (const auto& visitor : visitors) {
        visitor->announceDeath(mailbox);
    }
}

void Gate::endAll()
{
    const std::vector<std::shared_ptr<Visitor>> visitors(m_visitors.begin(), m_visitors.end());
    for (const auto& visitor : visitors) {
        visitor->end(nullptr);
    }
}

Visitor::Visitor(Gate& gate, Process& process) : m_gate(&gate), m_process(process), m_channel(process.io()) {}

void Visitor::start(Descriptor socket)
{
    m_pid = peerProcess(socket.get());
    m_channel.open(std::move(socket), shared_from_this());
}

void Visitor::onEvents(std::uint32_t events)
{
    if ((events & EPOLLOUT) != 0 && m_gate != nullptr && !m_channel.flush()) {
        end(nullptr);
    }
    while (m_gate != nullptr) {
        ControlFrame frame;
        Descriptor passed;
        switch (m_channel.receive(frame, passed)) {
        case Channel::Received::frame:
            if (const char* reason = passed ? "unexpected descriptor" : handle(frame)) {
                end(reason);
            }
            break;
        case Channel::Received::none:
            return;
        case Channel::Received::closed:
            end(nullptr);
            return;
        case Channel::Received::malformed:
            end("malformed control message");
            return;
        }
    }
}

void Visitor::end(const char* reason)
{
    if (m_gate == nullptr) {
        return;
    }
    const auto self = shared_from_this();
    if (reason != nullptr) {
        pollfd state{m_channel.socket(), 0, 0};
        // What a dying process leaves half done is not worth a line.
        if (::poll(&state, 1, 0) == 0) {
            logLine("process %d cut off: %s", static_cast<int>(m_pid), reason);
        }
    }
    m_channel.close();
    Gate* gate = std::exchange(m_gate, nullptr);
    if (const auto queue = m_dataKey != 0 ? gate->queue() : nullptr) {
        queue->endPeer(m_dataKey);
    }
    gate->forget(self);
}

const char* Visitor::handle(const ControlFrame& frame)
{
    if (!m_greeted) {
        if (frame.kind != ControlKind::hello || frame.id != protocolVersion) {
            return "no hello of this version";
        }
        m_greeted = true;
        return nullptr;
    }
    switch (frame.kind) {
    case ControlKind::open:
        return openData(frame.slot);
    case ControlKind::claim:
        return claim(frame.slot);
    case ControlKind::monitor:
        return monitor(frame);
    case ControlKind::unmonitor:
        m_monitors.erase(frame.ref);
        return nullptr;
    default:
        return "unknown control message";
    }
}

const char* Visitor::openData(std::uint32_t slot)
{
    if (m_dataKey != 0) {
        return "second data connection";
    }
    if (slot != 0 && (slot > lastSlot || m_process.registry().ownerOf(slot) != m_pid)) {
        return "slot of another process";
    }
    const auto queue = m_gate->queue();
    if (!queue) {
        end(nullptr);
        return nullptr;
    }
    auto cutOff = [weak = weak_from_this(), &io = m_process.io()](const char* reason) {
        io.post([weak, reason] {
            if (const auto self = weak.lock()) {
                self->end(reason);
            }
        });
    };
    Descriptor farEnd;
    m_dataKey = queue->addPeer(m_pid, slot, std::move(cutOff), farEnd);
    if (m_dataKey == 0) {
        return queue->closed() ? nullptr : "no data connection could be made";
    }
    ControlFrame answer;
    answer.kind = ControlKind::data;
    answer.slot = slot;
    return m_channel.send(answer, std::move(farEnd)) ? nullptr : "answers are not read";
}

const char* Visitor::claim(std::uint32_t slot)
{
    const auto queue = m_gate->queue();
    if (!queue) {
        end(nullptr);
        return nullptr;
    }
    if (m_dataKey == 0 || slot == 0 || slot > lastSlot || m_process.registry().ownerOf(slot) != m_pid) {
        return "slot of another process";
    }
    queue->addProvenSlot(m_dataKey, slot);
    ControlFrame answer;
    answer.kind = ControlKind::claimed;
    answer.slot = slot;
    return m_channel.send(answer) ? nullptr : "answers are not read";
}

const char* Visitor::monitor(const ControlFrame& frame)
{
    const Monitor monitor{frame.id, frame.slot};
    if (!m_process.hasMailbox(frame.id)) {
        return sendDeath(frame.ref, monitor) ? nullptr : "answers are not read";
    }
    if (m_monitors.size() >= mostMonitors) {
        return "too many monitors";
    }
    m_monitors.insert_or_assign(frame.ref, monitor);
    return nullptr;
}

void Visitor::announceDeath(kiv_mbox_id_t mailbox)
{
    for (auto at = m_monitors.begin(); at != m_monitors.end();) {
        if (mailbox != KIV_NO_MBOX && at->second.mailbox != mailbox) {
            ++at;
            continue;
        }
        if (!sendDeath(at->first, at->second)) {
            end("answers are not read");
            return;
        }
        at = m_monitors.erase(at);
    }
}

bool Visitor::sendDeath(std::uint32_t ref, const Monitor& monitor)
{
    ControlFrame frame;
    frame.kind = ControlKind::dead;
    frame.id = monitor.mailbox;
    frame.ref = ref;
    frame.count = m_process.sentTo(monitor.slot, m_pid);
    return m_channel.send(frame);
}

} // namespace kiv
