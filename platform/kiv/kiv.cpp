/// The C interface: checks arguments, finds the calling thread's mailbox, keeps exceptions inside.

#include "kiv/kiv.h"

#include "kiv/id.h"
#include "kiv/message.h"
#include "kiv/process.h"
#include "tap/tap.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

namespace {

using namespace kiv;

/// Short of memory is the one thing that is thrown inside.
template <typename Result, typename Call>
Result guarded(Result failed, Call call) noexcept
{
    try {
        return call();
    } catch (const std::exception&) {
        errno = ENOMEM;
        return failed;
    }
}

bool isName(const char* name)
{
    if (name == nullptr) {
        return false;
    }
    const std::size_t length = ::strnlen(name, KIV_NAME_MAX + 1);
    return length > 0 && length <= KIV_NAME_MAX;
}

/// The calling thread's mailbox while it lives, else null.
ThreadMailbox* liveMailbox()
{
    ThreadMailbox* own = threadMailbox();
    return own != nullptr && own->queue && !own->queue->closed() ? own : nullptr;
}

MessagePtr owned(kiv_msg* msg)
{
    return MessagePtr(msg != nullptr ? Message::of(msg) : nullptr);
}

kiv_msg* handedOver(MessagePtr message)
{
    return message ? message.release()->payload() : nullptr;
}

kiv_mbox_id_t failed(int error)
{
    errno = error;
    return KIV_NO_MBOX;
}

} // namespace

int kiv_init(uint32_t /*mailboxes*/, uint32_t /*flags*/, uintptr_t /*reserved*/)
{
    return guarded(ENOMEM, [] {
        if (Process::get() == nullptr) {
            return errno;
        }
        tap::start();
        return 0;
    });
}

kiv_mbox_id_t kiv_create_mailbox(const char* name)
{
    return guarded(KIV_NO_MBOX, [=] {
        ThreadMailbox* own = threadMailbox();
        if (!isName(name)) {
            return failed(EINVAL);
        }
        if (own == nullptr || liveMailbox() != nullptr) {
            return failed(EBUSY);
        }
        Process* process = Process::get();
        if (process == nullptr) {
            return KIV_NO_MBOX;
        }
        own->queue = process->createQueue(name, own->first);
        return own->queue ? own->first : KIV_NO_MBOX;
    });
}

kiv_mbox_id_t kiv_clone_mailbox(kiv_mbox_id_t parent, const char* name)
{
    return guarded(KIV_NO_MBOX, [=] {
        const ThreadMailbox* own = liveMailbox();
        if (!isName(name) || own == nullptr || Process::get()->queueOfMailbox(parent) != own->queue) {
            return failed(EINVAL);
        }
        return Process::get()->addMailbox(own->queue, name);
    });
}

int kiv_delete_mailbox(kiv_mbox_id_t mbox)
{
    return guarded(ENOMEM, [=] {
        Process* process = Process::get();
        return process != nullptr && process->removeMailbox(mbox) ? 0 : ENOENT;
    });
}

kiv_mbox_id_t kiv_current_mbox(void)
{
    const ThreadMailbox* own = liveMailbox();
    return own != nullptr ? own->first : KIV_NO_MBOX;
}

int kiv_get_fd(void)
{
    const ThreadMailbox* own = liveMailbox();
    return own != nullptr ? own->queue->descriptor() : -1;
}

kiv_msg* kiv_alloc(uint32_t size, uint32_t number)
{
    MessagePtr message = isMessageSize(size) ? makeMessage(size, true) : nullptr;
    if (message) {
        message->payload()->number = number;
    }
    return handedOver(std::move(message));
}

void kiv_free(kiv_msg* msg)
{
    owned(msg);
}

void kiv_send(kiv_msg** msg, kiv_mbox_id_t receiver, kiv_mbox_id_t sender)
{
    if (msg == nullptr || *msg == nullptr) {
        return;
    }
    guarded(0, [&message = *msg, receiver, sender] {
        MessagePtr sent = owned(std::exchange(message, nullptr));
        const kiv_mbox_id_t visible = sender == KIV_CURRENT_MBOX ? kiv_current_mbox() : sender;
        // A thread without mailbox has no current one.
        const bool allowed = sender != KIV_CURRENT_MBOX || visible != KIV_NO_MBOX;
        Process* process = Process::get();
        if (process != nullptr && allowed && isMailboxId(receiver)) {
            process->send(std::move(sent), receiver, visible);
        }
        return 0;
    });
}

kiv_msg* kiv_receive(const uint32_t* filter, uint32_t timeout, kiv_mbox_id_t sender)
{
    return guarded(static_cast<kiv_msg*>(nullptr), [=]() -> kiv_msg* {
        const ThreadMailbox* own = liveMailbox();
        if (own == nullptr) {
            if (const ThreadMailbox* deleted = threadMailbox(); deleted != nullptr && deleted->queue) {
                deleted->queue->quieten();
            }
            return nullptr;
        }
        return handedOver(own->queue->receive({filter, sender}, timeout));
    });
}

kiv_mbox_id_t kiv_sender(const kiv_msg* msg)
{
    return Message::of(msg)->frame.sender;
}

kiv_mbox_id_t kiv_receiver(const kiv_msg* msg)
{
    return Message::of(msg)->frame.receiver;
}

uint32_t kiv_size(const kiv_msg* msg)
{
    return Message::of(msg)->frame.size;
}

uint32_t kiv_monitor(kiv_mbox_id_t mbox, kiv_msg* msg)
{
    return guarded(0U, [=] {
        MessagePtr message = owned(msg);
        const ThreadMailbox* own = liveMailbox();
        if (own == nullptr || !message) {
            return 0U;
        }
        return Process::get()->monitor(mbox, std::move(message), own->queue, own->first);
    });
}

void kiv_unmonitor(uint32_t ref)
{
    guarded(0, [=] {
        if (const ThreadMailbox* own = liveMailbox(); own != nullptr && ref != 0) {
            Process::get()->unmonitor(ref, *own->queue, own->first);
        }
        return 0;
    });
}

kiv_mbox_id_t kiv_locate(const char* name)
{
    return guarded(KIV_NO_MBOX, [=] {
        Process* process = isName(name) ? Process::get() : nullptr;
        return process != nullptr ? process->locate(name) : KIV_NO_MBOX;
    });
}

uint32_t kiv_hunt(const char* name, kiv_msg* msg)
{
    return guarded(0U, [=] {
        MessagePtr message = owned(msg);
        const ThreadMailbox* own = liveMailbox();
        if (own == nullptr || !message || !isName(name)) {
            return 0U;
        }
        return Process::get()->hunt(name, std::move(message), own->queue, own->first);
    });
}

void kiv_unhunt(uint32_t ref)
{
    guarded(0, [=] {
        if (const ThreadMailbox* own = liveMailbox(); own != nullptr && ref != 0) {
            Process::get()->unhunt(ref, *own->queue);
        }
        return 0;
    });
}
