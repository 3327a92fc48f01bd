/// The test's own thread in the place of the server thread: sessions, clients and components run on it, and what they
/// are sent is dispatched by the test's steps. It sees what no peer does: records, states, results.
#pragma once

#include "unit.h"
#include "vornServerCommonData.h"

#include <functional>

class ServerThread
{
public:
    ServerThread();
    ~ServerThread();
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    /// Dispatches what has come and comes until `isDone`.
    void handleUntil(const std::function<bool()>& isDone);
    /// Dispatches all that this thread has sent to itself.
    void settle();

    TestUnit::Post post;
    VornServerCommonData commonData;
};
