/// What no peer should send: every number at every size with random bytes, true headers with broken bodies, to every
/// mailbox, from every kind of peer; lines of the command line; a flood. Nothing of it ends the server, and a fresh
/// client connects afterwards. The exit message isn't among it: that one is meant to end the server thread.

#include "badInput.h"
#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "rhune/rhuneSignals.h"
#include "unit.h"
#include "vorni/connection.h"
#include "vorni/software.h"
#include "yarrowi/numbers.h"

#include <algorithm>
#include <random>

using namespace tolme;
using namespace TestUnit;

namespace {

constexpr std::size_t longestBody = 40;

class BadInputTest : public UnitTest
{
protected:
    BadInputTest()
    {
        supportEverything(unit);
        unit.bringUp();
        client = &unit.connect();
        openLoad();
        openSubscriptions(unit, *client);
        settle();
    }

    /// The client holds a ticket and is in the middle of a load, so that what belongs to these is looked at.
    void openLoad()
    {
        unit.giveTicket(*client, ticket);
        client->send<OmlaVornLoadLmcInitReqS>();
        gant::PushLoadInitCfm initCfm;
        initCfm.set_ticket_number(ticket);
        unit.ganti.expect<gant::PushLoadInitReq>().reply(initCfm);
        client->expect<OmlaVornLoadLmcInitCfmS>();
    }

    std::uint32_t random(std::size_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }
    /// Keys of the first fields with broken lengths and values.
    void makeNearlyRight(std::span<std::byte> body)
    {
        constexpr std::array<std::uint32_t, 3> wireTypes{0, 0, 2};
        for (std::size_t at = 0; at < body.size(); at += 2) {
            body[at] = static_cast<std::byte>((1 + random(5)) << 3 | wireTypes[random(3)]);
            if (at + 1 < body.size()) {
                body[at + 1] &= std::byte{0x1F};
            }
        }
    }
    void send(const Peer& from, std::uint32_t to, const std::vector<std::byte>& bytes)
    {
        from.sendBytes(to, bytes);
        ++m_sent;
        if (m_sent % 512 == 0) { // keeps the queues short
            settle();
        }
    }
    struct References {
        std::uint32_t first;
        std::uint32_t second;
    };
    /// With those of a peer, where they fit, so that what it has open is found.
    static std::vector<std::byte> withReferences(std::vector<std::byte> bytes, References references)
    {
        if (bytes.size() >= sizeof(VornSignalHeader)) {
            reinterpret_cast<VornSignalHeader*>(bytes.data())->setReferences(references.first, references.second);
        }
        return bytes;
    }
    References clientReferences() const { return {client->clientRef, client->serverRef}; }
    /// Random bytes under every known number at every size.
    void sendEverything(const Peer& from, std::uint32_t to, References references)
    {
        for (const BadNumber& bad : m_known) {
            for (const std::size_t size : bad.sizes) {
                send(from, to, randomMessage(m_random, bad.number, size));
                send(from, to, withReferences(randomMessage(m_random, bad.number, size), references));
            }
        }
        settle();
    }
    void sendEverything(const Peer& from, std::uint32_t to) { sendEverything(from, to, clientReferences()); }
    /// Headers that lead to a handler, a transaction and a session, with bodies that are random or nearly right.
    void sendBrokenBodies(const BoardServer& from, std::span<const MessageNumber> messages,
                          const std::vector<std::uint32_t>& connectionRefs)
    {
        for (const MessageNumber& message : messages) {
            for (int i = 0; i < 300; ++i) {
                auto bytes = randomMessage(m_random, message.number, sizeof(BoardMessageHeader) + random(longestBody));
                auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
                header->connectionRef = connectionRefs[random(connectionRefs.size())];
                header->procedureRef = i % 3 == 0 ? header->connectionRef.value() : random(64);
                if (i % 2 == 0) {
                    makeNearlyRight(std::span(bytes).subspan(sizeof(*header)));
                }
                send(from, unit.privateMbox(), bytes);
            }
        }
        settle();
    }
    /// The same on the software manager's socket, with procedure references that are in use.
    void sendGantiFrames(std::uint32_t msgNo, unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            std::vector<std::byte> body(random(longestBody));
            std::generate(body.begin(), body.end(), [this] { return static_cast<std::byte>(random(256)); });
            if (i % 2 == 0) {
                makeNearlyRight(body);
            }
            unit.ganti.sendFrame(gantiHeader(msgNo) + std::string(reinterpret_cast<char*>(body.data()), body.size()));
            ++m_sent;
            if (m_sent % 64 == 0) { // before the answers fill the socket
                settle();
            }
        }
    }
    std::string gantiHeader(std::uint32_t msgNo)
    {
        constexpr std::uint32_t someProcRefs = 16;
        std::array<VornU32, 2> header;
        header[0] = msgNo;
        header[1] = random(someProcRefs);
        return {reinterpret_cast<const char*>(header.data()), sizeof(header)};
    }
    /// Waits for the server and throws away what it has sent to everyone meanwhile.
    void settle()
    {
        unit.settle();
        for (Peer* peer : std::initializer_list<Peer*>{&unit.legacy, &unit.dunl, &unit.fesk, &unit.yarrowi, client}) {
            peer->discardAll();
        }
        unit.ganti.discardAll();
    }

    /// The DUNL and the FESK server come anew, for what they sent may have changed their references; then a new client
    /// gets its confirmation.
    void expectServing()
    {
        settle();
        unit.dunl.die();
        unit.fesk.die();
        unit.connectDunl();
        unit.connectFesk();
        settle();
        Client& fresh = unit.addClient();
        unit.requestConnection(fresh);
        const auto end = std::chrono::steady_clock::now() + deadline;
        std::optional<Received> cfm;
        while (!cfm && std::chrono::steady_clock::now() < end) {
            for (auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
                answerBoard(unit, *server);
            }
            cfm = unit.post.next(fresh.mbox(), std::chrono::milliseconds(10));
        }
        ASSERT_TRUE(cfm) << "a new client isn't confirmed";
        EXPECT_EQ(cfm->number(), OmlaVornConnEstablishCfmS::number);
        RecordProperty("messages", static_cast<int>(m_sent));
    }
    std::uint32_t publicMbox() const { return client->publicMbox(); }

    static constexpr std::uint32_t ticket = 5;
    Client* client = nullptr;
    const std::vector<BadNumber> m_known = everyNumber();
    std::size_t m_sent = 0;
    std::mt19937 m_random{20240611}; // the same bytes in every run
};

TEST_F(BadInputTest, when_a_client_sends_anything_then_the_server_serves_on)
{
    sendEverything(*client, publicMbox());
    sendEverything(*client, unit.privateMbox());
    expectServing();
}

TEST_F(BadInputTest, when_a_stranger_sends_anything_then_the_server_serves_on)
{
    for (const std::uint32_t to : {publicMbox(), unit.privateMbox(), client->fwdMbox}) {
        Client& stranger = unit.addClient();
        sendEverything(stranger, to);
        stranger.die();
    }
    expectServing();
}

TEST_F(BadInputTest, when_the_legacy_server_sends_anything_then_the_server_serves_on)
{
    sendEverything(unit.legacy, client->fwdMbox);
    sendEverything(unit.legacy, publicMbox());
    sendEverything(unit.legacy, unit.privateMbox());
    expectServing();
}

TEST_F(BadInputTest, when_a_board_server_sends_anything_then_the_server_serves_on)
{
    for (const auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        sendEverything(*server, unit.privateMbox());
    }
    expectServing();
}

TEST_F(BadInputTest, when_a_board_server_sends_anything_as_if_it_were_a_client_then_the_server_serves_on)
{
    for (const auto* server : {&unit.dunl, &unit.fesk, &unit.yarrowi}) {
        sendEverything(*server, publicMbox());
    }
    expectServing();
}

TEST_F(BadInputTest, when_a_client_of_the_unit_sends_anything_then_the_server_serves_on)
{
    VorniPeer rhune(unit.post, "rhuneClient");
    rhune.appear();
    for (const std::uint32_t to : {unit.privateMbox(), publicMbox()}) {
        NewSignal<RhuneVornConnEstablishReqS> request(9, 77, sizeof(VornU32));
        request->nbrOfSupportedProtocolRev = 1;
        *reinterpret_cast<VornU32*>(&*request + 1) = 1;
        request.send(unit.privateMbox(), rhune.mbox());
        const std::uint32_t connection = rhune.expect<RhuneVornConnEstablishCfmS>().header.connectionRef;
        sendEverything(rhune, to, {9, connection});
        unit.settle();
        rhune.discardAll();
    }
    expectServing();
}

TEST_F(BadInputTest, when_a_board_server_sends_broken_messages_on_its_connection_then_the_server_serves_on)
{
    Client& held = unit.addClient(); // leaves requests open that the messages answer
    unit.requestConnection(held);
    settle();
    sendBrokenBodies(unit.dunl, dunl::messages, {unit.dunl.clientRef});
    sendBrokenBodies(unit.fesk, fesk::messages, {unit.fesk.clientRef});
    sendBrokenBodies(unit.dunl, fesk::messages, {unit.dunl.clientRef, unit.fesk.clientRef});
    sendBrokenBodies(unit.yarrowi, yarrowi::messages, {1, 2, 3, 0});
    expectServing();
}

TEST_F(BadInputTest, when_the_software_manager_sends_anything_then_the_server_serves_on)
{
    for (std::size_t size = 1; size <= sizeof(std::uint64_t); ++size) {
        unit.ganti.sendFrame(gantiHeader(gant::PushLoadAck::MESSAGE_NUMBER).substr(0, size));
    }
    constexpr std::uint32_t endsConnection = gant::ConnEstablishRej::MESSAGE_NUMBER;
    for (const MessageNumber& message : gant::messages) {
        if (message.number != endsConnection) {
            sendGantiFrames(message.number, 200);
        }
    }
    for (const BadNumber& bad : m_known) { // nearly all of which mean nothing here
        if (bad.number != endsConnection) {
            sendGantiFrames(bad.number, 10);
        }
    }
    settle();
    unit.ganti.sendFrame(gantiHeader(endsConnection) + "\x08\xFF");
    unit.ganti.expectClosed();
    expectServing();
}

TEST_F(BadInputTest, when_the_software_manager_sends_an_empty_packet_then_that_is_the_end_of_the_connection)
{
    unit.ganti.sendFrame("");
    unit.ganti.expectClosed();
    unit.settle();
    EXPECT_TRUE(VornTrace::RecordedTraces::has("PLOE connection closed by GANTI Server."));
    expectServing();
}

TEST_F(BadInputTest, when_lines_of_any_words_are_commanded_then_each_is_answered_and_the_server_serves_on)
{
    runRandomCommands(m_random, 500);
    int exitCode = -1;
    unit.command({"deepsleep", "connect"}, exitCode); // which nobody answers
    expectServing();
}

TEST_F(BadInputTest, when_all_peers_flood_the_server_then_it_serves_on)
{
    Client& stranger = unit.addClient();
    const std::array<const Peer*, 6> peers{client, &stranger, &unit.legacy, &unit.dunl, &unit.fesk, &unit.yarrowi};
    for (int i = 0; i < 3000; ++i) { // which nobody waits for, and whose answers nobody reads
        for (const Peer* from : peers) {
            const BadNumber& bad = m_known[random(m_known.size() - 1)]; // but the one that ends the session
            const auto bytes = randomMessage(m_random, bad.number, bad.sizes[random(bad.sizes.size())]);
            from->sendBytes(i % 2 == 0 ? publicMbox() : unit.privateMbox(), withReferences(bytes, clientReferences()));
            ++m_sent;
        }
    }
    expectServing();
}

} // namespace
