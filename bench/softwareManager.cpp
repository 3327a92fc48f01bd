#include "softwareManager.h"

#include "ganti/ganti.pb.h"
#include "measure.h"
#include "ploe/ploe.h"

#include <boost/endian/arithmetic.hpp>
#include <cerrno>
#include <cstring>
#include <google/protobuf/io/coded_stream.h>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace Bench {
namespace {

struct Close {
    void operator()(ploe_socket* socket) const { ploe_close(socket); }
};
using Socket = std::unique_ptr<ploe_socket, Close>;

struct FrameHeader {
    boost::endian::big_uint32_t msgNo;
    boost::endian::big_uint32_t procRef;
};
static_assert(sizeof(FrameHeader) == 8);

/// What is acknowledged of a block. The block itself isn't looked at: who measures wants to know what it costs to bring
/// it here.
gant::PushLoadAck ackOf(std::span<const std::byte> body)
{
    constexpr std::uint32_t ticketTag = gant::PushLoadData::kTicketNumberFieldNumber << 3;
    constexpr std::uint32_t sequenceTag = gant::PushLoadData::kSequenceNumberFieldNumber << 3;
    google::protobuf::io::CodedInputStream in(reinterpret_cast<const std::uint8_t*>(body.data()),
                                              static_cast<int>(body.size()));
    gant::PushLoadAck ack;
    ack.set_abort(false);
    while (const std::uint32_t tag = in.ReadTag()) {
        std::uint32_t value = 0;
        if (!in.ReadVarint32(&value)) {
            throw Failed("a block that isn't one");
        }
        if (tag == ticketTag) {
            ack.set_ticket_number(value);
        } else if (tag == sequenceTag) {
            ack.set_sequence_number(value);
        } else {
            in.Skip(static_cast<int>(value));
        }
    }
    return ack;
}

/// One connection of vornserver.
class Connection
{
public:
    explicit Connection(ploe_socket* socket) : m_socket(socket) {}

    void serve();

private:
    void handle(std::uint32_t msgNo, std::span<const std::byte> body);
    template <typename Answer>
    void send(const Answer& answer);

    /// Answers with the ticket of the request, and otherwise as it was made.
    template <typename Request, typename Answer>
    void answerTicket(std::span<const std::byte> body, Answer answer)
    {
        Request request;
        request.ParseFromArray(body.data(), static_cast<int>(body.size()));
        answer.set_ticket_number(request.ticket_number());
        send(answer);
    }
    void grant(std::span<const std::byte> body);

    ploe_socket* m_socket;
    std::uint32_t m_procRef = 0; ///< of the request that is answered
    std::uint32_t m_lastTicket = 0;
    std::string m_frame;
};

void Connection::serve()
{
    std::vector<std::byte> buffer(PLOE_MAX_MSG_SIZE);
    for (;;) {
        const ssize_t size = ploe_receive(m_socket, buffer.data(), buffer.size());
        if (size < static_cast<ssize_t>(sizeof(FrameHeader))) {
            return;
        }
        const std::span frame(buffer.data(), static_cast<std::size_t>(size));
        const auto* header = reinterpret_cast<const FrameHeader*>(frame.data());
        m_procRef = header->procRef;
        handle(header->msgNo, frame.subspan(sizeof(FrameHeader)));
    }
}

void Connection::handle(std::uint32_t msgNo, std::span<const std::byte> body)
{
    switch (msgNo) {
    case gant::ConnEstablishReq::MESSAGE_NUMBER: {
        gant::ConnEstablishCfm cfm;
        cfm.set_selected_protocol_revision(1);
        return send(cfm);
    }
    case gant::GetCapabilitiesReq::MESSAGE_NUMBER:
        return send(gant::GetCapabilitiesCfm());
    case gant::AcquireResourceReq::MESSAGE_NUMBER:
        return grant(body);
    case gant::ReleaseResourceReq::MESSAGE_NUMBER:
        return answerTicket<gant::ReleaseResourceReq>(body, gant::ReleaseResourceCfm());
    case gant::PushLoadInitReq::MESSAGE_NUMBER:
        return answerTicket<gant::PushLoadInitReq>(body, gant::PushLoadInitCfm());
    case gant::PushLoadData::MESSAGE_NUMBER:
        return send(ackOf(body));
    case gant::PushLoadEndReq::MESSAGE_NUMBER:
        return answerTicket<gant::PushLoadEndReq>(body, gant::PushLoadEndCfm());
    default:
        return; // nothing that is measured waits for it
    }
}

void Connection::grant(std::span<const std::byte> body)
{
    gant::AcquireResourceReq request;
    request.ParseFromArray(body.data(), static_cast<int>(body.size()));
    gant::AcquireResourceCfm cfm;
    cfm.set_ticket_request_reference(request.ticket_request_reference());
    cfm.set_ticket_number(++m_lastTicket);
    send(cfm);
    gant::AcquireResourceInd ind;
    ind.set_ticket_number(m_lastTicket);
    send(ind);
}

template <typename Answer>
void Connection::send(const Answer& answer)
{
    FrameHeader header{};
    header.msgNo = static_cast<std::uint32_t>(Answer::MESSAGE_NUMBER);
    header.procRef = m_procRef;
    m_frame.assign(reinterpret_cast<const char*>(&header), sizeof(header));
    answer.AppendToString(&m_frame);
    if (ploe_send(m_socket, m_frame.data(), m_frame.size()) != 0 && errno != EPIPE) {
        throw Failed(std::string("software manager: ") + std::strerror(errno));
    }
}

} // namespace

void startSoftwareManager()
{
    Socket listener(ploe_listen(gant::ServerMetadata().name().c_str(), 1));
    if (listener == nullptr) {
        throw Failed(std::string("software manager: ") + std::strerror(errno));
    }
    std::thread([listener = std::move(listener)] {
        while (const Socket socket{ploe_accept(listener.get())}) {
            Connection(socket.get()).serve();
        }
    }).detach();
}

} // namespace Bench
