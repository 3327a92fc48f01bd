/// The unit's hardware logs.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"
#include "vorni/hwLog.h"

#include <optional>
#include <string>
#include <vector>

/// Lets clients write entries to the unit's logs and read them. The logs are the DUNL server's; one of them, the node
/// configuration log, is written with a message of its own. Speaks with the DUNL server.
class VornServerHwLog : public VornServerComponent
{
public:
    explicit VornServerHwLog(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerHwLog"; }

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    void handleHwLogSetReq(const MessagePtr& msg);
    void handleDunlHwLogSetCfm(const TolmeMessagePtr& message);
    void handleDunlHwLogSetRej(const TolmeMessagePtr& message);
    void handleDunlStoreNodeConfigEntryCfm(const TolmeMessagePtr& message);
    void handleDunlStoreNodeConfigEntryRej(const TolmeMessagePtr& message);
    void handleHwLogGetReq(const MessagePtr& msg);
    void handleDunlHwLogGetCfm(const TolmeMessagePtr& message);
    void handleDunlHwLogGetRej(const TolmeMessagePtr& message);

    bool isAcceptable(const kiv_msg& msg, const Client& client) const;
    /// The procedure reference, or 0.
    template <typename Request>
    std::uint32_t sendEntries(std::uint32_t msgNo, Request& request, const OmlaVornHwLogSetReqS& signal,
                              const Client& client, const std::vector<std::string>& entries);
    template <typename Message>
    void confirmWriter(const TolmeMessagePtr& message);
    template <typename Message>
    void rejectWriter(const TolmeMessagePtr& message);
    /// Who is answered by a message of the DUNL server; the transaction is removed.
    template <typename Message>
    std::optional<Client> takeWriter(const TolmeMessagePtr& message, const char* signalName);
    /// Who has read; the transaction stays.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> findReader(const TolmeMessagePtr& message) const;
    void sendHwLogSetCfm(const Client& client) const;
    void sendHwLogSetRej(const Client& client, std::uint16_t errorCode, const std::string& description) const;

    TolmeProcedures m_procedures;
};
