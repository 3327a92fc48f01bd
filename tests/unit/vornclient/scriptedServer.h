/// A "VornServer" with its private mailbox, on a thread of its own, that answers as a test tells it.
#pragma once

#include "kiv/kiv.h"

#include <cstdint>
#include <functional>
#include <future>
#include <string_view>
#include <thread>

class ScriptedServer
{
public:
    /// Runs on the server's thread for every signal. It may call reply and the two of publication.
    using Script = std::function<void(ScriptedServer& server, const kiv_msg* signal)>;

    /// Published when the constructor returns.
    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    /// Answers, from the mailbox that was asked, with the references of the request and the bytes behind them.
    void reply(const kiv_msg* request, std::uint32_t number, std::string_view payload = {}) const;
    /// The same with another second reference.
    void replyWithRef(const kiv_msg* request, std::uint32_t number, std::uint32_t secondRef,
                      std::string_view payload) const;
    /// A signal of this size, zero behind its number.
    void replyOfSize(const kiv_msg* request, std::uint32_t number, std::uint32_t size) const;
    void publish();
    void withdraw();

private:
    void run(std::promise<kiv_mbox_id_t> started);

    Script m_script;
    kiv_mbox_id_t m_public = KIV_NO_MBOX;
    kiv_mbox_id_t m_private = KIV_NO_MBOX;
    kiv_mbox_id_t m_own = KIV_NO_MBOX;
    std::thread m_thread;
};
