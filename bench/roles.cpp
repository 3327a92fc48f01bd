#include "roles.h"

#include "board.h"
#include "channels.h"
#include "child.h"
#include "fanOut.h"
#include "load.h"
#include "swarm.h"

#include <map>

namespace Bench {
namespace {

using Words = std::vector<std::string>;

struct Role {
    std::size_t arguments;
    std::function<void(const Words&)> play;
};

void playSwarm(const Words& words)
{
    useRunDir(words[1]);
    runSwarm(words[2], static_cast<Clients>(std::stoul(words[3])), static_cast<unsigned>(std::stoul(words[4])),
             sayReady);
}

void playSocketFaultHub(const Words& words)
{
    runSocketFaultHub(words[1], static_cast<unsigned>(std::stoul(words[2])), sayReady);
}

const std::map<std::string, Role>& roles()
{
    static const std::map<std::string, Role> table{
        {"board", {0, [](const Words&) { runBoard(sayReady); }}},
        {"clients", {1, [](const Words& words) { runClients(words[1]); }}},
        {"kivClient", {1, [](const Words& words) { runKivClient(words[1], sayReady); }}},
        {"kivEcho", {1, [](const Words& words) { runKivEcho(words[1], sayReady); }}},
        {"kivSubscriber", {1, [](const Words& words) { runKivSubscriber(words[1], sayReady); }}},
        {"socketEcho", {1, [](const Words& words) { runSocketEcho(words[1], sayReady); }}},
        {"socketFaultHub", {2, playSocketFaultHub}},
        {"socketFaultSender", {1, [](const Words& words) { runSocketFaultSender(words[1], sayReady); }}},
        {"socketLoadRelay", {1, [](const Words& words) { runSocketLoadRelay(words[1], sayReady); }}},
        {"socketLoadSink", {1, [](const Words& words) { runSocketLoadSink(words[1], sayReady); }}},
        {"socketRelay", {2, [](const Words& words) { runSocketRelay(words[1], words[2], sayReady); }}},
        {"socketSubscriber", {1, [](const Words& words) { runSocketSubscriber(words[1], sayReady); }}},
        {"swarm", {4, playSwarm}},
        {"zmqPairEcho", {1, [](const Words& words) { runZmqPairEcho(words[1], sayReady); }}},
        {"zmqRelay", {2, [](const Words& words) { runZmqRelay(words[1], words[2], sayReady); }}},
        {"zmqRelayedEcho", {1, [](const Words& words) { runZmqRelayedEcho(words[1], sayReady); }}},
    };
    return table;
}

} // namespace

void playRole(const std::vector<std::string>& words)
{
    const auto role = roles().find(words.front());
    if (role == roles().end() || words.size() != role->second.arguments + 1) {
        throw Failed("no such role: " + words.front());
    }
    role->second.play(words);
}

} // namespace Bench
