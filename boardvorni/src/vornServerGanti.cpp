#include "vornServerGanti.h"

#include "dunl/numbers.h"
#include "gantclient/gantMessage.h"
#include "ganti/ganti.pb.h"
#include "vorni/software.h"

#include <chrono>
#include <thread>

using namespace tolme;

namespace {

constexpr int connectAttempts = 5;
constexpr std::chrono::microseconds connectPause{250000};
constexpr std::uint32_t protocolRevision = 1;

} // namespace

VornServerGanti::VornServerGanti(VornServerCommonData& commonData)
    : VornServerComponent(commonData), m_client(commonData.getGANTClient()),
      m_dunl(commonData, commonData.getDunlClient())
{
}

template <typename Message>
void VornServerGanti::onMessage(void (VornServerGanti::*handler)(GantiRequestRecord&, const Message&))
{
    m_client.addMsgHandler(gantMessageNumber<Message>(), [this, handler](std::uint32_t procRef, GANTClient::Body body) {
        const auto message = parseGantMessage<Message>(body);
        if (GantiRequestRecord* record = m_records.findByTicket(procRef, message.ticket_number())) {
            (this->*handler)(*record, message);
        }
    });
}

template <typename Message>
void VornServerGanti::onMessage(void (VornServerGanti::*handler)(std::uint32_t, const Message&))
{
    m_client.addMsgHandler(gantMessageNumber<Message>(), [this, handler](std::uint32_t procRef, GANTClient::Body body) {
        (this->*handler)(procRef, parseGantMessage<Message>(body));
    });
}

bool VornServerGanti::init()
{
    if (!areComponentsReadyToPublish) {
        TRACE_ERROR("GANTI component: missing callback function to areComponentsReadyToPublish().");
        return false;
    }
    if (!connectToSoftwareManager()) {
        TRACE_ERROR("GANTI component: the GANTI client failed to send connEstablishReq.");
        return false;
    }
    subscribe(OmlaVornLoadLmcInitReqS::number, &VornServerGanti::handleLoadLmcInitReq);
    subscribe(OmlaVornLoadLmcDataS::number, &VornServerGanti::handleLoadLmcData);
    subscribe(OmlaVornLoadLmcEndReqS::number, &VornServerGanti::handleLoadLmcEndReq);
    subscribe(OmlaVornSelectLmcReqS::number, &VornServerGanti::handleSelectLmcReq);
    subscribe(OmlaVornGetRunningLmcReqS::number, &VornServerGanti::handleGetRunningLmcReq);
    onMessage(&VornServerGanti::handleGetRunningSwCfm);
    onMessage(&VornServerGanti::handleGetRunningSwRej);
    onMessage(&VornServerGanti::handlePushLoadInitCfm);
    onMessage(&VornServerGanti::handlePushLoadInitRej);
    onMessage(&VornServerGanti::handlePushLoadAck);
    onMessage(&VornServerGanti::handlePushLoadEndCfm);
    onMessage(&VornServerGanti::handlePushLoadEndRej);
    onMessage(&VornServerGanti::handleDeleteCfm);
    onMessage(&VornServerGanti::handleDeleteRej);
    onMessage(&VornServerGanti::handleGetSwProductInvCfm);
    onMessage(&VornServerGanti::handleGetSwProductInvRej);
    subscribe(OmlaVornSwCompListReqS::number, &VornServerGanti::handleSwCompListReq);
    subscribe(OmlaVornSwCompListAckS::number, &VornServerGanti::handleSwCompListAck);
    onMessage(&VornServerGanti::handleSwCompListCfm);
    onMessage(&VornServerGanti::handleSwCompListRej);
    onMessage(&VornServerGanti::handleSwCompListData);
    subscribe(OmlaVornAcquireResourceReqS::number, &VornServerGanti::handleAcquireResourceReq);
    subscribe(OmlaVornReleaseResourceReqS::number, &VornServerGanti::handleReleaseResourceReq);
    onMessage(&VornServerGanti::handleAcquireResourceCfm);
    onMessage(&VornServerGanti::handleAcquireResourceRej);
    onMessage(&VornServerGanti::handleAcquireResourceInd);
    onMessage(&VornServerGanti::handleReleaseResourceCfm);
    onMessage(&VornServerGanti::handleReleaseResourceRej);
    const auto onTolmeMessage = [this](std::uint32_t msgNo, auto handler) {
        m_dunl.registerHandler(msgNo, this, handler);
    };
    onTolmeMessage(dunl::MsgNo::ValidateHwSwCompatibilityCfm, &VornServerGanti::handleValidateHwSwCompatibilityCfm);
    onTolmeMessage(dunl::MsgNo::ValidateHwSwCompatibilityRej, &VornServerGanti::handleValidateHwSwCompatibilityRej);
    onTolmeMessage(dunl::MsgNo::ConnectedDevicesInitializedCfm, &VornServerGanti::handleConnectedDevicesInitializedCfm);
    onTolmeMessage(dunl::MsgNo::ConnectedDevicesInitializedInd, &VornServerGanti::handleConnectedDevicesInitializedInd);
    return true;
}

bool VornServerGanti::connectToSoftwareManager()
{
    const auto onReady = [] {
        if (areComponentsReadyToPublish) {
            areComponentsReadyToPublish();
        }
    };
    const std::string address = gant::ServerMetadata().name();
    for (int attempt = 0; attempt < connectAttempts; ++attempt) {
        if (m_client.connEstablishReq(onReady, m_records.lastProcRef(), address, {protocolRevision}) ==
            GANTClient::ok) {
            return true;
        }
        std::this_thread::sleep_for(connectPause);
    }
    return false;
}

void VornServerGanti::shutdown()
{
    m_client.disconnect();
}

bool VornServerGanti::isReadyToPublish() const
{
    return m_client.isConnected();
}
