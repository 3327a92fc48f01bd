#include "board.h"

#include "boardMessage.h"
#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "faultTimes.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "mailbox.h"
#include "softwareManager.h"
#include "unit.h"
#include "vorni/access.h"
#include "vorni/connection.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <optional>
#include <unordered_map>

namespace Bench {
namespace {

using namespace tolme;

/// A fault that leaves nothing behind in the server once it has ceased.
constexpr std::int32_t hardwareFault = 0;

/// A request to a board server, and how it is answered.
struct Request {
    BoardEnvelope envelope;
    kiv_mbox_id_t client;
    kiv_mbox_id_t server;

    void answer(std::uint32_t msgNo, std::uint32_t connectionRef, const google::protobuf::Message& body) const
    {
        sendOwned(encodeBoardMessage({msgNo, envelope.procedureRef, connectionRef}, body), client, server);
    }
};

/// The DUNL or the FESK server's connection to vornserver.
struct Connection {
    static constexpr std::uint32_t serverRef = 0x1001;

    std::uint32_t clientRef = 0;
    kiv_mbox_id_t client = KIV_NO_MBOX;

    template <typename Cfm>
    void establish(const Request& request, std::uint32_t cfmMsgNo)
    {
        clientRef = request.envelope.procedureRef;
        client = request.client;
        Cfm cfm;
        cfm.set_selected_protocol_revision(1);
        request.answer(cfmMsgNo, serverRef, cfm);
    }
};

class Board
{
public:
    Board()
        : m_legacy(createMailbox("LegacyVornServer")), m_dunl(cloneMailbox(m_legacy, "DunlServer")),
          m_fesk(cloneMailbox(m_legacy, "FeskServer")), m_yarrowi(cloneMailbox(m_legacy, "YarrowIServer"))
    {
    }

    void handle(kiv_msg* msg)
    {
        MessagePtr message(msg);
        const kiv_mbox_id_t receiver = kiv_receiver(msg);
        if (receiver == m_legacy) {
            handleSignal(std::move(message));
            return;
        }
        if (receiver == m_dunl && msg->number == FaultOrder::number) {
            obey(*reinterpret_cast<const FaultOrder*>(msg));
            return;
        }
        if (const auto envelope = readBoardEnvelope(msg)) {
            const Request request{*envelope, kiv_sender(msg), receiver};
            receiver == m_dunl   ? handleDunl(request)
            : receiver == m_fesk ? handleFesk(request)
                                 : handleYarrowI(request);
        }
    }

private:
    void handleSignal(MessagePtr message);
    void handleDunl(const Request& request);
    void handleFesk(const Request& request);
    void handleYarrowI(const Request& request);
    void obey(const FaultOrder& order);

    kiv_mbox_id_t m_legacy;
    kiv_mbox_id_t m_dunl;
    kiv_mbox_id_t m_fesk;
    kiv_mbox_id_t m_yarrowi;
    Connection m_dunlConnection;
    Connection m_feskConnection;
    std::unordered_map<std::uint32_t, std::uint32_t> m_sleepConnections; ///< our reference to vornserver's
    std::uint32_t m_lastReference = 0;
    std::optional<FaultTimes> m_faultTimes; ///< from the first fault on
};

void Board::handleSignal(MessagePtr message)
{
    const kiv_mbox_id_t client = kiv_sender(message.get());
    if (message->number == OmlaVornConnEstablishReqS::number) {
        if (const auto* request = viewSignal<OmlaVornConnEstablishReqS>(message.get())) {
            NewSignal<OmlaVornConnEstablishCfmS>(request->header.clientRef, request->header.serverRef)
                .send(client, m_legacy);
        }
        return;
    }
    // The message itself goes back.
    kiv_msg* msg = message.release();
    kiv_send(&msg, client, m_legacy);
}

void Board::handleDunl(const Request& request)
{
    const std::uint32_t ref = m_dunlConnection.clientRef;
    switch (request.envelope.msgNo) {
    case dunl::MsgNo::ConnEstablishReq:
        m_dunlConnection.establish<dunl::ConnEstablishCfm>(request, dunl::MsgNo::ConnEstablishCfm);
        break;
    case dunl::MsgNo::GetCapabilitiesReq:
        request.answer(dunl::MsgNo::GetCapabilitiesCfm, ref, dunl::GetCapabilitiesCfm());
        break;
    case dunl::MsgNo::ConnectivityConnectedReq:
        request.answer(dunl::MsgNo::ConnectivityConnectedCfm, ref, dunl::ConnectivityConnectedCfm());
        break;
    case dunl::MsgNo::RegisterUtcTimeSourceReq: {
        dunl::RegisterUtcTimeSourceCfm cfm;
        cfm.set_utc_time_source_ref(++m_lastReference);
        request.answer(dunl::MsgNo::RegisterUtcTimeSourceCfm, ref, cfm);
        break;
    }
    case dunl::MsgNo::SetUtcTimeReq:
        request.answer(dunl::MsgNo::SetUtcTimeCfm, ref, dunl::SetUtcTimeCfm());
        break;
    default:
        break; // nothing that a connection or a measured request waits for
    }
}

void Board::handleFesk(const Request& request)
{
    const std::uint32_t ref = m_feskConnection.clientRef;
    switch (request.envelope.msgNo) {
    case fesk::MsgNo::ConnEstablishReq:
        m_feskConnection.establish<fesk::ConnEstablishCfm>(request, fesk::MsgNo::ConnEstablishCfm);
        break;
    case fesk::MsgNo::GetCapabilitiesReq:
        request.answer(fesk::MsgNo::GetCapabilitiesCfm, ref, fesk::GetCapabilitiesCfm());
        break;
    case fesk::MsgNo::RegisterMmiUserReq: {
        fesk::RegisterMmiUserCfm cfm;
        cfm.set_mmi_user_id(++m_lastReference);
        request.answer(fesk::MsgNo::RegisterMmiUserCfm, ref, cfm);
        break;
    }
    default:
        break;
    }
}

void Board::handleYarrowI(const Request& request)
{
    const std::uint32_t connectionRef = request.envelope.connectionRef;
    switch (request.envelope.msgNo) {
    case yarrowi::MsgNo::ConnectionEstablishReq: {
        m_sleepConnections[++m_lastReference] = connectionRef;
        yarrowi::ConnectionEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        request.answer(yarrowi::MsgNo::ConnectionEstablishCfm, m_lastReference, cfm);
        break;
    }
    case yarrowi::MsgNo::CapabilityExchangeReq: {
        yarrowi::CapabilityExchangeCfm cfm;
        cfm.set_deep_sleep_supported(true);
        request.answer(yarrowi::MsgNo::CapabilityExchangeCfm, m_sleepConnections[connectionRef], cfm);
        break;
    }
    case yarrowi::MsgNo::ConnectionClosedownReq:
        request.answer(yarrowi::MsgNo::ConnectionClosedownCfm, m_sleepConnections[connectionRef],
                       yarrowi::ConnectionClosedownCfm());
        m_sleepConnections.erase(connectionRef);
        break;
    default:
        break;
    }
}

void Board::obey(const FaultOrder& order)
{
    if (!m_faultTimes) {
        m_faultTimes.emplace(faultTimesPath());
    }
    const BoardEnvelope envelope{order.isRaise ? dunl::MsgNo::FaultInd : dunl::MsgNo::FaultCeaseInd, 0,
                                 m_dunlConnection.clientRef};
    OwnedMessage message;
    if (order.isRaise) {
        dunl::FaultInd ind;
        ind.set_fault_id(hardwareFault);
        ind.set_fault_case(1);
        message = encodeBoardMessage(envelope, ind);
    } else {
        dunl::FaultCeaseInd ind;
        ind.set_fault_id(hardwareFault);
        message = encodeBoardMessage(envelope, ind);
    }
    m_faultTimes->noteSent();
    sendOwned(std::move(message), m_dunlConnection.client, m_dunl);
}

} // namespace

std::string faultTimesPath()
{
    return runDir() + "/faultTimes";
}

void runBoard(const Ready& ready)
{
    Board board;
    startSoftwareManager();
    ready();
    for (;;) {
        if (kiv_msg* msg = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER)) {
            board.handle(msg);
        }
    }
}

} // namespace Bench
