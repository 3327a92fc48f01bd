#include "vornServerFaultHandling.h"

#include "faultmanager/faultManagerIf.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "signalNames.h"
#include "tolmeClient.h"
#include "vornServerUlmo.h"
#include "vornSession.h"
#include "vorni/faults.h"
#include "zephrin/tyvra.h"

#include <algorithm>

using namespace tolme;
using VornServer::FaultData;
using VornServer::FaultManagerIf;

namespace {

using LabelIndS = OmlaVornFaultWithRecoveryTimeAndHwFaultLabelIndS;

constexpr std::uint32_t shortestRecoveryTime = 300; // seconds
constexpr std::uint32_t xcsFaultEvent = 191;

constexpr int visualStateOn = 9;
constexpr int visualStateOff = 10;

VornFaultSubscriber makeSubscriber(const VornSignalHeader& header, std::uint32_t sender)
{
    const VornFaultSubscriber subscriber{sender, header.clientRef, header.serverRef};
    TRACE_1("VornFaultSubscriber: mboxId = 0x{:x}, clientRef = {}, serverRef = {}", subscriber.mboxId,
            subscriber.clientRef, subscriber.serverRef);
    return subscriber;
}

auto find(std::vector<VornFaultSubscriber>& subscribers, std::uint32_t mboxId)
{
    return std::find_if(subscribers.begin(), subscribers.end(),
                        [mboxId](const VornFaultSubscriber& subscriber) { return subscriber.mboxId == mboxId; });
}

bool isIn(const std::vector<VornFaultSubscriber>& subscribers, std::uint32_t mboxId)
{
    return std::any_of(subscribers.begin(), subscribers.end(),
                       [mboxId](const VornFaultSubscriber& subscriber) { return subscriber.mboxId == mboxId; });
}

void logEvent(const FaultData& fault)
{
    using Zephrin::Tyvra::V2::TyvraIf;
    TyvraIf::getInstance().event(
        xcsFaultEvent,
        fmt::format("faultId: 0x{:x}, faultDescription: {}, faultCase: {}, recoveryTime: {}, hwFaultLabel: {}",
                    fault.faultId, fault.faultDescription, fault.faultCase, fault.recoveryTime,
                    fault.hwFaultLabel.empty() ? "empty" : fault.hwFaultLabel),
        "");
}

std::uint32_t adjustedRecoveryTime(std::uint32_t recoveryTime)
{
    if (recoveryTime >= shortestRecoveryTime) {
        return recoveryTime;
    }
    TRACE_1("adjusting recovery time from {} to {} seconds", recoveryTime, shortestRecoveryTime);
    return shortestRecoveryTime;
}

void printSubscribers(const std::vector<VornFaultSubscriber>& subscribers, std::ostream& out)
{
    out << (subscribers.empty() ? "none\n" : "mailbox         clientRef   serverRef\n");
    for (const VornFaultSubscriber& subscriber : subscribers) {
        out << fmt::format("0x{:08x}    {:8}    {:8}\n", subscriber.mboxId, subscriber.clientRef, subscriber.serverRef);
    }
    out << '\n';
}

} // namespace

VornServerFaultHandling::~VornServerFaultHandling()
{
    VornServerUlmo::getInstance().unregisterCmdHandler("fault", this);
}

bool VornServerFaultHandling::init()
{
    for (const std::uint32_t number :
         {OmlaVornSubscribeFaultsReqS::number, OmlaVornSubscribeFaultsCfmS::number,
          OmlaVornSubscribeFaultsWithHwFaultLabelReqS::number, OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number,
          OmlaVornFaultIndS::number, LabelIndS::number, OmlaVornFaultceaseIndS::number}) {
        addSignalName(number, Vorni::signalName(number));
    }
    FaultManagerIf& faultManager = m_commonData.getFaultManager();
    faultManager.setSubscribers(
        [this](const FaultData& fault, std::uint32_t target) { handleRaisedFault(fault, target); },
        [this](const FaultData& fault) { handleCeasedFault(fault); });
    faultManager.setVisualIndicationCallback([this](bool isOn) { setVisualIndication(isOn); });
    subscribe(OmlaVornSubscribeFaultsReqS::number, &VornServerFaultHandling::handleSubscribeFaultsReq);
    subscribe(OmlaVornSubscribeFaultsWithHwFaultLabelReqS::number,
              &VornServerFaultHandling::handleSubscribeFaultsWithHwFaultLabelReq);
    VornServerUlmo::getInstance().registerCmdHandler("fault", this);
    return true;
}

/// The form with label wins: a client that has it keeps it.
void VornServerFaultHandling::handleSubscribeFaultsReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSubscribeFaultsReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornFaultSubscriber subscriber = makeSubscriber(signal->header, kiv_sender(msg.get()));
    if (isIn(m_hwFaultLabelSubscribers, subscriber.mboxId)) {
        TRACE_INFO("ABN: Signal ignored, signal: {}; additional info: received after "
                   "OMLA_VORN_SUBSCRIBE_FAULTS_WITH_HW_FAULT_LABEL_REQ; serverRef: {}, clientRef: {}, sender: 0x{:x}",
                   getSignalName(msg->number), subscriber.serverRef, subscriber.clientRef, subscriber.mboxId);
        return;
    }
    addSubscriber<OmlaVornSubscribeFaultsCfmS>(m_subscribers, subscriber, msg);
}

void VornServerFaultHandling::handleSubscribeFaultsWithHwFaultLabelReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSubscribeFaultsWithHwFaultLabelReqS>(msg);
    if (signal == nullptr) {
        return;
    }
    const VornFaultSubscriber subscriber = makeSubscriber(signal->header, kiv_sender(msg.get()));
    if (const auto found = find(m_subscribers, subscriber.mboxId); found != m_subscribers.end()) {
        TRACE_1("Removing client subscription for default faults, serverRef = {}, mboxId = 0x{:x}",
                subscriber.serverRef, subscriber.mboxId);
        m_subscribers.erase(found);
    }
    addSubscriber<OmlaVornSubscribeFaultsWithHwFaultLabelCfmS>(m_hwFaultLabelSubscribers, subscriber, msg);
}

/// Confirms, and tells of the faults that are shown already. No answer for who isn't connected.
template <typename Cfm>
void VornServerFaultHandling::addSubscriber(Subscribers& subscribers, const VornFaultSubscriber& subscriber,
                                            const MessagePtr& request)
{
    if (!add(subscribers, subscriber)) {
        TRACE_INFO("ABN: {} ignored, serverRef {} is not connected", getSignalName(request->number),
                   subscriber.serverRef);
        return;
    }
    sendSignal<Cfm>(subscriber);
    m_commonData.getFaultManager().reportActiveFaults(subscriber.mboxId);
}

/// A subscriber that is there already stays as it is. False where it has no session.
bool VornServerFaultHandling::add(Subscribers& subscribers, const VornFaultSubscriber& subscriber) const
{
    if (m_commonData.findVornSession(subscriber.mboxId) == nullptr) {
        return false;
    }
    if (!isIn(subscribers, subscriber.mboxId)) {
        subscribers.push_back(subscriber);
    }
    return true;
}

void VornServerFaultHandling::handleRaisedFault(const FaultData& fault, std::uint32_t target)
{
    if (fault.source == VornServer::FaultSource::XCS) {
        logEvent(fault);
    }
    const auto isMeant = [target](const VornFaultSubscriber& subscriber) {
        return target == FaultManagerIf::allSubscribers || target == subscriber.mboxId;
    };
    const auto fillFault = [&fault](auto& ind) {
        copyErrorDescription(ind.faultDescription, sizeof(ind.faultDescription), fault.faultDescription);
        ind.reserved3 = 0;
    };
    for (const VornFaultSubscriber& subscriber : m_subscribers) {
        if (isMeant(subscriber)) {
            sendFaultSignal<OmlaVornFaultIndS>(subscriber, fault, fillFault);
        }
    }
    for (const VornFaultSubscriber& subscriber : m_hwFaultLabelSubscribers) {
        if (isMeant(subscriber)) {
            sendFaultSignal<LabelIndS>(subscriber, fault, [&](LabelIndS& ind) {
                fillFault(ind);
                ind.recoveryTime = adjustedRecoveryTime(fault.recoveryTime);
                copyErrorDescription(ind.hwFaultLabel, sizeof(ind.hwFaultLabel), fault.hwFaultLabel);
            });
        }
    }
}

void VornServerFaultHandling::handleCeasedFault(const FaultData& fault)
{
    for (const Subscribers* subscribers : {&m_subscribers, &m_hwFaultLabelSubscribers}) {
        for (const VornFaultSubscriber& subscriber : *subscribers) {
            sendFaultSignal<OmlaVornFaultceaseIndS>(subscriber, fault,
                                                    [](OmlaVornFaultceaseIndS& ind) { ind.reserved1 = 0; });
        }
    }
}

/// From the private mailbox, unlike what answers a client.
template <typename Ind, typename Fill>
void VornServerFaultHandling::sendFaultSignal(const VornFaultSubscriber& subscriber, const FaultData& fault,
                                              Fill&& fill) const
{
    NewSignal<Ind> ind(subscriber.clientRef, subscriber.serverRef);
    if (!ind) {
        return;
    }
    ind->faultId = fault.faultId;
    ind->faultCase = fault.faultCase;
    fill(*ind);
    traceFaultSignal(ind.message());
    TRACE_SEND_SIG(Ind::number, subscriber.mboxId, "sending {}, serverRef = {}", getSignalName(Ind::number),
                   subscriber.serverRef);
    ind.send(subscriber.mboxId, m_commonData.getPrivateMbox());
}

void VornServerFaultHandling::traceFaultSignal(const kiv_msg& signal) const
{
    const FaultManagerIf& faultManager = m_commonData.getFaultManager();
    const std::string& name = getSignalName(signal.number);
    if (signal.number == OmlaVornFaultIndS::number) {
        const auto& ind = *viewSignal<OmlaVornFaultIndS>(&signal);
        TRACE_INFO("ABN:Equipment fault,signal:{},client ref:{},server ref:{},fault id:{},fault description:{},"
                   "fault case:{}",
                   name, ind.header.clientRef.value(), ind.header.serverRef.value(),
                   faultManager.faultIdName(ind.faultId), fieldText(ind.faultDescription), ind.faultCase.value());
    } else if (signal.number == LabelIndS::number) {
        const auto& ind = *viewSignal<LabelIndS>(&signal);
        TRACE_INFO("ABN:Equipment fault,signal:{},client ref:{},server ref:{},fault id:{},fault description:'{}',"
                   "fault case:{},recovery time:{},HW fault label:'{}'",
                   name, ind.header.clientRef.value(), ind.header.serverRef.value(),
                   faultManager.faultIdName(ind.faultId), fieldText(ind.faultDescription), ind.faultCase.value(),
                   ind.recoveryTime.value(), fieldText(ind.hwFaultLabel));
    } else if (signal.number == OmlaVornFaultceaseIndS::number) {
        const auto& ind = *viewSignal<OmlaVornFaultceaseIndS>(&signal);
        TRACE_INFO("ABN:Equipment fault cease,signal:{},client ref:{},server ref:{},fault id:{},fault case:{}", name,
                   ind.header.clientRef.value(), ind.header.serverRef.value(), faultManager.faultIdName(ind.faultId),
                   ind.faultCase.value());
    } else {
        TRACE_ERROR("Unknown fault sigNo:{:x}", signal.number);
    }
}

void VornServerFaultHandling::onVornSessionLost(const VornSession& session)
{
    const std::uint32_t mboxId = session.getMboxId();
    if (const auto found = find(m_subscribers, mboxId); found != m_subscribers.end()) {
        TRACE_1("Deleting fault subscriber using mbox = {}", mboxId);
        m_subscribers.erase(found);
    }
    if (const auto found = find(m_hwFaultLabelSubscribers, mboxId); found != m_hwFaultLabelSubscribers.end()) {
        TRACE_1("Deleting hwFaultLabel subscriber using mbox = {}", mboxId);
        m_hwFaultLabelSubscribers.erase(found);
    }
}

/// An order of the unit's own: its transaction has no client.
void VornServerFaultHandling::setVisualIndication(bool isOn)
{
    using fesk::SetVisualIndicationReq;
    TolmeClient& feskClient = m_commonData.getFeskClient();
    const auto state = static_cast<SetVisualIndicationReq::VisualizedState>(isOn ? visualStateOn : visualStateOff);
    SetVisualIndicationReq request;
    request.set_mmi_user_id(m_commonData.getMmiUid());
    request.set_visual_state(state);
    const std::uint32_t procedureRef = feskClient.send(fesk::MsgNo::SetVisualIndicationReq, request);
    if (procedureRef == 0) {
        TRACE_ERROR("Cannot send fesk::SetVisualIndicationReq to the FESK server");
        return;
    }
    feskClient.addTransaction({procedureRef, KIV_NO_MBOX, 0, 0, fesk::MsgNo::SetVisualIndicationReq});
    TRACE_1("VornServer sends SetVisualIndicationReq to FESK server with procedureRef {} and visualState {}",
            procedureRef, SetVisualIndicationReq::VisualizedState_Name(state));
}

bool VornServerFaultHandling::handleCommand(const std::vector<std::string>& args, std::ostream& out)
{
    if (args.size() != 3 || args[2] != "subscriber") {
        out << "invalid fault command\n";
        return false;
    }
    out << "OMLA_VORN_FAULT_SUBSCRIBERS\n"
           "-------------------------\n";
    printSubscribers(m_subscribers, out);
    out << "OMLA_VORN_FAULTS_WITH_HW_FAULT_LABEL_SUBSCRIBERS\n"
           "----------------------------------------------\n";
    printSubscribers(m_hwFaultLabelSubscribers, out);
    return true;
}
