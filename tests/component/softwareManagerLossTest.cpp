/// The software manager goes in the middle of each procedure: nobody is told what isn't so, nothing that is open stands
/// in anybody's way, and the server serves on.

#include "softwareTest.h"

#include <algorithm>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t ticket = 5;
constexpr std::string_view module = "CXP1_R1A";
constexpr const char* sessionName = "m_mboxName = DU_0\n"; // of the first client

/// The two sides of a procedure; the client holds a ticket unless it is about that.
struct Sides {
    GantiServer& ganti;
    Client& client;

    /// The next request, which must be this one, is answered.
    template <typename Request, typename Answer>
    void answer(Answer&& answer) const
    {
        ganti.expect<Request>().reply(answer);
    }
    /// The request has come, and nobody will answer it.
    template <typename Request>
    void leaveOpen() const
    {
        ganti.expect<Request>();
    }
    template <typename Record>
    void sendNamed() const
    {
        NewSignal<Record> signal(client.clientRef, client.serverRef, module.size());
        std::copy(module.begin(), module.end(), reinterpret_cast<char*>(&*signal) + sizeof(Record));
        client.sendSignal(client.publicMbox(), signal);
    }
    void beginLoad() const
    {
        sendNamed<OmlaVornLoadLmcInitReqS>();
        answer<gant::PushLoadInitReq>(ofTicket<gant::PushLoadInitCfm>(ticket));
        client.expect<OmlaVornLoadLmcInitCfmS>();
    }
    void beginList() const
    {
        client.send<OmlaVornSwCompListReqS>();
        answer<gant::SwCompListReq>(ofTicket<gant::SwCompListCfm>(ticket));
        client.expect<OmlaVornSwCompListCfmS>();
    }
    void beginCleanUp() const
    {
        sendNamed<OmlaVornLoadLmcInitReqS>();
        answer<gant::PushLoadInitReq>(
            rejectOf<gant::PushLoadInitRej>(ticket, gant::PushLoadInitRej::RESOURCE_SHORTAGE));
    }
};

struct Procedure {
    const char* name;
    bool hasTicket;
    void (*begin)(const Sides& sides);

    friend void PrintTo(const Procedure& procedure, std::ostream* out) { *out << procedure.name; }
};

void acquire(const Sides& sides)
{
    sides.client.send<OmlaVornAcquireResourceReqS>([](auto& request) { request.resource = 1; });
    sides.leaveOpen<gant::AcquireResourceReq>();
}
void waitForGrant(const Sides& sides)
{
    sides.client.send<OmlaVornAcquireResourceReqS>([](auto& request) { request.resource = 1; });
    const auto request = sides.ganti.expect<gant::AcquireResourceReq>();
    auto cfm = ofTicket<gant::AcquireResourceCfm>(ticket);
    cfm.set_ticket_request_reference(request.body.ticket_request_reference());
    request.reply(cfm);
}
void release(const Sides& sides)
{
    sides.client.send<OmlaVornReleaseResourceReqS>([](auto& request) { request.resource = 1; });
    sides.leaveOpen<gant::ReleaseResourceReq>();
}
void hold(const Sides&) {}
void initLoad(const Sides& sides)
{
    sides.sendNamed<OmlaVornLoadLmcInitReqS>();
    sides.leaveOpen<gant::PushLoadInitReq>();
}
void lookForSlots(const Sides& sides)
{
    sides.beginCleanUp();
    sides.leaveOpen<gant::GetSwProductInvReq>();
}
void deleteOldest(const Sides& sides)
{
    sides.beginCleanUp();
    sides.answer<gant::GetSwProductInvReq>(ofTicket<gant::GetSwProductInvCfm>(ticket));
    sides.leaveOpen<gant::DeleteReq>();
}
void initLoadAgain(const Sides& sides)
{
    sides.beginCleanUp();
    sides.answer<gant::GetSwProductInvReq>(ofTicket<gant::GetSwProductInvCfm>(ticket));
    sides.answer<gant::DeleteReq>(ofTicket<gant::DeleteCfm>(ticket));
    sides.leaveOpen<gant::PushLoadInitReq>();
}
void loadBlocks(const Sides& sides)
{
    sides.beginLoad();
    for (std::uint16_t i = 0; i < 3; ++i) {
        sides.client.send<OmlaVornLoadLmcDataS>([i](auto& block) { block.lmSeqNr = i; });
        sides.leaveOpen<gant::PushLoadData>();
    }
}
void endLoad(const Sides& sides)
{
    sides.beginLoad();
    sides.client.send<OmlaVornLoadLmcEndReqS>();
    sides.leaveOpen<gant::PushLoadEndReq>();
}
void select(const Sides& sides)
{
    sides.sendNamed<OmlaVornSelectLmcReqS>();
    sides.leaveOpen<gant::GetSwProductInvReq>();
}
void askForList(const Sides& sides)
{
    sides.client.send<OmlaVornSwCompListReqS>();
    sides.leaveOpen<gant::SwCompListReq>();
}
void waitForList(const Sides& sides)
{
    sides.beginList();
}
void askForNextPart(const Sides& sides)
{
    sides.client.send<OmlaVornSwCompListReqS>();
    const auto request = sides.ganti.expect<gant::SwCompListReq>();
    request.reply(ofTicket<gant::SwCompListCfm>(ticket));
    sides.client.expect<OmlaVornSwCompListCfmS>();
    auto data = ofTicket<gant::SwCompListData>(ticket);
    data.set_data("<LmcList>\n");
    request.reply(data);
    sides.client.expectNumber(OmlaVornSwCompListDataS::number);
    sides.client.send<OmlaVornSwCompListAckS>();
    sides.leaveOpen<gant::SwCompListAck>();
}
void askForRunning(const Sides& sides)
{
    sides.client.send<OmlaVornGetRunningLmcReqS>();
    sides.leaveOpen<gant::GetRunningSwReq>();
}

constexpr Procedure procedures[]{
    {"acquire", false, acquire},
    {"waitForGrant", false, waitForGrant},
    {"askForRunningWithoutTicket", false, askForRunning},
    {"hold", true, hold},
    {"release", true, release},
    {"initLoad", true, initLoad},
    {"lookForSlots", true, lookForSlots},
    {"deleteOldest", true, deleteOldest},
    {"initLoadAgain", true, initLoadAgain},
    {"loadBlocks", true, loadBlocks},
    {"endLoad", true, endLoad},
    {"select", true, select},
    {"askForList", true, askForList},
    {"waitForList", true, waitForList},
    {"askForNextPart", true, askForNextPart},
    {"askForRunning", true, askForRunning},
};

class SoftwareManagerLossTest : public SoftwareTest, public ::testing::WithParamInterface<Procedure>
{
protected:
    std::string sessions()
    {
        int exitCode = -1;
        std::string listing = unit.command({"vornsrv", "all", "sessions"}, exitCode);
        EXPECT_EQ(exitCode, 0);
        return listing;
    }
    /// Every kind of request once more.
    static void sendEverything(const Client& client)
    {
        sendAcquire(client, 2);
        sendNamed<OmlaVornLoadLmcInitReqS>(client, module);
        client.send<OmlaVornLoadLmcDataS>();
        client.send<OmlaVornLoadLmcEndReqS>();
        sendNamed<OmlaVornSelectLmcReqS>(client, module);
        client.send<OmlaVornSwCompListReqS>();
        client.send<OmlaVornSwCompListAckS>();
        client.send<OmlaVornGetRunningLmcReqS>();
        sendRelease(client);
    }
};

TEST_P(SoftwareManagerLossTest, when_the_software_manager_goes_in_the_middle_then_nobody_is_answered_and_all_goes_on)
{
    Client& client = GetParam().hasTicket ? connectWithTicket(ticket) : unit.connect();
    GetParam().begin({unit.ganti, client});
    unit.settle();
    client.expectNothing();
    unit.ganti.die();
    unit.settle();
    EXPECT_EQ(RecordedTraces::count("PLOE connection closed by GANTI Server."), 1U);
    client.expectNothing();

    sendEverything(client);
    unit.settle();
    client.expectNothing();
    EXPECT_NE(sessions().find(sessionName), std::string::npos);

    const auto mark = RecordedTraces::mark();
    client.die();
    EXPECT_TRUE(RecordedTraces::waitFor("VornServerImpl::deleteVornSession erasing ", mark, deadline));
    unit.settle();
    EXPECT_EQ(sessions().find(sessionName), std::string::npos);
    unit.dunl.discardAll(); // what the end of the last session tells it
    unit.fesk.discardAll();
    unit.yarrowi.discardAll();
}

INSTANTIATE_TEST_SUITE_P(procedures, SoftwareManagerLossTest, ::testing::ValuesIn(procedures),
                         [](const auto& procedure) { return std::string(procedure.param.name); });

} // namespace
