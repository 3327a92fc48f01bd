/// Loading of load modules, the room that is made for them, their selection.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "softwareTest.h"

#include <fmt/format.h>

using namespace TestUnit;
using namespace tolme;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t ticket = 5;

class VornServerGantiLoadTest : public SoftwareTest
{
protected:
    VornServerGantiLoadTest() : client(connectWithTicket(ticket)) {}

    GantiRequest<gant::PushLoadInitReq> beginLoad(std::string_view name = "CXP_R1A")
    {
        sendNamed<OmlaVornLoadLmcInitReqS>(client, name);
        return unit.ganti.expect<gant::PushLoadInitReq>();
    }
    /// Data may follow.
    GantiRequest<gant::PushLoadInitReq> openLoad()
    {
        auto request = beginLoad();
        request.reply(ofTicket<gant::PushLoadInitCfm>(ticket));
        expectInitConfirmed(0);
        return request;
    }
    void expectInitConfirmed(std::uint16_t result)
    {
        const auto cfm = client.expect<OmlaVornLoadLmcInitCfmS>();
        EXPECT_EQ(cfm.loadInitResult, result);
        EXPECT_EQ(cfm.header.clientRef, client.clientRef);
        EXPECT_EQ(cfm.header.serverRef, client.serverRef);
    }
    static void sendBlock(const Client& sender, std::uint16_t seqNr, std::string_view data, std::uint32_t noOfBytes)
    {
        NewSignal<OmlaVornLoadLmcDataS> signal(sender.clientRef, sender.serverRef, data.size());
        signal->lmSeqNr = seqNr;
        signal->noOfBytes = noOfBytes;
        std::copy(data.begin(), data.end(), reinterpret_cast<char*>(&*signal) + sizeof(OmlaVornLoadLmcDataS));
        sender.sendSignal(sender.publicMbox(), signal);
    }
    void sendBlock(std::uint16_t seqNr, std::string_view data) const
    {
        sendBlock(client, seqNr, data, static_cast<std::uint32_t>(data.size()));
    }
    static gant::PushLoadAck ackOf(std::uint32_t seqNr, bool abort = false)
    {
        auto ack = ofTicket<gant::PushLoadAck>(ticket);
        ack.set_sequence_number(seqNr);
        ack.set_abort(abort);
        return ack;
    }
    void expectLoadRejected(const std::string& text) { expectReject<OmlaVornLoadLmcInitRejS>(client, text); }

    Client& client;
};

TEST_F(VornServerGantiLoadTest, when_blocks_are_sent_then_each_arrives_with_a_reference_of_its_own_and_is_acknowledged)
{
    const auto init = openLoad();
    EXPECT_EQ(init.body.software(), "CXP_R1A");
    using namespace std::string_literals;
    sendBlock(0xFFFF, "first\0block"s);
    client.clientRef += 100;
    sendBlock(client, 0, "more than noOfBytes", 4);
    sendBlock(1, "");
    const auto first = unit.ganti.expect<gant::PushLoadData>();
    EXPECT_EQ(first.body.data(), "first\0block"s);
    EXPECT_EQ(first.body.sequence_number(), 0xFFFFU);
    EXPECT_EQ(first.body.ticket_number(), ticket);
    EXPECT_EQ(first.procRef, init.procRef + 1);
    const auto second = unit.ganti.expect<gant::PushLoadData>();
    EXPECT_EQ(second.body.data(), "more");
    EXPECT_EQ(second.procRef, init.procRef + 2);
    EXPECT_EQ(unit.ganti.expect<gant::PushLoadData>().body.data(), "");

    second.reply(ackOf(0x12345)); // the lower half is passed on
    const auto ack = client.expect<OmlaVornLoadLmcAckS>();
    EXPECT_EQ(ack.lmSeqNr, 0x2345);
    EXPECT_EQ(ack.header.clientRef, client.clientRef);
    EXPECT_EQ(ack.header.serverRef, client.serverRef);
    first.reply(ackOf(0xFFFF));
    EXPECT_EQ(client.expect<OmlaVornLoadLmcAckS>().header.clientRef, client.clientRef - 100);
    first.reply(ackOf(0xFFFF)); // its record is gone
    expectSilence(client);
}

TEST_F(VornServerGantiLoadTest, when_a_block_is_aborted_then_nothing_is_told_and_a_late_acknowledgement_finds_nothing)
{
    openLoad();
    sendBlock(1, "data");
    const auto block = unit.ganti.expect<gant::PushLoadData>();
    block.reply(ackOf(1, true));
    block.reply(ackOf(1));
    expectSilence(client);
}

TEST_F(VornServerGantiLoadTest, when_a_block_comes_before_the_load_or_is_longer_than_its_signal_then_it_is_dropped)
{
    sendBlock(1, "data");
    expectSilence(client);
    const auto init = openLoad();
    sendBlock(client, 1, "data", 5);
    sendBlock(client, 1, "data", 0xFFFFFFFF);
    expectSilence(client);
    EXPECT_TRUE(RecordedTraces::has("ABN: noOfBytes(4294967295) is more than the 4 bytes of data. Ignoring it."));
    sendBlock(2, "data");
    EXPECT_EQ(unit.ganti.expect<gant::PushLoadData>().procRef, init.procRef + 1) << "a dropped block left a record";
}

TEST_F(VornServerGantiLoadTest,
       when_the_software_manager_takes_no_block_then_it_is_not_acknowledged_and_the_next_may_come)
{
    openLoad();
    const std::string tooLarge(300'000, 'x');
    sendBlock(7, tooLarge);
    expectSilence(client);
    EXPECT_TRUE(RecordedTraces::has("ABN: failCode(2), lmSeqNr(7)"));
    sendBlock(8, "data");
    unit.ganti.expect<gant::PushLoadData>().reply(ackOf(8));
    client.expect<OmlaVornLoadLmcAckS>();
}

TEST_F(VornServerGantiLoadTest, when_the_load_ends_then_the_result_is_told_and_a_reject_opens_it_again)
{
    const auto init = openLoad();
    client.clientRef += 100;
    const auto endReq = [&] {
        client.send<OmlaVornLoadLmcEndReqS>();
        const auto request = unit.ganti.expect<gant::PushLoadEndReq>();
        EXPECT_EQ(request.procRef, init.procRef);
        return request;
    };
    auto end = endReq();
    client.send<OmlaVornLoadLmcEndReqS>();
    expectSilence(client);
    end.reply(rejectOf<gant::PushLoadEndRej>(ticket, gant::PushLoadEndRej::INVALID_TICKET_NUMBER));
    expectReject<OmlaVornLoadLmcEndRejS>(client, "Invalid ticket number");
    endReq().reply(rejectOf<gant::PushLoadEndRej>(ticket, gant::PushLoadEndRej::INVALID_STATE));
    expectReject<OmlaVornLoadLmcEndRejS>(client, "ticket in queue");

    end = endReq();
    auto cfm = ofTicket<gant::PushLoadEndCfm>(ticket);
    cfm.set_result(gant::PushLoadEndCfm::FAILED);
    end.reply(cfm);
    const auto told = client.expect<OmlaVornLoadLmcEndCfmS>();
    EXPECT_EQ(told.loadResult, 1);
    EXPECT_EQ(told.header.clientRef, client.clientRef);
    EXPECT_EQ(told.header.serverRef, client.serverRef);
    client.send<OmlaVornLoadLmcEndReqS>();
    expectSilence(client);

    cfm.clear_result();
    for (int i = 0; i < 2; ++i) {
        openLoad();
        client.send<OmlaVornLoadLmcEndReqS>();
        unit.ganti.expect<gant::PushLoadEndReq>().reply(cfm);
        EXPECT_EQ(client.expect<OmlaVornLoadLmcEndCfmS>().loadResult, 0);
        cfm.mutable_unknown_fields()->AddVarint(gant::PushLoadEndCfm::kResultFieldNumber, 2); // none of its values
    }
}

TEST_F(VornServerGantiLoadTest, when_a_load_is_refused_then_the_client_is_told_by_the_reason)
{
    using Rej = gant::PushLoadInitRej;
    const std::pair<Rej::Reason, const char*> reasons[] = {
        {Rej::INVALID_TICKET_NUMBER, "Invalid ticket number"},
        {Rej::BUSY, "Busy"},
        {Rej::TICKET_IN_QUEUE, "ABN: Resource not acquired"},
        {Rej::INTERNAL_ERROR, "LMC encountered unknown failure"},
    };
    for (const auto& [reason, text] : reasons) {
        beginLoad().reply(rejectOf<Rej>(ticket, reason));
        expectLoadRejected(text);
        sendBlock(1, "data");
        expectSilence(client);
    }
    const std::pair<Rej::Reason, std::uint16_t> there[] = {{Rej::ALREADY_LOADED, std::uint16_t{1}},
                                                           {Rej::RUNNING, std::uint16_t{2}}};
    for (const auto& [reason, result] : there) {
        beginLoad().reply(rejectOf<Rej>(ticket, reason));
        expectInitConfirmed(result);
        sendBlock(1, "data");
        expectSilence(client);
    }
}

TEST_F(VornServerGantiLoadTest, when_no_slot_is_free_then_the_oldest_software_is_deleted_and_the_load_begins_anew)
{
    const auto init = beginLoad();
    init.reply(ofTicket<gant::PushLoadInitRej>(ticket)); // no reason is a shortage
    const auto inventory = unit.ganti.expect<gant::GetSwProductInvReq>();
    EXPECT_EQ(inventory.procRef, init.procRef);
    EXPECT_EQ(inventory.body.ticket_number(), ticket);
    EXPECT_FALSE(inventory.body.has_force());
    auto slots = ofTicket<gant::GetSwProductInvCfm>(ticket);
    using Slot = gant::ProductInventory;
    const auto add = [&](const char* revision, bool running = false, Slot::Status status = Slot::VALID,
                         Slot::Access access = Slot::READ_WRITE, Slot::SoftwareType type = Slot::AUAPPLIC) {
        auto* slot = slots.add_product_inventory();
        slot->set_product_number("CXP");
        slot->set_revision(revision);
        slot->set_running(running);
        slot->set_status(status);
        slot->set_access(access);
        slot->set_software_type(type);
        return slot;
    };
    add("P1A", true);
    add("P1B", false, Slot::WRITING);
    add("P1C", false, Slot::VALID, Slot::READ_ONLY);
    add("P1D", false, Slot::VALID, Slot::READ_WRITE, Slot::AUBOOT);
    add("R10A");
    add("R2B");
    add("R2B")->set_product_number("equally old");
    add("R2AA");
    inventory.reply(slots);
    const auto deletion = unit.ganti.expect<gant::DeleteReq>();
    EXPECT_EQ(deletion.procRef, init.procRef);
    EXPECT_EQ(deletion.body.ticket_number(), ticket);
    EXPECT_EQ(deletion.body.software(), "CXP_R2B");
    unit.settle();
    client.expectNothing();
    deletion.reply(ofTicket<gant::DeleteCfm>(ticket));
    const auto again = unit.ganti.expect<gant::PushLoadInitReq>();
    EXPECT_EQ(again.procRef, init.procRef);
    EXPECT_EQ(again.body.ticket_number(), ticket);
    EXPECT_EQ(again.body.software(), "CXP_R1A");

    const auto deletedOf = [&] {
        again.reply(ofTicket<gant::PushLoadInitRej>(ticket));
        unit.ganti.expect<gant::GetSwProductInvReq>().reply(slots);
        const auto request = unit.ganti.expect<gant::DeleteReq>();
        request.reply(ofTicket<gant::DeleteCfm>(ticket));
        unit.ganti.expect<gant::PushLoadInitReq>();
        return request.body.software();
    };
    add("P1A");
    add("R1");
    add("X1");
    EXPECT_EQ(deletedOf(), "CXP_R1") << "nothing comes before a revision without letters, or that is none";
    add("R1A", false, Slot::ERASING);
    EXPECT_EQ(deletedOf(), "");
    slots.clear_product_inventory();
    EXPECT_EQ(deletedOf(), "");
}

TEST_F(VornServerGantiLoadTest, when_no_room_can_be_made_then_the_load_is_rejected)
{
    beginLoad().reply(ofTicket<gant::PushLoadInitRej>(ticket));
    unit.ganti.expect<gant::GetSwProductInvReq>().reply(ofTicket<gant::GetSwProductInvRej>(ticket));
    expectLoadRejected("No LMC slots available");
    beginLoad().reply(ofTicket<gant::PushLoadInitRej>(ticket));
    unit.ganti.expect<gant::GetSwProductInvReq>().reply(ofTicket<gant::GetSwProductInvCfm>(ticket));
    unit.ganti.expect<gant::DeleteReq>().reply(rejectOf<gant::DeleteRej>(ticket, gant::DeleteRej::BUSY));
    expectLoadRejected("No LMC slots available");
    client.send<OmlaVornLoadLmcEndReqS>();
    expectSilence(client);
}

TEST_F(VornServerGantiLoadTest, when_a_client_goes_while_room_is_made_then_its_load_ends_and_late_answers_find_nothing)
{
    const auto init = beginLoad();
    init.reply(ofTicket<gant::PushLoadInitRej>(ticket));
    unit.ganti.expect<gant::GetSwProductInvReq>();
    client.die();
    EXPECT_EQ(unit.ganti.expect<gant::PushLoadEndReq>().procRef, init.procRef);
    unit.ganti.expect<gant::ReleaseResourceReq>();
    init.reply(ofTicket<gant::GetSwProductInvCfm>(ticket));
    init.reply(ofTicket<gant::DeleteCfm>(ticket));
    unit.settle();
    unit.ganti.expectNothing();
}

TEST_F(VornServerGantiLoadTest, when_a_name_has_no_end_then_it_ends_with_its_signal)
{
    using namespace std::string_literals;
    EXPECT_EQ(beginLoad("CXP_R1A\0behind"s).body.software(), "CXP_R1A");
    EXPECT_EQ(beginLoad(std::string(5000, 'x')).body.software(), std::string(5000, 'x'));
    EXPECT_EQ(beginLoad("").body.software(), "");
}

TEST_F(VornServerGantiLoadTest,
       when_a_client_goes_with_a_block_in_flight_then_its_load_ends_and_the_answer_harms_nobody)
{
    Client& other = unit.connect(client.serverRef); // loads with it
    openLoad();
    sendBlock(1, "data");
    const auto block = unit.ganti.expect<gant::PushLoadData>();
    sendBlock(other, 2, "data", 4);
    const auto otherBlock = unit.ganti.expect<gant::PushLoadData>();
    client.send<OmlaVornLoadLmcEndReqS>(); // not ended again by the loss
    unit.ganti.expect<gant::PushLoadEndReq>();
    client.die();
    unit.ganti.expect<gant::ReleaseResourceReq>();
    block.reply(ackOf(1));
    otherBlock.reply(ackOf(2));
    EXPECT_EQ(other.expect<OmlaVornLoadLmcAckS>().lmSeqNr, 2);
    expectSilence(other);
}

gant::GetSwProductInvCfm inventoryOf(const std::vector<std::pair<std::string, std::string>>& names)
{
    auto cfm = ofTicket<gant::GetSwProductInvCfm>(ticket);
    for (const auto& [product, revision] : names) {
        auto* slot = cfm.add_product_inventory();
        slot->set_product_number(product);
        slot->set_revision(revision);
        slot->set_status(gant::ProductInventory::EMPTY); // doesn't matter
    }
    return cfm;
}

TEST_F(VornServerGantiLoadTest, when_a_module_is_selected_then_any_slot_with_its_whole_name_will_do)
{
    const auto select = [&](std::string_view name) {
        sendNamed<OmlaVornSelectLmcReqS>(client, name);
        unit.ganti.expect<gant::GetSwProductInvReq>().reply(
            inventoryOf({{"CXP 1/2", "R1AB"}, {"CXP", ""}, {"", "R7"}, {"CXP 1/2", "R1A"}}));
    };
    for (const char* name : {"CXP 1/2_R1A", "CXP", "R7"}) {
        select(name);
        EXPECT_EQ(client.expect<OmlaVornSelectLmcCfmS>().header.clientRef, client.clientRef) << name;
    }
    for (const char* name : {"CXP 1/2_R1", "CXP_", "_R7", "", "cxp"}) {
        select(name);
        expectReject<OmlaVornSelectLmcRejS>(client, "ABN: Resource not acquired");
    }
    EXPECT_TRUE(RecordedTraces::has(
        "VornServerGanti::handleGetSwProductInvCfm() OMLA_VORN_SELECT_LMC_REQ try match='CXP 1/2_R1A'"));
    const auto mark = RecordedTraces::mark();
    select("CXP 1/2_R1AB");
    client.expect<OmlaVornSelectLmcCfmS>();
    const std::string looksAt = "VornServerGanti::handleGetSwProductInvCfm() OMLA_VORN_SELECT_LMC_REQ product_number='";
    EXPECT_TRUE(RecordedTraces::has(looksAt + "CXP 1/2', revision='R1AB'", mark));
    EXPECT_FALSE(RecordedTraces::hasPart(looksAt + "CXP'", mark));
    sendNamed<OmlaVornSelectLmcReqS>(client, "CXP");
    unit.ganti.expect<gant::GetSwProductInvReq>().reply(ofTicket<gant::GetSwProductInvRej>(ticket));
    expectReject<OmlaVornSelectLmcRejS>(client, "ABN: Resource not acquired");
}

using VornServerGantiDevicesTest = SelectiveLoadingTest;

TEST_F(VornServerGantiDevicesTest, when_a_message_about_the_devices_does_not_parse_then_it_is_traced_and_dropped)
{
    Client& client = connectWithTicket(ticket);
    dunl::ConnectedDevicesInitializedInd garbage;
    garbage.mutable_unknown_fields()->AddVarint(0, 0); // a field can't have this number
    for (const auto& [msgNo, name] : {std::pair{dunl::MsgNo::ConnectedDevicesInitializedCfm, "Cfm"},
                                      std::pair{dunl::MsgNo::ConnectedDevicesInitializedInd, "Ind"}}) {
        unit.dunl.sendMessage(unit.privateMbox(), msgNo, 1, unit.dunl.clientRef, garbage);
        expectSilence(client);
        EXPECT_TRUE(RecordedTraces::has(fmt::format(
            "Unable to parse GPB message tolme.dunl.ConnectedDevicesInitialized{} of size 14 bytes", name)));
    }
}

TEST_F(VornServerGantiDevicesTest, when_software_is_already_loaded_then_the_client_hears_it_when_all_devices_are_up)
{
    Client& client = connectWithTicket(ticket);
    Client& other = connectWithTicket(6, 8);
    const auto loadTo = [&](gant::PushLoadInitRej::Reason reason) {
        sendNamed<OmlaVornLoadLmcInitReqS>(client, "CXP_R1A");
        const auto init = unit.ganti.expect<gant::PushLoadInitReq>();
        init.reply(rejectOf<gant::PushLoadInitRej>(ticket, reason));
        return init.procRef;
    };
    const std::uint32_t acquireProcRef = loadTo(gant::PushLoadInitRej::RUNNING) - 1; // the other's
    EXPECT_EQ(client.expect<OmlaVornLoadLmcInitCfmS>().loadInitResult, 2);

    const std::uint32_t procRef = loadTo(gant::PushLoadInitRej::ALREADY_LOADED);
    const auto request =
        unit.dunl.expect<dunl::ConnectedDevicesInitializedReq>(dunl::MsgNo::ConnectedDevicesInitializedReq);
    EXPECT_EQ(request.procedureRef, procRef);
    request.reply(dunl::MsgNo::ConnectedDevicesInitializedCfm, dunl::ConnectedDevicesInitializedCfm());
    const auto indicate = [&](std::uint32_t reference) {
        unit.dunl.sendMessage(request.sender, dunl::MsgNo::ConnectedDevicesInitializedInd, reference,
                              unit.dunl.clientRef, dunl::ConnectedDevicesInitializedInd());
    };
    indicate(procRef + 1);
    unit.settle();
    client.expectNothing();
    indicate(procRef);
    EXPECT_EQ(client.expect<OmlaVornLoadLmcInitCfmS>().loadInitResult, 1);
    indicate(procRef);
    expectSilence(client);
    indicate(acquireProcRef); // any record will do
    EXPECT_EQ(other.expect<OmlaVornLoadLmcInitCfmS>().loadInitResult, 1);

    unit.dunl.die();
    unit.settle();
    const auto mark = RecordedTraces::mark();
    const std::uint32_t unanswered = loadTo(gant::PushLoadInitRej::ALREADY_LOADED);
    expectSilence(client);
    EXPECT_TRUE(RecordedTraces::has("ABN: Failed to send message -- not connected to TOLME server", mark));
    client.send<OmlaVornLoadLmcEndReqS>();
    EXPECT_EQ(unit.ganti.expect<gant::PushLoadEndReq>().procRef, unanswered);
}

} // namespace
