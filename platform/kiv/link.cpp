#include "kiv/link.h"

#include "kiv/frame.h"
#include "kiv/id.h"
#include "kiv/log.h"
#include "kiv/process.h"

#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr auto busyRetry = 2ms;
constexpr auto shortageRetry = 10ms;
/// How long a death waits for a connection that is still being made.
constexpr auto parkingTime = 50ms;
/// The I/O thread sends so many messages before others get the lock.
constexpr int flushAtOnce = 256;
/// Memory in memfds that the peer hasn't read, beyond what waits in the backlog.
constexpr std::size_t mostInMemfds = 32U << 20;
/// No packet occupies as little as this: the socket is empty.
constexpr int emptySocket = 64;

bool isEmpty(int socket)
{
    int bytes = 0;
    return ::ioctl(socket, SIOCOUTQ, &bytes) == 0 && bytes < emptySocket;
}

} // namespace

class Link::ControlHandler : public Handler
{
public:
    explicit ControlHandler(std::shared_ptr<Link> link) : m_link(std::move(link)) {}
    void onEvents(std::uint32_t events) override { m_link->onControl(events); }

private:
    std::shared_ptr<Link> m_link;
};

class Link::DataHandler : public Handler
{
public:
    explicit DataHandler(std::shared_ptr<Link> link) : m_link(std::move(link)) {}
    void onEvents(std::uint32_t events) override { m_link->onWritable(events); }

private:
    std::shared_ptr<Link> m_link;
};

Link::Link(Process& process, std::uint32_t slot) : m_process(process), m_slot(slot), m_control(process.io()) {}

Link::~Link() = default;

void Link::send(MessagePtr message, const std::shared_ptr<SlotSocket>& sender)
{
    const std::lock_guard lock(m_mutex);
    if (!ready()) {
        return;
    }
    claim(sender);
    ++m_sent;
    if (!m_data || !m_backlog.empty()) {
        enqueue(std::move(message));
        return;
    }
    const SendResult result = transmit(*message);
    if (result == SendResult::broken) {
        loseData();
    } else if (result != SendResult::sent) {
        enqueue(std::move(message));
        if (m_data) {
            waitToSend(result);
        }
    }
}

/// Connects where that is still to be done. False where the slot is dead.
bool Link::ready()
{
    if (m_state == State::fresh) {
        connect();
    }
    return takesMessages();
}

void Link::connect()
{
    Descriptor socket = m_process.registry().connectSlot(m_slot);
    const int error = socket ? 0 : errno;
    const bool shortage = error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
    if (!socket && error != EAGAIN && !shortage) {
        die();
        return;
    }
    if (m_state == State::fresh) {
        // Goes first, in front of what is asked for meanwhile.
        ControlFrame hello;
        hello.kind = ControlKind::hello;
        hello.id = protocolVersion;
        m_control.send(hello);
    }
    if (m_state != State::cut) {
        m_state = socket ? State::connected : State::connecting;
    }
    if (!socket) {
        connectLater(shortage ? shortageRetry : busyRetry);
        return;
    }
    m_pid = peerProcess(socket.get());
    const bool watched = m_control.open(std::move(socket), std::make_shared<ControlHandler>(shared_from_this()));
    if (!watched || !m_control.flush()) {
        die();
    }
}

void Link::connectLater(std::chrono::milliseconds delay)
{
    m_process.io().after(delay, [self = shared_from_this()] {
        const std::lock_guard lock(self->m_mutex);
        if (self->m_state == State::connecting || (self->m_state == State::cut && self->m_control.socket() < 0)) {
            self->connect();
        }
    });
}

void Link::claim(const std::shared_ptr<SlotSocket>& sender)
{
    const std::uint32_t slot = sender ? sender->slot() : 0;
    const auto place = std::lower_bound(m_claims.begin(), m_claims.end(), slot,
                                        [](const Claim& claim, std::uint32_t wanted) { return claim.slot < wanted; });
    const bool known = place != m_claims.end() && place->slot == slot;
    if (known || (slot == 0 && m_dataAsked)) {
        return;
    }
    ControlFrame frame;
    frame.kind = m_dataAsked ? ControlKind::claim : ControlKind::open;
    frame.slot = slot;
    m_dataAsked = true;
    m_claims.insert(place, {slot, sender});
    tell(frame);
}

void Link::confirm(std::uint32_t slot)
{
    for (Claim& claim : m_claims) {
        if (claim.slot == slot) {
            claim.unconfirmed.reset();
        }
    }
}

void Link::tell(const ControlFrame& frame)
{
    if (m_state != State::dead && !m_control.send(frame)) {
        loseControl();
    }
}

void Link::enqueue(MessagePtr message)
{
    if (!takesMessages()) {
        return;
    }
    m_waiting += message->footprint();
    m_backlog.push(std::move(message));
    if (m_waiting > mostWaiting) {
        cutOff();
    }
}

SendResult Link::transmit(Message& message)
{
    const bool large = goesAsMemfd(message);
    if (large && m_inMemfds != 0) {
        if (isEmpty(m_data.get())) {
            m_inMemfds = 0;
        } else if (m_inMemfds + message.frame.size > mostInMemfds) {
            return SendResult::full;
        }
    }
    const SendResult result = sendFrame(m_data.get(), message);
    if (large && result == SendResult::sent) {
        m_inMemfds += message.frame.size;
    }
    return result;
}

void Link::waitToSend(SendResult result)
{
    if (result == SendResult::later) {
        m_process.io().after(shortageRetry, [self = shared_from_this()] { self->onWritable(0); });
    } else {
        // Edge triggered: the event comes whenever the peer has read something, also where the socket has space but
        // too much memory is on its way.
        m_process.io().modify(m_dataToken, m_data.get(), EPOLLOUT | EPOLLET);
    }
}

void Link::onWritable(std::uint32_t events)
{
    const std::lock_guard lock(m_mutex);
    if (m_data && (events & (EPOLLHUP | EPOLLERR)) != 0) {
        loseData();
    }
    flush();
}

void Link::flush()
{
    for (int count = 0; m_data && !m_backlog.empty(); ++count) {
        if (count == flushAtOnce) {
            waitToSend(SendResult::full);
            return;
        }
        const SendResult result = transmit(*m_backlog.first());
        if (result == SendResult::broken) {
            loseData();
            return;
        }
        if (result != SendResult::sent) {
            waitToSend(result);
            return;
        }
        m_waiting -= m_backlog.first()->footprint();
        m_backlog.pop();
    }
    if (m_data) {
        m_process.io().modify(m_dataToken, m_data.get(), 0);
    }
}

void Link::cutOff()
{
    logLine("mailboxes of slot %u (process %d) cut off: more than %zu MiB waiting", m_slot, static_cast<int>(m_pid),
            mostWaiting >> 20);
    // The control connection stays, to know when the slot is really gone and another may have its number.
    m_state = State::cut;
    if (m_data) {
        // The receiver has a copy: it sees the end only so.
        ::shutdown(m_data.get(), SHUT_WR);
    }
    closeData();
    fireWatchers();
}

/// No death yet: how much a dead mailbox had sent, its process may still tell on the control connection.
void Link::loseData()
{
    if (m_state == State::connected) {
        m_state = State::ending;
    }
    closeData();
}

void Link::loseControl()
{
    loseData();
    if (m_control.socket() >= 0) {
        m_control.finish();
    } else {
        die();
    }
}

void Link::closeData()
{
    if (m_data) {
        m_process.io().remove(m_dataToken, m_data.get());
        m_data.reset();
    }
    m_backlog.clear();
    m_waiting = 0;
    m_sent = 0;
    m_claims.clear();
}

void Link::die()
{
    if (m_state != State::dead) {
        m_state = State::dead;
        closeData();
        m_control.close();
        m_process.removeLink(*this);
        fireWatchers();
    }
}

void Link::fireWatchers()
{
    if (m_watchers.empty()) {
        return;
    }
    m_process.io().post([watchers = std::move(m_watchers), process = m_pid] {
        for (const auto& [ref, watcher] : watchers) {
            if (const auto queue = watcher.queue.lock()) {
                queue->died(ref, watcher.mailbox, process, Queue::allUnread);
            }
        }
    });
    m_watchers.clear();
}

void Link::monitor(std::uint32_t ref, kiv_mbox_id_t mailbox, const std::shared_ptr<Queue>& queue)
{
    const std::lock_guard lock(m_mutex);
    m_watchers.emplace(ref, Watcher{mailbox, queue});
    if (!ready()) {
        if (m_state != State::ending) {
            fireWatchers();
        }
        return;
    }
    ControlFrame frame;
    frame.kind = ControlKind::monitor;
    frame.id = mailbox;
    frame.slot = queue->slot();
    frame.ref = ref;
    tell(frame);
}

void Link::unmonitor(std::uint32_t ref)
{
    const std::lock_guard lock(m_mutex);
    if (m_watchers.erase(ref) != 0) {
        ControlFrame frame;
        frame.kind = ControlKind::unmonitor;
        frame.ref = ref;
        tell(frame);
    }
}

std::uint64_t Link::sentTo(pid_t process)
{
    const std::lock_guard lock(m_mutex);
    // While it connects, it isn't known yet whose slot that is.
    return m_pid == process || m_pid == 0 ? m_sent : 0;
}

bool Link::idle()
{
    const std::lock_guard lock(m_mutex);
    return m_state == State::dead || m_state == State::cut || m_state == State::ending ||
           (m_backlog.empty() && m_control.idle() &&
            std::all_of(m_claims.begin(), m_claims.end(), [](const Claim& claim) { return !claim.unconfirmed; }));
}

void Link::onControl(std::uint32_t events)
{
    const std::lock_guard lock(m_mutex);
    if ((events & EPOLLOUT) != 0 && m_state != State::dead && !m_control.flush()) {
        loseControl();
    }
    for (int count = 0; count < framesAtOnce && m_state != State::dead; ++count) {
        ControlFrame frame;
        Descriptor passed;
        switch (m_control.receive(frame, passed)) {
        case Channel::Received::frame:
            handle(frame, std::move(passed));
            break;
        case Channel::Received::none:
            return;
        case Channel::Received::closed:
            die();
            return;
        case Channel::Received::malformed:
            logLine("process %d cut off: malformed control message", static_cast<int>(m_pid));
            die();
            return;
        }
    }
}

void Link::handle(const ControlFrame& frame, Descriptor passed)
{
    if (frame.kind == ControlKind::data && passed && m_dataAsked && !m_data && m_state == State::connected) {
        m_data = std::move(passed);
        m_dataToken = m_process.io().add(m_data.get(), 0, std::make_shared<DataHandler>(shared_from_this()));
        if (m_dataToken == 0) {
            loseControl();
            return;
        }
        confirm(frame.slot);
        flush();
    } else if (frame.kind == ControlKind::claimed) {
        confirm(frame.slot);
    } else if (frame.kind == ControlKind::dead) {
        dead(frame);
    } else if (m_state == State::connected) {
        logLine("process %d cut off: unexpected control message", static_cast<int>(m_pid));
        die();
    }
}

void Link::dead(const ControlFrame& frame)
{
    const auto found = m_watchers.find(frame.ref);
    if (found == m_watchers.end()) {
        return;
    }
    const Watcher watcher = std::move(found->second);
    m_watchers.erase(found);
    m_process.io().post([watcher, frame, process = m_pid, &io = m_process.io()] {
        if (const auto queue = watcher.queue.lock()) {
            queue->died(frame.ref, watcher.mailbox, process, frame.count);
        }
        io.after(parkingTime, [watcher, ref = frame.ref] {
            if (const auto queue = watcher.queue.lock()) {
                queue->releaseParked(ref);
            }
        });
    });
}

} // namespace kiv
