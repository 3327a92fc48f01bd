/// The three ways that are compared: kiv, bare SOCK_SEQPACKET sockets, ZeroMQ over ipc.
///
/// The run... functions are the partners, each in a process of its own; they don't return but with an exception. They
/// call `ready` once a channel can be opened to them.
#pragma once

#include "measure.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Bench {

using Ready = std::function<void()>;

/// A signal that the server has no handler for: it goes through to the legacy server.
constexpr std::uint32_t relayedSignal = 0x1658777;

/// Messages from the calling thread's mailbox to `receiver`.
std::unique_ptr<Channel> openKivChannel(std::uint32_t receiver);
void runKivEcho(const std::string& name, const Ready& ready);
/// A client of `receiver`, an echo or the server. Makes as many round trips as a line of its standard input says, then
/// says again that it is ready.
void runKivClient(const std::string& receiver, const Ready& ready);

std::unique_ptr<Channel> openSocketChannel(const std::string& path);
void runSocketEcho(const std::string& path, const Ready& ready);
/// One client at `front`, an echo at `back`.
void runSocketRelay(const std::string& front, const std::string& back, const Ready& ready);

std::unique_ptr<Channel> openZmqPair(const std::string& path);
void runZmqPairEcho(const std::string& path, const Ready& ready);
/// Of a relay, the client's and the echo's end.
std::unique_ptr<Channel> openZmqDealer(const std::string& path);
void runZmqRelayedEcho(const std::string& path, const Ready& ready);
void runZmqRelay(const std::string& front, const std::string& back, const Ready& ready);

} // namespace Bench
