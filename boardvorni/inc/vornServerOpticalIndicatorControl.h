/// Control of the optical indicator.
#pragma once

#include "tolmeProcedures.h"
#include "vornServerComponent.h"

/// Lets the clients take the unit's optical indicator and be told of its state. Its four procedures are one family;
/// what differs between them stands in a structure each. The transaction of a confirmed procedure stays for good.
/// Speaks with the FESK server.
class VornServerOpticalIndicatorControl : public VornServerComponent
{
public:
    explicit VornServerOpticalIndicatorControl(VornServerCommonData& commonData);

    bool init() override;
    std::string_view name() const override { return "VornServerOpticalIndicatorControl"; }

private:
    using Client = TolmeClient::ProcedureTransaction; ///< who asked

    struct SubscribeStatusChange;
    struct Activate;
    struct ActivateWithDuration;
    struct Deactivate;

    void handleOpticalIndicatorControlSubscribeStatusChangeReq(const MessagePtr& msg);
    void handleOpticalIndicatorControlSubscribeStatusChangeCfm(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlSubscribeStatusChangeRej(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlActivateReq(const MessagePtr& msg);
    void handleOpticalIndicatorControlActivateCfm(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlActivateRej(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlActivateWithDurationReq(const MessagePtr& msg);
    void handleOpticalIndicatorControlActivateWithDurationCfm(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlActivateWithDurationRej(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlDeactivateReq(const MessagePtr& msg);
    void handleOpticalIndicatorControlDeactivateCfm(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlDeactivateRej(const TolmeMessagePtr& message);
    void handleOpticalIndicatorControlStatusChangeInd(const TolmeMessagePtr& message);

    template <typename Procedure>
    void handleReq(const MessagePtr& msg);
    template <typename Procedure>
    void handleCfm(const TolmeMessagePtr& message);
    template <typename Procedure>
    void handleRej(const TolmeMessagePtr& message);
    template <typename Procedure>
    void sendRej(const Client& client, const char* text) const;

    TolmeProcedures m_procedures;
};
