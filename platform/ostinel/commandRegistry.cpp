// The registry has one thread of its own, on whose event loop it accepts connections, reads words and writes answers,
// so that neither a slow client nor a command holds up anyone else. A command on a loop is posted there and its output
// comes back as a whole; a command on a thread of its own writes to the connection itself.

#include "ostinel/commandRegistry.h"

#include "ostinel/activeObject.h"
#include "ostinel/commandConnection.h"
#include "ostinel/commandFolder.h"
#include "ostinel/commandProtocol.h"
#include "ostinel/eventLoop.h"
#include "ostinel/postQueue.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sstream>
#include <streambuf>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>

namespace Ostinel::CommandRegistry::V1 {
namespace {

using ActiveObject::V1::ActiveObjectIf;
using EventLoop::V1::EventLoopIf;
using ConnectionPtr = std::shared_ptr<CommandConnection>;
using Words = std::vector<std::string>;

constexpr std::chrono::milliseconds acceptPause(100);
constexpr std::size_t longestThreadName = 15;

struct Entry {
    Command command;
    std::shared_ptr<PostQueue> loop; ///< where it runs; null: on a thread of its own
    std::atomic<bool> withdrawn = false;
};
using EntryPtr = std::shared_ptr<Entry>;

/// Output to a connection: a block whenever it is flushed or the buffer is full. What a client that is gone doesn't
/// take is dropped, so that the command runs to its end.
class BlockBuffer final : public std::streambuf
{
public:
    explicit BlockBuffer(UniqueFd socket) : m_socket(std::move(socket)) { restart(); }

    void end(int exitCode)
    {
        sync();
        m_gone = m_gone || !sendAll(m_socket.get(), frameEnd(exitCode));
    }

protected:
    int sync() override
    {
        const auto size = static_cast<std::size_t>(pptr() - pbase());
        if (size > 0) {
            putLength(m_buffer.data(), static_cast<std::uint32_t>(size));
            m_gone = m_gone || !sendAll(m_socket.get(), {m_buffer.data(), lengthSize + size});
            restart();
        }
        return 0;
    }

    int_type overflow(int_type character) override
    {
        sync();
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            sputc(traits_type::to_char_type(character));
        }
        return traits_type::not_eof(character);
    }

private:
    void restart() { setp(m_buffer.data() + lengthSize, m_buffer.data() + m_buffer.size()); }

    UniqueFd m_socket;
    std::array<char, 8192> m_buffer;
    bool m_gone = false;
};

int runCommand(const Command& command, const Words& words, std::ostream& out)
{
    try {
        return command(words, out);
    } catch (const std::exception& exception) {
        out << exception.what() << '\n';
    } catch (...) {
        out << "unknown exception\n";
    }
    return exitCrashed;
}

class Registry final : public CommandRegistryIf
{
public:
    int registerCommand(const std::string& name, Command command, std::uint32_t where) override;
    void unregisterCommand(const std::string& name) override;

    /// At the end of the process: nothing of the registry is left in the folder.
    void shutDown();

private:
    int startListening();
    void acceptClient(int listener);
    void startCommand(const ConnectionPtr& connection, Words words);
    void startOnLoop(const EntryPtr& entry, const ConnectionPtr& connection, Words words);
    void startOnOwnThread(const EntryPtr& entry, const ConnectionPtr& connection, Words words);
    void runOnOwnThread(const Entry& entry, UniqueFd socket, const Words& words);
    void answer(const ConnectionPtr& connection, const std::string& output, int exitCode);

    std::mutex m_mutex;
    std::map<std::string, EntryPtr> m_entries;
    CommandFolder m_folder;
    UniqueFd m_listener;
    std::shared_ptr<ActiveObjectIf> m_thread;
    std::atomic<pid_t> m_owner = 0; ///< a forked child has neither the thread nor the right to remove the files
    bool m_ended = false;

    std::atomic<std::size_t> m_connections = 0;
    std::atomic<unsigned> m_ownThreads = 0;
};

int Registry::registerCommand(const std::string& name, Command command, std::uint32_t where)
{
    if (!isCommandName(name) || !command || where > onOwnThread) {
        return EINVAL;
    }
    auto entry = std::make_shared<Entry>();
    entry->command = std::move(command);
    entry->loop = where == onLoop ? currentLoopQueue() : nullptr;

    const std::lock_guard lock(m_mutex);
    if (m_entries.contains(name)) {
        return EEXIST;
    }
    int error = startListening();
    if (error == 0) {
        error = m_folder.link(name);
    }
    if (error == 0) {
        m_entries.emplace(name, std::move(entry)); // a client that saw the link first waits for the mutex
    }
    return error;
}

void Registry::unregisterCommand(const std::string& name)
{
    EntryPtr removed; // outside the lock: what the command holds may come back here when it goes
    const std::lock_guard lock(m_mutex);
    const auto found = m_entries.find(name);
    if (found != m_entries.end() && m_owner == ::getpid()) {
        removed = std::move(found->second);
        removed->withdrawn = true;
        m_entries.erase(found);
        m_folder.unlink(name);
    }
}

int Registry::startListening()
{
    if (m_ended) {
        return ESHUTDOWN;
    }
    if (m_thread) {
        return m_owner == ::getpid() ? 0 : ECHILD;
    }
    int error = m_folder.make();
    if (error == 0 && !m_listener) {
        error = m_folder.listen(m_listener);
    }
    if (error != 0) {
        return error;
    }
    m_owner = ::getpid();
    m_thread = ActiveObjectIf::create("commands",
                                      [this, listener = m_listener.get()] {
                                          EventLoopIf::getInstance().addFd(listener, EPOLLIN,
                                                                           [this](int fd) { acceptClient(fd); });
                                      },
                                      {});
    return m_thread ? 0 : EAGAIN;
}

void Registry::shutDown()
{
    if (m_owner != ::getpid()) { // before the mutex: a child may have been forked while it was locked
        return;
    }
    std::shared_ptr<ActiveObjectIf> thread;
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        thread = std::move(m_thread);
    }
    thread.reset(); // without the lock, which the thread takes to look a command up
    const std::lock_guard lock(m_mutex);
    for (const auto& [name, entry] : m_entries) {
        m_folder.unlink(name);
    }
    m_folder.removeSocket();
    m_listener = UniqueFd();
}

void Registry::acceptClient(int listener)
{
    UniqueFd socket(::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            EventLoopIf& loop = EventLoopIf::getInstance();
            loop.modifyFd(listener, 0); // the client stays in line and the descriptor readable: try again later
            loop.addTimer(acceptPause, [listener] { EventLoopIf::getInstance().modifyFd(listener, EPOLLIN); });
        }
        return;
    }
    if (m_connections < largestConnections) {
        const auto connection = std::make_shared<CommandConnection>(std::move(socket), m_connections);
        connection->readWords(
            [this](const ConnectionPtr& ready, Words words) { startCommand(ready, std::move(words)); });
    }
}

void Registry::startCommand(const ConnectionPtr& connection, Words words)
{
    EntryPtr entry;
    {
        const std::lock_guard lock(m_mutex);
        const auto found = words.empty() ? m_entries.end() : m_entries.find(words[0]);
        entry = found == m_entries.end() ? nullptr : found->second;
    }
    if (entry && entry->loop) {
        startOnLoop(entry, connection, std::move(words));
    } else if (entry) {
        startOnOwnThread(entry, connection, std::move(words));
    }
}

void Registry::startOnLoop(const EntryPtr& entry, const ConnectionPtr& connection, Words words)
{
    entry->loop->post([this, entry, connection, line = std::move(words)] {
        if (!entry->withdrawn) {
            std::ostringstream out;
            const int exitCode = runCommand(entry->command, line, out);
            answer(connection, out.str(), exitCode);
        }
    });
}

void Registry::startOnOwnThread(const EntryPtr& entry, const ConnectionPtr& connection, Words words)
{
    if (++m_ownThreads > largestOwnThreads) {
        --m_ownThreads;
        answer(connection, "too many commands are running\n", exitTooMany);
        return;
    }
    try {
        std::thread([this, entry, client = connection, line = std::move(words)]() mutable {
            UniqueFd socket = client->release();
            client.reset();
            runOnOwnThread(*entry, std::move(socket), line);
        }).detach();
    } catch (const std::system_error&) {
        --m_ownThreads;
        answer(connection, "no thread for the command\n", exitNoThread);
    }
}

void Registry::runOnOwnThread(const Entry& entry, UniqueFd socket, const Words& words)
{
    pthread_setname_np(pthread_self(), words[0].substr(0, longestThreadName).c_str());
    BlockBuffer buffer(std::move(socket));
    std::ostream out(&buffer);
    const int exitCode = runCommand(entry.command, words, out);
    --m_ownThreads; // before the client learns that there is room for another
    buffer.end(exitCode);
}

void Registry::answer(const ConnectionPtr& connection, const std::string& output, int exitCode)
{
    std::shared_ptr<ActiveObjectIf> thread;
    {
        const std::lock_guard lock(m_mutex);
        thread = m_thread;
    }
    if (thread) {
        thread->post([connection, bytes = frameOutput(output) + frameEnd(exitCode)] { connection->write(bytes); });
    }
}

} // namespace

CommandRegistryIf& CommandRegistryIf::getInstance()
{
    // Never destroyed: a command on a thread of its own may still run when the process ends.
    static Registry* const registry = [] {
        static auto* const made = new Registry;
        std::atexit([] { made->shutDown(); });
        return made;
    }();
    return *registry;
}

} // namespace Ostinel::CommandRegistry::V1
