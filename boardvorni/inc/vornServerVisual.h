/// Visual indication.
#pragma once

#include "fesk/numbers.h"
#include "tolmeProcedures.h"
#include "vornServerComponent.h"

#include <string>

/// Lets the clients set the unit's indicators and read what they show. Clients know an indicator and its state by one
/// code, the board by numbers of its own; the tables between them are here. Orders of the unit itself, which fault
/// handling gives, are confirmed here too. Speaks with the FESK server.
class VornServerVisual : public VornServerComponent
{
public:
    explicit VornServerVisual(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerVisual"; }

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    void handleSetVisualIndicationReq(const MessagePtr& msg);
    void handleSetVisualIndicationCfm(const TolmeMessagePtr& message);
    void handleSetVisualIndicationRej(const TolmeMessagePtr& message);
    void handleGetVisualIndicationReq(const MessagePtr& msg);
    void handleGetSpecialIndicatorReq(const MessagePtr& msg);
    void handleGetVisualIndicationCfm(const TolmeMessagePtr& message);
    void handleGetVisualIndicationRej(const TolmeMessagePtr& message);

    bool isGsmOnIru(std::uint32_t serverRef) const;
    void sendSetVisualIndicationRej(const Client& client, const std::string& text) const;
    template <typename Req, typename Rej>
    void handleReadReq(const MessagePtr& msg);
    const VornSession* findSender(const MessagePtr& msg) const;
    /// Decodes an answer and removes the transaction of its request.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> take(const TolmeMessagePtr& message);
    bool hasSession(const Client& client, const char* name) const;
    void sendIndications(const Client& client, const tolme::fesk::GetVisualIndicationCfm& cfm) const;
    void sendSpecialIndicators(const Client& client, const tolme::fesk::GetVisualIndicationCfm& cfm) const;

    TolmeProcedures m_procedures;
};
