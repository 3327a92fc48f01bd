/// The software manager, played by the test.
///
///     GantiServer ganti;
///     ganti.appear();                                         // before the server starts: it connects then
///     const auto request = ganti.expect<gant::AcquireResourceReq>();
///     gant::AcquireResourceCfm cfm;
///     cfm.set_ticket_request_reference(request.body.ticket_request_reference());
///     request.reply(cfm);
///
/// It has no thread: it takes the connection and the messages when a step asks for them, and waits with a deadline.
#pragma once

#include "step.h"

#include <cstdint>
#include <google/protobuf/message.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct ploe_socket;

namespace TestUnit {

class GantiServer;

/// A frame as it goes over the connection.
struct GantiFrame {
    std::uint32_t msgNo = 0;
    std::uint32_t procRef = 0;
    std::string body; ///< the encoding behind the header
};

/// A request that the software manager has got.
template <typename Message>
struct GantiRequest {
    Message body;
    std::uint32_t procRef = 0;
    GantiServer* server = nullptr;

    /// Answers it, with its procedure reference.
    template <typename Answer>
    void reply(const Answer& answer) const;
};

class GantiServer
{
public:
    GantiServer();
    ~GantiServer();
    GantiServer(const GantiServer&) = delete;
    GantiServer& operator=(const GantiServer&) = delete;

    /// Listens at its address: who connects is taken by the first step that needs the connection.
    void appear();
    /// As if its process had died: it listens no more, and the client is told of the end of the connection.
    void die();
    bool isThere() const { return m_listener != nullptr; }

    /// The next message, which must be this one.
    template <typename Message>
    GantiRequest<Message> expect()
    {
        const GantiFrame frame = expectNumber(Message::MESSAGE_NUMBER);
        GantiRequest<Message> request;
        if (!request.body.ParseFromString(frame.body)) {
            throw StepFailed(request.body.GetTypeName() + " to the software manager doesn't parse");
        }
        request.procRef = frame.procRef;
        request.server = this;
        return request;
    }
    /// The next frame, whatever it is, which must have this number.
    GantiFrame expectNumber(std::uint32_t msgNo);
    /// Fails where a frame is waiting. Call settle of the unit before.
    void expectNothing();
    /// Waits until the client closes the connection. The next step takes a new one.
    void expectClosed();
    /// Throws away what is waiting.
    void discardAll();

    /// Sends a message with any reference, to who connected last.
    template <typename Message>
    void send(std::uint32_t procRef, const Message& message)
    {
        sendMessage(Message::MESSAGE_NUMBER, procRef, message);
    }
    void sendMessage(std::uint32_t msgNo, std::uint32_t procRef, const google::protobuf::Message& message);
    /// Sends a frame of any bytes, the header included. No bytes at all are the end of the connection to the client.
    void sendFrame(std::string_view bytes);

    /// Whether the client has taken all that was sent, and has closed its end of a connection that died. What it does
    /// with the last of it may still be going on.
    bool isAllTaken() const;

private:
    struct Close {
        void operator()(ploe_socket* socket) const;
    };
    using Socket = std::unique_ptr<ploe_socket, Close>;

    ploe_socket* connection();
    std::optional<std::string> receive();

    Socket m_listener;
    Socket m_connection;
    Socket m_dying; ///< its end is told, and the client's end not seen to be closed yet
};

template <typename Message>
template <typename Answer>
void GantiRequest<Message>::reply(const Answer& answer) const
{
    server->send(procRef, answer);
}

} // namespace TestUnit
