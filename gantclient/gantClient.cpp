#include "gantclient/gantClient.h"

#include "gantclient/gantMessage.h"
#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"
#include "ploe/ploe.h"
#include "trace/trace.h"

#include <algorithm>
#include <boost/endian/arithmetic.hpp>
#include <cerrno>
#include <exception>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>
#include <system_error>
#include <utility>

using Ostinel::EventLoop::V1::EventLoopIf;

namespace {

constexpr std::uint32_t readable = 1;
constexpr std::uint64_t usualMsgSize = 4096;

struct FrameHeader {
    boost::endian::big_uint32_t msgNo;
    boost::endian::big_uint32_t procRef;
};
static_assert(sizeof(FrameHeader) == 8 && alignof(FrameHeader) == 1);

std::string errorText()
{
    return std::generic_category().message(errno);
}

/// A request that names its ticket and nothing else.
template <typename Message>
Message ofTicket(std::uint32_t ticket)
{
    Message message;
    message.set_ticket_number(ticket);
    return message;
}

} // namespace

GANTClient::~GANTClient()
{
    disconnect();
}

template <typename Message>
std::uint32_t GANTClient::send(std::uint32_t procRef, const Message& message)
{
    return sendMsg(gantMessageNumber<Message>(), procRef, message);
}

bool GANTClient::connect(const std::string& address)
{
    m_connection = ploe_connect(address.c_str(), 0);
    if (m_connection == nullptr) {
        TRACE_INFO("GANTClient::connEstablishReq() PLOE connection to GANTI Server was unsuccessful.");
        return false;
    }
    ploe_set_blocking(m_connection, false);
    if (ploe_attr_get(m_connection, PLOE_ATTR_MAX_MSG_SIZE, &m_maxMsgSize, sizeof(m_maxMsgSize)) != 0) {
        TRACE_INFO("GANTClient::connEstablishReq() ploe_attr_get() failed to get 'max_msg_size' with error='{}'",
                   errorText());
        m_maxMsgSize = usualMsgSize;
    }
    if (ploe_await(m_connection, 1) != 0) {
        TRACE_INFO("GANTClient::connEstablishReq() ploe_await() error='{}'", errorText());
        closeConnection();
        return false;
    }
    EventLoopIf::getInstance().addFd(ploe_fd(m_connection), readable, [this](int fd) { receiveHandler(fd); });
    return true;
}

std::uint32_t GANTClient::connEstablishReq(std::function<void()> readyForPublicAccess, std::uint32_t procRef,
                                           const std::string& address,
                                           const std::vector<std::uint32_t>& protocolRevisions)
{
    m_readyForPublicAccess = std::move(readyForPublicAccess);
    closeConnection(); // an earlier one would be lost
    if (!connect(address)) {
        return notConnected;
    }
    registerHandlers();
    gant::ConnEstablishReq request;
    for (const std::uint32_t revision : protocolRevisions) {
        request.add_supported_protocol_revisions(revision);
    }
    if (const std::uint32_t error = send(procRef, request); error != ok) {
        TRACE_INFO("GANTClient::connEstablishReq() failed to send ConnEstablishReq errCode(0x{:x})", error);
        closeConnection();
        return notConnected;
    }
    return ok;
}

/// The descriptor leaves the event loop before its number can be another's.
void GANTClient::closeConnection()
{
    if (m_connection != nullptr) {
        EventLoopIf::getInstance().removeFd(ploe_fd(m_connection));
        ploe_close(std::exchange(m_connection, nullptr));
    }
}

void GANTClient::disconnect()
{
    closeConnection();
    m_selectedProtocolRevision = 0;
}

std::uint32_t GANTClient::sendMsg(std::uint32_t msgNo, std::uint32_t procRef, const google::protobuf::Message& message)
{
    const std::size_t size = message.ByteSizeLong();
    return sendFrame(msgNo, procRef, size,
                     [&](std::uint8_t* body) { message.SerializeToArray(body, static_cast<int>(size)); });
}

/// `write` fills in the body.
template <typename Write>
std::uint32_t GANTClient::sendFrame(std::uint32_t msgNo, std::uint32_t procRef, std::size_t size, Write&& write)
{
    if (m_connection == nullptr) {
        TRACE_INFO("Cannot send an PLOE message because there is no socket! Please try to establish connecting again.");
        return notConnected;
    }
    const auto frame = std::make_unique_for_overwrite<std::byte[]>(sizeof(FrameHeader) + size);
    auto* header = reinterpret_cast<FrameHeader*>(frame.get());
    header->msgNo = msgNo;
    header->procRef = procRef;
    write(reinterpret_cast<std::uint8_t*>(header + 1));
    if (ploe_send(m_connection, frame.get(), sizeof(FrameHeader) + size) != 0) {
        TRACE_INFO("GANTClient::sendMsg(msgNo=0x{:x}, procRef=0x{:x}) failed ploe_send() error='{}'", msgNo, procRef,
                   errorText());
        return notSent;
    }
    return ok;
}

/// Takes one message.
void GANTClient::receiveHandler(int fd)
{
    if (m_connection == nullptr) {
        TRACE_INFO("There is no open socket for GANTI Server.");
        EventLoopIf::getInstance().removeFd(fd);
        return;
    }
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(m_maxMsgSize);
    const ssize_t size = ploe_receive(m_connection, buffer.get(), m_maxMsgSize);
    if (size == 0) {
        TRACE_ERROR("PLOE connection closed by GANTI Server.");
        disconnect();
    } else if (size < 0) {
        TRACE_INFO("GANTClient: receiveHandler() msgHandler error='{}'", errorText());
    } else {
        try {
            dispatch({buffer.get(), static_cast<std::size_t>(size)});
        } catch (const std::exception& error) {
            TRACE_ERROR("ABN: a message of GANTI Server is dropped: {}", error.what());
        } catch (...) {
            TRACE_ERROR("ABN: a message of GANTI Server is dropped: unknown exception");
        }
    }
}

void GANTClient::dispatch(std::span<const std::byte> frame)
{
    if (frame.size() < sizeof(FrameHeader)) {
        TRACE_INFO("GANTClient: receiveHandler() msgHandler size({}) < expected size({})", frame.size(),
                   sizeof(FrameHeader));
        return;
    }
    const auto& header = *reinterpret_cast<const FrameHeader*>(frame.data());
    const auto found = m_msgHandlers.find(header.msgNo);
    if (found == m_msgHandlers.end()) {
        TRACE_INFO("GANTClient: receiveHandler() msgHandler unhandled msgNo(0x{:x}), procRef(0x{:x})",
                   header.msgNo.value(), header.procRef.value());
        return;
    }
    const MsgHandler handler = found->second; // it may remove itself
    handler(header.procRef, frame.subspan(sizeof(FrameHeader)));
}

std::uint32_t GANTClient::addMsgHandler(std::uint32_t msgNo, MsgHandler handler)
{
    if (!m_msgHandlers.emplace(msgNo, std::move(handler)).second) {
        TRACE_INFO("GANTClient::addMsgHandler(msgNo=0x{:x}) ALREADY_EXISTS", msgNo);
        return alreadyExists;
    }
    return ok;
}

std::uint32_t GANTClient::removeMsgHandler(std::uint32_t msgNo)
{
    if (m_msgHandlers.erase(msgNo) == 0) {
        TRACE_INFO("GANTClient::removeMsgHandler(msgNo=0x{:x}) NOT_FOUND", msgNo);
        return notFound;
    }
    return ok;
}

void GANTClient::getCapabilities(std::vector<std::shared_ptr<const PLOECapability>>& records) const
{
    records.insert(records.end(), m_capabilities.begin(), m_capabilities.end());
}

void GANTClient::registerHandlers()
{
    const auto add = [this](std::uint32_t msgNo, void (GANTClient::*handler)(std::uint32_t, Body)) {
        addMsgHandler(msgNo, [this, handler](std::uint32_t procRef, Body body) { (this->*handler)(procRef, body); });
    };
    add(gantMessageNumber<gant::ConnEstablishCfm>(), &GANTClient::handleConnEstablishCfm);
    add(gantMessageNumber<gant::ConnEstablishRej>(), &GANTClient::handleConnEstablishRej);
    add(gantMessageNumber<gant::GetCapabilitiesCfm>(), &GANTClient::handleGetCapabilitiesCfm);
    add(gantMessageNumber<gant::GetCapabilitiesRej>(), &GANTClient::handleGetCapabilitiesRej);
}

void GANTClient::handleConnEstablishCfm(std::uint32_t procRef, Body body)
{
    m_selectedProtocolRevision = parseGantMessage<gant::ConnEstablishCfm>(body).selected_protocol_revision();
    if (getCapabilitiesReq(procRef) != ok) {
        TRACE_INFO("GANTClient::handleConnEstablishCfm() GetCapabilitiesReq failed to sendMsg");
        m_capabilities.clear();
    }
}

void GANTClient::handleConnEstablishRej(std::uint32_t /*procRef*/, Body body)
{
    const auto reject = parseGantMessage<gant::ConnEstablishRej>(body);
    TRACE_INFO("GANTClient::handleConnEstablishRej() reason({})", static_cast<int>(reject.reason()));
    closeConnection();
}

void GANTClient::handleGetCapabilitiesCfm(std::uint32_t /*procRef*/, Body body)
{
    const auto cfm = parseGantMessage<gant::GetCapabilitiesCfm>(body);
    const auto append = [this](auto record) {
        m_capabilities.push_back(std::make_shared<const decltype(record)>(std::move(record)));
    };
    if (cfm.has_preinstalled_support()) {
        append(PLOECapPreinstalled(cfm.preinstalled_support().running()));
    }
    if (cfm.has_sw_comp_list_support()) {
        append(PLOECapSwCompList());
    }
    if (cfm.has_lockable_resource_sw_store_support()) {
        append(PLOECapLockableResource());
        append(PLOECapLockableResourceSwStore());
    }
    if (cfm.has_boot_sw_inventory_support()) {
        PLOECapBootSwInventory::Entries entries;
        for (const auto& entry : cfm.boot_sw_inventory_support().boot_sw_inventory()) {
            entries.emplace_back(entry.product_number(), entry.product_revision());
        }
        append(PLOECapBootSwInventory(std::move(entries)));
    }
    if (cfm.has_loading_block_size_support()) {
        append(PLOECapLoadingBlockSize(cfm.loading_block_size_support().block_size()));
    }
    if (cfm.has_set_slot_working_support()) {
        append(PLOECapSetSlotWorking());
    }
    if (m_readyForPublicAccess) {
        TRACE_1("GANTClient::handleGetCapabilitiesCfm() readyForPublicAccess()");
        m_readyForPublicAccess();
    }
}

/// The connection stays: the server counts as connected, without capabilities.
void GANTClient::handleGetCapabilitiesRej(std::uint32_t /*procRef*/, Body body)
{
    const auto reject = parseGantMessage<gant::GetCapabilitiesRej>(body);
    TRACE_INFO("GANTClient::handleGetCapabilitiesRej() reason({})", static_cast<int>(reject.reason()));
    m_capabilities.clear();
}

std::uint32_t GANTClient::getCapabilitiesReq(std::uint32_t procRef)
{
    return send(procRef, gant::GetCapabilitiesReq());
}

std::uint32_t GANTClient::acquireResourceReq(std::uint32_t procRef, std::uint32_t ticketRef, int resource)
{
    gant::AcquireResourceReq request;
    request.set_ticket_request_reference(ticketRef);
    if (gant::Resource_IsValid(resource)) {
        request.set_resource(static_cast<gant::Resource>(resource));
    }
    return send(procRef, request);
}

std::uint32_t GANTClient::releaseResourceReq(std::uint32_t procRef, std::uint32_t ticket)
{
    return send(procRef, ofTicket<gant::ReleaseResourceReq>(ticket));
}

std::uint32_t GANTClient::pushLoadInitReq(std::uint32_t procRef, std::uint32_t ticket, const std::string& software)
{
    auto request = ofTicket<gant::PushLoadInitReq>(ticket);
    request.set_software(software);
    return send(procRef, request);
}

/// Encoded field by field, as the message would be, so that the block is copied into the frame and nowhere else.
std::uint32_t GANTClient::pushLoadData(std::uint32_t procRef, std::uint32_t ticket, std::uint32_t seqNr,
                                       const void* data, std::size_t size)
{
    using google::protobuf::internal::WireFormatLite;
    using google::protobuf::io::CodedOutputStream;
    const auto before = ofTicket<gant::PushLoadData>(ticket);
    gant::PushLoadData behind;
    behind.set_sequence_number(seqNr);
    constexpr std::uint32_t tag =
        WireFormatLite::MakeTag(gant::PushLoadData::kDataFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
    const auto dataSize = static_cast<std::uint32_t>(size);
    const std::size_t bodySize = before.ByteSizeLong() + CodedOutputStream::VarintSize32(tag) +
                                 CodedOutputStream::VarintSize32(dataSize) + size + behind.ByteSizeLong();
    return sendFrame(gantMessageNumber<gant::PushLoadData>(), procRef, bodySize, [&](std::uint8_t* body) {
        body = before.SerializeWithCachedSizesToArray(body);
        body = CodedOutputStream::WriteVarint32ToArray(tag, body);
        body = CodedOutputStream::WriteVarint32ToArray(dataSize, body);
        std::copy_n(static_cast<const std::uint8_t*>(data), size, body);
        behind.SerializeWithCachedSizesToArray(body + size);
    });
}

std::uint32_t GANTClient::pushLoadEndReq(std::uint32_t procRef, std::uint32_t ticket)
{
    return send(procRef, ofTicket<gant::PushLoadEndReq>(ticket));
}

std::uint32_t GANTClient::deleteReq(std::uint32_t procRef, std::uint32_t ticket, const std::string& software)
{
    auto request = ofTicket<gant::DeleteReq>(ticket);
    request.set_software(software);
    return send(procRef, request);
}

std::uint32_t GANTClient::getSwProductInvReq(std::uint32_t procRef, std::uint32_t ticket)
{
    return send(procRef, ofTicket<gant::GetSwProductInvReq>(ticket));
}

std::uint32_t GANTClient::swCompListReq(std::uint32_t procRef, std::uint32_t ticket)
{
    return send(procRef, ofTicket<gant::SwCompListReq>(ticket));
}

std::uint32_t GANTClient::swCompListAck(std::uint32_t procRef, std::uint32_t ticket, bool abort)
{
    auto ack = ofTicket<gant::SwCompListAck>(ticket);
    ack.set_abort(abort);
    return send(procRef, ack);
}

std::uint32_t GANTClient::getRunningSwReq(std::uint32_t procRef)
{
    return send(procRef, gant::GetRunningSwReq());
}

std::uint32_t GANTClient::setCurrentSlotWorkingReq(std::uint32_t procRef)
{
    return send(procRef, gant::SetCurrentSlotWorkingReq());
}
