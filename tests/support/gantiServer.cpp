#include "gantiServer.h"

#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "ploe/ploe.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace TestUnit {

namespace {

constexpr std::size_t headerSize = 8;
constexpr std::size_t procRefOffset = 4;
constexpr int backlog = 8;

std::uint32_t word(const std::string& frame, std::size_t offset)
{
    return boost::endian::load_big_u32(reinterpret_cast<const unsigned char*>(frame.data()) + offset);
}

void appendWord(std::string& frame, std::uint32_t value)
{
    unsigned char bytes[sizeof(value)];
    boost::endian::store_big_u32(bytes, value);
    frame.append(reinterpret_cast<const char*>(bytes), sizeof(bytes));
}

std::string nameOf(std::uint32_t msgNo)
{
    const auto found = std::find_if(gant::messages.begin(), gant::messages.end(),
                                    [msgNo](const auto& message) { return message.number == msgNo; });
    return found != gant::messages.end() ? std::string(found->name) : fmt::format("message {}", msgNo);
}

std::string describe(const std::string& frame)
{
    return frame.size() < headerSize ? fmt::format("{} bytes", frame.size())
                                     : fmt::format("{} of {} bytes", nameOf(word(frame, 0)), frame.size());
}

/// Waits for an event of a descriptor.
bool waitFor(const ploe_socket* socket, short events)
{
    constexpr auto time = std::chrono::milliseconds(deadline).count();
    pollfd polled{.fd = ploe_fd(socket), .events = events, .revents = 0};
    int result = 0;
    do {
        result = ::poll(&polled, 1, static_cast<int>(time));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

/// Whether the other end of a connection has taken all that was sent to it.
bool isTaken(const ploe_socket* socket)
{
    int waiting = 0;
    if (::ioctl(ploe_fd(socket), SIOCOUTQ, &waiting) != 0) {
        throw StepFailed("the system doesn't tell what waits in a socket");
    }
    return waiting == 0;
}

/// Whether the other end is closed too, where this one sends no more.
bool isClosed(const ploe_socket* socket)
{
    pollfd polled{.fd = ploe_fd(socket), .events = 0, .revents = 0};
    return ::poll(&polled, 1, 0) > 0 && (polled.revents & POLLHUP) != 0;
}

} // namespace

void GantiServer::Close::operator()(ploe_socket* socket) const
{
    ploe_close(socket);
}

GantiServer::GantiServer() = default;
GantiServer::~GantiServer() = default;

void GantiServer::appear()
{
    m_listener.reset(ploe_listen(gant::ServerMetadata().name().c_str(), backlog));
    if (m_listener == nullptr) {
        throw StepFailed(fmt::format("the software manager can't listen: {}", std::strerror(errno)));
    }
}

// The client is told of the end at once. The descriptor stays until the client has closed its own, which is how
// isAllTaken knows that it has heard of it.
void GantiServer::die()
{
    if (m_connection == nullptr && m_listener != nullptr) {
        ploe_set_blocking(m_listener.get(), false);
        m_connection.reset(ploe_accept(m_listener.get()));
    }
    m_listener.reset();
    if (m_connection != nullptr) {
        ::shutdown(ploe_fd(m_connection.get()), SHUT_WR);
        m_dying = std::move(m_connection);
    }
}

bool GantiServer::isAllTaken() const
{
    return (m_connection == nullptr || isTaken(m_connection.get())) && (m_dying == nullptr || isClosed(m_dying.get()));
}

ploe_socket* GantiServer::connection()
{
    if (m_connection != nullptr) {
        return m_connection.get();
    }
    if (m_listener == nullptr) {
        throw StepFailed("the software manager isn't there");
    }
    if (!waitFor(m_listener.get(), POLLIN)) {
        throw StepFailed("nobody connects to the software manager");
    }
    m_connection.reset(ploe_accept(m_listener.get()));
    if (m_connection == nullptr) {
        throw StepFailed(fmt::format("the software manager can't accept: {}", std::strerror(errno)));
    }
    ploe_set_blocking(m_connection.get(), false);
    return m_connection.get();
}

/// What is waiting now: a frame, an empty string for the end of the connection, or nothing.
std::optional<std::string> GantiServer::receive()
{
    std::string frame(PLOE_MAX_MSG_SIZE, '\0');
    const ssize_t size = ploe_receive(connection(), frame.data(), frame.size());
    if (size < 0 && errno == EAGAIN) {
        return std::nullopt;
    }
    if (size < 0) {
        throw StepFailed(fmt::format("the software manager can't receive: {}", std::strerror(errno)));
    }
    frame.resize(static_cast<std::size_t>(size));
    return frame;
}

GantiFrame GantiServer::expectNumber(std::uint32_t msgNo)
{
    if (!waitFor(connection(), POLLIN)) {
        throw StepFailed(fmt::format("the software manager was sent nothing; {} was expected", nameOf(msgNo)));
    }
    const std::string frame = receive().value_or("");
    if (frame.empty()) {
        throw StepFailed(fmt::format("the connection to the software manager ended; {} was expected", nameOf(msgNo)));
    }
    if (frame.size() < headerSize || word(frame, 0) != msgNo) {
        throw StepFailed(
            fmt::format("the software manager was sent {}; {} was expected", describe(frame), nameOf(msgNo)));
    }
    return {msgNo, word(frame, procRefOffset), frame.substr(headerSize)};
}

void GantiServer::expectNothing()
{
    if (const auto frame = receive()) {
        throw StepFailed(fmt::format("the software manager was sent {}; nothing was expected",
                                     frame->empty() ? "the end of the connection" : describe(*frame)));
    }
}

void GantiServer::expectClosed()
{
    if (!waitFor(connection(), POLLIN)) {
        throw StepFailed("the connection to the software manager stays open");
    }
    if (const auto frame = receive(); !frame || !frame->empty()) {
        throw StepFailed(fmt::format("the software manager was sent {}; the end of the connection was expected",
                                     describe(frame.value_or(""))));
    }
    m_connection.reset();
}

void GantiServer::discardAll()
{
    if (m_connection == nullptr) {
        return;
    }
    for (auto frame = receive(); frame && !frame->empty(); frame = receive()) {
    }
}

void GantiServer::sendMessage(std::uint32_t msgNo, std::uint32_t procRef, const google::protobuf::Message& message)
{
    std::string frame;
    appendWord(frame, msgNo);
    appendWord(frame, procRef);
    message.AppendToString(&frame);
    sendFrame(frame);
}

void GantiServer::sendFrame(std::string_view bytes)
{
    ploe_socket* const to = connection();
    if (bytes.empty()) { // which the library doesn't send
        ::send(ploe_fd(to), bytes.data(), 0, MSG_NOSIGNAL);
        return;
    }
    while (ploe_send(to, bytes.data(), bytes.size()) != 0) {
        if (errno != EAGAIN || !waitFor(to, POLLOUT)) {
            throw StepFailed(fmt::format("the software manager can't send: {}", std::strerror(errno)));
        }
    }
}

} // namespace TestUnit
