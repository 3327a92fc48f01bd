/// What the handlers of the RHUNE signals have in common.
#pragma once

#include "ostinel/kivMessageSubscription.h"
#include "trace/trace.h"
#include "vorni/access.h"
#include "vorni/signalTable.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace VornServer::Rhune {

using MessagePtr = std::shared_ptr<kiv_msg>;

/// The subscriptions of one handler. Only those that it got are taken back.
class RhuneSubscriptions
{
public:
    template <typename Object>
    void add(std::uint32_t sigNo, Object* object, void (Object::*handler)(const MessagePtr&))
    {
        using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;
        const auto call = [object, handler](const MessagePtr& msg) { (object->*handler)(msg); };
        if (KivMessageSubscriptionIf::getInstance().subscribe(sigNo, call) == 0) {
            m_sigNos.push_back(sigNo);
        } else {
            TRACE_ERROR("ABN: signal 0x{:x} has a subscriber already", sigNo);
        }
    }

    void removeAll()
    {
        using Ostinel::KivMessageSubscription::V1::KivMessageSubscriptionIf;
        for (const std::uint32_t sigNo : m_sigNos) {
            KivMessageSubscriptionIf::getInstance().unsubscribe(sigNo);
        }
        m_sigNos.clear();
    }

private:
    std::vector<std::uint32_t> m_sigNos;
};

/// Views a received signal as its record; null, with a trace, where it is too short.
template <typename Record>
const Record* viewReceived(const MessagePtr& msg)
{
    const auto* record = viewSignal<Record>(msg);
    if (record == nullptr) {
        TRACE_INFO("ABN: {} of {} bytes is too short. Ignoring it.", Vorni::signalName(msg->number),
                   kiv_size(msg.get()));
    }
    return record;
}

} // namespace VornServer::Rhune
