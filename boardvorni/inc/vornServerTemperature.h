/// Measurement of hot spot temperatures.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Lets each client have one measurement of the board's hot spots, which it starts, retunes and stops by one signal. A
/// measurement runs while the client's session has its procedure reference; its transaction stays as long, so that the
/// answers and the readings find the client. Speaks with the DUNL server.
class VornServerTemperature : public VornServerComponent
{
public:
    explicit VornServerTemperature(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerTemperature"; }
    void onVornSessionLost(const VornSession& session) override;
    void shutdown() override {}

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    void handleTemperatureMeasStart(const MessagePtr& msg);
    void sendTempMeasStartReq(const Client& client, std::uint32_t period);
    void sendTempMeasRestartReq(const Client& client, const VornSession& session, std::uint32_t period);
    void sendTempMeasStopReq(const Client& client, const VornSession& session);

    void handleTempMeasStartCfm(const TolmeMessagePtr& message);
    void handleTempMeasStartRej(const TolmeMessagePtr& message);
    void handleTempMeasRestartCfm(const TolmeMessagePtr& message);
    void handleTempMeasRestartRej(const TolmeMessagePtr& message);
    void handleTempMeasStopCfm(const TolmeMessagePtr& message);
    void handleTempMeasStopRej(const TolmeMessagePtr& message);
    void handleTempMeasInd(const TolmeMessagePtr& message);

    /// Decodes a message and finds transaction and session; the session may be null. `noTransaction` is traced where
    /// there is none, unless it is null.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> receive(const TolmeMessagePtr& message, const char* noTransaction) const;
    void confirm(const Client& client) const;
    void reject(const Client& client, const char* text) const;

    TolmeProcedures m_procedures;
};
