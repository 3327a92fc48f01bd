#include "vornServerFesk.h"

#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"

using namespace tolme;

VornServerFesk::VornServerFesk(VornServerCommonData& commonData)
    : TolmeConnector(commonData, commonData.getFeskClient()), m_procedures(commonData, commonData.getFeskClient())
{
}

bool VornServerFesk::init()
{
    const std::string server = fesk::ServerMetadata().name();
    TRACE_1("VORN Server is locating {}", server);
    m_client.start<fesk::ConnEstablishCfm>(fesk::MsgNo::ConnEstablishCfm, server);
    m_client.registerHandler(TolmeClient::serverFound, [this](const auto& m) { handleServerFound(m); });
    m_client.registerHandler(fesk::MsgNo::ConnEstablishCfm, [this](const auto& m) { handleConnEstablishCfm(m); });
    m_client.registerHandler(fesk::MsgNo::ConnEstablishRej, [this](const auto& m) { handleConnEstablishRej(m); });
    m_client.registerHandler(fesk::MsgNo::GetCapabilitiesCfm,
                             [this](const auto& m) { handleFeskGetCapabilitiesCfm(m); });
    m_client.registerHandler(fesk::MsgNo::GetCapabilitiesRej,
                             [this](const auto& m) { handleFeskGetCapabilitiesRej(m); });
    return true;
}

void VornServerFesk::handleServerFound(const TolmeMessagePtr& /*message*/)
{
    if (!m_client.isServerFound()) {
        TRACE_INFO("ABN: The VornServer has lost the connection to the FESK Server");
        return;
    }
    TRACE_INFO("FESK Server has come online : sending request to establish connection");
    fesk::ConnEstablishReq request;
    request.add_protocol_revision(1);
    m_client.sendConnEstablishReq(fesk::MsgNo::ConnEstablishReq, request);
}

void VornServerFesk::handleConnEstablishCfm(const TolmeMessagePtr& /*message*/)
{
    TRACE_1("fesk::ConnEstablishCfm from FESK server has selected protocol revision #{}",
            m_client.getSelectedProtocolRev());
    m_client.send(fesk::MsgNo::GetCapabilitiesReq, fesk::GetCapabilitiesReq());
    registerInternalMmiUser();
}

/// The mailbox 0xFFFFFFFF marks a registration that is the unit's own and no client's.
void VornServerFesk::registerInternalMmiUser()
{
    fesk::RegisterMmiUserReq request;
    request.set_priority(fesk::RegisterMmiUserReq::PRIORITY_UNIT);
    m_procedures.request(fesk::MsgNo::RegisterMmiUserReq, request, KIV_NO_MBOX, 0, 0);
}

void VornServerFesk::handleConnEstablishRej(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    fesk::ConnEstablishRej rej;
    if (!TolmeClient::decode(message, envelope, rej)) {
        return;
    }
    TRACE_INFO("ABN: VornServer connection to the FESK Server has been rejected: {}",
               rej.has_reject_reason() ? fesk::ConnEstablishRej::RejectReason_Name(rej.reject_reason())
                                       : "reason not set by server");
}

void VornServerFesk::handleFeskGetCapabilitiesCfm(const TolmeMessagePtr& message)
{
    TolmeEnvelope envelope;
    fesk::GetCapabilitiesCfm cfm;
    if (!TolmeClient::decode(message, envelope, cfm)) {
        return;
    }
    TRACE_REC_SIG(envelope.msgNo, "handleFeskGetCapabilitiesCfm({{{}}})", printMessage(envelope, cfm));
    if (cfm.has_cap_support_unit_fault_indicator()) {
        TRACE_1(" adding 'Support Unit Fault Indicator' Capability");
        m_client.addCapability(std::make_shared<SpecialIndicatorCapability>());
    }
    if (cfm.has_cap_here_i_am_support()) {
        addPlainCapability(FeskCapability::HereIAm, " adding 'Here I Am' Capability");
    }
    if (cfm.has_cap_common_mmi()) {
        addPlainCapability(FeskCapability::CommonMmi, " adding 'Common MMI' Capability");
    }
    if (cfm.has_cap_optical_indicator_control()) {
        addPlainCapability(FeskCapability::OpticalIndicatorControl, " adding 'Optical Indicator Control' Capability");
    }
    completeCapabilities();
}

void VornServerFesk::handleFeskGetCapabilitiesRej(const TolmeMessagePtr& /*message*/)
{
    TRACE_ERROR("The FESK Server failed to get the capabilities");
}
