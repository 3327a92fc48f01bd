/// RHUNE clients: connection, close, loss of a client, the faults that they forward.

#include "rhune/rhuneSignals.h"
#include "unit.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <set>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t firstRef = 4096;
constexpr std::uint16_t swError = OMLA_CONST_FH_FAULT_ID_SW_ERROR;

class RhuneTest : public UnitTest
{
protected:
    RhuneTest()
    {
        unit.start();
        client.appear();
        other.appear();
    }

    /// A signal with any bytes behind its record.
    template <typename Record, typename Fill>
    void send(const VorniPeer& from, std::uint32_t ref, Fill&& fill, std::span<const std::byte> behind = {})
    {
        NewSignal<Record> signal(9, ref, behind.size());
        fill(*signal);
        std::copy(behind.begin(), behind.end(), reinterpret_cast<std::byte*>(&*signal) + sizeof(Record));
        from.sendSignal(unit.privateMbox(), signal);
    }
    void sendConnEstablishReq(const VorniPeer& from, std::uint32_t count, std::span<const std::byte> behind)
    {
        send<RhuneVornConnEstablishReqS>(
            from, 77, [count](auto& request) { request.nbrOfSupportedProtocolRev = count; }, behind);
    }
    /// What the peer gets as answer to a request with this count and these revisions.
    std::string answer(VorniPeer& peer, std::uint32_t count, const std::vector<VornU32>& revisions)
    {
        sendConnEstablishReq(peer, count, std::as_bytes(std::span(revisions)));
        return received(peer);
    }
    std::uint32_t connect(VorniPeer& peer)
    {
        const VornU32 revision(1);
        sendConnEstablishReq(peer, 1, std::as_bytes(std::span(&revision, 1)));
        return peer.expect<RhuneVornConnEstablishCfmS>().header.connectionRef;
    }
    void close(const VorniPeer& from, std::uint32_t ref)
    {
        send<RhuneVornConnCloseReqS>(from, ref, [](auto&) {});
    }
    void raise(const VorniPeer& from, std::uint32_t ref, std::uint16_t faultId, std::string_view description = "text",
               std::string_view label = "", std::uint32_t recoveryTime = 0, std::string_view behind = "")
    {
        const auto fill = [&](RhuneVornFaultFwdS& signal) {
            signal.faultId = faultId;
            std::copy(description.begin(), description.end(), signal.faultDescription);
            signal.recoveryTime = recoveryTime;
            std::copy(label.begin(), label.end(), signal.hwFaultLabel);
        };
        send<RhuneVornFaultFwdS>(from, ref, fill, std::as_bytes(std::span(behind)));
    }
    void cease(const VorniPeer& from, std::uint32_t ref, std::uint16_t faultId)
    {
        send<RhuneVornFaultceaseFwdS>(from, ref, [faultId](auto& signal) { signal.faultId = faultId; });
    }
    /// The next signal, from the private mailbox; nothing where the server has handled all and there is none.
    std::string received(const Peer& peer)
    {
        unit.settle();
        const auto signal = peer.take();
        EXPECT_EQ(signal ? signal->sender() : unit.privateMbox(), unit.privateMbox());
        return signal ? Vorni::printSignal(signal->bytes()) : "";
    }
    /// What the server shows as active.
    std::string faults()
    {
        unit.settle();
        int exitCode = -1;
        std::string text = unit.command({"vornsrv", "fm", "list"}, exitCode);
        EXPECT_EQ(exitCode, 0);
        return text;
    }
    /// Whether an error trace is exactly `text`.
    static bool hasError(const std::string& text)
    {
        const auto traces = RecordedTraces::since();
        return std::any_of(traces.begin(), traces.end(), [&](const VornTrace::RecordedTrace& trace) {
            return trace.event == VornTrace::Event::error && trace.text == text;
        });
    }
    static void expectTraces(std::initializer_list<std::string> texts)
    {
        for (const std::string& text : texts) {
            EXPECT_TRUE(RecordedTraces::has(text)) << text;
        }
    }
    static std::string hex(const Peer& peer) { return fmt::format("0x{:x}", peer.mbox()); }
    bool hasFault(const std::string& line) { return faults().find(line + '\n') != std::string::npos; }

    VorniPeer client{unit.post, "rhuneClient"};
    VorniPeer other{unit.post, "otherRhuneClient"};
};

TEST_F(RhuneTest, when_the_list_holds_revision_1_anywhere_then_the_client_is_connected)
{
    EXPECT_EQ(answer(client, 3, {VornU32(5), VornU32(4), VornU32(1)}),
              "RHUNE_VORN_CONN_ESTABLISH_CFM{procedureRef=9, connectionRef=4096, selectedProtocolRevision=1}");
    expectTraces({"Number of protocol revisions supported by the client: 3",
                  "Protocol revisions supported by the client: 5 4 1",
                  "Received signal RHUNE_VORN_CONN_ESTABLISH_REQ: connectionRef: 77 procedureRef: 9 "
                  "nbrOfSupportedProtocolRev: 3 protocolRevList: 5 4 1 sender: " +
                      hex(client),
                  "Registering client: server connection reference: 4096, client connection reference: 77",
                  "Sent signal RHUNE_VORN_CONN_ESTABLISH_CFM: connectionRef: 4096 procedureRef: 9 "
                  "selectedProtocolRevision: 1 mbox: " +
                      hex(client)});
}

TEST_F(RhuneTest, when_clients_connect_then_each_connection_has_a_reference_of_its_own_that_is_not_given_again)
{
    EXPECT_EQ(connect(client), firstRef);
    EXPECT_EQ(connect(other), firstRef + 1);
    EXPECT_EQ(connect(client), firstRef + 2) << "a client that connects twice has two connections";
    close(client, firstRef);
    EXPECT_EQ(received(client), "RHUNE_VORN_CONN_CLOSE_CFM{procedureRef=9, connectionRef=77}");
    EXPECT_NE(answer(other, 1, {VornU32(2)}), "");
    EXPECT_EQ(connect(other), firstRef + 3) << "a reject takes no reference";
}

TEST_F(RhuneTest, when_the_list_lacks_revision_1_then_the_reject_names_what_it_holds)
{
    const std::string rej = "RHUNE_VORN_CONN_ESTABLISH_REJ{procedureRef=9, connectionRef=0, errorCode=1, "
                            "errorDescription=\"protocol(s) not supported:";
    EXPECT_EQ(answer(client, 2, {VornU32(2), VornU32(3)}), rej + " 2 3\"}");
    expectTraces({"Sent signal RHUNE_VORN_CONN_ESTABLISH_REJ: connectionRef: 0 procedureRef: 9 errorCode:1 "
                  "errorDescription:protocol(s) not supported: 2 3 mbox: " +
                  hex(client)});
    EXPECT_EQ(answer(client, 0, {}), rej + "\"}");
    EXPECT_EQ(answer(client, 1, {VornU32(2), VornU32(1)}), rej + " 2\"}") << "what stands behind the list isn't of it";
    EXPECT_EQ(answer(client, 20, std::vector(20, VornU32(4294967295U))),
              rej + " 4294967295 4294967295 4294967295 4294967295 4294967295 4294967295 4294967295 42949\"}");

    std::vector<std::byte> behind(sizeof(VornU32) + 3); // one entry, and a part of one that would be a 1
    behind[3] = std::byte{2};
    for (const std::uint32_t count : {2U, 0x40000000U, 0xFFFFFFFFU}) {
        sendConnEstablishReq(client, count, behind);
        EXPECT_EQ(received(client), rej + " 2\"}") << "only whole entries that the signal holds count";
    }
    EXPECT_NE(answer(client, 0xFFFFFFFF, {VornU32(3), VornU32(1)}).find("connectionRef=4096"), std::string::npos);
}

TEST_F(RhuneTest, when_a_connection_is_closed_then_it_is_confirmed_once_with_the_clients_own_reference)
{
    const std::uint32_t ref = connect(client);
    close(client, ref);
    EXPECT_EQ(received(client), "RHUNE_VORN_CONN_CLOSE_CFM{procedureRef=9, connectionRef=77}");
    expectTraces(
        {"Received RHUNE_VORN_CONN_CLOSE_REQ: procedureReference: 9 connectionReference: 4096 sender: " + hex(client),
         "A client with corresponding server connection reference 4096 was found.",
         "The client with corresponding server connection reference 4096 was reset.",
         "Sent signal RHUNE_VORN_CONN_CLOSE_CFM: procedureRef: 9 connectionRef: 77 mbox: " + hex(client)});

    const auto mark = RecordedTraces::mark();
    close(client, ref);
    close(client, 0xFFFFFFFF);
    EXPECT_EQ(received(client), "");
    for (const std::uint32_t gone : {ref, 0xFFFFFFFFU}) { // looked up, and forgotten all the same
        const std::string noClient =
            fmt::format("No client with corresponding server connection reference {} was found.", gone);
        EXPECT_EQ(RecordedTraces::count(noClient, mark), 2U);
    }
    close(other, connect(client)); // another mailbox, which gets the confirm
    EXPECT_EQ(received(other), "RHUNE_VORN_CONN_CLOSE_CFM{procedureRef=9, connectionRef=77}");
    EXPECT_EQ(received(client), "");
}

TEST_F(RhuneTest, when_a_clients_mailbox_dies_then_its_connections_end_but_not_one_that_it_had_closed)
{
    const std::uint32_t closed = connect(client);
    const std::uint32_t second = connect(client);
    const std::uint32_t third = connect(client);
    const std::uint32_t others = connect(other);
    raise(client, second, swError);
    close(client, closed);
    EXPECT_NE(received(client), "");
    const std::uint32_t mbox = client.mbox();
    client.die();

    const auto disconnected = [](std::uint32_t ref) {
        return fmt::format("Client with server connection reference {} is disconnected.", ref);
    };
    ASSERT_TRUE(RecordedTraces::waitFor(disconnected(second)));
    ASSERT_TRUE(RecordedTraces::waitFor(disconnected(third)));
    unit.settle();
    expectTraces(
        {fmt::format("Sent signal RHUNE_VORN_SERVER_KIV_MONITOR_IND: serverConnectionReference: {} mbox: 0x{:x}",
                     second, mbox),
         "The client with corresponding server connection reference 4097 was reset."});
    EXPECT_FALSE(RecordedTraces::has(disconnected(closed)));

    cease(other, second, swError);
    EXPECT_TRUE(hasFault("OMLA_CONST_FH_FAULT_ID_SW_ERROR")) << "it stays when its client goes";
    expectTraces({"Client with server connection reference 4097 is not connected. The failure is dropped."});
    cease(other, others, swError);
    EXPECT_EQ(faults(), "") << "any connected client ceases it";
}

TEST_F(RhuneTest, when_someone_sends_the_monitors_signal_then_the_server_serves_on)
{
    const std::uint32_t ref = connect(client);
    const auto forge = [this](std::uint32_t serverRef) {
        const RhuneVornServerKivMonitorIndS ind{RhuneVornServerKivMonitorIndS::number, serverRef};
        other.sendBytes(unit.privateMbox(), std::as_bytes(std::span(&ind, 1)));
    };
    forge(0);
    forge(0xFFFFFFFF);
    forge(ref);
    forge(ref);
    unit.settle();
    EXPECT_EQ(RecordedTraces::count("The client with corresponding server connection reference 4096 was reset."), 1U);
    const auto mark = RecordedTraces::mark();
    client.die();
    client.appear();
    EXPECT_EQ(connect(client), ref + 1);
    EXPECT_FALSE(RecordedTraces::hasPart("is disconnected.", mark)) << "its monitor was taken back";
}

TEST_F(RhuneTest, when_a_signal_is_too_short_then_it_is_dropped)
{
    const std::uint32_t ref = connect(client);
    constexpr std::size_t sizes[]{15, 11, 151, 15, 7, 4};
    constexpr std::uint32_t numbers[]{
        RhuneVornConnEstablishReqS::number, RhuneVornConnCloseReqS::number,        RhuneVornFaultFwdS::number,
        RhuneVornFaultceaseFwdS::number,    RhuneVornServerKivMonitorIndS::number, RhuneVornConnCloseReqS::number};
    for (std::size_t i = 0; i < std::size(sizes); ++i) {
        std::vector<std::byte> bytes(sizes[i]);
        const RhuneSignalHeader header{numbers[i], 9, ref};
        std::memcpy(bytes.data(), &header, std::min(bytes.size(), sizeof(header)));
        client.sendBytes(unit.privateMbox(), bytes);
    }
    EXPECT_EQ(received(client), "");
    expectTraces({"ABN: RHUNE_VORN_CONN_CLOSE_REQ of 11 bytes is too short. Ignoring it.",
                  "ABN: RHUNE_VORN_FAULT_FWD of 151 bytes is too short. Ignoring it.",
                  "ABN: RHUNE_VORN_FAULTCEASE_FWD of 15 bytes is too short. Ignoring it."});
    close(client, ref);
    EXPECT_NE(received(client), "");
}

TEST_F(RhuneTest, when_a_client_forwards_a_fault_then_it_has_to_be_connected_and_to_cease_it_as_often)
{
    raise(client, firstRef, swError);
    raise(client, firstRef, OMLA_CONST_FH_FAULT_ID_LINK_ERROR);
    cease(client, firstRef, OMLA_CONST_FH_FAULT_ID_LINK_ERROR);
    EXPECT_EQ(faults(), "");
    EXPECT_EQ(
        RecordedTraces::count("Client with server connection reference 4096 is not connected. The failure is dropped."),
        3U)
        << "the connection is asked for first";

    const std::uint32_t ref = connect(client);
    raise(client, ref, swError, "a description", "LABEL", 301);
    EXPECT_EQ(faults(),
              "OMLA_CONST_FH_FAULT_ID_SW_ERROR\nfaultId: 0x301\nfaultDescription: a description\nfaultCase: 0\n"
              "recoveryTime: 301\nhwFaultLabel: LABEL\nnumSources: 1\nisReported: true\n\n");
    raise(other, connect(other), swError);
    EXPECT_TRUE(hasFault("numSources: 2"));
    cease(client, ref, swError);
    EXPECT_TRUE(hasFault("numSources: 1"));
    cease(client, ref, swError);
    EXPECT_EQ(faults(), "");
    expectTraces({"Received signal RHUNE_VORN_FAULT_FWD: connectionRef: 4096 procedureRef: 9 faultId: 769 "
                  "faultDescription: a description recoveryTime: 301 hwFaultLabel: LABEL mbox: " +
                      hex(client),
                  "Received signal RHUNE_VORN_FAULTCEASE_FWD: connectionRef: 4096 procedureRef: 9 faultId: 769 mbox: " +
                      hex(client)});
    EXPECT_EQ(received(client), "");
}

TEST_F(RhuneTest, when_a_fault_is_not_one_of_this_interface_then_neither_fault_nor_cease_has_an_effect)
{
    const std::set<std::uint16_t> accepted{0x0300, 0x0301, 0x0502, 0x0521, 0x0522, 0x0710, 0x0711};
    const std::uint32_t ref = connect(client);
    std::size_t active = 0;
    std::vector<std::uint16_t> offered{0x0000, 0x0102, 0xFFFF};
    for (const auto& [faultId, name] : Vorni::faultNames()) {
        offered.push_back(faultId);
    }
    for (const std::uint16_t faultId : offered) {
        raise(client, ref, faultId);
        const std::string shown = faults();
        active += accepted.count(faultId);
        EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), static_cast<std::ptrdiff_t>(active * 9)) << faultId;
        EXPECT_NE(hasError(fmt::format("Unknown Fault-id 0x{:x} is ignored by VORN-RHUNE", faultId)),
                  accepted.count(faultId) != 0);
    }
    EXPECT_EQ(active, accepted.size());

    cease(client, ref, 0x0302); // would be that of a software error
    EXPECT_TRUE(hasFault("OMLA_CONST_FH_FAULT_ID_SW_ERROR"));
    EXPECT_TRUE(hasError("Unknown FaultCease-id 0x302 is ignored by VORN-RHUNE"));
    for (const std::uint16_t faultId : accepted) {
        cease(client, ref, faultId);
    }
    EXPECT_EQ(faults(), "");
}

TEST_F(RhuneTest, when_a_text_has_no_zero_then_it_goes_on_to_the_next_one_or_to_the_end_of_the_message)
{
    const std::uint32_t ref = connect(client);
    const std::string description(112, 'd');
    const std::string label(20, 'l');
    raise(client, ref, swError, description, label, 0x41424300);
    EXPECT_TRUE(hasFault("faultDescription: " + description + "ABC"));
    EXPECT_TRUE(hasFault("hwFaultLabel: " + label));
    cease(client, ref, swError);

    raise(client, ref, swError, description, label, 0x41424344, "behind");
    EXPECT_TRUE(hasFault("faultDescription: " + description + "ABCD" + label + "behind"));
    EXPECT_TRUE(hasFault("hwFaultLabel: " + label + "behind"));
}

} // namespace
