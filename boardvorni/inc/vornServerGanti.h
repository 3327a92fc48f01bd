/// The unit's software: tickets, loading, selection, the list of software components, the running load module.
#pragma once

#include "gantclient/gantClient.h"
#include "ganti/numbers.h"
#include "gantiRequestRecords.h"
#include "tolmeProcedures.h"
#include "vornServerComponent.h"

#include <string>
#include <string_view>

/// Lets clients use the software store of the unit: a client acquires it, which gives it a ticket, and loads, selects
/// and lists software under it. In the boot environment a client of revision 1 never acquires; the ticket is acquired
/// for it. Speaks with the software manager, and with the DUNL server about what software needs of the hardware.
///
/// Each exchange with the software manager is a record, which an answer finds by its references. Nothing is supervised:
/// an exchange that isn't answered stays. With a client go its open loads, its lists and its tickets; the rest stays.
///
/// The procedures are in files of their own: vornServerGantiTickets.cpp, vornServerGantiLoad.cpp,
/// vornServerGantiSelect.cpp, vornServerGantiSoftwareList.cpp and vornServerGantiRunning.cpp.
class VornServerGanti : public VornServerComponent
{
public:
    explicit VornServerGanti(VornServerCommonData& commonData);

    /// Connects to the software manager; waits a little for one that isn't up yet.
    bool init() override;
    std::string_view name() const override { return "VornServerGanti"; }
    void onVornSessionLost(const VornSession& session) override { onVornSessionLostGanti(session); }
    void shutdown() override;
    bool isReadyToPublish() const override;
    const GantiRequestRecords& records() const { return m_records; }

private:
    bool connectToSoftwareManager();

    // A message of the software manager, by the record of its procRef and ticket, or by its procRef alone.
    template <typename Message>
    void onMessage(void (VornServerGanti::*handler)(GantiRequestRecord&, const Message&));
    template <typename Message>
    void onMessage(void (VornServerGanti::*handler)(std::uint32_t procRef, const Message&));

    // Tickets
    void handleAcquireResourceReq(const MessagePtr& msg);
    void handleAcquireResourceCfm(std::uint32_t procRef, const gant::AcquireResourceCfm& cfm);
    void handleAcquireResourceRej(std::uint32_t procRef, const gant::AcquireResourceRej& rej);
    void handleAcquireResourceInd(GantiRequestRecord& record, const gant::AcquireResourceInd& ind);
    void handleReleaseResourceReq(const MessagePtr& msg);
    void handleReleaseResourceCfm(GantiRequestRecord& record, const gant::ReleaseResourceCfm& cfm);
    void handleReleaseResourceRej(GantiRequestRecord& record, const gant::ReleaseResourceRej& rej);
    template <typename Confirm>
    void confirmResource(const GantiRequestRecord& record, std::uint32_t clientRef);
    template <typename Reject>
    void rejectResource(const GantiRequestRecord& record, std::uint32_t clientRef, const char* text);
    bool auBootAcquireResourceReq(std::uint32_t clientRef, std::uint32_t serverRef, std::uint32_t mboxId);
    bool isAuBootClient(std::uint32_t mboxId) const;
    void onVornSessionLostGanti(const VornSession& session);
    bool endProcedure(const GantiRequestRecord& record);
    /// A client's request that needs a ticket: it goes out, or waits for the ticket. False where the client has none.
    bool requestUnderTicket(const MessagePtr& msg, const std::string& text = {});
    void sendUnderTicket(const GantiRequestRecord& record);
    static constexpr const char* resourceNotAcquired = "ABN: Resource not acquired";

    // Loading
    void handleLoadLmcInitReq(const MessagePtr& msg);
    void handlePushLoadInitCfm(GantiRequestRecord& record, const gant::PushLoadInitCfm& cfm);
    void handlePushLoadInitRej(GantiRequestRecord& record, const gant::PushLoadInitRej& rej);
    void confirmAlreadyLoaded(const GantiRequestRecord& record);
    void confirmLoadInit(const GantiRequestRecord& record, std::uint16_t result);
    void rejectLoadInit(const GantiRequestRecord& record, const char* text);
    void handleConnectedDevicesInitializedCfm(const TolmeMessagePtr& message);
    void handleConnectedDevicesInitializedInd(const TolmeMessagePtr& message);
    void handleLoadLmcData(const MessagePtr& msg);
    void handlePushLoadAck(GantiRequestRecord& record, const gant::PushLoadAck& ack);
    void handleLoadLmcEndReq(const MessagePtr& msg);
    void handlePushLoadEndCfm(GantiRequestRecord& record, const gant::PushLoadEndCfm& cfm);
    void handlePushLoadEndRej(GantiRequestRecord& record, const gant::PushLoadEndRej& rej);

    // Selection, and the slots that a load may have
    void handleSelectLmcReq(const MessagePtr& msg);
    void handleGetSwProductInvCfm(GantiRequestRecord& record, const gant::GetSwProductInvCfm& cfm);
    void handleGetSwProductInvRej(GantiRequestRecord& record, const gant::GetSwProductInvRej& rej);
    void answerSelection(const GantiRequestRecord& record, const gant::GetSwProductInvCfm& inventory);
    void rejectSelection(const GantiRequestRecord& record);
    void handleDeleteCfm(GantiRequestRecord& record, const gant::DeleteCfm& cfm);
    void handleDeleteRej(GantiRequestRecord& record, const gant::DeleteRej& rej);

    // The list of software components
    void handleSwCompListReq(const MessagePtr& msg);
    void handleSwCompListCfm(GantiRequestRecord& record, const gant::SwCompListCfm& cfm);
    void handleSwCompListRej(GantiRequestRecord& record, const gant::SwCompListRej& rej);
    void handleSwCompListData(GantiRequestRecord& record, const gant::SwCompListData& data);
    void handleSwCompListAck(const MessagePtr& msg);
    void sendNextPart(GantiRequestRecord& record);
    void sendListPart(const GantiRequestRecord& record, const std::string& part, bool isLast);
    bool isGsmIruList(const GantiRequestRecord& record) const;
    void parseSwCompListForGsmIru(GantiRequestRecord& record);

    // The running load module
    void handleGetRunningLmcReq(const MessagePtr& msg);
    void handleGetRunningSwCfm(std::uint32_t procRef, const gant::GetRunningSwCfm& cfm);
    void handleGetRunningSwRej(std::uint32_t procRef, const gant::GetRunningSwRej& rej);
    void handleValidateHwSwCompatibilityCfm(const TolmeMessagePtr& message);
    void handleValidateHwSwCompatibilityRej(const TolmeMessagePtr& message);
    void confirmRunning(const GantiRequestRecord& record, const std::string& software);
    void rejectRunning(const GantiRequestRecord& record, const char* text);

    GANTClient& m_client;
    TolmeProcedures m_dunl;
    GantiRequestRecords m_records;
};
