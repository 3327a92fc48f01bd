#include "vornServerFdf.h"

#include "fdfclient/fdfClient.h"
#include "vorni/fruDescription.h"

#include <algorithm>

namespace {

constexpr std::size_t maxPart = 2048;

} // namespace

bool VornServerFdf::init()
{
    subscribe(OmlaVornGetFruDescFileReqS::number, &VornServerFdf::handleGetFruDescFileReq);
    subscribe(OmlaVornFruDescFileAckS::number, &VornServerFdf::handleFruDescFileAck);
    return true;
}

/// What counts is whether there is a text, also one that another client has left.
void VornServerFdf::handleGetFruDescFileReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornGetFruDescFileReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const std::string fdfId(textBehind<OmlaVornGetFruDescFileReqS>(*msg));
    m_commonData.getFDFClient().getFruDescriptionFile(fdfId, m_pendingText);
    const std::uint32_t sender = kiv_sender(msg.get());
    const VornSignalHeader& header = signal->header;
    if (m_pendingText.empty()) {
        sendReject<OmlaVornGetFruDescFileRejS>(sender, header.clientRef, header.serverRef, 1,
                                               "No FRU Description file found");
        return;
    }
    sendSignal<OmlaVornGetFruDescFileCfmS>(sender, header.clientRef, header.serverRef);
    sendFdfData(sender, header.clientRef, header.serverRef);
}

void VornServerFdf::handleFruDescFileAck(const MessagePtr& msg)
{
    if (const auto* signal = receiveSignal<OmlaVornFruDescFileAckS>(msg)) {
        sendFdfData(kiv_sender(msg.get()), signal->header.clientRef, signal->header.serverRef);
    }
}

void VornServerFdf::sendFdfData(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef)
{
    if (m_pendingText.empty()) {
        return;
    }
    const std::size_t size = std::min(m_pendingText.size(), maxPart);
    const auto fill = [&](OmlaVornFruDescFileDataS& data) {
        data.noOfBytes = static_cast<std::uint32_t>(size);
        m_pendingText.copy(reinterpret_cast<char*>(&data) + sizeof(data), size);
        m_pendingText.erase(0, size);
        data.endFlag = m_pendingText.empty() ? 1 : 0;
        TRACE_INFO("VornServer:sendFdfData() sending {} bytes with {} bytes pending", size, m_pendingText.size());
    };
    sendSignal<OmlaVornFruDescFileDataS>(mboxId, clientRef, serverRef, fill, size + OmlaVornFruDescFileDataS::slack);
}
