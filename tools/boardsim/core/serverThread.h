/// A server on a thread of its own.
#pragma once

#include "tools/boardsim/core/server.h"

#include "ostinel/activeObject.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace boardsim {

class ServerThread
{
public:
    using Factory = std::function<std::unique_ptr<Server>()>;

    /// Makes the server on its thread; it isn't started yet. Throws std::runtime_error.
    ServerThread(std::string name, const Factory& make);

    /// Stops the server and ends the thread.
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    const std::string& name() const { return m_name; }

    /// Calls `function` with the server on its thread, waits for it, and gives back what it returns. What it throws
    /// comes out as a std::runtime_error with the same text. From any other thread.
    template <typename Function>
    auto call(Function function)
    {
        using Result = std::invoke_result_t<Function, Server&>;
        if constexpr (std::is_void_v<Result>) {
            runAndWait([&] { function(*m_server); });
        } else {
            std::optional<Result> result;
            runAndWait([&] { result.emplace(function(*m_server)); });
            return std::move(*result);
        }
    }

private:
    void runAndWait(const std::function<void()>& function);

    std::string m_name;
    std::unique_ptr<Server> m_server; ///< touched on the thread only
    std::shared_ptr<Ostinel::ActiveObject::V1::ActiveObjectIf> m_thread;
};

} // namespace boardsim
