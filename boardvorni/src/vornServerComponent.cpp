#include "vornServerComponent.h"

#include "ostinel/kivMessageSubscription.h"

#include <cstring>

std::function<bool()> VornServerComponent::areComponentsReadyToPublish;
std::function<void(const VornSession&, std::uint32_t)> VornServerComponent::notifyRestartReqReceived;
std::function<void(const VornSession&, bool)> VornServerComponent::supervisionTimeoutResult;

void VornServerComponent::copyErrorDescription(char* dest, std::uint32_t size, const std::string& src)
{
    const std::string written = src.substr(0, size > 0 ? size - 1 : 0);
    std::memset(dest, 0, size);
    std::memcpy(dest, written.data(), written.size());
    if (size < src.size() + 1) {
        TRACE_INFO(
            "ABN: copyErrorDescription: data lost. source: \"{}\" (strlen: {}), destination: \"{}\" (strlen: {})", src,
            src.size() + 1, written, size);
    }
}

bool VornServerComponent::isGsmServerRef(std::int32_t serverRef)
{
    return 100 <= serverRef && serverRef < 200;
}

void VornServerComponent::addSubscription(std::uint32_t sigNo, std::function<void(const MessagePtr&)> handler)
{
    using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;
    if (KivMessageSubscriptionIf::getInstance().subscribe(sigNo, std::move(handler)) != 0) {
        TRACE_ERROR("ABN: signal 0x{:x} has a subscriber already", sigNo);
    }
}

void VornServerComponent::traceReceived(const kiv_msg& msg, bool isWhole)
{
    const std::span bytes(reinterpret_cast<const std::byte*>(&msg), kiv_size(&msg));
    TRACE_REC_SIG(msg.number, "{}", Vorni::printSignal(bytes));
    if (!isWhole) {
        TRACE_INFO("ABN: {} of {} bytes is too short. Ignoring it.", Vorni::signalName(msg.number), bytes.size());
    }
}

void VornServerComponent::traceSent(std::uint32_t sigNo, std::uint32_t mboxId, const void* signal, std::size_t size)
{
    TRACE_SEND_SIG(sigNo, mboxId, "{}", Vorni::printSignal({static_cast<const std::byte*>(signal), size}));
}
