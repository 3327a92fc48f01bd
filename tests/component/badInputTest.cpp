/// What no peer should send: every number at every length with random bytes, true headers with broken bodies, to every
/// mailbox, from every kind of peer. Nothing of it ends the server, and a fresh client connects afterwards. The exit
/// message isn't among it: that one is meant to end the server thread.

#include "dunl/numbers.h"
#include "fesk/numbers.h"
#include "ostinel/kivTicket.h"
#include "rhune/rhuneSignals.h"
#include "unit.h"
#include "vorni/connection.h"
#include "yarrowi/numbers.h"

#include <algorithm>
#include <random>

using namespace tolme;
using namespace TestUnit;

namespace {

constexpr std::size_t extra = 8; // bytes beyond a record
constexpr std::size_t longestBody = 40;

class BadInputTest : public UnitTest
{
protected:
    BadInputTest()
    {
        for (const Vorni::SignalInfo& signal : Vorni::signals()) {
            add(signal.number, signal.size);
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
    }

    void add(std::uint32_t number, std::size_t size) { m_known.push_back({number, size}); }

    std::vector<std::byte> randomMessage(std::uint32_t number, std::size_t size)
    {
        std::vector<std::byte> bytes(size);
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::byte>(m_random() & 0xFF); });
        std::memcpy(bytes.data(), &number, sizeof(number));
        return bytes;
    }
    void send(const Peer& from, std::uint32_t to, const std::vector<std::byte>& bytes)
    {
        from.sendBytes(to, bytes);
        ++m_sent;
        if (m_sent % 512 == 0) { // keeps the queues short
            settle();
        }
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
            }
        }
        settle();
    }
    /// Headers that lead to a handler, a transaction and a session, with bodies that are random or nearly right: keys
    /// of the first fields with broken lengths and values.
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
                for (std::size_t at = sizeof(*header); at < bytes.size() && i % 2 == 0; at += 2) {
                    constexpr std::array<std::uint32_t, 3> wireTypes{0, 0, 2};
                    bytes[at] = static_cast<std::byte>((1 + m_random() % 5) << 3 | wireTypes[m_random() % 3]);
                    if (at + 1 < bytes.size()) {
                        bytes[at + 1] &= std::byte{0x1F};
                    }
                }
                send(from, unit.privateMbox(), bytes);
            }
        }
        settle();
    }
    /// Waits for the server and throws away what it has sent to everyone meanwhile.
    void settle()
    {
        unit.settle();
        for (Peer* peer : std::initializer_list<Peer*>{&unit.legacy, &unit.dunl, &unit.fesk, &unit.yarrowi, client}) {
            peer->discardAll();
        }
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

} // namespace
