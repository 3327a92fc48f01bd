/// What no peer should send, far more than 100,000 times, to the real server as the board has it: every number at every
/// size with random bytes, true headers with bodies that are cut off or have bits turned over, numbers that nobody
/// knows; from every kind of peer, to the published and to the private mailbox; lines of the command line. The exit
/// message isn't among it: that one is meant to end the server thread. Afterwards a client connects, and the server
/// hasn't grown.

#include "badInput.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "rhune/rhuneSignals.h"
#include "system.h"
#include "vornServerImpl.h"
#include "vorni/connection.h"
#include "vorni/software.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <google/protobuf/message.h>
#include <random>

using namespace TestSystem;
using namespace tolme;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

namespace {

constexpr std::uint32_t seed = 20240611; // the same bytes in every run
constexpr std::size_t messagesToSend = 100'000;
constexpr std::size_t messagesToSettle = 512;
constexpr std::size_t gantiHeaderSize = 8;
constexpr std::size_t framesToSettle = 64; // before the answers fill the socket
constexpr std::uint32_t ticket = 300;      // as in a message whose fields are all filled
#ifdef __SANITIZE_THREAD__
constexpr long mostGrowth = 64 * 1024; // KiB; its shadow of the memory grows with the addresses used
#else
// KiB; kept by design: capabilities and faults that are reported again, requests that nobody answers, subscribers of
// restarts and ordered restarts by their references
constexpr long mostGrowth = 16 * 1024;
#endif
constexpr std::uint32_t exitMessage = 0xDEADBEEF;

using Bytes = std::vector<std::byte>;

/// Values for all fields, so that nothing of a message is left out when it is taken apart.
void fill(Message& message)
{
    const auto* reflection = message.GetReflection();
    const auto* descriptor = message.GetDescriptor();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        const FieldDescriptor* field = descriptor->field(i);
        const bool isRepeated = field->is_repeated();
        switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            isRepeated ? reflection->AddUInt32(&message, field, 1) : reflection->SetUInt32(&message, field, 300);
            break;
        case FieldDescriptor::CPPTYPE_INT32:
            isRepeated ? reflection->AddInt32(&message, field, 1) : reflection->SetInt32(&message, field, 7);
            break;
        case FieldDescriptor::CPPTYPE_BOOL:
            reflection->SetBool(&message, field, true);
            break;
        case FieldDescriptor::CPPTYPE_STRING:
            isRepeated ? reflection->AddString(&message, field, "a text")
                       : reflection->SetString(&message, field, "a text of some length");
            break;
        case FieldDescriptor::CPPTYPE_ENUM: {
            const auto* value = field->enum_type()->value(field->enum_type()->value_count() - 1);
            isRepeated ? reflection->AddEnum(&message, field, value) : reflection->SetEnum(&message, field, value);
            break;
        }
        case FieldDescriptor::CPPTYPE_MESSAGE:
            fill(isRepeated ? *reflection->AddMessage(&message, field) : *reflection->MutableMessage(&message, field));
            break;
        default:
            throw StepFailed(field->full_name() + " is of a kind that this test doesn't know");
        }
    }
}

/// A message of an interface under its number, encoded.
struct Encoded {
    std::uint32_t number;
    std::string body;
};

std::vector<Encoded> encodeAll(std::span<const MessageNumber> numbers)
{
    const auto* pool = google::protobuf::DescriptorPool::generated_pool();
    std::vector<Encoded> all;
    for (const MessageNumber& entry : numbers) {
        const auto* descriptor = pool->FindMessageTypeByName(entry.name);
        if (descriptor == nullptr) {
            throw StepFailed(std::string(entry.name) + " isn't known");
        }
        const auto* prototype = google::protobuf::MessageFactory::generated_factory()->GetPrototype(descriptor);
        const std::unique_ptr<Message> message(prototype->New());
        fill(*message);
        all.push_back({entry.number, message->SerializeAsString()});
    }
    return all;
}

/// The test plays the legacy server and the board servers, and all clients; the server is a process of its own.
class BadInputTest : public ProcessTest
{
protected:
    BadInputTest()
    {
        fmt::print("seed {}\n", seed);
        peers.server.reset(); // the one in the test's own process isn't needed
        TestUnit::supportEverything(peers);
    }

    void bringUp()
    {
        // Memory that the sanitizer keeps for itself isn't growth: what was freed, and the stack frames of the past.
        const char* options = std::getenv("ASAN_OPTIONS");
        peers.ganti.appear();
        unit.startServer({{"ASAN_OPTIONS", std::string(options != nullptr ? options : "") +
                                               ":quarantine_size_mb=1:detect_stack_use_after_return=0"}});
        awaitMailbox(peers.post, "private_VornServer");
        peers.connectGanti();
        peers.legacy.appear();
        peers.connectDunl();
        peers.connectFesk();
        peers.connectYarrowI();
        published = awaitMailbox(peers.post, "VornServer");
        client = &peers.connect();
        peers.requestConnection(peers.addClient()); // held: leaves requests open
        openLoad();
        TestUnit::openSubscriptions(peers, *client);
        connectRhune();
        settle();
    }
    void connectRhune()
    {
        rhune.appear();
        rhune.clientRef = 9;
        rhune.serverRef = 77;
        NewSignal<RhuneVornConnEstablishReqS> request(rhune.clientRef, rhune.serverRef, sizeof(VornU32));
        request->nbrOfSupportedProtocolRev = 1;
        *reinterpret_cast<VornU32*>(&*request + 1) = 1;
        request.send(peers.privateMbox(), rhune.mbox());
        rhune.serverRef = rhune.expect<RhuneVornConnEstablishCfmS>().header.connectionRef;
    }
    /// The client holds a ticket and is in the middle of a load, so that what belongs to these is looked at.
    void openLoad()
    {
        peers.giveTicket(*client, ticket);
        client->send<OmlaVornLoadLmcInitReqS>();
        peers.ganti.expect<gant::PushLoadInitReq>();
    }

    /// Waits for the server and throws away what it has sent to everyone meanwhile.
    void settle()
    {
        peers.settle();
        for (TestUnit::Peer* peer : std::initializer_list<TestUnit::Peer*>{&peers.legacy, &peers.dunl, &peers.fesk,
                                                                           &peers.yarrowi, client, &rhune}) {
            peer->discardAll();
        }
        peers.ganti.discardAll();
    }
    void send(const TestUnit::Peer& from, std::uint32_t to, const Bytes& bytes)
    {
        from.sendBytes(to, bytes);
        noteSent(messagesToSettle);
    }
    void noteSent(std::size_t mostAtOnce)
    {
        ++m_sent;
        if (m_sent % mostAtOnce == 0) {
            settle();
        }
    }
    std::uint32_t random(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }
    Bytes randomMessage(std::uint32_t number, std::size_t size)
    {
        return TestUnit::randomMessage(m_random, number, size);
    }

    /// With those of a connected peer, where they fit, so that what it has open is found.
    static Bytes withReferences(Bytes bytes, const TestUnit::VorniPeer& peer)
    {
        if (bytes.size() >= sizeof(VornSignalHeader)) {
            reinterpret_cast<VornSignalHeader*>(bytes.data())->setReferences(peer.clientRef, peer.serverRef);
        }
        return bytes;
    }
    void sendEverySize(const TestUnit::Peer& from, std::uint32_t to)
    {
        const bool isClient = &from == client;
        for (const TestUnit::BadNumber& bad : m_known) {
            for (const std::size_t size : bad.sizes) {
                send(from, to, randomMessage(bad.number, size));
                if (isClient || &from == &rhune) {
                    send(from, to, withReferences(randomMessage(bad.number, size), isClient ? *client : rhune));
                }
            }
        }
        settle();
    }
    void sendUnknownNumbers(const TestUnit::Peer& from, std::uint32_t to)
    {
        for (int i = 0; i < 300; ++i) {
            const std::uint32_t number = random(UINT32_MAX);
            send(from, to, randomMessage(number != exitMessage ? number : 0, sizeof(number) + random(200)));
        }
        settle();
    }
    /// Headers that lead to a handler, and often to a transaction and a session.
    void sendBrokenBodies(const TestUnit::BoardServer& from, std::uint32_t to, const std::vector<Encoded>& messages)
    {
        for (const Encoded& message : messages) {
            for (std::size_t size = 0; size <= message.body.size(); ++size) {
                send(from, to, withHeader(from, {message.number, message.body.substr(0, size)}));
            }
            for (int i = 0; i < 64 && !message.body.empty(); ++i) {
                send(from, to, withHeader(from, {message.number, withBitsTurned(message.body)}));
            }
        }
        settle();
    }
    /// The same on the software manager's socket. What ends the connection isn't among it.
    void sendBrokenFrames(const std::vector<Encoded>& messages)
    {
        for (const Encoded& message : messages) {
            if (message.number == gant::ConnEstablishRej::MESSAGE_NUMBER) {
                continue;
            }
            for (std::size_t size = 0; size <= message.body.size(); ++size) {
                sendFrame(message.number, message.body.substr(0, size));
            }
            for (int i = 0; i < 64; ++i) {
                sendFrame(message.number, withBitsTurned(message.body));
            }
        }
        for (int i = 0; i < 300; ++i) {
            sendFrame(1000 + random(UINT32_MAX - 1000), withBitsTurned(messages.back().body));
        }
        for (const TestUnit::BadNumber& bad : m_known) { // of the other interfaces
            if (bad.number > messages.back().number) {
                sendFrame(bad.number, withBitsTurned(messages.back().body));
            }
        }
        for (std::size_t size = 1; size <= gantiHeaderSize; ++size) {
            const auto header = gantiHeader(random(64));
            peers.ganti.sendFrame({reinterpret_cast<const char*>(header.data()), size});
        }
        settle();
    }
    /// From the board servers what is theirs and what isn't, and lines of the command line.
    void sendBrokenToAll(std::span<const std::uint32_t> mailboxes)
    {
        const std::array<TestUnit::BoardServer*, 3> boardServers{&peers.dunl, &peers.fesk, &peers.yarrowi};
        for (const std::uint32_t to : mailboxes) {
            for (std::size_t i = 0; i < boardServers.size(); ++i) {
                sendBrokenBodies(*boardServers[i], to, interfaces[i]);
                sendBrokenBodies(*boardServers[i], to, interfaces[(i + 1) % interfaces.size()]);
            }
        }
        sendBrokenFrames(gantiMessages);
        TestUnit::runRandomCommands(m_random, 200);
    }
    void sendFrame(std::uint32_t msgNo, const std::string& body)
    {
        const auto header = gantiHeader(msgNo);
        peers.ganti.sendFrame(std::string(reinterpret_cast<const char*>(header.data()), sizeof(header)) + body);
        noteSent(framesToSettle);
    }
    std::array<VornU32, 2> gantiHeader(std::uint32_t msgNo)
    {
        std::array<VornU32, 2> header;
        header[0] = msgNo;
        header[1] = random(16);
        return header;
    }
    std::string withBitsTurned(std::string bytes)
    {
        for (std::uint32_t flips = 1 + random(4); flips > 0 && !bytes.empty(); --flips) {
            char& turned = bytes[random(static_cast<std::uint32_t>(bytes.size()))];
            turned = static_cast<char>(turned ^ (1 << random(8)));
        }
        return bytes;
    }
    /// The software manager says again that it is connected, which what it sent may have undone, and then that it
    /// isn't.
    void endSoftwareManager()
    {
        gant::ConnEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        peers.ganti.send(0, cfm);
        settle();
        peers.ganti.send(0, gant::ConnEstablishRej());
        peers.ganti.expectClosed();
    }
    Bytes withHeader(const TestUnit::BoardServer& from, const Encoded& message)
    {
        Bytes bytes(sizeof(BoardMessageHeader) + message.body.size());
        auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
        header->msgNo = message.number;
        header->procedureRef = random(4) == 0 ? from.clientRef : random(64);
        header->connectionRef = random(8) != 0 ? from.clientRef : random(128);
        std::memcpy(bytes.data() + sizeof(*header), message.body.data(), message.body.size());
        return bytes;
    }

    /// KiB.
    long residentSize()
    {
        std::ifstream status(fmt::format("/proc/{}/status", unit.server().pid()));
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("VmRSS:")) {
                return std::stol(line.substr(sizeof("VmRSS:") - 1));
            }
        }
        throw StepFailed("the server's size isn't known");
    }
    /// What all kinds of messages have come to need once isn't growth.
    void noteWarm()
    {
        settle();
        m_warmSize = residentSize();
        m_sentToWarmUp = m_sent;
    }
    void expectNoGrowth()
    {
        settle();
        const long size = residentSize();
        fmt::print("{} messages; {} KiB after {}, {} KiB in the end\n", m_sent, m_warmSize, m_sentToWarmUp, size);
        EXPECT_LT(size - m_warmSize, mostGrowth);
    }

    /// Servers that were never confused take the places of those that the test has played, but for deep sleep, whose
    /// server isn't looked for again.
    void expectServing()
    {
        peers.legacy.die();
        peers.dunl.die();
        peers.fesk.die();
        awaitGone(peers.post, published);
        unit.startBoard({"--without", "yarrowi,ganti"});
        awaitMailbox(peers.post, "VornServer");
        peers.settle();
        peers.yarrowi.discardAll();
        DuClient fresh(peers.post, "fresh");
        fresh.appear();
        fresh.beginConnect();
        peers.connectDeepSleep(77);
        fresh.expectConfirm();
        fresh.expectMmiServed();
        fresh.setTimeAndExpect<OmlaVornSetUtcTimeCfmS>();
        fresh.die();
    }

    const std::vector<std::vector<Encoded>> interfaces{encodeAll(dunl::messages), encodeAll(fesk::messages),
                                                       encodeAll(yarrowi::messages)};
    const std::vector<Encoded> gantiMessages = encodeAll(gant::messages);
    TestUnit::Unit peers;
    std::uint32_t published = KIV_NO_MBOX;
    TestUnit::Client* client = nullptr;
    TestUnit::VorniPeer rhune{peers.post, "rhuneClient"};
    std::size_t m_sent = 0;

    std::mt19937 m_random{seed};

private:
    const std::vector<TestUnit::BadNumber> m_known = TestUnit::everyNumber();
    long m_warmSize = 0;
    std::size_t m_sentToWarmUp = 0;
};

TEST_F(BadInputTest, when_every_peer_sends_100000_messages_of_all_kinds_then_the_server_serves_on_and_has_not_grown)
{
    bringUp();
    TestUnit::Client& stranger = peers.addClient();
    const std::array<std::uint32_t, 2> mailboxes{published, peers.privateMbox()};
    sendBrokenToAll(mailboxes);
    noteWarm();
    for (const std::uint32_t to : mailboxes) {
        for (const TestUnit::Peer* from : std::initializer_list<const TestUnit::Peer*>{
                 client, &stranger, &peers.legacy, &peers.dunl, &peers.fesk, &peers.yarrowi, &rhune}) {
            sendEverySize(*from, to);
            sendUnknownNumbers(*from, to);
        }
    }
    sendBrokenToAll(mailboxes);
    EXPECT_GE(m_sent, messagesToSend);
    sendEverySize(peers.legacy, client->fwdMbox); // ends the client's session in the end
    expectNoGrowth();
    endSoftwareManager();
    expectServing();
}

} // namespace
