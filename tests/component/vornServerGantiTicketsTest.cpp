/// Tickets: acquiring and releasing the software store, the pairing in the boot environment, clients that go.

#include "softwareTest.h"
#include "vornServerImpl.h"

#include <array>
#include <chrono>
#include <gmock/gmock.h>

using namespace TestUnit;
using ::testing::UnorderedElementsAre;
using VornTrace::RecordedTraces;

namespace {

using VornServerGantiTicketsTest = SoftwareTest;
using VornServerGantiBootTest = BootSoftwareTest;

TEST_F(VornServerGantiTicketsTest, when_a_client_acquires_then_it_is_told_of_the_grant_and_not_of_the_ticket)
{
    Client& client = unit.connect();
    sendAcquire(client, 0x0203);
    const auto request = unit.ganti.expect<gant::AcquireResourceReq>();
    EXPECT_EQ(request.procRef, 1U);
    EXPECT_EQ(request.body.ticket_request_reference(), client.serverRef);
    EXPECT_EQ(request.body.resource(), gant::SW_STORE);
    auto cfm = ofTicket<gant::AcquireResourceCfm>(88);
    cfm.set_ticket_request_reference(client.serverRef);
    request.reply(cfm);
    unit.settle();
    client.expectNothing();

    unit.ganti.send(request.procRef, ofTicket<gant::AcquireResourceInd>(87));
    unit.ganti.send(request.procRef + 1, ofTicket<gant::AcquireResourceInd>(88));
    unit.settle();
    client.expectNothing();
    request.reply(ofTicket<gant::AcquireResourceInd>(88));
    const auto granted = client.expect<OmlaVornAcquireResourceCfmS>();
    EXPECT_EQ(granted.header.clientRef, client.clientRef);
    EXPECT_EQ(granted.header.serverRef, client.serverRef);
    EXPECT_EQ(granted.resource, 0x0203);
    EXPECT_EQ(client.lastSender, client.publicMbox());
}

TEST_F(VornServerGantiTicketsTest, when_a_client_acquires_twice_then_the_second_is_rejected_and_the_first_stays)
{
    Client& client = unit.connect();
    Client& namesake = unit.connect(client.serverRef);
    const std::uint32_t clientRef = client.clientRef;
    sendAcquire(client);
    const std::uint32_t procRef = giveTicket(5);
    const auto expectRejected = [&](const Client& sender) {
        sendAcquire(sender);
        const auto rej =
            expectReject<OmlaVornAcquireResourceRejS>(client, "acquire resource already requested by this client");
        EXPECT_EQ(rej.resource, 1);
    };
    client.clientRef = namesake.clientRef;
    expectRejected(client);
    expectRejected(namesake); // the first of this reference hears it
    unit.ganti.send(procRef, ofTicket<gant::AcquireResourceInd>(5));
    EXPECT_EQ(client.expect<OmlaVornAcquireResourceCfmS>().header.clientRef, clientRef);
    expectRejected(client);
    sendAcquire(client, 2); // another one
    giveTicket(6);
    expectSilence(namesake);
    for (const auto& [resource, ticket] : {std::pair<std::uint16_t, std::uint32_t>{2, 6}, {1, 5}}) {
        sendRelease(client, resource);
        EXPECT_EQ(unit.ganti.expect<gant::ReleaseResourceReq>().body.ticket_number(), ticket);
    }
}

TEST_F(VornServerGantiTicketsTest, when_the_acquire_is_rejected_then_the_client_is_told_and_may_ask_again)
{
    Client& client = unit.connect();
    for (int i = 0; i < 2; ++i) {
        sendAcquire(client, 9);
        const auto request = unit.ganti.expect<gant::AcquireResourceReq>();
        gant::AcquireResourceRej rej;
        rej.set_ticket_request_reference(client.serverRef + 1);
        request.reply(rej);
        rej.set_ticket_request_reference(client.serverRef);
        unit.ganti.send(request.procRef + 1, rej);
        expectSilence(client);
        request.reply(rej);
        EXPECT_EQ(expectReject<OmlaVornAcquireResourceRejS>(client, "unknown resource").resource, 9);
    }
}

TEST_F(VornServerGantiTicketsTest, when_a_ticket_is_released_then_all_that_is_open_under_it_ends_unanswered)
{
    Client& client = connectWithTicket(5);
    Client& other = connectWithTicket(6, 8);
    sendNamed<OmlaVornLoadLmcInitReqS>(client, "CXP_R1A");
    const auto load = unit.ganti.expect<gant::PushLoadInitReq>();
    sendRelease(client, 2);
    expectSilence(client);
    client.clientRef += 100;
    sendRelease(client);
    const auto release = unit.ganti.expect<gant::ReleaseResourceReq>();
    EXPECT_EQ(release.body.ticket_number(), 5U);
    sendRelease(client); // under way already
    expectSilence(client);
    release.reply(ofTicket<gant::ReleaseResourceCfm>(5));
    const auto cfm = client.expect<OmlaVornReleaseResourceCfmS>();
    EXPECT_EQ(cfm.header.clientRef, client.clientRef);
    EXPECT_EQ(cfm.resource, 1);

    load.reply(ofTicket<gant::PushLoadInitCfm>(5));
    expectSilence(client);
    sendNamed<OmlaVornSelectLmcReqS>(client, "CXP_R1A");
    expectReject<OmlaVornSelectLmcRejS>(client, "ABN: Resource not acquired");
    sendNamed<OmlaVornSelectLmcReqS>(other, "CXP_R1A");
    EXPECT_EQ(unit.ganti.expect<gant::GetSwProductInvReq>().body.ticket_number(), 6U);
}

TEST_F(VornServerGantiTicketsTest, when_a_release_is_rejected_then_the_ticket_is_held_again)
{
    Client& client = connectWithTicket(5);
    client.clientRef += 100;
    sendRelease(client);
    const auto release = unit.ganti.expect<gant::ReleaseResourceReq>();
    release.reply(ofTicket<gant::ReleaseResourceRej>(5));
    EXPECT_EQ(expectReject<OmlaVornReleaseResourceRejS>(client, "unknown resource").resource, 1);
    sendNamed<OmlaVornSelectLmcReqS>(client, "CXP_R1A");
    EXPECT_EQ(unit.ganti.expect<gant::GetSwProductInvReq>().body.ticket_number(), 5U);
    sendRelease(client);
    EXPECT_EQ(unit.ganti.expect<gant::ReleaseResourceReq>().procRef, release.procRef);
}

TEST_F(VornServerGantiTicketsTest, when_a_client_releases_or_goes_before_the_grant_then_with_the_ticket_that_is_known)
{
    const std::array clients{&unit.connect(7), &unit.connect(8), &unit.connect(9), &unit.connect(10)};
    for (const Client* client : clients) {
        sendAcquire(*client);
    }
    giveTicket(5);
    giveTicket(6);
    unit.ganti.expect<gant::AcquireResourceReq>();
    unit.ganti.expect<gant::AcquireResourceReq>();
    unit.settle();
    sendRelease(*clients[0]);
    clients[1]->die();
    sendRelease(*clients[2]);
    clients[3]->die();
    for (const std::uint32_t ticket : {5U, 6U, 0U, 0U}) {
        EXPECT_EQ(unit.ganti.expect<gant::ReleaseResourceReq>().body.ticket_number(), ticket);
    }
}

TEST_F(VornServerGantiTicketsTest, when_a_request_needs_a_ticket_and_there_is_none_then_it_is_rejected)
{
    for (const std::uint16_t protocolRev : {std::uint16_t{3}, std::uint16_t{1}}) {
        unit.protocolRev = protocolRev;
        Client& client = unit.connect(protocolRev);
        sendNamed<OmlaVornLoadLmcInitReqS>(client, "CXP_R1A");
        expectReject<OmlaVornLoadLmcInitRejS>(client, "ABN: Resource not acquired");
        sendNamed<OmlaVornSelectLmcReqS>(client, "CXP_R1A");
        expectReject<OmlaVornSelectLmcRejS>(client, "ABN: Resource not acquired");
        client.send<OmlaVornSwCompListReqS>();
        expectReject<OmlaVornSwCompListRejS>(client, "ABN: Resource not acquired");
        expectSilence(client);
    }
    connectWithTicket(5); // of revision 1 too: this isn't the boot environment
}

TEST_F(VornServerGantiTicketsTest, when_a_client_goes_then_its_procedures_end_before_its_ticket)
{
    Client& client = connectWithTicket(5);
    Client& other = connectWithTicket(6, 8);
    sendNamed<OmlaVornLoadLmcInitReqS>(client, "CXP_R1A");
    const auto load = unit.ganti.expect<gant::PushLoadInitReq>();
    client.send<OmlaVornSwCompListReqS>();
    const auto list = unit.ganti.expect<gant::SwCompListReq>();
    sendAcquire(client, 2);
    grant(9);
    client.expect<OmlaVornAcquireResourceCfmS>();
    client.send<OmlaVornGetRunningLmcReqS>();
    unit.ganti.expect<gant::GetRunningSwReq>();
    client.die();

    const auto end = unit.ganti.expect<gant::PushLoadEndReq>();
    EXPECT_EQ(end.procRef, load.procRef);
    EXPECT_EQ(end.body.ticket_number(), 5U);
    const auto abort = unit.ganti.expect<gant::SwCompListAck>();
    EXPECT_EQ(abort.procRef, list.procRef);
    EXPECT_TRUE(abort.body.abort());
    const auto first = unit.ganti.expect<gant::ReleaseResourceReq>();
    const auto second = unit.ganti.expect<gant::ReleaseResourceReq>();
    EXPECT_THAT((std::vector{first.body.ticket_number(), second.body.ticket_number()}), UnorderedElementsAre(5U, 9U));

    end.reply(ofTicket<gant::PushLoadEndCfm>(5));
    expectSilence(other);
    sendRelease(other);
    EXPECT_EQ(unit.ganti.expect<gant::ReleaseResourceReq>().body.ticket_number(), 6U);
    EXPECT_FALSE(RecordedTraces::has("VornServerGanti::onVornSessionLostGanti() had nothing to release"));
}

TEST_F(VornServerGantiTicketsTest, when_a_client_goes_that_has_nothing_then_nothing_is_released)
{
    Client& first = unit.connect();
    Client& second = unit.connect(9);
    Client& other = unit.connect(8);
    const auto expectNothingReleased = [](Client& client) {
        const auto mark = RecordedTraces::mark();
        client.die();
        EXPECT_TRUE(RecordedTraces::waitFor("VornServerGanti::onVornSessionLostGanti() had nothing to release", mark,
                                            deadline));
    };
    expectNothingReleased(first);
    sendAcquire(other);
    grant(6);
    other.expect<OmlaVornAcquireResourceCfmS>();
    expectNothingReleased(second);
    expectSilence(other);
}

TEST_F(VornServerGantiTicketsTest, when_the_software_manager_goes_then_clients_get_no_answer_and_the_server_stays)
{
    Client& client = connectWithTicket(5);
    unit.ganti.die();
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has("PLOE connection closed by GANTI Server."));
    sendRelease(client);
    client.send<OmlaVornGetRunningLmcReqS>();
    sendAcquire(client, 2);
    unit.settle();
    client.expectNothing();
    sendAcquire(client, 2);
    expectReject<OmlaVornAcquireResourceRejS>(client, "acquire resource already requested by this client");
    int exitCode = 0;
    EXPECT_EQ(unit.command({"vornsrv", "all", "ready"}, exitCode),
              "The following component(s) are not ready to publish\nVornServerGanti\n\n");
}

TEST_F(VornServerGantiBootTest,
       when_a_client_asks_without_a_ticket_then_it_is_acquired_and_the_request_follows_the_grant)
{
    Client& client = unit.connect();
    sendNamed<OmlaVornLoadLmcInitReqS>(client, "CXP_R1A");
    const std::uint32_t procRef = grant(5);
    const auto load = unit.ganti.expect<gant::PushLoadInitReq>();
    EXPECT_EQ(load.procRef, procRef + 1);
    EXPECT_EQ(load.body.ticket_number(), 5U);
    EXPECT_EQ(load.body.software(), "CXP_R1A");
    load.reply(ofTicket<gant::PushLoadInitCfm>(5));
    EXPECT_EQ(client.expect<OmlaVornLoadLmcInitCfmS>().loadInitResult, 0);

    client.send<OmlaVornSwCompListReqS>(); // the ticket is there
    EXPECT_EQ(unit.ganti.expect<gant::SwCompListReq>().body.ticket_number(), 5U);
    client.die();
    unit.ganti.expect<gant::PushLoadEndReq>();
    unit.ganti.expect<gant::SwCompListAck>();
    EXPECT_EQ(unit.ganti.expect<gant::ReleaseResourceReq>().body.ticket_number(), 5U);
}

TEST_F(VornServerGantiBootTest, when_selections_and_lists_wait_then_they_follow_their_grants_too)
{
    Client& first = unit.connect();
    sendNamed<OmlaVornSelectLmcReqS>(first, "CXP_R1A");
    const std::uint32_t firstProcRef = giveTicket(5);
    Client& second = unit.connect(8);
    second.send<OmlaVornSwCompListReqS>();
    const std::uint32_t secondProcRef = grant(6);
    const auto list = unit.ganti.expect<gant::SwCompListReq>();
    EXPECT_EQ(list.procRef, secondProcRef + 1);
    EXPECT_EQ(list.body.ticket_number(), 6U);
    unit.ganti.send(firstProcRef, ofTicket<gant::AcquireResourceInd>(5));
    EXPECT_EQ(unit.ganti.expect<gant::GetSwProductInvReq>().body.ticket_number(), 5U);
    expectSilence(first);
}

TEST_F(VornServerGantiBootTest,
       when_the_ticket_is_refused_then_the_client_is_told_of_a_resource_that_it_never_asked_for)
{
    Client& client = unit.connect();
    sendNamed<OmlaVornSelectLmcReqS>(client, "CXP_R1A");
    const auto request = unit.ganti.expect<gant::AcquireResourceReq>();
    gant::AcquireResourceRej rej;
    rej.set_ticket_request_reference(client.serverRef);
    request.reply(rej);
    EXPECT_EQ(client.expect<OmlaVornAcquireResourceRejS>().resource, 1);
    expectSilence(client);
    unit.ganti.send(request.procRef + 1, gant::GetSwProductInvRej()); // the request waits still
    expectReject<OmlaVornSelectLmcRejS>(client, "ABN: Resource not acquired");
}

TEST_F(VornServerGantiBootTest, when_a_client_asks_that_has_no_session_or_a_later_revision_then_it_has_to_acquire)
{
    unit.protocolRev = 3;
    Client& later = connectWithTicket(5, 8);
    sendRelease(later);
    unit.ganti.expect<gant::ReleaseResourceReq>();
    for (Client* client : {&later, &unit.addClient(9)}) {
        sendNamed<OmlaVornSelectLmcReqS>(*client, "CXP_R1A");
        expectReject<OmlaVornSelectLmcRejS>(*client, "ABN: Resource not acquired");
    }
}

TEST_F(VornServerGantiBootTest, when_a_client_acquires_itself_then_it_is_not_told_of_the_grant)
{
    Client& client = unit.connect();
    sendAcquire(client);
    grant(5);
    expectSilence(client);
}

class VornServerGantiStartTest : public UnitTest
{
};

TEST_F(VornServerGantiStartTest, when_there_is_no_software_manager_then_the_start_fails_after_five_attempts)
{
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(unit.server->start(), 0);
    ASSERT_TRUE(
        RecordedTraces::waitFor("GANTI component: the GANTI client failed to send connEstablishReq.", 0, deadline));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(5 * 250));
    EXPECT_EQ(RecordedTraces::count("GANTClient::connEstablishReq() PLOE connection to GANTI Server was unsuccessful."),
              5U);
    EXPECT_TRUE(RecordedTraces::waitFor("Failed to register signal handlers!", 0, deadline));
    EXPECT_TRUE(RecordedTraces::has("VornServer component VornServerGanti has failed to init"));
}

TEST_F(VornServerGantiStartTest, when_the_software_manager_refuses_then_the_server_stays_unpublished)
{
    unit.start();
    unit.legacy.appear();
    unit.connectDunl();
    unit.connectFesk();
    unit.connectYarrowI();
    const auto request = unit.ganti.expect<gant::ConnEstablishReq>();
    EXPECT_EQ(request.procRef, 0U);
    ASSERT_EQ(request.body.supported_protocol_revisions_size(), 1);
    EXPECT_EQ(request.body.supported_protocol_revisions(0), 1U);
    request.reply(gant::ConnEstablishRej());
    unit.settle();
    EXPECT_EQ(kiv_locate("VornServer"), KIV_NO_MBOX);
}

} // namespace
