/// The other processes of the kiv tests: what one does is told by its arguments.

#include "peers.h"

#include <csignal>
#include <cstdlib>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>
#include <vector>

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
    return role == "echo"      ? echo(arguments)
           : role == "stuck"   ? stuck(arguments)
           : role == "burst"   ? burst(arguments)
           : role == "threads" ? threads(arguments)
           : role == "churn"   ? churn(arguments)
                               : EXIT_FAILURE;
}
