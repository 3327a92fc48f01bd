#include "tools/boardsim/core/serverThread.h"

#include <future>
#include <stdexcept>

namespace boardsim {

using Ostinel::ActiveObject::V1::ActiveObjectIf;

ServerThread::ServerThread(std::string name, const Factory& make)
    : m_name(std::move(name)), m_thread(ActiveObjectIf::create(m_name, [] {}, {}))
{
    if (m_thread == nullptr) {
        throw std::runtime_error("no thread for " + m_name);
    }
    runAndWait([this, &make] { m_server = make(); });
}

ServerThread::~ServerThread()
{
    runAndWait([this] {
        m_server->stop();
        m_server.reset();
    });
}

/// An exception stays on its thread: its text alone changes over.
void ServerThread::runAndWait(const std::function<void()>& function)
{
    using Failure = std::optional<std::string>;
    const auto done = std::make_shared<std::promise<Failure>>();
    std::future<Failure> outcome = done->get_future();
    m_thread->post([done, &function] {
        Failure failure;
        try {
            function();
        } catch (const std::exception& error) {
            failure = error.what();
        }
        done->set_value(std::move(failure));
    });
    if (const Failure failure = outcome.get()) {
        throw std::runtime_error(*failure);
    }
}

} // namespace boardsim
