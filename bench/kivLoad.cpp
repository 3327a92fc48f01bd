#include "load.h"
#include "mailbox.h"
#include "unit.h"
#include "vorni/access.h"
#include "vorni/software.h"

#include <fmt/format.h>

namespace Bench {
namespace {

constexpr std::string_view module = "CXP9013268/6_R1A";

/// The next message of the calling thread, which must be this one.
template <typename Record>
MessagePtr expectSignal()
{
    MessagePtr message = receiveMessage();
    if (message->number != Record::number || viewSignal<Record>(message.get()) == nullptr) {
        throw Failed(fmt::format("a client got {:#x}, not {:#x}", message->number, Record::number));
    }
    return message;
}

class KivLoad final : public Load
{
public:
    explicit KivLoad(const Unit& unit) : m_unit(unit), m_client(kiv_current_mbox())
    {
        connectClient(m_client, unit.publicMbox());
        NewSignal<OmlaVornAcquireResourceReqS> acquire(clientRef, serverRef);
        acquire->resource = 1;
        acquire.send(unit.publicMbox(), m_client);
        expectSignal<OmlaVornAcquireResourceCfmS>();
        NewSignal<OmlaVornLoadLmcInitReqS> init(clientRef, serverRef, module.size() + 1);
        std::memcpy(&*init + 1, module.data(), module.size());
        init.send(unit.publicMbox(), m_client);
        expectSignal<OmlaVornLoadLmcInitCfmS>();
    }

    std::chrono::nanoseconds processorTime() const override { return m_unit.processorTime(); }

protected:
    void sendBlock(std::uint16_t sequence, std::size_t size) override
    {
        NewSignal<OmlaVornLoadLmcDataS> block(clientRef, serverRef, size);
        block->lmSeqNr = sequence;
        block->noOfBytes = static_cast<std::uint32_t>(size);
        block.send(m_unit.publicMbox(), m_client);
    }
    void awaitAck(std::uint16_t sequence) override
    {
        const MessagePtr ack = expectSignal<OmlaVornLoadLmcAckS>();
        if (viewSignal<OmlaVornLoadLmcAckS>(ack.get())->lmSeqNr != sequence) {
            throw Failed("a block is acknowledged out of turn");
        }
    }

private:
    const Unit& m_unit;
    kiv_mbox_id_t m_client;
};

} // namespace

std::unique_ptr<Load> openKivLoad(const Unit& unit)
{
    return std::make_unique<KivLoad>(unit);
}

} // namespace Bench
