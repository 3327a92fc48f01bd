/// A unit in the test's own process: the real server thread, and peers that the test plays.
///
///     Unit unit;
///     unit.bringUp();                                   // all servers there, published
///     Client& client = unit.connect();                  // a client with its confirmation
///     client.send<OmlaVornSetUtcTimeReqS>([](auto& req) { req.utcTime = 5; });
///     const auto request = unit.dunl.expect<tolme::dunl::SetUtcTimeReq>(tolme::dunl::MsgNo::SetUtcTimeReq);
///     request.reply(tolme::dunl::MsgNo::SetUtcTimeCfm, tolme::dunl::SetUtcTimeCfm());
///     client.expect<OmlaVornSetUtcTimeCfmS>();
///
/// All peers are clones of one mailbox of the test's thread, and the software manager is a socket that only the steps
/// read, so that a test is one sequence of steps. Nothing sleeps: a step waits for its message with a deadline, and
/// settle() tells that the server has handled all that it was sent.
#pragma once

#include "gantiServer.h"
#include "kiv/kiv.h"
#include "messageNumber.h"
#include "signalCoverage.h"
#include "step.h"
#include "trace/recordedTraces.h"
#include "vorni/access.h"
#include "vorni/signalTable.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <google/protobuf/message.h>
#include <gtest/gtest.h>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

class VornServerImpl;
namespace gant {
class GetCapabilitiesCfm;
}

namespace TestUnit {

/// A received message; frees itself.
class Received
{
public:
    explicit Received(kiv_msg* msg) : m_msg(msg, kiv_free) {}

    std::uint32_t number() const { return m_msg->number; }
    std::uint32_t sender() const { return kiv_sender(m_msg.get()); }
    std::uint32_t receiver() const { return kiv_receiver(m_msg.get()); }
    std::uint32_t size() const { return kiv_size(m_msg.get()); }
    std::span<const std::byte> bytes() const
    {
        return {reinterpret_cast<const std::byte*>(m_msg.get()), kiv_size(m_msg.get())};
    }
    const kiv_msg* get() const { return m_msg.get(); }

private:
    std::shared_ptr<kiv_msg> m_msg;
};

/// The queue of the test's thread, sorted by the mailbox that each message was sent to.
class Post
{
public:
    Post();
    ~Post();
    Post(const Post&) = delete;
    Post& operator=(const Post&) = delete;

    std::uint32_t addMailbox(const std::string& name);
    /// The next message to a mailbox; nothing after the deadline.
    std::optional<Received> next(std::uint32_t mbox, std::chrono::milliseconds wait);

private:
    std::uint32_t m_main;
    std::map<std::uint32_t, std::deque<Received>> m_waiting; ///< by mailbox
};

/// A mailbox that the test speaks through.
class Peer
{
public:
    Peer(Post& post, std::string name) : m_post(post), m_name(std::move(name)) {}
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Creates the mailbox: the peer is there from now on.
    void appear();
    /// Deletes it, as if the peer's process had died.
    void die();
    std::uint32_t mbox() const { return m_mbox; }
    const std::string& name() const { return m_name; }

    /// Sends bytes, the message number in host order first.
    void sendBytes(std::uint32_t receiver, std::span<const std::byte> bytes) const;
    /// The next message, whatever it is, which must have this number.
    Received expectNumber(std::uint32_t number);
    /// What is waiting first, for a test that says itself what it must be. Call settle before.
    std::optional<Received> take() const;
    /// Fails where a message is waiting. Call settle before.
    void expectNothing();
    /// Throws away what is waiting.
    void discardAll();

private:
    Post& m_post;
    std::string m_name;
    std::uint32_t m_mbox = KIV_NO_MBOX;
};

/// A request that a board server has got.
template <typename Message>
struct Request {
    Message body;
    std::uint32_t procedureRef = 0;
    std::uint32_t connectionRef = 0;
    std::uint32_t sender = 0;
    Peer* server = nullptr;
    std::uint32_t clientRef = 0; ///< what the server writes into connectionRef of its answers

    /// Answers it.
    template <typename Answer>
    void reply(std::uint32_t msgNo, const Answer& answer) const;
};

/// A board server, played by the test.
class BoardServer : public Peer
{
public:
    using Peer::Peer;

    /// The next message, which must be this one.
    template <typename Message>
    Request<Message> expect(std::uint32_t msgNo)
    {
        const Received received = expectNumber(msgNo);
        const auto* header = viewSignal<BoardMessageHeader>(received.get());
        Request<Message> request;
        const std::span body = received.bytes().subspan(std::min<std::size_t>(received.size(), sizeof(*header)));
        if (header == nullptr || !request.body.ParseFromArray(body.data(), static_cast<int>(body.size()))) {
            throw StepFailed("message " + std::to_string(msgNo) + " to " + name() + " doesn't parse");
        }
        request.procedureRef = header->procedureRef;
        request.connectionRef = header->connectionRef;
        request.sender = received.sender();
        request.server = this;
        request.clientRef = clientRef;
        return request;
    }

    /// Sends a message with any references.
    void sendMessage(std::uint32_t receiver, std::uint32_t msgNo, std::uint32_t procedureRef,
                     std::uint32_t connectionRef, const google::protobuf::Message& body) const;

    std::uint32_t clientRef = 0; ///< the client's reference, from its connection request
    std::uint32_t serverRef = 0; ///< the reference that the server gave
};

template <typename Message>
template <typename Answer>
void Request<Message>::reply(std::uint32_t msgNo, const Answer& answer) const
{
    static_cast<const BoardServer*>(server)->sendMessage(sender, msgNo, procedureRef, clientRef, answer);
}

/// A client, or the legacy server: whoever sends and receives VORNI signals.
class VorniPeer : public Peer
{
public:
    using Peer::Peer;

    std::uint32_t clientRef = 1;
    std::uint32_t serverRef = 0;

    /// Sends a signal with the peer's references.
    template <typename Record, typename Fill>
    void sendTo(std::uint32_t receiver, Fill&& fill) const
    {
        NewSignal<Record> signal(clientRef, serverRef);
        fill(*signal);
        sendSignal(receiver, signal);
    }
    /// Sends one that is built, with whatever follows its record.
    template <typename Record>
    void sendSignal(std::uint32_t receiver, NewSignal<Record>& signal) const
    {
        noteSent(Record::number);
        signal.send(receiver, mbox());
    }

    /// The next message, which must be this signal with exactly this size.
    template <typename Record>
    Record expect()
    {
        const Received received = expectNumber(Record::number);
        EXPECT_EQ(received.size(), sizeof(Record)) << Vorni::printSignal(received.bytes());
        lastSender = received.sender();
        const Record* record = viewSignal<Record>(received.get());
        if (record == nullptr) {
            throw StepFailed("too short: " + Vorni::printSignal(received.bytes()));
        }
        return *record;
    }

    std::uint32_t lastSender = 0; ///< of the last signal that was expected

private:
    static void noteSent(std::uint32_t number);
};

class Client : public VorniPeer
{
public:
    using VorniPeer::VorniPeer;

    /// Sends a signal to the public mailbox.
    template <typename Record, typename Fill>
    void send(Fill&& fill) const
    {
        sendTo<Record>(publicMbox(), std::forward<Fill>(fill));
    }
    template <typename Record>
    void send() const
    {
        send<Record>([](Record&) {});
    }
    /// The server's public mailbox, or KIV_NO_MBOX.
    std::uint32_t publicMbox() const;

    std::uint32_t fwdMbox = 0; ///< the forward mailbox through which the legacy server sees it
};

class Unit
{
public:
    Unit();
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// Starts the server and waits until it is initialised. The software manager is there before, or it never would be;
    /// a test in which it comes late or not at all starts `server` itself.
    void start();
    /// start, and all servers there and connected: the server is published.
    void bringUp();
    // The steps of it.
    void connectGanti();
    void connectDunl();
    void connectFesk();
    void connectYarrowI(bool deepSleepSupported = true);

    /// A new client with a mailbox and no session yet.
    Client& addClient(std::uint32_t serverRef = 7);
    /// Sends its connection request and answers as the legacy server; the confirmation is held then.
    void requestConnection(Client& client);
    // The answers that open its gate.
    std::uint32_t registerMmiUser(std::optional<std::uint32_t> userId);
    void registerTimeSource(std::optional<std::uint32_t> reference);
    void confirmConnectivity();
    void connectDeepSleep(std::uint32_t serverConnectionRef);
    /// All of it: a client that has got its confirmation.
    Client& connect(std::uint32_t serverRef = 7);

    /// A connected client acquires the software store, and the software manager gives it this ticket at once.
    void giveTicket(Client& client, std::uint32_t ticket);

    /// Returns when the server has handled all that it was sent before, by the mailboxes and by the software manager.
    void settle();
    /// What a command prints; its exit code in `exitCode`.
    std::string command(const std::vector<std::string>& words, int& exitCode);

    std::uint32_t privateMbox() const;

    Post post;
    /// What the DUNL server says that it can do: values of tolme::dunl::Capability. To be set before it connects.
    std::vector<int> dunlCapabilities;
    std::uint32_t restartRanks = 0; ///< that the DUNL server takes, a bit each; the same
    /// What the software manager says that it can do; nothing at first. To be filled before it is connected.
    std::unique_ptr<gant::GetCapabilitiesCfm> gantiCapabilities;
    std::uint16_t protocolRev = 3; ///< in the clients' connection requests

    VorniPeer legacy{post, "LegacyVornServer"};
    BoardServer dunl{post, "DunlServer"};
    BoardServer fesk{post, "FeskServer"};
    BoardServer yarrowi{post, "YarrowIServer"};
    GantiServer ganti;
    std::unique_ptr<VornServerImpl> server;

private:
    void makeRoundTrip();

    VorniPeer m_probe{post, "probe"};
    std::list<Client> m_clients;
    bool m_isConnectivityKnown = false;
    std::uint32_t m_nextUserId = 20;
    std::uint32_t m_nextTimeSource = 40;
    std::uint32_t m_nextConnection = 60;
};

/// Test fixture: a unit, and steps that fail as test failures.
class UnitTest : public ::testing::Test
{
protected:
    Unit unit;
};

} // namespace TestUnit
