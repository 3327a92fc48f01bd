/// kiv calls that fail with an exception.
#pragma once

#include "kiv/kiv.h"
#include "measure.h"

#include <memory>
#include <string>

namespace Bench {

struct MessageFree {
    void operator()(kiv_msg* msg) const { kiv_free(msg); }
};
using MessagePtr = std::unique_ptr<kiv_msg, MessageFree>;

inline kiv_mbox_id_t createMailbox(const std::string& name)
{
    const kiv_mbox_id_t mbox = kiv_create_mailbox(name.c_str());
    if (mbox == KIV_NO_MBOX) {
        throw Failed("no mailbox " + name);
    }
    return mbox;
}

inline kiv_mbox_id_t cloneMailbox(kiv_mbox_id_t parent, const std::string& name)
{
    const kiv_mbox_id_t mbox = kiv_clone_mailbox(parent, name.c_str());
    if (mbox == KIV_NO_MBOX) {
        throw Failed("no mailbox " + name);
    }
    return mbox;
}

/// The next message of the calling thread.
inline MessagePtr receiveMessage()
{
    constexpr auto timeout = static_cast<std::uint32_t>(std::chrono::milliseconds(patience).count());
    MessagePtr message(kiv_receive(nullptr, timeout, KIV_ANY_SENDER));
    if (!message) {
        throw Failed("kiv: nothing comes back");
    }
    return message;
}

/// Waits until a mailbox of this name exists.
inline kiv_mbox_id_t awaitMailbox(const std::string& name)
{
    constexpr std::uint32_t found = 1;
    kiv_hunt(name.c_str(), kiv_alloc(sizeof(std::uint32_t), found));
    const MessagePtr message = receiveMessage();
    if (message->number != found) {
        throw Failed("a message comes before " + name);
    }
    return kiv_sender(message.get());
}

} // namespace Bench
