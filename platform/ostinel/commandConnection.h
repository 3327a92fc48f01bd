/// One client's connection to the command registry.
#pragma once

#include "uniqueFd.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Ostinel {

/// Reads the words, is handed to whoever runs the command, and writes the answer back. It never blocks: its work is
/// done by callbacks of the event loop of the registry's thread, which hold it. When nobody holds it any more, the
/// connection is closed.
class CommandConnection : public std::enable_shared_from_this<CommandConnection>
{
public:
    using OnWords = std::function<void(const std::shared_ptr<CommandConnection>&, std::vector<std::string>)>;

    /// `socket` is non-blocking. `count` is one higher while the connection lives.
    CommandConnection(UniqueFd socket, std::atomic<std::size_t>& count);
    ~CommandConnection();
    CommandConnection(const CommandConnection&) = delete;
    CommandConnection& operator=(const CommandConnection&) = delete;

    /// Reads up to the end of the words and hands them over, or closes. On the registry's thread.
    void readWords(OnWords onWords);

    /// Writes an answer, then closes. On the registry's thread.
    void write(std::string answer);

    /// Gives the socket away, to be written to by another thread.
    UniqueFd release() { return std::move(m_socket); }

private:
    void onReadable(const OnWords& onWords);
    void onWritable();
    void watch(std::uint32_t events, std::function<void()> onReady);
    void unwatch();
    void limitTo(std::chrono::seconds deadline);

    UniqueFd m_socket;
    std::atomic<std::size_t>& m_count;
    std::uint32_t m_timer = 0;
    std::string m_bytes; ///< read so far, later what is to be written
    std::size_t m_written = 0;
};

} // namespace Ostinel
