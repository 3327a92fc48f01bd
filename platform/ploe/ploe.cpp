#include "ploe/ploe.h"

#include "socketFolder.h"
#include "tap/tap.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/socket.h>

namespace {

constexpr const char* folderName = "ploe";

/// What a listener gives back.
struct Place {
    SocketFolder folder;
    std::string name;
    ino_t file = 0;
    pid_t owner = 0; ///< a forked child that closes its copy leaves the file alone
};

} // namespace

struct ploe_socket {
    UniqueFd descriptor;
    std::string name; ///< of the address
    bool connected;   ///< by this end; otherwise it listens, or was accepted
    std::optional<Place> place;

    ploe_socket(UniqueFd socket, std::string address, bool hasConnected, std::optional<Place> listensAt)
        : descriptor(std::move(socket)), name(std::move(address)), connected(hasConnected), place(std::move(listensAt))
    {
    }
    ~ploe_socket()
    {
        if (place && place->owner == ::getpid()) {
            place->folder.remove(place->name, place->file);
        }
    }
    ploe_socket(const ploe_socket&) = delete;
    ploe_socket& operator=(const ploe_socket&) = delete;
};

namespace {

constexpr std::string_view addressPrefix = "ux:";

/// What is asked for; the system may give less. It doubles the value, and takes messages of that less its own share.
constexpr int wantedSendBuffer = 4 * static_cast<int>(PLOE_MAX_MSG_SIZE);
constexpr int sendBufferShare = 32;

std::nullptr_t failed(int error)
{
    errno = error;
    return nullptr;
}

int fails(int error)
{
    errno = error;
    return -1;
}

template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// The name in an address: 0 or an errno value.
int parseAddress(const char* address, std::string& name)
{
    const std::string_view text = address != nullptr ? address : "";
    if (!text.starts_with(addressPrefix)) {
        return EINVAL;
    }
    name = text.substr(addressPrefix.size());
    if (name.empty() || name.front() == '.' || name.find('/') != std::string::npos) {
        return EINVAL;
    }
    return name.size() > PLOE_NAME_MAX ? ENAMETOOLONG : 0;
}

UniqueFd newSocket()
{
    return UniqueFd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

int setBlocking(int descriptor, bool blocking)
{
    const int flags = ::fcntl(descriptor, F_GETFL);
    if (flags < 0) {
        return -1;
    }
    return ::fcntl(descriptor, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

/// Makes room for the largest message: 0 or an errno value. Only a privileged process may go beyond the system's limit.
int makeRoom(int descriptor)
{
    if (::setsockopt(descriptor, SOL_SOCKET, SO_SNDBUFFORCE, &wantedSendBuffer, sizeof(wantedSendBuffer)) != 0) {
        ::setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &wantedSendBuffer, sizeof(wantedSendBuffer));
    }
    int given = 0;
    socklen_t size = sizeof(given);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &given, &size) != 0) {
        return errno;
    }
    return given < static_cast<int>(PLOE_MAX_MSG_SIZE) + sendBufferShare ? ENOBUFS : 0;
}

ploe_socket* makeSocket(UniqueFd descriptor, std::string name, bool connected,
                        std::optional<Place> place = std::nullopt)
{
    if (setBlocking(descriptor.get(), true) != 0) {
        return nullptr;
    }
    tap::start();
    return std::make_unique<ploe_socket>(std::move(descriptor), std::move(name), connected, std::move(place)).release();
}

/// No exception leaves a C function. Short of memory is the one thing that is thrown inside.
template <typename Call>
ploe_socket* guarded(Call call) noexcept
{
    try {
        return call();
    } catch (const std::exception&) {
        return failed(ENOMEM);
    }
}

// The socket isn't blocking yet: a listener that has stopped accepting doesn't hold up who connects.
ploe_socket* connectTo(const char* address, int flags)
{
    std::string name;
    if (const int error = parseAddress(address, name)) {
        return failed(error);
    }
    if (flags != 0) {
        return failed(EINVAL);
    }
    SocketFolder folder;
    if (const int error = folder.open(folderName)) {
        return failed(error);
    }
    UniqueFd descriptor = newSocket();
    if (!descriptor) {
        return nullptr;
    }
    if (const int error = makeRoom(descriptor.get())) {
        return failed(error);
    }
    if (const int error = folder.connect(descriptor.get(), name)) {
        return failed(error);
    }
    return makeSocket(std::move(descriptor), std::move(name), true);
}

ploe_socket* listenAt(const char* address, int backlog)
{
    Place place;
    if (const int error = parseAddress(address, place.name)) {
        return failed(error);
    }
    if (backlog < 1) {
        return failed(EINVAL);
    }
    if (const int error = place.folder.make(folderName)) {
        return failed(error);
    }
    UniqueFd descriptor = newSocket();
    if (!descriptor) {
        return nullptr;
    }
    if (const int error = place.folder.listen(descriptor.get(), place.name, backlog, &place.file)) {
        return failed(error);
    }
    place.owner = ::getpid();
    std::string name = place.name;
    return makeSocket(std::move(descriptor), std::move(name), false, std::move(place));
}

ploe_socket* acceptOne(ploe_socket* listener)
{
    if (listener == nullptr) {
        return failed(EINVAL);
    }
    UniqueFd descriptor(
        uninterrupted([&] { return ::accept4(listener->descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
    if (!descriptor) {
        return nullptr;
    }
    if (const int error = makeRoom(descriptor.get())) {
        return failed(error);
    }
    return makeSocket(std::move(descriptor), listener->name, false);
}

void copyToTap(const ploe_socket& connection, const void* data, size_t size, std::uint64_t time)
{
    tap::Copy copy{.carrier = tap::Carrier::ploe, .size = size, .bytes = data, .time = time};
    copy.direction = connection.connected ? tap::Direction::toListener : tap::Direction::toConnector;
    (connection.connected ? copy.receiverName : copy.senderName) = connection.name;
    tap::copy(copy);
}

} // namespace

ploe_socket* ploe_connect(const char* address, int flags)
{
    return guarded([&] { return connectTo(address, flags); });
}

ploe_socket* ploe_listen(const char* address, int backlog)
{
    return guarded([&] { return listenAt(address, backlog); });
}

ploe_socket* ploe_accept(ploe_socket* listener)
{
    return guarded([&] { return acceptOne(listener); });
}

int ploe_set_blocking(ploe_socket* socket, bool blocking)
{
    return socket == nullptr ? fails(EINVAL) : setBlocking(socket->descriptor.get(), blocking);
}

int ploe_attr_get(ploe_socket* socket, const char* name, void* value, size_t size)
{
    constexpr std::uint64_t maxMsgSize = PLOE_MAX_MSG_SIZE;
    if (socket == nullptr || name == nullptr || value == nullptr) {
        return fails(EINVAL);
    }
    if (std::strcmp(name, PLOE_ATTR_MAX_MSG_SIZE) != 0) {
        return fails(ENOENT);
    }
    if (size != sizeof(maxMsgSize)) {
        return fails(EINVAL);
    }
    std::memcpy(value, &maxMsgSize, sizeof(maxMsgSize));
    return 0;
}

// The descriptor is the socket itself, which is readable from the first message on anyway.
int ploe_await(ploe_socket* socket, int messages)
{
    return socket == nullptr || messages != 1 ? fails(EINVAL) : 0;
}

int ploe_fd(const ploe_socket* socket)
{
    return socket == nullptr ? fails(EINVAL) : socket->descriptor.get();
}

int ploe_send(ploe_socket* connection, const void* data, size_t size)
{
    if (connection == nullptr || data == nullptr || size == 0) {
        return fails(EINVAL);
    }
    if (size > PLOE_MAX_MSG_SIZE) {
        return fails(EMSGSIZE);
    }
    const int descriptor = connection->descriptor.get();
    const std::uint64_t time = tap::isOpen() ? tap::now() : 0; // before: the answer to the message comes later
    if (uninterrupted([&] { return ::send(descriptor, data, size, MSG_NOSIGNAL); }) < 0) {
        // The first call after the other end closed with messages unread is told so; to the caller it is one thing.
        return errno == ECONNRESET ? fails(EPIPE) : -1;
    }
    if (time != 0) {
        copyToTap(*connection, data, size, time);
    }
    return 0;
}

ssize_t ploe_receive(ploe_socket* connection, void* buffer, size_t size)
{
    if (connection == nullptr || (buffer == nullptr && size != 0)) {
        return fails(EINVAL);
    }
    const auto receive = [&] { return ::recv(connection->descriptor.get(), buffer, size, MSG_TRUNC); };
    ssize_t length = uninterrupted(receive);
    if (length < 0 && errno == ECONNRESET) {
        // Told once, where the other end closed with messages unread; what it had sent is behind it, then the end.
        length = uninterrupted(receive);
    }
    return length > 0 && static_cast<size_t>(length) > size ? fails(EMSGSIZE) : length;
}

void ploe_close(ploe_socket* socket)
{
    delete socket;
}
