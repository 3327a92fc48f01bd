#include "unit.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "ganti/ganti.pb.h"
#include "ostinel/commandClient.h"
#include "vornServerImpl.h"
#include "vorni/connection.h"
#include "vorni/linkSupervision.h"
#include "vorni/software.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <fmt/format.h>
#include <sstream>

using namespace tolme;

namespace TestUnit {

namespace {

constexpr std::uint32_t dunlServerRef = 0x11110001;
constexpr std::uint32_t feskServerRef = 0x22220001;
constexpr std::uint32_t startUpConnection = 0x33330001;

/// The test covers the signal if it is one that goes this way.
void noteCovered(std::uint32_t number, Vorni::Direction direction)
{
    const Vorni::SignalInfo* signal = Vorni::findSignal(number);
    if (signal != nullptr && signal->direction == direction) {
        SignalCoverage::note(number);
    }
}

std::uint32_t milliseconds(std::chrono::milliseconds time)
{
    return static_cast<std::uint32_t>(time.count());
}

} // namespace

Post::Post() : m_main(kiv_create_mailbox("test"))
{
    if (m_main == KIV_NO_MBOX) {
        throw StepFailed("the test has no mailbox");
    }
}

Post::~Post()
{
    m_waiting.clear();
    kiv_delete_mailbox(m_main);
}

std::uint32_t Post::addMailbox(const std::string& name)
{
    const std::uint32_t mbox = kiv_clone_mailbox(m_main, name.c_str());
    if (mbox == KIV_NO_MBOX) {
        throw StepFailed("no mailbox " + name);
    }
    return mbox;
}

std::optional<Received> Post::next(std::uint32_t mbox, std::chrono::milliseconds wait)
{
    const auto end = std::chrono::steady_clock::now() + wait;
    auto& waiting = m_waiting[mbox];
    while (waiting.empty()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        kiv_msg* msg = kiv_receive(nullptr, milliseconds(std::max(left, std::chrono::milliseconds(0))), KIV_ANY_SENDER);
        if (msg == nullptr) {
            return std::nullopt;
        }
        m_waiting[kiv_receiver(msg)].emplace_back(msg);
    }
    Received received = waiting.front();
    waiting.pop_front();
    return received;
}

void Peer::appear()
{
    m_mbox = m_post.addMailbox(m_name);
}

void Peer::die()
{
    discardAll();
    kiv_delete_mailbox(m_mbox);
    m_mbox = KIV_NO_MBOX;
}

void Peer::sendBytes(std::uint32_t receiver, std::span<const std::byte> bytes) const
{
    kiv_msg* msg = kiv_alloc(static_cast<std::uint32_t>(bytes.size()), 0);
    std::memcpy(msg, bytes.data(), bytes.size());
    kiv_send(&msg, receiver, m_mbox);
}

Received Peer::expectNumber(std::uint32_t number)
{
    const auto received = m_post.next(m_mbox, deadline);
    if (!received) {
        throw StepFailed(fmt::format("{} was sent nothing; {:#x} was expected", m_name, number));
    }
    if (received->number() != number) {
        throw StepFailed(
            fmt::format("{} was sent {}; {:#x} was expected", m_name, Vorni::printSignal(received->bytes()), number));
    }
    noteCovered(number, Vorni::Direction::toClient);
    return *received;
}

std::optional<Received> Peer::take() const
{
    auto received = m_post.next(m_mbox, std::chrono::milliseconds(0));
    if (received) {
        noteCovered(received->number(), Vorni::Direction::toClient);
    }
    return received;
}

void Peer::expectNothing()
{
    if (const auto received = m_post.next(m_mbox, std::chrono::milliseconds(0))) {
        throw StepFailed(
            fmt::format("{} was sent {}; nothing was expected", m_name, Vorni::printSignal(received->bytes())));
    }
}

void Peer::discardAll()
{
    while (m_post.next(m_mbox, std::chrono::milliseconds(0))) {
    }
}

void BoardServer::sendMessage(std::uint32_t receiver, std::uint32_t msgNo, std::uint32_t procedureRef,
                              std::uint32_t connectionRef, const google::protobuf::Message& body) const
{
    const std::string encoded = body.SerializeAsString();
    std::vector<std::byte> bytes(sizeof(BoardMessageHeader) + encoded.size());
    auto* header = reinterpret_cast<BoardMessageHeader*>(bytes.data());
    header->msgNo = msgNo;
    header->procedureRef = procedureRef;
    header->connectionRef = connectionRef;
    std::memcpy(bytes.data() + sizeof(*header), encoded.data(), encoded.size());
    sendBytes(receiver, bytes);
}

void VorniPeer::noteSent(std::uint32_t number)
{
    noteCovered(number, Vorni::Direction::toServer);
}

std::uint32_t Client::publicMbox() const
{
    return kiv_locate("VornServer");
}

Unit::Unit()
    : gantiCapabilities(std::make_unique<gant::GetCapabilitiesCfm>()), server(std::make_unique<VornServerImpl>())
{
    m_probe.appear();
}

Unit::~Unit()
{
    server.reset();
}

std::uint32_t Unit::privateMbox() const
{
    return kiv_locate("private_VornServer");
}

void Unit::start()
{
    if (!ganti.isThere()) {
        ganti.appear();
    }
    const auto mark = VornTrace::RecordedTraces::mark();
    if (server->start() != 0 || !VornTrace::RecordedTraces::waitFor("Published server: ", mark, deadline)) {
        throw StepFailed("the server doesn't start");
    }
    settle();
}

// The server takes one message at a time, in turn from its mailbox and from the software manager's socket, so that an
// answer to the probe alone says nothing about the socket. Once the socket's last message is taken, it does: the server
// has to come back from handling that before it sees the probe.
void Unit::settle()
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!ganti.isAllTaken()) {
        if (std::chrono::steady_clock::now() > end) {
            throw StepFailed("the server doesn't take what the software manager has sent");
        }
        makeRoundTrip();
    }
    makeRoundTrip();
}

void Unit::makeRoundTrip()
{
    const SignalCoverage::Pause pause;
    m_probe.sendTo<OmlaVornLinkSupervisionReqS>(privateMbox(), [](auto&) {});
    m_probe.expect<OmlaVornLinkSupervisionRejS>();
}

void Unit::bringUp()
{
    start();
    connectGanti();
    legacy.appear();
    connectDunl();
    connectFesk();
    connectYarrowI();
    settle();
    if (kiv_locate("VornServer") == KIV_NO_MBOX) {
        throw StepFailed("the server isn't published");
    }
}

void Unit::connectGanti()
{
    gant::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    ganti.expect<gant::ConnEstablishReq>().reply(cfm);
    ganti.expect<gant::GetCapabilitiesReq>().reply(*gantiCapabilities);
}

void Unit::connectDunl()
{
    dunl.appear();
    auto request = dunl.expect<dunl::ConnEstablishReq>(dunl::MsgNo::ConnEstablishReq);
    dunl.clientRef = request.procedureRef;
    dunl.serverRef = dunlServerRef;
    dunl::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    dunl.sendMessage(request.sender, dunl::MsgNo::ConnEstablishCfm, dunl.clientRef, dunl.serverRef, cfm);
    dunl.expect<dunl::GetProductInfoReq>(dunl::MsgNo::GetProductInfoReq);
    dunl.expect<dunl::GetContainerPidReq>(dunl::MsgNo::GetContainerPidReq);
    const auto capabilities = dunl.expect<dunl::GetCapabilitiesReq>(dunl::MsgNo::GetCapabilitiesReq);
    dunl.expect<dunl::SubscribeFaultsReq>(dunl::MsgNo::SubscribeFaultsReq);
    dunl::GetCapabilitiesCfm capabilitiesCfm;
    for (const int capability : dunlCapabilities) {
        capabilitiesCfm.add_capabilities(static_cast<dunl::Capability>(capability));
    }
    capabilitiesCfm.set_restart_rank_label(restartRanks);
    capabilities.reply(dunl::MsgNo::GetCapabilitiesCfm, capabilitiesCfm);
}

void Unit::connectFesk()
{
    fesk.appear();
    auto request = fesk.expect<fesk::ConnEstablishReq>(fesk::MsgNo::ConnEstablishReq);
    fesk.clientRef = request.procedureRef;
    fesk.serverRef = feskServerRef;
    fesk::ConnEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    fesk.sendMessage(request.sender, fesk::MsgNo::ConnEstablishCfm, fesk.clientRef, fesk.serverRef, cfm);
    fesk.expect<fesk::GetCapabilitiesReq>(fesk::MsgNo::GetCapabilitiesReq)
        .reply(fesk::MsgNo::GetCapabilitiesCfm, fesk::GetCapabilitiesCfm());
    registerMmiUser(3);
}

void Unit::connectYarrowI(bool deepSleepSupported)
{
    yarrowi.appear();
    const auto request = yarrowi.expect<::yarrowi::ConnectionEstablishReq>(::yarrowi::MsgNo::ConnectionEstablishReq);
    ::yarrowi::ConnectionEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    yarrowi.sendMessage(request.sender, ::yarrowi::MsgNo::ConnectionEstablishCfm, request.procedureRef,
                        startUpConnection, cfm);
    const auto exchange = yarrowi.expect<::yarrowi::CapabilityExchangeReq>(::yarrowi::MsgNo::CapabilityExchangeReq);
    ::yarrowi::CapabilityExchangeCfm capabilities;
    capabilities.set_deep_sleep_supported(deepSleepSupported);
    capabilities.set_wake_up_time(30);
    yarrowi.sendMessage(request.sender, ::yarrowi::MsgNo::CapabilityExchangeCfm, exchange.procedureRef,
                        request.connectionRef, capabilities);
    const auto close = yarrowi.expect<::yarrowi::ConnectionClosedownReq>(::yarrowi::MsgNo::ConnectionClosedownReq);
    yarrowi.sendMessage(request.sender, ::yarrowi::MsgNo::ConnectionClosedownCfm, close.procedureRef,
                        request.connectionRef, ::yarrowi::ConnectionClosedownCfm());
}

Client& Unit::addClient(std::uint32_t serverRef)
{
    Client& client = m_clients.emplace_back(post, fmt::format("client{}", m_clients.size()));
    client.clientRef = 1000 + static_cast<std::uint32_t>(m_clients.size());
    client.serverRef = serverRef;
    client.appear();
    return client;
}

void Unit::requestConnection(Client& client)
{
    client.send<OmlaVornConnEstablishReqS>([this](auto& request) { request.protocolRev = protocolRev; });
    legacy.expect<OmlaVornConnEstablishReqS>();
    client.fwdMbox = legacy.lastSender;
    legacy.clientRef = client.clientRef;
    legacy.serverRef = client.serverRef;
    legacy.sendTo<OmlaVornConnEstablishCfmS>(client.fwdMbox, [](auto&) {});
}

std::uint32_t Unit::registerMmiUser(std::optional<std::uint32_t> userId)
{
    const auto request = fesk.expect<fesk::RegisterMmiUserReq>(fesk::MsgNo::RegisterMmiUserReq);
    fesk::RegisterMmiUserCfm cfm;
    if (userId) {
        cfm.set_mmi_user_id(*userId);
    }
    request.reply(fesk::MsgNo::RegisterMmiUserCfm, cfm);
    return static_cast<std::uint32_t>(request.body.priority());
}

void Unit::registerTimeSource(std::optional<std::uint32_t> reference)
{
    dunl::RegisterUtcTimeSourceCfm cfm;
    if (reference) {
        cfm.set_utc_time_source_ref(*reference);
    }
    dunl.expect<dunl::RegisterUtcTimeSourceReq>(dunl::MsgNo::RegisterUtcTimeSourceReq)
        .reply(dunl::MsgNo::RegisterUtcTimeSourceCfm, cfm);
}

void Unit::confirmConnectivity()
{
    dunl.expect<dunl::ConnectivityConnectedReq>(dunl::MsgNo::ConnectivityConnectedReq)
        .reply(dunl::MsgNo::ConnectivityConnectedCfm, dunl::ConnectivityConnectedCfm());
    m_isConnectivityKnown = true;
}

void Unit::connectDeepSleep(std::uint32_t serverConnectionRef)
{
    const auto request = yarrowi.expect<::yarrowi::ConnectionEstablishReq>(::yarrowi::MsgNo::ConnectionEstablishReq);
    ::yarrowi::ConnectionEstablishCfm cfm;
    cfm.set_selected_protocol_revision(1);
    yarrowi.sendMessage(request.sender, ::yarrowi::MsgNo::ConnectionEstablishCfm, request.procedureRef,
                        serverConnectionRef, cfm);
    yarrowi.clientRef = request.connectionRef;
}

Client& Unit::connect(std::uint32_t serverRef)
{
    const SignalCoverage::Pause pause; // the beginning of nearly every test
    Client& client = addClient(serverRef);
    requestConnection(client);
    if (!m_isConnectivityKnown) {
        confirmConnectivity(); // comes before the time source, by the order of the components
    }
    registerTimeSource(m_nextTimeSource++);
    registerMmiUser(m_nextUserId++);
    connectDeepSleep(m_nextConnection++);
    client.expect<OmlaVornConnEstablishCfmS>();
    return client;
}

void Unit::giveTicket(Client& client, std::uint32_t ticket)
{
    const SignalCoverage::Pause pause;
    client.send<OmlaVornAcquireResourceReqS>([](auto& request) { request.resource = 1; });
    const auto acquire = ganti.expect<gant::AcquireResourceReq>();
    gant::AcquireResourceCfm cfm;
    cfm.set_ticket_request_reference(acquire.body.ticket_request_reference());
    cfm.set_ticket_number(ticket);
    acquire.reply(cfm);
    gant::AcquireResourceInd ind;
    ind.set_ticket_number(ticket);
    acquire.reply(ind);
    client.expect<OmlaVornAcquireResourceCfmS>();
}

std::string Unit::command(const std::vector<std::string>& words, int& exitCode)
{
    std::ostringstream out;
    const auto result = Ostinel::CommandClient::run(words, out);
    exitCode = result.error ? -1 : result.exitCode;
    return out.str();
}

} // namespace TestUnit
