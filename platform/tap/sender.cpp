#include "tap/sender.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utility>

namespace tap {
namespace {

using namespace std::chrono_literals;

constexpr int backlog = 64;
constexpr std::size_t manyFiles = 64;
constexpr std::chrono::milliseconds minRetryDelay = 100ms;
constexpr std::chrono::milliseconds maxRetryDelay = 10s;

/// The kernel takes a packet of the socket's buffer less this.
constexpr std::size_t bufferShare = 32;

iovec part(const void* bytes, std::size_t size)
{
    return {const_cast<void*>(bytes), size};
}

/// Sets the socket's buffer, as far as the system allows. Returns the bytes of a message that a packet takes then.
std::size_t makeRoom(int socket, const SocketFile& listener)
{
    const std::size_t maxBytes = std::min<std::size_t>(listener.maxBytes, maxCopiedBytes);
    const std::size_t buffer =
        std::clamp<std::size_t>(listener.buffer, maxBytes + maxPacketOverhead + bufferShare, maxBuffer);
    const int half = static_cast<int>((buffer + 1) / 2); // the kernel doubles it
    if (::setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &half, sizeof(half)) != 0) {
        ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &half, sizeof(half));
    }
    int given = 0;
    socklen_t size = sizeof(given);
    ::getsockopt(socket, SOL_SOCKET, SO_SNDBUF, &given, &size);
    const auto packet = static_cast<std::size_t>(std::max(given, 0));
    return std::min(maxBytes, packet - std::min(packet, maxPacketOverhead + bufferShare));
}

} // namespace

std::mutex& Sender::descriptorMutex()
{
    static std::mutex mutex;
    return mutex;
}

Sender::~Sender()
{
    removeFile();
}

void Sender::removeFile() const
{
    if (!m_name.empty()) {
        m_folder.remove(m_name);
    }
}

int Sender::start()
{
    if (const int error = m_folder.open()) {
        return error;
    }
    m_epoll = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    m_listening = newSocket();
    if (!m_epoll || !m_listening) {
        return errno;
    }
    if (const int error = m_folder.bind(m_listening.get(), "process", "", m_name)) {
        m_name.clear();
        return error;
    }
    epoll_event event = {};
    event.events = EPOLLIN;
    if (::listen(m_listening.get(), backlog) != 0 ||
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, m_listening.get(), &event) != 0) {
        return errno;
    }
    // The program's signals are for the program's threads.
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    pthread_t thread{};
    const int error = pthread_create(&thread, nullptr, threadMain, this);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    if (error == 0) {
        pthread_setname_np(thread, "ru-tap");
        pthread_detach(thread);
    }
    return error;
}

void* Sender::threadMain(void* self)
{
    auto* sender = static_cast<Sender*>(self);
    int epoll = -1;
    {
        const std::lock_guard lock(descriptorMutex());
        epoll = sender->m_epoll.get();
    }
    for (int wait = 0;;) {
        std::array<epoll_event, 1> events; // what there is to do is looked up
        ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), wait);
        const std::lock_guard lock(descriptorMutex());
        try {
            sender->serve();
        } catch (const std::exception&) { // short of memory
            sender->retryLater();
        }
        wait = sender->waitTime();
    }
}

int Sender::waitTime() const
{
    if (!m_retries) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_retryAt - Clock::now());
    return static_cast<int>(std::clamp<std::chrono::milliseconds>(left, 0ms, maxRetryDelay).count());
}

void Sender::serve()
{
    const bool retries = m_retries && Clock::now() >= m_retryAt;
    if (retries) {
        m_retries = false;
        watch(EPOLL_CTL_MOD, m_listening.get(), EPOLLIN);
    }
    const std::size_t visitors = acceptVisitors();
    if (forgetGone()) {
        retryLater(); // there is room for a listener that had found none
    }
    reportLosses();
    if (retries || visitors > 0) {
        findListeners();
    }
    // A visitor learns from the end of its connection that its listener has been found.
    for (std::size_t i = 0; i < visitors; ++i) {
        const UniqueFd closed = std::move(m_visitors[i]);
    }
    if (!m_retries) {
        m_retryDelay = 0ms;
    }
}

std::size_t Sender::acceptVisitors()
{
    std::size_t count = 0;
    while (count < m_visitors.size()) {
        UniqueFd visitor(::accept4(m_listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (visitor) {
            m_visitors[count++] = std::move(visitor);
        } else if (errno != ECONNABORTED && errno != EINTR) {
            if (errno != EAGAIN) {
                // The visitor goes on waiting for a descriptor. The socket stays readable: not watched until later.
                watch(EPOLL_CTL_MOD, m_listening.get(), 0);
                retryLater();
            }
            break;
        }
    }
    return count;
}

void Sender::retryLater()
{
    if (!m_retries) {
        m_retries = true;
        m_retryDelay = std::clamp(m_retryDelay * 2, minRetryDelay, maxRetryDelay);
        m_retryAt = Clock::now() + m_retryDelay;
    }
}

/// Whether one has gone.
bool Sender::forgetGone()
{
    bool gone = false;
    for (Connection& connection : m_connections) {
        pollfd state = {connection.socket.get(), 0, 0};
        if (!connection.socket || ::poll(&state, 1, 0) <= 0) {
            continue;
        }
        gone = true;
        watch(EPOLL_CTL_DEL, connection.socket.get(), 0);
        Connection closed; // without the lock
        const std::lock_guard lock(m_sending);
        std::swap(connection, closed);
        setOpen();
    }
    return gone;
}

void Sender::setOpen() const
{
    detail::open = std::any_of(m_connections.begin(), m_connections.end(),
                               [](const Connection& connection) { return connection.isLive(); });
}

void Sender::findListeners()
{
    std::vector<SocketFile> files;
    if (m_folder.files(files) != 0) {
        retryLater();
    }
    if (files.size() > manyFiles) {
        m_folder.clear(files);
    }
    for (const SocketFile& file : files) {
        if (file.listens && file.version == packetVersion && !isKnown(file.name)) {
            connectTo(file);
        }
    }
}

bool Sender::isKnown(const std::string& name) const
{
    return std::any_of(m_connections.begin(), m_connections.end(),
                       [&](const Connection& connection) { return connection.socket && connection.name == name; });
}

void Sender::connectTo(const SocketFile& listener)
{
    const auto place = std::find_if(m_connections.begin(), m_connections.end(),
                                    [](const Connection& connection) { return !connection.socket; });
    if (place == m_connections.end()) {
        return; // when one goes, the process looks again
    }
    Connection made;
    made.socket = newSocket();
    if (!made.socket) {
        retryLater();
        return;
    }
    const int socket = made.socket.get();
    made.name = listener.name;
    made.maxBytes = makeRoom(socket, listener);
    if (const int error = m_folder.connect(socket, listener.name)) {
        if (error != ECONNREFUSED && error != ENOENT) {
            retryLater(); // more processes came to it than it could accept so far
        }
        return;
    }
    if (!ownUsersPeer(socket)) {
        return;
    }
    ::shutdown(socket, SHUT_RD); // a listener has nothing to say
    if (!watch(EPOLL_CTL_ADD, socket, 0)) {
        retryLater();
        return;
    }
    const std::lock_guard lock(m_sending);
    std::swap(*place, made);
    setOpen();
}

/// With no events, the thread is still woken at the end of the connection.
bool Sender::watch(int operation, int descriptor, std::uint32_t events) const
{
    epoll_event event = {};
    event.events = events;
    return ::epoll_ctl(m_epoll.get(), operation, descriptor, &event) == 0;
}

void Sender::awaitRoom(Connection& connection, bool awaits) const
{
    if (connection.awaitsRoom != awaits) {
        connection.awaitsRoom = awaits;
        watch(EPOLL_CTL_MOD, connection.socket.get(), awaits ? EPOLLOUT : 0U);
    }
}

void Sender::copy(const Copy& what)
{
    PacketHeader header;
    header.time = what.time != 0 ? what.time : now();
    header.size = what.size;
    header.sender = what.sender;
    header.receiver = what.receiver;
    header.carrier = what.carrier;
    header.direction = what.direction;
    header.senderNameSize = static_cast<std::uint8_t>(std::min(what.senderName.size(), maxName));
    header.receiverNameSize = static_cast<std::uint8_t>(std::min(what.receiverName.size(), maxName));
    const std::lock_guard lock(m_sending);
    for (Connection& connection : m_connections) {
        if (connection.isLive()) {
            send(connection, header, what);
        }
    }
}

void Sender::send(Connection& connection, PacketHeader& header, const Copy& what) const
{
    header.lost = connection.lost;
    header.copied = static_cast<std::uint32_t>(std::min(what.size, connection.maxBytes));
    std::array<iovec, 4> parts = {part(&header, sizeof(header)), part(what.senderName.data(), header.senderNameSize),
                                  part(what.receiverName.data(), header.receiverNameSize),
                                  part(what.bytes, header.copied)};
    msghdr packet = {};
    packet.msg_iov = parts.data();
    packet.msg_iovlen = parts.size();
    if (::sendmsg(connection.socket.get(), &packet, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
        connection.lost = 0;
        return;
    }
    if (errno == EPIPE) {
        connection.gone = true;
        setOpen();
        return;
    }
    ++connection.lost;
    awaitRoom(connection, true);
}

void Sender::reportLosses()
{
    const std::lock_guard lock(m_sending);
    for (Connection& connection : m_connections) {
        if (!connection.isLive() || (connection.lost == 0 && !connection.awaitsRoom)) {
            continue;
        }
        PacketHeader header;
        header.kind = PacketKind::loss;
        header.time = now();
        header.lost = connection.lost;
        if (connection.lost == 0 ||
            ::send(connection.socket.get(), &header, sizeof(header), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
            connection.lost = 0;
            awaitRoom(connection, false);
        } else if (errno == EAGAIN) {
            awaitRoom(connection, true);
        } else {
            awaitRoom(connection, false); // there is room, but no memory
            retryLater();
        }
    }
}

void Sender::abandon()
{
    for (Connection& connection : m_connections) {
        const UniqueFd closed = std::move(connection.socket);
    }
    for (UniqueFd& visitor : m_visitors) {
        const UniqueFd closed = std::move(visitor);
    }
    const UniqueFd listening = std::move(m_listening);
    const UniqueFd epoll = std::move(m_epoll);
    const Folder folder = std::move(m_folder);
}

} // namespace tap
