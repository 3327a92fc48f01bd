#include "channels.h"
#include "kiv/kiv.h"
#include "mailbox.h"
#include "unit.h"

#include <iostream>

namespace Bench {
namespace {

class KivChannel final : public Channel
{
public:
    explicit KivChannel(kiv_mbox_id_t receiver) : m_receiver(receiver) {}

    void send() override
    {
        kiv_msg* msg = kiv_alloc(messageSize, relayedSignal);
        kiv_send(&msg, m_receiver, KIV_CURRENT_MBOX);
    }

    void receive() override
    {
        const MessagePtr message = receiveMessage();
        if (message->number != relayedSignal || kiv_size(message.get()) != messageSize) {
            throw Failed("kiv: not the message that was sent");
        }
    }

private:
    kiv_mbox_id_t m_receiver;
};

} // namespace

std::unique_ptr<Channel> openKivChannel(std::uint32_t receiver)
{
    return std::make_unique<KivChannel>(receiver);
}

void runKivEcho(const std::string& name, const Ready& ready)
{
    createMailbox(name);
    ready();
    for (;;) {
        kiv_msg* msg = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER);
        kiv_send(&msg, kiv_sender(msg), KIV_CURRENT_MBOX);
    }
}

void runKivClient(const std::string& receiver, const Ready& ready)
{
    const kiv_mbox_id_t own = createMailbox("kivClient");
    const kiv_mbox_id_t partner = kiv_locate(receiver.c_str());
    if (receiver == "VornServer") {
        connectClient(own, partner);
    }
    KivChannel channel(partner);
    ready();
    for (unsigned count = 0; std::cin >> count;) {
        measureRoundTrips(channel, count);
        ready();
    }
}

} // namespace Bench
