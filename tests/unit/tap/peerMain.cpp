/// A process that starts its tap and then does what it is asked to over its standard input, a packet socket.

#include "tap/folder.h"
#include "tap/listener.h"
#include "tap/packet.h"
#include "tap/tap.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0";
}

namespace {

/// The sender is the thread, the receiver the number of the message.
void copy(std::uint32_t thread, std::uint32_t number, const std::vector<std::byte>& message)
{
    if (tap::isOpen()) {
        tap::copy({.carrier = tap::Carrier::kiv,
                   .sender = thread,
                   .receiver = number,
                   .size = message.size(),
                   .bytes = message.data()});
    }
}

/// send THREADS COUNT SIZE: as many threads send COUNT messages each, with numbers that go on from call to call.
std::string send(std::istream& arguments)
{
    static std::uint32_t last = 0;
    std::uint32_t threads = 0;
    std::uint32_t count = 0;
    std::size_t size = 0;
    arguments >> threads >> count >> size;
    const std::vector<std::byte> message(size);
    std::vector<std::thread> senders;
    for (std::uint32_t thread = 1; thread <= threads; ++thread) {
        senders.emplace_back([&, thread] {
            for (std::uint32_t i = 1; i <= count; ++i) {
                copy(thread, last + i, message);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    last += count;
    return "sent";
}

/// flood: a thread sends until "stop".
class Flood
{
public:
    std::string start()
    {
        m_thread = std::thread([this] {
            const std::vector<std::byte> message(500);
            for (std::uint32_t number = 1; !m_stop; ++number) {
                copy(1, number, message);
            }
        });
        return "flooding";
    }
    std::string stop()
    {
        m_stop = true;
        m_thread.join();
        return "stopped";
    }

private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

/// intrude: connects to the listener that is there without asking whose it is, and sends a packet.
std::string intrude(const tap::Folder& folder)
{
    std::vector<tap::SocketFile> files;
    folder.files(files);
    for (const tap::SocketFile& file : files) {
        const UniqueFd socket = tap::newSocket();
        if (file.listens && folder.connect(socket.get(), file.name) == 0) {
            const tap::PacketHeader packet;
            ::send(socket.get(), &packet, sizeof(packet), MSG_NOSIGNAL);
            pollfd state{socket.get(), POLLIN, 0};
            return ::poll(&state, 1, 20'000) == 1 ? "cut off" : "accepted";
        }
    }
    return "no listener";
}

/// lure: listens without asking who comes, makes the processes look, and tells what the first that came has sent.
std::string lure(const tap::Folder& folder)
{
    std::vector<tap::SocketFile> files;
    std::string name;
    const UniqueFd listening = tap::newSocket();
    folder.bind(listening.get(), "listener", '-' + std::to_string(tap::packetVersion) + "-100-100000", name);
    ::listen(listening.get(), 10);
    folder.files(files);
    for (const tap::SocketFile& file : files) {
        const UniqueFd socket = tap::newSocket();
        if (!file.listens && file.owner != ::getpid() && folder.connect(socket.get(), file.name) == 0) {
            pollfd state{socket.get(), POLLIN, 0};
            ::poll(&state, 1, 20'000);
        }
    }
    const UniqueFd came(::accept(listening.get(), nullptr, nullptr));
    char byte = 0;
    folder.remove(name);
    return !came ? "nobody" : ::recv(came.get(), &byte, 1, 0) > 0 ? "a message" : "nothing";
}

/// fork: leaves a child that lives until the test closes the standard input.
std::string forkChild()
{
    const pid_t child = ::fork();
    if (child == 0) {
        pollfd state{STDIN_FILENO, 0, 0};
        ::poll(&state, 1, -1);
        ::_exit(EXIT_SUCCESS);
    }
    return child > 0 ? "forked" : "failed";
}

/// nobody: becomes another user, who has the folder open all the same.
std::string become(uid_t user, tap::Folder& folder)
{
    folder.open();
    return ::setresuid(user, user, user) == 0 ? "became" : "failed";
}

} // namespace

int main(int argc, char** argv)
{
    // Not to be left behind by a test that fails.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc > 1) {
        ::setenv("RU_DIR", argv[1], 1);
    }
    tap::start();
    Flood flood;
    tap::Listener listener;
    tap::Folder folder;
    std::string answer = "started";
    for (;;) {
        std::array<char, 100> text{};
        if (::send(STDIN_FILENO, answer.data(), answer.size(), MSG_NOSIGNAL) < 0 ||
            ::recv(STDIN_FILENO, text.data(), text.size() - 1, 0) <= 0) {
            return EXIT_SUCCESS;
        }
        std::istringstream arguments(text.data());
        std::string command;
        arguments >> command;
        answer = command == "send"      ? send(arguments)
                 : command == "open?"   ? tap::isOpen() ? "open" : "closed"
                 : command == "flood"   ? flood.start()
                 : command == "stop"    ? flood.stop()
                 : command == "listen"  ? std::to_string(listener.open())
                 : command == "intrude" ? intrude(folder)
                 : command == "lure"    ? lure(folder)
                 : command == "fork"    ? forkChild()
                 : command == "nobody"  ? become(65'534, folder)
                                        : "unknown";
    }
}
