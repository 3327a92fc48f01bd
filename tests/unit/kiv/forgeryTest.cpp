/// Peers that do not keep to the protocol: raw sockets instead of the library.

#include "peers.h"

#include "kiv/frame.h"
#include "kiv/id.h"
#include "kiv/registry.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace kivtest;
using kiv::FrameHeader;
using kiv::FrameKind;
using kiv::Hello;

/// A connection to a process's socket.
class RawPeer
{
public:
    explicit RawPeer(kiv_mbox_id_t target) : m_socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path =
            std::string(std::getenv("RU_DIR")) + "/kiv/process/" + std::to_string(kiv::processOf(target));
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "no connection to " << path;
        }
    }
    ~RawPeer() { ::close(m_socket); }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    int socket() const { return m_socket; }

    void tell(const std::string& bytes) { ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void hello(const Hello& hello) { ::send(m_socket, &hello, sizeof hello, MSG_NOSIGNAL); }
    /// Whether the other side ends the connection.
    bool isCutOff() { return reports(0, POLLHUP); }
    /// Whether the other side has proven who we are.
    bool isTaken() { return reports(POLLRDHUP, POLLRDHUP); }
    /// A packet of frames, with descriptors.
    void packet(const std::vector<std::pair<FrameHeader, std::string>>& frames,
                const std::vector<int>& descriptors = {})
    {
        std::string bytes;
        for (const auto& [header, payload] : frames) {
            bytes.append(reinterpret_cast<const char*>(&header), sizeof header).append(payload);
        }
        iovec part{bytes.data(), bytes.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))] = {};
        msghdr packed{};
        packed.msg_iov = &part;
        packed.msg_iovlen = 1;
        if (!descriptors.empty()) {
            const std::size_t size = descriptors.size() * sizeof(int);
            packed.msg_control = control;
            packed.msg_controllen = CMSG_SPACE(size);
            cmsghdr* rights = CMSG_FIRSTHDR(&packed);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(size);
            std::memcpy(CMSG_DATA(rights), descriptors.data(), size);
        }
        ::sendmsg(m_socket, &packed, MSG_NOSIGNAL);
    }
    void packet(const FrameHeader& header, const std::string& payload, const std::vector<int>& descriptors = {})
    {
        packet({{header, payload}}, descriptors);
    }

private:
    bool reports(short asked, int wanted)
    {
        pollfd state{m_socket, asked, 0};
        return ::poll(&state, 1, static_cast<int>(patience)) == 1 && (state.revents & wanted) != 0;
    }

    int m_socket;
};

int memfd(std::size_t size, int seals)
{
    const int file = ::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (::ftruncate(file, static_cast<off_t>(size)) != 0 || ::fcntl(file, F_ADD_SEALS, seals) != 0) {
        ADD_FAILURE();
    }
    return file;
}

/// The victim is a process of its own; in it runs an echo. The test is the attacker, another echo the bystander.
class KivForgery : public ::testing::Test
{
protected:
    kiv_mbox_id_t own = kiv_create_mailbox("own");
    Peer victim{{"echo", "victim"}};
    kiv_mbox_id_t target = find("victim");

    ~KivForgery() override
    {
        // Whatever happened, the victim lives and serves others.
        send(target, 4711);
        const Msg msg = receive();
        EXPECT_TRUE(msg && msg->number == 4711);
        EXPECT_FALSE(readable());
        kiv_delete_mailbox(own);
    }
};

TEST_F(KivForgery, a_number_of_another_process_is_not_given_away)
{
    const Peer bystander({"echo", "bystander"});
    const kiv_mbox_id_t other = find("bystander");
    const std::uint32_t watched = kiv_monitor(other, kiv_alloc(4, 1));
    // Connected in its name, or simply used; also the victim's own name and that of nobody.
    for (const kiv_mbox_id_t forged : {other, target, kiv::makeId(999, 1, 1), kiv_mbox_id_t{0x20014001}, 0U}) {
        if (kiv::isMailboxId(forged)) {
            RawPeer opener(target);
            opener.hello({.process = kiv::processOf(forged), .queue = kiv::queueOf(target)});
            opener.packet({forged, target, 8, FrameKind::inlined}, "12345678");
            EXPECT_TRUE(opener.isCutOff());
        }
        RawPeer user(target);
        user.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
        user.packet({forged, target, 8, FrameKind::inlined}, "12345678");
        EXPECT_TRUE(user.isCutOff());

        RawPeer watcher(target);
        watcher.hello({.process = kiv::processOf(own)});
        watcher.packet({forged, target, 4, FrameKind::monitor}, "1234");
        EXPECT_TRUE(watcher.isCutOff());
    }
    EXPECT_FALSE(readable()) << "nothing was echoed to the bystander or to us, and the bystander lives";
    kiv_unmonitor(watched);
}

TEST_F(KivForgery, a_proven_process_is_believed)
{
    RawPeer raw(target);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
    raw.packet({{{KIV_NO_MBOX, target, 8, FrameKind::inlined}, "12345678"},
                {{own, target, 8, FrameKind::inlined}, "ABCDabcd"}});
    const Msg msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(std::memcmp(msg.get(), "ABCDabcd", 8), 0);
    EXPECT_TRUE(raw.isTaken());
}

TEST_F(KivForgery, a_connection_of_a_dead_child_does_not_speak_for_who_has_its_pid_now)
{
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    // The identity is the pid and the time of birth: of the pid alone a later process may be the owner.
    kiv::Identity identity;
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
    }
    int status = 0;
    const kiv::Identity self = kiv::peerOf(ends[0]);
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    EXPECT_EQ(self.pid, ::getpid());
    EXPECT_NE(self.birth, 0U);
    identity = {self.pid, self.birth + 1};
    EXPECT_FALSE(identity == self);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(KivForgery, garbage_instead_of_a_hello_or_a_monitor_cuts_off)
{
    const Hello good{.process = kiv::processOf(own), .queue = kiv::queueOf(target)};
    const std::vector<std::string> openings = {"",
                                               "x",
                                               std::string(sizeof good, '\0'),
                                               std::string(sizeof good, '\xFF'),
                                               std::string(sizeof good + 1, 'y'),
                                               std::string(100'000, 'y')};
    for (const std::string& opening : openings) {
        RawPeer raw(target);
        raw.tell(opening);
        EXPECT_TRUE(raw.isCutOff());
    }
    for (const Hello& bad : {Hello{kiv::protocolVersion + 1, good.process, good.queue}, Hello{.queue = good.queue},
                             Hello{.process = good.process, .queue = kiv::lastQueue + 1},
                             Hello{.process = good.process, .queue = kiv::lastQueue}, // nobody's
                             Hello{.process = kiv::lastProcess + 1, .queue = good.queue}}) {
        RawPeer raw(target);
        raw.hello(bad);
        EXPECT_TRUE(raw.isCutOff());
    }
    for (const FrameKind kind : {FrameKind::inlined, FrameKind::dead, FrameKind{0}, FrameKind{77}}) {
        RawPeer raw(target);
        raw.hello({.process = good.process});
        raw.packet({own, target, 4, kind}, "1234");
        EXPECT_TRUE(raw.isCutOff());
    }
}

TEST_F(KivForgery, a_death_is_reported_by_its_process_alone)
{
    const Peer bystander({"echo", "bystander"});
    const kiv_mbox_id_t other = find("bystander");
    const std::uint32_t ref = kiv_monitor(other, kiv_alloc(4, 1));
    const std::string payload(reinterpret_cast<const char*>(&ref), sizeof ref);
    RawPeer raw(own);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(own)});
    raw.packet({own, own, 4, FrameKind::dead}, payload); // ours to say, but not what is watched
    raw.packet({other, own, 4, FrameKind::dead}, payload);
    EXPECT_FALSE(receive(50));
    EXPECT_TRUE(raw.isCutOff());
    kiv_unmonitor(ref);
}

TEST_F(KivForgery, garbage_behind_the_hello_cuts_off)
{
    const int all = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    const int sealed = memfd(100'000, all);
    const int open = memfd(100'000, F_SEAL_SHRINK);
    const int file = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    const std::string big(70'000, 'b');
    const kiv_mbox_id_t nobody = KIV_NO_MBOX;
    const auto inlined = FrameKind::inlined;
    const auto asMemfd = FrameKind::memfd;
    const std::vector<std::function<void(RawPeer&)>> attacks = {
        [](RawPeer& raw) { ::send(raw.socket(), "", 0, 0); },
        [](RawPeer& raw) { ::send(raw.socket(), "short", 5, 0); },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 9, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 7, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 3, inlined}, "123");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 0, inlined}, "");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 70'000, inlined}, big);
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 8, FrameKind{3}}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, kiv::makeId(kiv::processOf(target) + 1, 1, 1), 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, kiv::makeId(kiv::processOf(target), 2, 1), 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) { // one bad frame behind a good one
            raw.packet({{{nobody, target, 8, inlined}, "12345678"}, {{nobody, target, 9, inlined}, "12345678"}});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, 0, 8, inlined}, "12345678");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 8, inlined}, "12345678", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "");
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "x", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'001, asMemfd}, "", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, KIV_MAX_SIZE + 1, asMemfd}, "", {sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {open});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {file});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {sealed, sealed});
        },
        [&](RawPeer& raw) {
            raw.packet({nobody, target, 100'000, asMemfd}, "", {file, file, file, file, file, file});
        },
    };
    for (std::size_t i = 0; i < attacks.size(); ++i) {
        RawPeer raw(target);
        raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(target)});
        attacks[i](raw);
        EXPECT_TRUE(raw.isCutOff()) << "attack " << i;
    }
    for (const int descriptor : {sealed, open, file}) {
        ::close(descriptor);
    }
}

TEST_F(KivForgery, a_peer_that_stops_sending_ends_the_connection)
{
    RawPeer raw(own);
    raw.hello({.process = kiv::processOf(own), .queue = kiv::queueOf(own)});
    raw.packet({KIV_NO_MBOX, own, 8, FrameKind::inlined}, "12345678");
    ::shutdown(raw.socket(), SHUT_WR);
    EXPECT_TRUE(receive());
    EXPECT_FALSE(receive(0));
    EXPECT_FALSE(readable());
    EXPECT_TRUE(raw.isCutOff());
}

} // namespace
