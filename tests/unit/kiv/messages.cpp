#include "peers.h"

#include <poll.h>
#include <thread>

namespace kivtest {
namespace {

unsigned char expectedByte(std::uint32_t number, std::uint32_t at)
{
    return static_cast<unsigned char>(number * 31 + at * 7 + at / 251);
}

/// Of a large message only some bytes are checked.
std::uint32_t stepOf(std::uint32_t size)
{
    return size > 4096 ? 61 : 1;
}

} // namespace

Msg makeMsg(std::uint32_t number, std::uint32_t size)
{
    Msg msg(kiv_alloc(size, number));
    auto* bytes = reinterpret_cast<unsigned char*>(msg.get());
    for (std::uint32_t at = sizeof(kiv_msg); at < size; at += stepOf(size)) {
        bytes[at] = expectedByte(number, at);
    }
    return msg;
}

bool isIntact(const kiv_msg& msg)
{
    const auto* bytes = reinterpret_cast<const unsigned char*>(&msg);
    for (std::uint32_t at = sizeof(kiv_msg); at < kiv_size(&msg); at += stepOf(kiv_size(&msg))) {
        if (bytes[at] != expectedByte(msg.number, at)) {
            return false;
        }
    }
    return true;
}

void send(kiv_mbox_id_t receiver, std::uint32_t number, std::uint32_t size, kiv_mbox_id_t sender)
{
    kiv_msg* msg = makeMsg(number, size).release();
    kiv_send(&msg, receiver, sender);
}

Msg receive(std::uint32_t timeout, kiv_mbox_id_t sender)
{
    return Msg(kiv_receive(nullptr, timeout, sender));
}

kiv_mbox_id_t find(const std::string& name)
{
    kiv_mbox_id_t id = KIV_NO_MBOX;
    eventually([&] { return (id = kiv_locate(name.c_str())) != KIV_NO_MBOX; });
    return id;
}

bool readable(int timeout)
{
    pollfd state{kiv_get_fd(), POLLIN, 0};
    return ::poll(&state, 1, timeout) == 1;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

} // namespace kivtest
