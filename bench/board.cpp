#include "board.h"

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "mailbox.h"
#include "messageNumber.h"
#include "vorni/access.h"
#include "vorni/connection.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <unordered_map>

namespace Bench {
namespace {

using namespace tolme;

/// A request to a board server, and how it is answered.
struct Request {
    const BoardMessageHeader& header;
    kiv_mbox_id_t client;
    kiv_mbox_id_t server;

    template <typename Answer>
    void answer(std::uint32_t msgNo, std::uint32_t connectionRef, const Answer& body) const
    {
        const std::size_t size = body.ByteSizeLong();
        kiv_msg* msg = kiv_alloc(static_cast<std::uint32_t>(sizeof header + size), msgNo);
        auto* answerHeader = viewSignal<BoardMessageHeader>(msg);
        if (answerHeader == nullptr) {
            throw Failed("no memory for a message");
        }
        answerHeader->procedureRef = header.procedureRef;
        answerHeader->connectionRef = connectionRef;
        body.SerializeToArray(answerHeader + 1, static_cast<int>(size));
        kiv_send(&msg, client, server);
    }
};

/// The DUNL or the FESK server's connection to vornserver.
struct Connection {
    static constexpr std::uint32_t serverRef = 0x1001;

    std::uint32_t clientRef = 0;

    template <typename Cfm>
    void establish(const Request& request, std::uint32_t cfmMsgNo)
    {
        clientRef = request.header.procedureRef;
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
        if (const auto* header = viewSignal<BoardMessageHeader>(msg)) {
            const Request request{*header, kiv_sender(msg), receiver};
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

    kiv_mbox_id_t m_legacy;
    kiv_mbox_id_t m_dunl;
    kiv_mbox_id_t m_fesk;
    kiv_mbox_id_t m_yarrowi;
    Connection m_dunlConnection;
    Connection m_feskConnection;
    std::unordered_map<std::uint32_t, std::uint32_t> m_sleepConnections; ///< our reference to vornserver's
    std::uint32_t m_lastReference = 0;
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
    switch (request.header.msgNo) {
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
    switch (request.header.msgNo) {
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
    const std::uint32_t connectionRef = request.header.connectionRef;
    switch (request.header.msgNo) {
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

} // namespace

void runBoard(const Ready& ready)
{
    Board board;
    ready();
    for (;;) {
        if (kiv_msg* msg = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER)) {
            board.handle(msg);
        }
    }
}

} // namespace Bench
