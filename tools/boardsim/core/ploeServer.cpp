#include "tools/boardsim/core/ploeServer.h"

#include "ostinel/eventLoop.h"
#include "ploe/ploe.h"
#include "tools/boardsim/core/console.h"

#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <stdexcept>
#include <sys/epoll.h>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

constexpr int backlog = 16;

} // namespace

void PloeServer::Close::operator()(ploe_socket* socket) const
{
    EventLoopIf::getInstance().removeFd(ploe_fd(socket));
    ploe_close(socket);
}

PloeServer::PloeServer(std::string name, std::string address)
    : Server(std::move(name)), m_address(std::move(address)), m_buffer(PLOE_MAX_MSG_SIZE)
{
}

void PloeServer::open()
{
    dropState(); // what commands have done to it while it was stopped
    Socket listener(ploe_listen(m_address.c_str(), backlog));
    if (listener == nullptr) {
        throw std::runtime_error(fmt::format("no socket \"{}\": {}", m_address, std::strerror(errno)));
    }
    ploe_set_blocking(listener.get(), false);
    opened();
    m_listener = std::move(listener);
    EventLoopIf::getInstance().addFd(ploe_fd(m_listener.get()), EPOLLIN, [this](int) { acceptOne(); });
}

void PloeServer::close()
{
    m_listener.reset();
    m_clients.clear();
    dropState();
}

void PloeServer::acceptOne()
{
    Socket socket(ploe_accept(m_listener.get()));
    if (socket == nullptr) {
        if (errno != EAGAIN) {
            countBad(fmt::format("a client that can't be accepted: {}", std::strerror(errno)));
        }
        return;
    }
    if (m_clients.size() >= maxClients) {
        countBad("too many clients");
        return;
    }
    ploe_set_blocking(socket.get(), false);
    const int descriptor = ploe_fd(socket.get());
    const std::uint32_t ref = ++m_lastClient;
    m_clients[ref].socket = std::move(socket);
    EventLoopIf::getInstance().addFd(descriptor, EPOLLIN, [this, ref](int) { serve(ref); });
}

void PloeServer::serve(std::uint32_t ref)
{
    Client& client = m_clients.at(ref);
    if (!client.unsent.empty()) {
        if (!sendRest(client)) {
            lose(ref);
        }
        return;
    }
    const ssize_t size = ploe_receive(client.socket.get(), m_buffer.data(), m_buffer.size());
    if (size > 0) {
        receive(ref, {m_buffer.data(), static_cast<std::size_t>(size)});
    } else if (size < 0 && errno == EMSGSIZE) {
        countBad("larger than any message");
    } else if (size == 0 || errno != EAGAIN) {
        lose(ref);
    }
}

void PloeServer::send(std::uint32_t client, std::string message)
{
    const auto found = m_clients.find(client);
    if (found == m_clients.end()) {
        return;
    }
    Client& receiver = found->second;
    const bool isWaiting = !receiver.unsent.empty();
    if (!isWaiting && sendOne(receiver, message)) {
        return;
    }
    receiver.unsent.push_back(std::move(message));
    if (!isWaiting) {
        EventLoopIf::getInstance().modifyFd(ploe_fd(receiver.socket.get()), EPOLLOUT);
    }
}

/// False where there is no room for it now. One that can't be sent ever is dropped; that the client has closed its end
/// is told by what is received.
bool PloeServer::sendOne(Client& client, const std::string& message)
{
    if (ploe_send(client.socket.get(), message.data(), message.size()) != 0) {
        if (errno == EAGAIN) {
            return false;
        }
        if (errno != EPIPE) {
            countBad(fmt::format("an answer that can't be sent: {}", std::strerror(errno)));
        }
    }
    return true;
}

/// False where the client is gone.
bool PloeServer::sendRest(Client& client)
{
    while (!client.unsent.empty()) {
        const std::string& message = client.unsent.front();
        if (ploe_send(client.socket.get(), message.data(), message.size()) != 0) {
            return errno == EAGAIN;
        }
        client.unsent.pop_front();
    }
    EventLoopIf::getInstance().modifyFd(ploe_fd(client.socket.get()), EPOLLIN);
    return true;
}

void PloeServer::lose(std::uint32_t ref)
{
    console::traffic(name(), [&] { return fmt::format("lost client {}", ref); });
    m_clients.erase(ref);
    clientLost(ref);
}

void PloeServer::showState(Json& server) const
{
    server["address"] = m_address;
    std::size_t unsent = 0;
    for (const auto& [ref, client] : m_clients) {
        unsent += client.unsent.size();
    }
    server["clients"] = m_clients.size();
    server["unsent"] = unsent;
}

} // namespace boardsim
