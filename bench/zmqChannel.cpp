#include "channels.h"

#include <array>
#include <zmq.h>

namespace Bench {
namespace {

/// Frames in front of the message: the identity that a relay adds.
constexpr std::size_t largestIdentity = 256;

void check(bool done, const char* what)
{
    if (!done) {
        throw Failed(std::string("ZeroMQ: ") + what + ": " + zmq_strerror(zmq_errno()));
    }
}

class Context
{
public:
    Context() : m_context(zmq_ctx_new()) { check(m_context != nullptr, "context"); }
    ~Context() { zmq_ctx_term(m_context); }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    void* get() const { return m_context; }

private:
    void* m_context;
};

class ZmqSocket
{
public:
    ZmqSocket(const Context& context, int type) : m_socket(zmq_socket(context.get(), type))
    {
        check(m_socket != nullptr, "socket");
        set(ZMQ_LINGER, 0);
    }
    ~ZmqSocket() { zmq_close(m_socket); }
    ZmqSocket(const ZmqSocket&) = delete;
    ZmqSocket& operator=(const ZmqSocket&) = delete;

    void* get() const { return m_socket; }
    void set(int option, int value) { check(zmq_setsockopt(m_socket, option, &value, sizeof value) == 0, "option"); }
    void bind(const std::string& path) { check(zmq_bind(m_socket, ("ipc://" + path).c_str()) == 0, "bind"); }
    void connect(const std::string& path) { check(zmq_connect(m_socket, ("ipc://" + path).c_str()) == 0, "connect"); }

private:
    void* m_socket;
};

class ZmqChannel final : public Channel
{
public:
    ZmqChannel(int type, const std::string& path) : m_socket(m_context, type)
    {
        m_socket.set(ZMQ_RCVTIMEO, static_cast<int>(std::chrono::milliseconds(patience).count()));
        m_socket.connect(path);
    }

    void send() override
    {
        check(zmq_send(m_socket.get(), m_buffer.data(), m_buffer.size(), 0) == messageSize, "send");
    }
    void receive() override
    {
        check(zmq_recv(m_socket.get(), m_buffer.data(), m_buffer.size(), 0) == messageSize, "receive");
    }

private:
    Context m_context;
    ZmqSocket m_socket;
    std::array<std::byte, messageSize> m_buffer{};
};

} // namespace

std::unique_ptr<Channel> openZmqPair(const std::string& path)
{
    return std::make_unique<ZmqChannel>(ZMQ_PAIR, path);
}

std::unique_ptr<Channel> openZmqDealer(const std::string& path)
{
    return std::make_unique<ZmqChannel>(ZMQ_DEALER, path);
}

void runZmqPairEcho(const std::string& path, const Ready& ready)
{
    const Context context;
    ZmqSocket socket(context, ZMQ_PAIR);
    socket.bind(path);
    ready();
    std::array<std::byte, messageSize> buffer;
    for (;;) {
        check(zmq_recv(socket.get(), buffer.data(), buffer.size(), 0) == messageSize, "receive");
        check(zmq_send(socket.get(), buffer.data(), buffer.size(), 0) == messageSize, "send");
    }
}

void runZmqRelayedEcho(const std::string& path, const Ready& ready)
{
    const Context context;
    ZmqSocket socket(context, ZMQ_DEALER);
    socket.connect(path);
    ready();
    std::array<std::byte, largestIdentity> identity;
    std::array<std::byte, messageSize> buffer;
    for (;;) {
        const int length = zmq_recv(socket.get(), identity.data(), identity.size(), 0);
        check(length > 0, "receive");
        check(zmq_recv(socket.get(), buffer.data(), buffer.size(), 0) == messageSize, "receive");
        check(zmq_send(socket.get(), identity.data(), static_cast<std::size_t>(length), ZMQ_SNDMORE) == length, "send");
        check(zmq_send(socket.get(), buffer.data(), buffer.size(), 0) == messageSize, "send");
    }
}

void runZmqRelay(const std::string& front, const std::string& back, const Ready& ready)
{
    const Context context;
    ZmqSocket clients(context, ZMQ_ROUTER);
    ZmqSocket servers(context, ZMQ_DEALER);
    clients.bind(front);
    servers.bind(back);
    ready();
    zmq_proxy(clients.get(), servers.get(), nullptr);
}

} // namespace Bench
