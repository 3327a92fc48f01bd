#include "scriptedServer.h"

#include "vorni/access.h"

#include <string>
#include <utility>

namespace {

constexpr std::uint32_t stop = 0x7FFFFFFF;
constexpr std::uint32_t headerSize = 12;

} // namespace

ScriptedServer::ScriptedServer(Script script) : m_script(std::move(script))
{
    std::promise<kiv_mbox_id_t> started;
    auto mailbox = started.get_future();
    m_thread = std::thread([this, promise = std::move(started)]() mutable { run(std::move(promise)); });
    m_own = mailbox.get();
}

ScriptedServer::~ScriptedServer()
{
    kiv_msg* message = kiv_alloc(sizeof(kiv_msg), stop);
    kiv_send(&message, m_own, KIV_NO_MBOX);
    m_thread.join();
}

void ScriptedServer::run(std::promise<kiv_mbox_id_t> started)
{
    const kiv_mbox_id_t own = kiv_create_mailbox("scriptedServer");
    publish();
    started.set_value(own);
    while (kiv_msg* signal = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER)) {
        const bool ends = signal->number == stop;
        if (!ends) {
            m_script(*this, signal);
        }
        kiv_free(signal);
        if (ends) {
            return;
        }
    }
}

void ScriptedServer::reply(const kiv_msg* request, std::uint32_t number, std::string_view payload) const
{
    const auto* header = viewSignal<VornSignalHeader>(request);
    replyWithRef(request, number, header != nullptr ? header->serverRef.value() : 0, payload);
}

void ScriptedServer::replyWithRef(const kiv_msg* request, std::uint32_t number, std::uint32_t secondRef,
                                  std::string_view payload) const
{
    kiv_msg* answer = kiv_alloc(headerSize + static_cast<std::uint32_t>(payload.size()), number);
    if (const auto* header = viewSignal<VornSignalHeader>(request)) {
        viewSignal<VornSignalHeader>(answer)->setReferences(header->clientRef, secondRef);
    }
    payload.copy(reinterpret_cast<char*>(answer) + headerSize, payload.size());
    kiv_send(&answer, kiv_sender(request), kiv_receiver(request));
}

void ScriptedServer::replyOfSize(const kiv_msg* request, std::uint32_t number, std::uint32_t size) const
{
    kiv_msg* answer = kiv_alloc(size, number);
    kiv_send(&answer, kiv_sender(request), m_public);
}

void ScriptedServer::publish()
{
    m_private = kiv_clone_mailbox(kiv_current_mbox(), "private_VornServer");
    m_public = kiv_clone_mailbox(kiv_current_mbox(), "VornServer");
}

void ScriptedServer::withdraw()
{
    kiv_delete_mailbox(std::exchange(m_public, KIV_NO_MBOX));
    kiv_delete_mailbox(std::exchange(m_private, KIV_NO_MBOX));
}
