/// The debug command "deepsleep".
#pragma once

#include "zephrin/cmdTableHelper.h"

#include <cstdint>
#include <memory>

class UlmoQueue;
class YarrowIClient;

inline constexpr const char* deepSleepCommand = "deepsleep";

/// The command's table. It makes the command line a client of the yarrowi server, with a connection of its own, the
/// ulmo session. A command sends its request and waits for the answer on the thread that it runs on; what it does with
/// the connections it does on the server thread, which calls this.
Zephrin::CmdTableHelper::V2::CmdTable makeDeepSleepCommands(YarrowIClient& client, std::uint32_t privateMbox,
                                                            std::shared_ptr<UlmoQueue> queue);
