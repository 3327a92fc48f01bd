#include "tap/listener.h"

#include "tap/packet.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

namespace tap {
namespace {

using namespace std::chrono_literals;

constexpr int backlog = 4096;
constexpr std::size_t maxConnections = 4096;
constexpr std::size_t maxNames = 65'536;
constexpr std::size_t visitsAtOnce = 64;
constexpr auto patience = 1s; ///< with the processes that are visited
constexpr std::chrono::milliseconds acceptRetry = 100ms;
constexpr std::chrono::milliseconds maxPause = 1h;
constexpr std::chrono::milliseconds maxWait = 24h * 365;

} // namespace

int Listener::open(const Options& options)
{
    if (m_epoll) {
        return EALREADY;
    }
    int error = 0;
    try {
        error = openSockets(options);
    } catch (const std::exception&) {
        error = ENOMEM;
    }
    if (error != 0) {
        close();
    }
    return error;
}

int Listener::openSockets(const Options& options)
{
    if (const int error = m_folder.open()) {
        return error;
    }
    std::vector<SocketFile> files;
    if (const int error = m_folder.files(files)) {
        return error;
    }
    m_folder.clear(files);
    const auto listeners = std::count_if(files.begin(), files.end(), [this](const SocketFile& file) {
        return file.listens && !m_folder.isDead(file.name);
    });
    if (static_cast<std::size_t>(listeners) >= maxListeners) {
        return EBUSY;
    }
    m_maxBytes = std::min(options.maxBytes, maxCopiedBytes);
    m_buffer.resize(maxPacketOverhead + m_maxBytes);
    m_epoll = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    m_listening = newSocket();
    if (!m_epoll || !m_listening) {
        return errno;
    }
    epoll_event event = {};
    event.data.fd = m_listening.get();
    if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, m_listening.get(), &event) != 0) {
        return errno;
    }
    watchNewcomers(true);
    const std::string suffix = '-' + std::to_string(packetVersion) + '-' + std::to_string(m_maxBytes) + '-' +
                               std::to_string(std::min(options.buffer, maxBuffer));
    if (const int error = m_folder.bind(m_listening.get(), "listener", suffix, m_name)) {
        m_name.clear();
        return error;
    }
    m_owner = ::getpid();
    if (::listen(m_listening.get(), backlog) != 0) {
        return errno;
    }
    // Listed anew: a process that has started since may have looked for listeners too early.
    files.clear();
    if (const int error = m_folder.files(files)) {
        return error;
    }
    return visit(files);
}

/// Connects to the processes, a few at a time, so that they look for listeners. They end the connection when they have
/// found this one.
int Listener::visit(const std::vector<SocketFile>& files)
{
    const auto deadline = Clock::now() + patience;
    std::vector<UniqueFd> visits;
    for (const SocketFile& file : files) {
        if (file.listens) {
            continue;
        }
        UniqueFd socket = newSocket();
        if (!socket) {
            return errno;
        }
        // A process that has too many visitors waiting hasn't looked for listeners yet; one that is dead never will.
        if (m_folder.connect(socket.get(), file.name) != 0) {
            continue;
        }
        visits.push_back(std::move(socket));
        if (visits.size() == visitsAtOnce) {
            awaitAnswers(visits, deadline);
        }
    }
    awaitAnswers(visits, deadline);
    return 0;
}

void Listener::awaitAnswers(std::vector<UniqueFd>& visits, Clock::time_point deadline)
{
    for (const UniqueFd& visit : visits) {
        pollfd state = {visit.get(), POLLIN, 0};
        int ready = 0;
        do {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            ready = ::poll(&state, 1, static_cast<int>(std::max(left, 0ms).count()));
        } while (ready < 0 && errno == EINTR);
    }
    visits.clear();
    acceptAll(); // before there are more than can wait
}

void Listener::close()
{
    if (!m_name.empty() && m_owner == ::getpid()) {
        m_folder.remove(m_name);
    }
    m_name.clear();
    m_connections.clear();
    m_names.clear();
    m_count = m_at = 0;
    const UniqueFd listening = std::move(m_listening);
    const UniqueFd epoll = std::move(m_epoll);
    const Folder folder = std::move(m_folder);
}

void Listener::watchNewcomers(bool watch)
{
    epoll_event event = {};
    event.events = watch ? EPOLLIN : 0U;
    event.data.fd = m_listening.get();
    ::epoll_ctl(m_epoll.get(), EPOLL_CTL_MOD, m_listening.get(), &event);
    m_watchesNewcomers = watch;
}

/// Those that can't be accepted go on waiting: the socket stays readable, and isn't watched until later.
void Listener::acceptAll()
{
    while (m_connections.size() < maxConnections) {
        Connection connection;
        connection.socket = UniqueFd(::accept4(m_listening.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection.socket) {
            if (errno == EAGAIN || errno == ECONNABORTED || errno == EINTR) {
                return;
            }
            break;
        }
        const int socket = connection.socket.get();
        const auto process = ownUsersPeer(socket);
        if (!process) {
            return; // the rest in the next round: a stranger doesn't keep anybody here
        }
        refuseDescriptors(socket);
        connection.process = *process;
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = socket;
        if (::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, socket, &event) == 0) {
            m_connections.insert_or_assign(socket, std::move(connection));
        }
    }
    watchNewcomers(false);
    m_retryAt = Clock::now() + acceptRetry;
}

std::optional<Record> Listener::next(std::chrono::milliseconds timeout)
{
    if (!m_epoll) {
        return std::nullopt;
    }
    const auto deadline = Clock::now() + std::clamp<std::chrono::milliseconds>(timeout, 0ms, maxWait);
    for (bool expired = false;;) {
        while (m_at < m_count) {
            const int socket = m_events[m_at++].data.fd;
            if (socket == m_listening.get()) {
                acceptAll();
            } else if (auto record = read(socket)) {
                return record;
            }
        }
        if (expired) {
            return std::nullopt;
        }
        const auto now = Clock::now();
        expired = now >= deadline;
        if (!m_watchesNewcomers && now >= m_retryAt) {
            watchNewcomers(true);
        }
        auto wait = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
        wait = std::clamp<std::chrono::milliseconds>(wait, 0ms, m_watchesNewcomers ? maxPause : acceptRetry);
        const int count = ::epoll_wait(m_epoll.get(), m_events.data(), static_cast<int>(m_events.size()),
                                       static_cast<int>(wait.count()));
        m_at = 0;
        m_count = static_cast<std::size_t>(std::max(count, 0));
    }
}

/// The record in the next packet of a connection. Nothing if there is none: the connection has ended, or is ended here
/// because of what came over it.
std::optional<Record> Listener::read(int socket)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end()) {
        return std::nullopt;
    }
    // Without room for them, the kernel hands no descriptors over.
    const ssize_t size = ::recv(socket, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return std::nullopt;
    }
    auto record = size > 0 ? parse(static_cast<std::size_t>(size), found->second.process) : std::nullopt;
    if (!record) {
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, socket, nullptr);
        m_connections.erase(found);
        watchNewcomers(true); // there is a descriptor for another one
    }
    return record;
}

std::optional<Record> Listener::parse(std::size_t size, pid_t process)
{
    PacketHeader header;
    if (size < sizeof(header) || size > m_buffer.size()) {
        return std::nullopt;
    }
    std::memcpy(&header, m_buffer.data(), sizeof(header));
    const bool isCopy = header.kind == PacketKind::copy;
    const bool isKnown = (isCopy || header.kind == PacketKind::loss) &&
                         (header.carrier == Carrier::kiv || header.carrier == Carrier::ploe) &&
                         header.direction <= Direction::toConnector;
    const std::size_t names = std::size_t{header.senderNameSize} + header.receiverNameSize;
    if (!isKnown || header.copied > header.size || size != sizeof(header) + names + header.copied) {
        return std::nullopt;
    }
    const std::byte* at = m_buffer.data() + sizeof(header);
    const auto takeText = [&](std::size_t length) {
        std::string text(reinterpret_cast<const char*>(at), length);
        at += length;
        return text;
    };
    Record record;
    record.isCopy = isCopy;
    record.time = header.time;
    record.process = process;
    record.lost = header.lost;
    record.carrier = header.carrier;
    record.direction = header.direction;
    record.sender = header.sender;
    record.receiver = header.receiver;
    record.senderName = takeText(header.senderNameSize);
    record.receiverName = takeText(header.receiverNameSize);
    record.size = header.size;
    record.bytes.assign(at, at + header.copied);
    if (isCopy && header.carrier == Carrier::kiv) {
        learn(record.sender, record.senderName);
        learn(record.receiver, record.receiverName);
    }
    return record;
}

/// Remembers the name, or fills it in.
void Listener::learn(std::uint32_t mailbox, std::string& name)
{
    if (name.empty()) {
        name = nameOf(mailbox);
        return;
    }
    if (m_names.size() >= maxNames && !m_names.contains(mailbox)) {
        m_names.clear(); // those in use come again
    }
    std::string& known = m_names[mailbox];
    if (known != name) {
        known = name;
    }
}

std::string Listener::nameOf(std::uint32_t mailbox) const
{
    const auto found = m_names.find(mailbox);
    return found != m_names.end() ? found->second : std::string();
}

} // namespace tap
