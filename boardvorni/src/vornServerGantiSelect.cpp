// Selection: what the slots hold decides whether a client's choice is there, and which software a load may replace.

#include "ganti/ganti.pb.h"
#include "softwareRevision.h"
#include "vornServerGanti.h"
#include "vorni/software.h"

#include <algorithm>

namespace {

constexpr char fullRevisions = 'F'; // those without letters come before all others
constexpr const char* noSlotsAvailable = "No LMC slots available";

std::string nameOf(const gant::ProductInventory& slot)
{
    return softwareName(slot.product_number(), slot.revision());
}

bool isReplaceable(const gant::ProductInventory& slot)
{
    return slot.status() == gant::ProductInventory::VALID && slot.access() == gant::ProductInventory::READ_WRITE &&
           slot.software_type() == gant::ProductInventory::AUAPPLIC && !slot.running();
}

/// The replaceable software with the lowest revision; empty where there is none, or where a slot is being freed.
std::string chooseReplaceable(const gant::GetSwProductInvCfm& inventory)
{
    std::string chosen;
    std::int64_t lowest = revisionOrderValue("R9999ZZZZ9999x", fullRevisions);
    for (const auto& slot : inventory.product_inventory()) {
        if (slot.status() == gant::ProductInventory::ERASING) {
            return {};
        }
        if (lowest < 0 || !isReplaceable(slot)) {
            continue;
        }
        const std::int64_t value = revisionOrderValue(slot.revision(), fullRevisions);
        if (value < lowest) {
            lowest = value;
            chosen = nameOf(slot);
        }
    }
    return chosen;
}

} // namespace

void VornServerGanti::handleSelectLmcReq(const MessagePtr& msg)
{
    const auto* signal = receiveSignal<OmlaVornSelectLmcReqS>(msg);
    if (signal != nullptr && !requestUnderTicket(msg, std::string(textBehind<OmlaVornSelectLmcReqS>(*msg)))) {
        sendReject<OmlaVornSelectLmcRejS>(kiv_sender(msg.get()), signal->header.clientRef, signal->header.serverRef, 1,
                                          resourceNotAcquired);
    }
}

/// For a selection, or for a load that has found no free slot.
void VornServerGanti::handleGetSwProductInvCfm(GantiRequestRecord& record, const gant::GetSwProductInvCfm& cfm)
{
    if (record.req == OmlaVornSelectLmcReqS::number) {
        answerSelection(record, cfm);
    } else {
        m_client.deleteReq(record.procRef, record.ticket, chooseReplaceable(cfm));
    }
}

void VornServerGanti::answerSelection(const GantiRequestRecord& record, const gant::GetSwProductInvCfm& inventory)
{
    TRACE_INFO("VornServerGanti::handleGetSwProductInvCfm() OMLA_VORN_SELECT_LMC_REQ try match='{}'", record.text);
    const auto& slots = inventory.product_inventory();
    const bool isThere = std::any_of(slots.begin(), slots.end(), [&](const auto& slot) {
        TRACE_INFO(
            "VornServerGanti::handleGetSwProductInvCfm() OMLA_VORN_SELECT_LMC_REQ product_number='{}', revision='{}'",
            slot.product_number(), slot.revision());
        return nameOf(slot) == record.text;
    });
    if (isThere) {
        m_commonData.setSelectLoadModule(record.text);
        sendSignal<OmlaVornSelectLmcCfmS>(record.mbox, record.clientRef, record.serverRef);
        m_records.remove(record);
    } else {
        rejectSelection(record);
    }
}

/// The same text for software that isn't there.
void VornServerGanti::rejectSelection(const GantiRequestRecord& record)
{
    sendReject<OmlaVornSelectLmcRejS>(record.mbox, record.clientRef, record.serverRef, 1, resourceNotAcquired);
    m_records.remove(record);
}

void VornServerGanti::handleGetSwProductInvRej(GantiRequestRecord& record, const gant::GetSwProductInvRej&)
{
    if (record.req == OmlaVornSelectLmcReqS::number) {
        m_commonData.setSelectLoadModule("");
        rejectSelection(record);
    } else {
        rejectLoadInit(record, noSlotsAvailable);
    }
}

/// The load begins anew.
void VornServerGanti::handleDeleteCfm(GantiRequestRecord& record, const gant::DeleteCfm&)
{
    m_client.pushLoadInitReq(record.procRef, record.ticket, record.text);
}

void VornServerGanti::handleDeleteRej(GantiRequestRecord& record, const gant::DeleteRej&)
{
    rejectLoadInit(record, noSlotsAvailable);
}
