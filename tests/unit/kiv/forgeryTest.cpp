/// Peers that do not keep to the protocol: raw sockets instead of the library.

#include "peers.h"

#include "kiv/channel.h"
#include "kiv/id.h"
#include "kiv/message.h"

#include <cstring>
#include <fcntl.h>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace kivtest;
using kiv::ControlFrame;
using kiv::ControlKind;
using kiv::FrameHeader;
using kiv::FrameKind;

ControlFrame frame(ControlKind kind, std::uint32_t id = 0, std::uint32_t slot = 0)
{
    ControlFrame made;
    made.kind = kind;
    made.id = id;
    made.slot = slot;
    return made;
}

/// A connection to a slot's socket.
class RawPeer
{
public:
    explicit RawPeer(std::uint32_t slot) : m_control(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = std::string(std::getenv("RU_DIR")) + "/kiv/slot/" + std::to_string(slot);
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::connect(m_control, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "no connection to " << path;
        }
    }
    ~RawPeer()
    {
        ::close(m_control);
        ::close(m_data);
    }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    int data() const { return m_data; }

    void tell(const ControlFrame& control) { ::send(m_control, &control, sizeof control, MSG_NOSIGNAL); }
    void tellBytes(const std::string& bytes) { ::send(m_control, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    /// Whether the other side ends the connection.
    bool isCutOff()
    {
        pollfd state{m_control, 0, 0};
        return ::poll(&state, 1, static_cast<int>(patience)) == 1 && (state.revents & POLLHUP) != 0;
    }
    /// Whether a claim of this slot is confirmed.
    bool isServed(std::uint32_t slot)
    {
        tell(frame(ControlKind::claim, 0, slot));
        ControlFrame answer;
        return ::recv(m_control, &answer, sizeof answer, 0) == sizeof answer && answer.kind == ControlKind::claimed;
    }
    /// Says hello and asks for a data connection in the name of a slot. False when it isn't given.
    bool open(std::uint32_t slot)
    {
        tell(frame(ControlKind::hello, kiv::protocolVersion));
        tell(frame(ControlKind::open, 0, slot));
        ControlFrame answer;
        iovec part{&answer, sizeof answer};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        if (::recvmsg(m_control, &header, MSG_CMSG_CLOEXEC) != sizeof answer || answer.kind != ControlKind::data) {
            return false;
        }
        std::memcpy(&m_data, CMSG_DATA(CMSG_FIRSTHDR(&header)), sizeof m_data);
        return true;
    }
    /// A data packet with descriptors.
    void packet(const FrameHeader& header, const std::string& payload, const std::vector<int>& descriptors = {})
    {
        FrameHeader copy = header;
        std::string bytes = payload;
        iovec parts[2] = {{&copy, sizeof copy}, {bytes.data(), bytes.size()}};
        alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))] = {};
        msghdr packed{};
        packed.msg_iov = parts;
        packed.msg_iovlen = 2;
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
        ::sendmsg(m_data, &packed, MSG_NOSIGNAL);
    }

private:
    int m_control;
    int m_data = -1;
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

TEST_F(KivForgery, an_unnamed_sender_is_served)
{
    RawPeer raw(kiv::slotOf(target));
    ASSERT_TRUE(raw.open(0));
    raw.packet({KIV_NO_MBOX, target, 8, FrameKind::inlined}, "12345678");
}

TEST_F(KivForgery, a_slot_of_another_process_is_not_given_away)
{
    const Peer bystander({"echo", "bystander"});
    const kiv_mbox_id_t other = find("bystander");
    const std::uint32_t watched = kiv_monitor(other, kiv_alloc(4, 1));
    // Opened in its name, claimed later, or simply used; also the victim's own name and that of nobody.
    for (const kiv_mbox_id_t forged : {other, target, kiv::makeId(9999, 1), kiv_mbox_id_t{0x20004001}, 0U}) {
        if (kiv::isMailboxId(forged)) {
            RawPeer opener(kiv::slotOf(target));
            EXPECT_FALSE(opener.open(kiv::slotOf(forged)));
            EXPECT_TRUE(opener.isCutOff());

            RawPeer claimer(kiv::slotOf(target));
            ASSERT_TRUE(claimer.open(0));
            claimer.tell(frame(ControlKind::claim, 0, kiv::slotOf(forged)));
            EXPECT_TRUE(claimer.isCutOff());
        }
        RawPeer user(kiv::slotOf(target));
        ASSERT_TRUE(user.open(0));
        user.packet({forged, target, 8, FrameKind::inlined}, "12345678");
        EXPECT_TRUE(user.isCutOff());
    }
    EXPECT_FALSE(readable()) << "nothing was echoed to the bystander or to us, and the bystander lives";
    kiv_unmonitor(watched);
}

TEST_F(KivForgery, an_own_slot_is_believed_unclaimed)
{
    RawPeer raw(kiv::slotOf(target));
    ASSERT_TRUE(raw.open(0));
    raw.packet({own, target, 8, FrameKind::inlined}, "ABCDabcd");
    const Msg msg = receive();
    ASSERT_TRUE(msg);
    EXPECT_EQ(std::memcmp(msg.get(), "ABCDabcd", 8), 0);
}

TEST_F(KivForgery, garbage_on_the_control_connection_cuts_off)
{
    const std::vector<std::string> openings = {"x", std::string(24, '\0'), std::string(24, '\xFF'),
                                               std::string(100'000, 'y')};
    for (const std::string& opening : openings) {
        RawPeer raw(kiv::slotOf(target));
        raw.tellBytes(opening);
        EXPECT_TRUE(raw.isCutOff());
    }
    for (const ControlKind kind : {ControlKind::hello, ControlKind::data, ControlKind::claimed, ControlKind::dead,
                                   ControlKind{0}, ControlKind{77}}) {
        RawPeer raw(kiv::slotOf(target));
        raw.tell(frame(ControlKind::hello, kiv::protocolVersion));
        raw.tell(frame(kind));
        EXPECT_TRUE(raw.isCutOff());
    }
    RawPeer twice(kiv::slotOf(target));
    ASSERT_TRUE(twice.open(0));
    twice.tell(frame(ControlKind::open));
    EXPECT_TRUE(twice.isCutOff());
    RawPeer newer(kiv::slotOf(target));
    newer.tell(frame(ControlKind::hello, kiv::protocolVersion + 1));
    EXPECT_TRUE(newer.isCutOff());
}

TEST_F(KivForgery, garbage_on_the_data_connection_cuts_off)
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
        [](RawPeer& raw) { ::send(raw.data(), "", 0, 0); },
        [](RawPeer& raw) { ::send(raw.data(), "short", 5, 0); },
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
            raw.packet({nobody, kiv::makeId(kiv::slotOf(target) + 1, 1), 8, inlined}, "12345678");
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
        RawPeer raw(kiv::slotOf(target));
        ASSERT_TRUE(raw.open(0));
        attacks[i](raw);
        EXPECT_TRUE(raw.isCutOff()) << "attack " << i;
    }
    for (const int descriptor : {sealed, open, file}) {
        ::close(descriptor);
    }
}

TEST_F(KivForgery, a_peer_may_stop_sending_and_stay)
{
    RawPeer raw(kiv::slotOf(own));
    ASSERT_TRUE(raw.open(0));
    raw.packet({KIV_NO_MBOX, own, 8, FrameKind::inlined}, "12345678");
    ::shutdown(raw.data(), SHUT_WR);
    EXPECT_TRUE(receive());
    EXPECT_FALSE(receive(0));
    EXPECT_FALSE(readable());
    EXPECT_TRUE(raw.isServed(kiv::slotOf(own)));
}

TEST_F(KivForgery, a_peer_can_not_keep_a_dead_ones_connection_in_use)
{
    // In this process: the queue must fall quiet although somebody still holds the sending end.
    RawPeer raw(kiv::slotOf(own));
    ASSERT_TRUE(raw.open(0));
    const int kept = ::dup(raw.data());
    raw.packet({KIV_NO_MBOX, own, 8, FrameKind::inlined}, "12345678");
    raw.tellBytes("garbage"); // ends the control connection
    EXPECT_TRUE(raw.isCutOff());
    EXPECT_TRUE(receive());
    EXPECT_TRUE(eventually([&] { return ::send(kept, "12345678", 8, MSG_NOSIGNAL) < 0; }));
    EXPECT_FALSE(readable());
    EXPECT_FALSE(receive(0));
    ::close(kept);
}

} // namespace
