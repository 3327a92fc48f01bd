/// A server that is reached through message sockets.
///
/// What a client can make it keep is bounded: a client that doesn't take what it is sent isn't read from either.
#pragma once

#include "tools/boardsim/core/server.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct ploe_socket;

namespace boardsim {

class PloeServer : public Server
{
public:
    /// The most clients that are let in at once.
    static constexpr std::uint32_t maxClients = 256;

protected:
    PloeServer(std::string name, std::string address);

    /// A message of a client; the bytes live during the call.
    virtual void receive(std::uint32_t client, std::span<const std::byte> message) = 0;

    virtual void clientLost(std::uint32_t client) = 0;

    /// The address is this server's now. Throws std::runtime_error.
    virtual void opened() {}

    virtual void dropState() = 0;

    /// Sends now, or when the client makes room. To one that is gone: dropped.
    void send(std::uint32_t client, std::string message);

    void showState(Json& server) const override;

private:
    struct Close {
        void operator()(ploe_socket* socket) const;
    };
    using Socket = std::unique_ptr<ploe_socket, Close>;

    struct Client {
        Socket socket;
        std::deque<std::string> unsent;
    };

    void open() override;
    void close() override;
    void acceptOne();
    void serve(std::uint32_t ref);
    bool sendRest(Client& client);
    bool sendOne(Client& client, const std::string& message);
    void lose(std::uint32_t ref);

    std::string m_address;
    Socket m_listener;
    std::map<std::uint32_t, Client> m_clients; ///< by a reference of the server's own
    std::uint32_t m_lastClient = 0;
    std::vector<std::byte> m_buffer;
};

} // namespace boardsim
