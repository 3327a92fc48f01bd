/// Here-I-Am.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Lets the clients order the indication by which a technician finds the unit, and be told of its state. An order is
/// made in the procedure of the client's subscription, whose transaction stays as long as the subscription. Speaks with
/// the FESK server.
class VornServerHereIAm : public VornServerComponent
{
public:
    explicit VornServerHereIAm(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerHereIAm"; }
    void onVornSessionLost(const VornSession& session) override;

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    void handleSubscribeHereIAmStateReq(const MessagePtr& msg);
    void handleSubscribeHereIAmStateCfm(const TolmeMessagePtr& message);
    void handleSubscribeHereIAmStateRej(const TolmeMessagePtr& message);
    void handleHereIAmStateInd(const TolmeMessagePtr& message);
    void handleOrderHereIAmReq(const MessagePtr& msg);
    void handleOrderHereIAmCfm(const TolmeMessagePtr& message);
    void handleOrderHereIAmRej(const TolmeMessagePtr& message);
    void sendSubscribeHereIAmStateRej(const Client& client, const char* text) const;
    void sendOrderHereIAmRej(const Client& client, const char* text) const;

    TolmeProcedures m_procedures;
};
