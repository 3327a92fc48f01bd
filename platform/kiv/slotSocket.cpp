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
constexpr auto helloPatience = 5s;
constexpr auto checkRetry = 10ms;
constexpr std::size_t mostDeferred = 65'536;
/// What one peer can make this process remember.
constexpr std::size_t mostMonitors = 65'536;
constexpr int acceptsAtOnce = 64;

} // namespace

SlotSocket::SlotSocket(Process& process, Registry::Slot slot, const std::shared_ptr<Queue>& queue)
    : m_process(process), m_number(slot.number),
      m_gate(std::make_shared<Gate>(process, std::move(slot.listening), queue)),
      m_token(process.io().add(m_gate->listening(), EPOLLIN, m_gate))
{
    m_gate->watchWith(m_token);
}

SlotSocket::~SlotSocket()
{
    m_process.io().remove(m_token, m_gate->listening());
    m_process.registry().removeSlot(m_number);
    m_process.io().post([gate = m_gate] { gate->close(); });
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

Gate::Gate(Process& process, Descriptor listening, const std::shared_ptr<Queue>& queue)
    : m_process(process), m_listening(std::move(listening)), m_queue(queue)
{
}

void Gate::onEvents(std::uint32_t /*events*/)
{
    for (int i = 0; i < acceptsAtOnce; ++i) {
        Descriptor socket;
        {
            const DescriptorScope scope;
            socket = Descriptor(::accept4(m_listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
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
    m_process.io().modify(m_token, m_listening.get(), 0);
    m_process.io().after(acceptPause, [weak = weak_from_this()] {
        if (const auto gate = weak.lock()) {
            gate->m_process.io().modify(gate->m_token, gate->listening(), EPOLLIN);
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

void Gate::close()
{
    endAll();
    m_listening.reset();
}

Visitor::Visitor(Gate& gate, Process& process) : m_gate(&gate), m_process(process), m_channel(process.io()) {}

void Visitor::start(Descriptor socket)
{
    m_pid = peerProcess(socket.get());
    if (m_pid == 0) {
        end("the kernel doesn't know it");
        return;
    }
    if (!m_channel.open(std::move(socket), shared_from_this())) {
        end("it can't be watched");
        return;
    }
    m_process.io().after(helloPatience, [weak = weak_from_this()] {
        if (const auto self = weak.lock(); self && !self->m_greeted) {
            self->end("no hello");
        }
    });
}

void Visitor::onEvents(std::uint32_t events)
{
    if ((events & EPOLLOUT) != 0 && m_gate != nullptr && !m_channel.flush()) {
        end(nullptr);
    }
    for (int count = 0; count < framesAtOnce && m_gate != nullptr; ++count) {
        ControlFrame frame;
        Descriptor passed;
        switch (m_channel.receive(frame, passed)) {
        case Channel::Received::frame:
            if (const char* reason = passed ? "unexpected descriptor" : take(frame)) {
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
    Gate* gate = std::exchange(m_gate, nullptr);
    // First of all: who sees the end of the connection must not get anything through any more.
    if (const auto queue = m_dataKey != 0 ? gate->queue() : nullptr) {
        queue->endPeer(m_dataKey);
    }
    m_channel.close();
    gate->forget(self);
}

const char* Visitor::take(const ControlFrame& frame)
{
    if (m_deferred.empty()) {
        return handle(frame);
    }
    m_deferred.push_back(frame);
    return m_deferred.size() > mostDeferred ? "too much to check" : nullptr;
}

void Visitor::resume()
{
    std::deque<ControlFrame> frames;
    frames.swap(m_deferred);
    for (; m_gate != nullptr && !frames.empty(); frames.pop_front()) {
        if (const char* reason = take(frames.front())) {
            end(reason);
        }
    }
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
    case ControlKind::claim:
        return handleProven(frame);
    case ControlKind::monitor:
        return monitor(frame);
    case ControlKind::unmonitor:
        m_monitors.erase(frame.ref);
        return nullptr;
    default:
        return "unknown control message";
    }
}

/// What takes effect only when the slot is the peer's.
const char* Visitor::handleProven(const ControlFrame& frame)
{
    const bool opens = frame.kind == ControlKind::open;
    const bool anonymous = opens && frame.slot == 0;
    if (!anonymous) {
        const bool exists = frame.slot != 0 && frame.slot <= lastSlot;
        const auto owner = exists ? m_process.registry().ownerOf(frame.slot, false) : 0;
        if (!owner) {
            m_deferred.push_back(frame);
            m_process.io().after(checkRetry, [weak = weak_from_this()] {
                if (const auto self = weak.lock()) {
                    self->resume();
                }
            });
            return nullptr;
        }
        if (*owner != m_pid) {
            return "slot of another process";
        }
    }
    return opens ? openData(frame.slot) : claim(frame.slot);
}

const char* Visitor::openData(std::uint32_t slot)
{
    if (m_dataKey != 0) {
        return "second data connection";
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
    if (m_dataKey == 0) {
        return "claim without data connection";
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
