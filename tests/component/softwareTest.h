/// Steps of the tests of the software procedures: the software manager grants, a client asks with a name.
#pragma once

#include "dunl/dunl.pb.h"
#include "ganti/ganti.pb.h"
#include "unit.h"
#include "vorni/software.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace TestUnit {

/// A message that names its ticket.
template <typename Message>
Message ofTicket(std::uint32_t ticket)
{
    Message message;
    message.set_ticket_number(ticket);
    return message;
}

template <typename Message, typename Reason>
Message rejectOf(std::uint32_t ticket, Reason reason)
{
    auto message = ofTicket<Message>(ticket);
    message.set_reason(reason);
    return message;
}

class SoftwareTest : public UnitTest
{
protected:
    explicit SoftwareTest(std::uint16_t protocolRev = 3, std::vector<int> dunlCapabilities = {})
    {
        unit.protocolRev = protocolRev;
        unit.dunlCapabilities = std::move(dunlCapabilities);
        unit.bringUp();
    }

    static void sendAcquire(const Client& client, std::uint16_t resource = 1)
    {
        client.send<OmlaVornAcquireResourceReqS>([=](auto& request) { request.resource = resource; });
    }
    static void sendRelease(const Client& client, std::uint16_t resource = 1)
    {
        client.send<OmlaVornReleaseResourceReqS>([=](auto& request) { request.resource = resource; });
    }
    /// Gives a ticket, which can't be used yet. The procRef of the grant.
    std::uint32_t giveTicket(std::uint32_t ticket)
    {
        const auto request = unit.ganti.expect<gant::AcquireResourceReq>();
        auto cfm = ofTicket<gant::AcquireResourceCfm>(ticket);
        cfm.set_ticket_request_reference(request.body.ticket_request_reference());
        request.reply(cfm);
        return request.procRef;
    }
    /// Gives a ticket that can be used at once.
    std::uint32_t grant(std::uint32_t ticket)
    {
        const std::uint32_t procRef = giveTicket(ticket);
        unit.ganti.send(procRef, ofTicket<gant::AcquireResourceInd>(ticket));
        return procRef;
    }
    /// A client that holds a ticket.
    Client& connectWithTicket(std::uint32_t ticket, std::uint32_t serverRef = 7)
    {
        Client& client = unit.connect(serverRef);
        unit.giveTicket(client, ticket);
        return client;
    }
    /// A request with a name behind it, its zero only if it is part of the name.
    template <typename Record>
    static void sendNamed(const Client& client, std::string_view name)
    {
        NewSignal<Record> signal(client.clientRef, client.serverRef, name.size());
        std::copy(name.begin(), name.end(), reinterpret_cast<char*>(&*signal) + sizeof(Record));
        client.sendSignal(client.publicMbox(), signal);
    }
    /// The next signal is this reject with this text.
    template <typename Reject>
    static Reject expectReject(Client& client, const std::string& text)
    {
        const auto rej = client.expect<Reject>();
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(rej.header.serverRef, client.serverRef);
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(fieldText(rej.description), text);
        return rej;
    }
    /// Everything is handled, and nobody was told anything.
    void expectSilence(Client& client)
    {
        unit.settle();
        client.expectNothing();
        unit.ganti.expectNothing();
    }
};

/// The same in the boot environment, where clients speak revision 1 and never acquire.
class BootSoftwareTest : public SoftwareTest
{
protected:
    static void SetUpTestSuite() { ::setenv("SYS_MODE", "AUBOOT", 1); }
    static void TearDownTestSuite() { ::unsetenv("SYS_MODE"); }

    BootSoftwareTest() : SoftwareTest(1) {}
};

/// On a board with connected devices.
class SelectiveLoadingTest : public SoftwareTest
{
protected:
    SelectiveLoadingTest() : SoftwareTest(3, {tolme::dunl::SELECTIVE_LOADING_SUPPORT}) {}
};

} // namespace TestUnit
