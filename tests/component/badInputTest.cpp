/// What no peer should send: every number at every length with random bytes, true headers with broken bodies, to every
/// mailbox, from every kind of peer. Nothing of it ends the server, and a fresh client connects afterwards. The exit
/// message isn't among it: that one is meant to end the server thread.

#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "ostinel/kivTicket.h"
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

constexpr std::size_t extra = 8;          // bytes beyond a record
constexpr std::size_t longestBehind = 48; // of a signal that has no fixed end
constexpr std::size_t longestBody = 40;

class BadInputTest : public UnitTest
{
protected:
    BadInputTest()
    {
        for (const Vorni::SignalInfo& signal : Vorni::signals()) {
            add(signal.number, signal.size + (signal.openEnded ? longestBehind : 0));
        }
        const auto addAll = [this](const auto& messages) {
            for (const MessageNumber& message : messages) {
                add(message.number, sizeof(BoardMessageHeader) + longestBody);
            }
        };
        addAll(dunl::messages);
        addAll(fesk::messages);
        addAll(yarrowi::messages);
        for (const std::uint32_t number :
             {0U, 1U, 0x1658777U, 0x7FFFFFFFU, 0xFFFFFFFFU, RhuneVornServerKivMonitorIndS::number,
              Ostinel::locatorMessage, Ostinel::monitorMessage}) {
            add(number, 24);
        }
        unit.bringUp();
        client = &unit.connect();
        openLoad();
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

    void add(std::uint32_t number, std::size_t size) { m_known.push_back({number, size}); }

    std::vector<std::byte> randomMessage(std::uint32_t number, std::size_t size)
    {
        std::vector<std::byte> bytes(size);
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::byte>(m_random() & 0xFF); });
        std::memcpy(bytes.data(), &number, sizeof(number));
        return bytes;
    }
    /// Keys of the first fields with broken lengths and values.
    void makeNearlyRight(std::span<std::byte> body)
    {
        constexpr std::array<std::uint32_t, 3> wireTypes{0, 0, 2};
        for (std::size_t at = 0; at < body.size(); at += 2) {
            body[at] = static_cast<std::byte>((1 + m_random() % 5) << 3 | wireTypes[m_random() % 3]);
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
    /// With the references of the client, where they fit, so that what it has open is found.
    std::vector<std::byte> withReferences(std::vector<std::byte> bytes) const
    {
        if (bytes.size() >= sizeof(VornSignalHeader)) {
            reinterpret_cast<VornSignalHeader*>(bytes.data())->setReferences(client->clientRef, client->serverRef);
        }
        return bytes;
    }
    /// Random bytes under every known number at every length; a number that ends the session comes last.
    void sendEverything(const Peer& from, std::uint32_t to)
    {
        std::stable_partition(m_known.begin(), m_known.end(),
                              [](const Known& known) { return known.number != OmlaVornConnEstablishRejS::number; });
        for (const auto& [number, longest] : m_known) {
            const std::size_t step = 1 + longest / 256;
            for (std::size_t size = sizeof(number); size <= longest + extra; size += step) {
                send(from, to, randomMessage(number, size));
                send(from, to, withReferences(randomMessage(number, size)));
            }
        }
        settle();
    }
    /// Headers that lead to a handler, a transaction and a session, with bodies that are random or nearly right.
    void sendBrokenBodies(const BoardServer& from, std::span<const MessageNumber> messages,
                          const std::vector<std::uint32_t>& connectionRefs)
    {
        for (const MessageNumber& message : messages) {
            for (int i = 0; i < 300; ++i) {
                auto bytes = randomMessage(message.number, sizeof(BoardMessageHeader) + m_random() % longestBody);
                auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
                header->connectionRef = connectionRefs[m_random() % connectionRefs.size()];
                header->procedureRef =
                    i % 3 == 0 ? header->connectionRef.value() : static_cast<std::uint32_t>(m_random() % 64);
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
            std::vector<std::byte> body(m_random() % longestBody);
            std::generate(body.begin(), body.end(), [this] { return static_cast<std::byte>(m_random() & 0xFF); });
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
        header[1] = static_cast<std::uint32_t>(m_random() % someProcRefs);
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

    /// The board's servers answer what a new client needs; every confirm is number + 1 and takes a field 1 of value 1.
    void answerBoard(BoardServer& server)
    {
        while (const auto request = unit.post.next(server.mbox(), std::chrono::milliseconds(0))) {
            const std::array needed{dunl::MsgNo::RegisterUtcTimeSourceReq, dunl::MsgNo::ConnectivityConnectedReq,
                                    fesk::MsgNo::RegisterMmiUserReq, yarrowi::MsgNo::ConnectionEstablishReq};
            if (std::find(needed.begin(), needed.end(), request->number()) == needed.end()) {
                continue;
            }
            const auto* header = viewSignal<BoardMessageHeader>(request->get());
            struct {
                BoardMessageHeader header;
                std::array<std::uint8_t, 2> body;
            } const cfm{{request->number() + 1, header->procedureRef, server.clientRef}, {0x08, 0x01}};
            server.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&cfm, 1)));
        }
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
                answerBoard(*server);
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

private:
    struct Known {
        std::uint32_t number;
        std::size_t longest;
    };
    std::vector<Known> m_known;
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
    Client& stranger = unit.addClient();
    sendEverything(stranger, publicMbox());
    stranger.die();
    Client& other = unit.addClient();
    sendEverything(other, unit.privateMbox());
    other.die();
    Client& third = unit.addClient();
    sendEverything(third, client->fwdMbox);
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
    sendEverything(unit.dunl, unit.privateMbox());
    sendEverything(unit.dunl, publicMbox());
    sendEverything(unit.fesk, unit.privateMbox());
    sendEverything(unit.yarrowi, unit.privateMbox());
    sendEverything(unit.yarrowi, publicMbox());
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
    for (const MessageNumber& message : gant::messages) {
        if (message.number != gant::ConnEstablishRej::MESSAGE_NUMBER) { // which ends the connection
            sendGantiFrames(message.number, 200);
        }
    }
    for (const std::uint32_t unknown : {0U, 46U, 0x01000000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        sendGantiFrames(unknown, 20);
    }
    settle();
    unit.ganti.sendFrame(gantiHeader(gant::ConnEstablishRej::MESSAGE_NUMBER) + "\x08\xFF");
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

} // namespace
