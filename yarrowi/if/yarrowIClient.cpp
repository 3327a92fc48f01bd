#include "yarrowi/if/yarrowIClient.h"

#include "boardMessage.h"
#include "kiv/kiv.h"
#include "trace/trace.h"
#include "yarrowi/numbers.h"

#include <algorithm>
#include <cstdlib>
#include <google/protobuf/message.h>

namespace {

constexpr std::uint32_t firstNonMbox = 0xFFFFFFFE;

/// The next value of a counter, which skips 0.
std::uint32_t next(std::uint32_t& counter)
{
    ++counter;
    if (counter == 0) {
        counter = 1;
    }
    return counter;
}

} // namespace

YarrowIClient::YarrowIClient() : m_serverMbox(KIV_NO_MBOX) {}

YarrowIClient::~YarrowIClient() = default;

clientInfo& YarrowIClient::addClientInfo(std::uint32_t mboxId)
{
    m_clients.push_back(std::make_unique<clientInfo>(clientInfo{next(m_connectionCounter), 0, 0, mboxId}));
    return *m_clients.back();
}

void YarrowIClient::removeClientInfo(std::uint32_t clientConnectionRef)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(), [&](const auto& client) {
        return client->clientConnectionRef == clientConnectionRef;
    });
    if (found != m_clients.end()) {
        m_clients.erase(found);
    }
}

void YarrowIClient::removeAllClientInfo()
{
    m_clients.clear();
}

template <typename Predicate>
clientInfo* YarrowIClient::find(Predicate&& predicate) const
{
    const auto found =
        std::find_if(m_clients.begin(), m_clients.end(), [&](const auto& client) { return predicate(*client); });
    return found != m_clients.end() ? found->get() : nullptr;
}

clientInfo* YarrowIClient::findByConnectionRef(std::uint32_t clientConnectionRef) const
{
    return find([=](const clientInfo& client) { return client.clientConnectionRef == clientConnectionRef; });
}

clientInfo* YarrowIClient::findByProcedureRef(std::uint32_t procedureRef) const
{
    return find([=](const clientInfo& client) { return client.procedureRef == procedureRef; });
}

clientInfo* YarrowIClient::findByServerConnectionRef(std::uint32_t serverConnectionRef) const
{
    return find([=](const clientInfo& client) { return client.serverConnectionRef == serverConnectionRef; });
}

clientInfo* YarrowIClient::findByMailbox(std::uint32_t mboxId) const
{
    return find([=](const clientInfo& client) { return client.mboxId == mboxId; });
}

std::uint32_t YarrowIClient::getWakeUpTime() const
{
    if (!m_wakeUpTime) {
        std::abort();
    }
    return *m_wakeUpTime;
}

bool YarrowIClient::send(std::uint32_t msgNo, const google::protobuf::Message& message, clientInfo* client,
                         std::uint32_t sender)
{
    if (client == nullptr) {
        return false;
    }
    client->procedureRef = next(m_procedureCounter);
    const bool isFirst = msgNo == yarrowi::MsgNo::ConnectionEstablishReq;
    const BoardEnvelope envelope{msgNo, client->procedureRef,
                                 isFirst ? client->clientConnectionRef : client->serverConnectionRef};
    OwnedMessage msg = encodeBoardMessage(envelope, message);
    if (msg == nullptr) {
        TRACE_ERROR("Failed to encode message {}", msgNo);
        return false;
    }
    TRACE_SEND_SIG(msgNo, m_serverMbox, "{}", printMessage(envelope, message));
    sendOwned(std::move(msg), m_serverMbox, sender >= firstNonMbox ? kiv_current_mbox() : sender);
    return true;
}

void YarrowIClient::close()
{
    removeAllClientInfo();
    m_serverMbox = KIV_NO_MBOX;
}
