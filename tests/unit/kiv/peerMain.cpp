/// The other processes of the kiv tests: what one does is told by its arguments.

#include "peers.h"

#include "kiv/loop.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <map>
#include <queue>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>
#include <vector>

// The tests measure the memory of these processes: what is freed is not to be kept for long.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=1";
}

namespace {

using namespace kivtest;
using Arguments = std::vector<std::string>;

constexpr std::uint32_t endNumber = 0xE4D0E4D0;

/// echo NAME [CLONES]: sends everything back, in the name of the mailbox that it came to.
int echo(const Arguments& arguments)
{
    const kiv_mbox_id_t own = kiv_create_mailbox(arguments[0].c_str());
    const int clones = arguments.size() > 1 ? std::atoi(arguments[1].c_str()) : 0;
    for (int i = 0; i < clones; ++i) {
        kiv_clone_mailbox(own, (arguments[0] + "/" + std::to_string(i)).c_str());
    }
    for (;;) {
        kiv_msg* msg = receive(KIV_WAIT_FOREVER).release();
        const kiv_mbox_id_t receiver = kiv_receiver(msg);
        if (msg->number == endNumber) {
            kiv_free(msg);
            kiv_delete_mailbox(receiver);
            if (receiver == own) {
                return EXIT_SUCCESS;
            }
            continue;
        }
        kiv_send(&msg, kiv_sender(msg), receiver);
    }
}

/// stuck NAME: never receives.
int stuck(const Arguments& arguments)
{
    kiv_create_mailbox(arguments[0].c_str());
    for (;;) {
        ::pause();
    }
}

/// burst NAME TARGET COUNT SIZE MAILBOXES [stay]: sends COUNT numbered messages to a mailbox and its clones in turn,
/// and ends: at once, or when it gets a message.
int burst(const Arguments& arguments)
{
    kiv_create_mailbox(arguments[0].c_str());
    const auto count = static_cast<std::uint32_t>(std::stoul(arguments[2]));
    const auto size = static_cast<std::uint32_t>(std::stoul(arguments[3]));
    const auto mailboxes = static_cast<std::uint32_t>(std::stoul(arguments[4]));
    std::vector<kiv_mbox_id_t> targets{find(arguments[1])};
    for (std::uint32_t i = 1; i < mailboxes; ++i) {
        targets.push_back(find(arguments[1] + "/" + std::to_string(i)));
    }
    for (std::uint32_t number = 0; number < count; ++number) {
        send(targets[number % mailboxes], number, size);
    }
    if (arguments.size() > 5) {
        receive(KIV_WAIT_FOREVER);
    }
    return EXIT_SUCCESS;
}

/// Tells a mailbox that it can go on, and sends back what comes from there and nothing else, until that is a 0.
void serveOnly(kiv_mbox_id_t mailbox)
{
    std::uint32_t number = 0;
    do {
        send(mailbox, number);
    } while ((number = receive(KIV_WAIT_FOREVER, mailbox)->number) != 0);
}

/// selective NAME TELL SENDERS COUNT: serves one mailbox only, then receives COUNT messages of each of SENDERS others.
int selective(const Arguments& arguments)
{
    kiv_create_mailbox(arguments[0].c_str());
    serveOnly(find(arguments[1]));
    std::map<kiv_mbox_id_t, std::uint32_t> next;
    for (std::size_t left = std::stoul(arguments[2]) * std::stoul(arguments[3]); left > 0; --left) {
        const Msg msg = receive();
        if (!msg || msg->number != next[kiv_sender(msg.get())]++) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

/// ask NAME ECHO COUNT SIZE [TELL]: sends COUNT numbered messages and receives them back. In between it serves only
/// TELL.
int ask(const Arguments& arguments)
{
    kiv_create_mailbox(arguments[0].c_str());
    const kiv_mbox_id_t echo = find(arguments[1]);
    const auto count = static_cast<std::uint32_t>(std::stoul(arguments[2]));
    const auto size = static_cast<std::uint32_t>(std::stoul(arguments[3]));
    for (std::uint32_t number = 0; number < count; ++number) {
        send(echo, number, size);
    }
    if (arguments.size() > 4) {
        serveOnly(find(arguments[4]));
    }
    for (std::uint32_t number = 0; number < count; ++number) {
        const Msg msg = receive();
        if (!msg || msg->number != number || kiv_size(msg.get()) != size || !isIntact(*msg)) {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

/// relay NAME ECHO...: sends what comes to its first mailbox to the first echo, what comes to its clones to the others
/// in turn, and the answers back.
int relay(const Arguments& arguments)
{
    struct Route {
        kiv_mbox_id_t mailbox;
        kiv_mbox_id_t echo;
        std::queue<kiv_mbox_id_t> clients;
    };
    std::vector<Route> routes;
    const kiv_mbox_id_t own = kiv_create_mailbox(arguments[0].c_str());
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string clone = arguments[0] + "/" + std::to_string(i - 2);
        kiv_hunt(arguments[i].c_str(), kiv_alloc(4, 0));
        const kiv_mbox_id_t echo = kiv_sender(receive(KIV_WAIT_FOREVER).get());
        routes.push_back({i == 1 ? own : kiv_clone_mailbox(own, clone.c_str()), echo, {}});
    }
    for (;;) {
        kiv_msg* msg = receive(KIV_WAIT_FOREVER).release();
        Route& route = *std::find_if(routes.begin(), routes.end(), [receiver = kiv_receiver(msg)](const Route& each) {
            return each.mailbox == receiver;
        });
        kiv_mbox_id_t receiver = route.echo;
        if (kiv_sender(msg) != route.echo) {
            route.clients.push(kiv_sender(msg));
        } else {
            receiver = route.clients.front();
            route.clients.pop();
        }
        kiv_send(&msg, receiver, route.mailbox);
    }
}

/// packed NAME TARGET COUNT SIZE: as burst does, but in the middle of a loop's dispatch, out of which it exits.
int packed(const Arguments& arguments)
{
    kiv_create_mailbox(arguments[0].c_str());
    const kiv_mbox_id_t target = find(arguments[1]);
    const kiv::Dispatch dispatch;
    for (std::uint32_t number = 0; number < std::stoul(arguments[2]); ++number) {
        send(target, number, static_cast<std::uint32_t>(std::stoul(arguments[3])));
    }
    std::exit(EXIT_SUCCESS);
}

/// threads NAME TARGET THREADS COUNT: as many threads with mailboxes send COUNT numbered messages each and end.
int threads(const Arguments& arguments)
{
    const kiv_mbox_id_t target = find(arguments[1]);
    const auto count = static_cast<std::uint32_t>(std::stoul(arguments[3]));
    std::vector<std::thread> senders;
    for (unsigned long i = 0; i < std::stoul(arguments[2]); ++i) {
        senders.emplace_back([&, i] {
            kiv_create_mailbox((arguments[0] + std::to_string(i)).c_str());
            for (std::uint32_t number = 0; number < count; ++number) {
                send(target, number, 4 + number % 100);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    return EXIT_SUCCESS;
}

/// churn NAME TARGET: makes and deletes clones and sends messages of all sizes until it is killed.
int churn(const Arguments& arguments)
{
    const kiv_mbox_id_t own = kiv_create_mailbox(arguments[0].c_str());
    const kiv_mbox_id_t target = find(arguments[1]);
    for (std::uint32_t number = 1;; ++number) {
        const kiv_mbox_id_t clone = kiv_clone_mailbox(own, (arguments[0] + "/clone").c_str());
        send(target, number, 4 + number * 997 % 3000, clone);
        if (number % 16 == 0) {
            send(target, number, 100'000, own);
            // Not more than the other side takes.
            while (kiv_locate(arguments[1].c_str()) == target && !receive(1000, target)) {
            }
        }
        kiv_delete_mailbox(clone);
    }
}

} // namespace

int main(int argc, char** argv)
{
    // Not to be left behind by a test that fails.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc < 3) {
        return EXIT_FAILURE;
    }
    const std::string role = argv[1];
    const Arguments arguments(argv + 2, argv + argc);
    return role == "echo"        ? echo(arguments)
           : role == "stuck"     ? stuck(arguments)
           : role == "burst"     ? burst(arguments)
           : role == "ask"       ? ask(arguments)
           : role == "selective" ? selective(arguments)
           : role == "relay"     ? relay(arguments)
           : role == "packed"    ? packed(arguments)
           : role == "threads"   ? threads(arguments)
           : role == "churn"     ? churn(arguments)
                                 : EXIT_FAILURE;
}
