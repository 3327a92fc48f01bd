/// RHUNE clients: connection, close, loss of a client, the faults that they forward.

#include "rhune/rhuneSignals.h"
#include "unit.h"
#include "vorni/faultIds.h"

#include <algorithm>
#include <array>
#include <set>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

constexpr std::uint32_t firstRef = 4096;

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
    void send(const Peer& from, std::uint32_t procedureRef, std::uint32_t connectionRef, Fill&& fill,
              std::span<const std::byte> behind = {})
    {
        std::vector<std::byte> bytes(sizeof(Record));
        auto* record = reinterpret_cast<Record*>(bytes.data());
        record->header.sigNo = Record::number;
        record->header.setReferences(procedureRef, connectionRef);
        fill(*record);
        bytes.insert(bytes.end(), behind.begin(), behind.end());
        from.sendBytes(unit.privateMbox(), bytes);
    }
    void sendConnEstablishReq(const Peer& from, std::uint32_t count, const std::vector<VornU32>& revisions)
    {
        send<RhuneVornConnEstablishReqS>(
            from, 0x01020304, 77, [count](auto& request) { request.nbrOfSupportedProtocolRev = count; },
            std::as_bytes(std::span(revisions)));
    }
    std::uint32_t connect(VorniPeer& peer)
    {
        sendConnEstablishReq(peer, 1, {VornU32(1)});
        return peer.expect<RhuneVornConnEstablishCfmS>().header.connectionRef;
    }
    void close(const Peer& from, std::uint32_t ref)
    {
        send<RhuneVornConnCloseReqS>(from, 9, ref, [](auto&) {});
    }
    void raise(const Peer& from, std::uint32_t ref, std::uint16_t faultId, std::string_view description = "text",
               std::string_view label = "", std::uint32_t recoveryTime = 0, std::string_view behind = "")
    {
        send<RhuneVornFaultFwdS>(
            from, 9, ref,
            [&](RhuneVornFaultFwdS& signal) {
                signal.faultId = faultId;
                std::copy(description.begin(), description.end(), signal.faultDescription);
                signal.recoveryTime = recoveryTime;
                std::copy(label.begin(), label.end(), signal.hwFaultLabel);
            },
            std::as_bytes(std::span(behind)));
    }
    void cease(const Peer& from, std::uint32_t ref, std::uint16_t faultId)
    {
        send<RhuneVornFaultceaseFwdS>(from, 9, ref, [faultId](auto& signal) { signal.faultId = faultId; });
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
    bool hasFault(const std::string& line) { return faults().find(line + '\n') != std::string::npos; }

    VorniPeer client{unit.post, "rhuneClient"};
    VorniPeer other{unit.post, "otherRhuneClient"};
};

TEST_F(RhuneTest, when_the_list_holds_revision_1_anywhere_then_the_client_is_connected)
{
    sendConnEstablishReq(client, 3, {VornU32(5), VornU32(4), VornU32(1)});

    const auto cfm = client.expect<RhuneVornConnEstablishCfmS>();
    EXPECT_EQ(client.lastSender, unit.privateMbox());
    EXPECT_EQ(cfm.header.procedureRef, 0x01020304U);
    EXPECT_EQ(cfm.header.connectionRef, firstRef);
    EXPECT_EQ(cfm.selectedProtocolRevision, 1U);

    unit.settle();
    const std::string mbox = fmt::format("0x{:x}", client.mbox());
    EXPECT_TRUE(RecordedTraces::has("Number of protocol revisions supported by the client: 3"));
    EXPECT_TRUE(RecordedTraces::has("Protocol revisions supported by the client: 5 4 1"));
    EXPECT_TRUE(RecordedTraces::has("Received signal RHUNE_VORN_CONN_ESTABLISH_REQ: connectionRef: 77 procedureRef: "
                                    "16909060 nbrOfSupportedProtocolRev: 3 protocolRevList: 5 4 1 sender: " +
                                    mbox));
    EXPECT_TRUE(
        RecordedTraces::has("Registering client: server connection reference: 4096, client connection reference: 77"));
    EXPECT_TRUE(RecordedTraces::has("Sent signal RHUNE_VORN_CONN_ESTABLISH_CFM: connectionRef: 4096 procedureRef: "
                                    "16909060 selectedProtocolRevision: 1 mbox: " +
                                    mbox));
}

TEST_F(RhuneTest, when_clients_connect_then_each_connection_has_a_reference_of_its_own_that_is_not_given_again)
{
    EXPECT_EQ(connect(client), firstRef);
    EXPECT_EQ(connect(other), firstRef + 1);
    EXPECT_EQ(connect(client), firstRef + 2) << "a client that connects twice has two connections";
    close(client, firstRef);
    EXPECT_EQ(client.expect<RhuneVornConnCloseCfmS>().header.connectionRef, 77U);
    sendConnEstablishReq(other, 1, {VornU32(2)});
    other.expect<RhuneVornConnEstablishRejS>();
    EXPECT_EQ(connect(other), firstRef + 3) << "a reject takes no reference";
    close(client, firstRef + 2);
    client.expect<RhuneVornConnCloseCfmS>();
}

TEST_F(RhuneTest, when_the_list_lacks_revision_1_then_the_reject_names_what_it_holds)
{
    const auto rejectOf = [this](std::uint32_t count, const std::vector<VornU32>& revisions) {
        sendConnEstablishReq(client, count, revisions);
        return client.expect<RhuneVornConnEstablishRejS>();
    };
    const auto rej = rejectOf(2, {VornU32(2), VornU32(3)});
    EXPECT_EQ(client.lastSender, unit.privateMbox());
    EXPECT_EQ(rej.header.procedureRef, 0x01020304U);
    EXPECT_EQ(rej.header.connectionRef, 0U);
    EXPECT_EQ(rej.errorCode, 1);
    EXPECT_EQ(fieldText(rej.errorDescription), "protocol(s) not supported: 2 3");
    constexpr std::array<std::uint8_t, 2> unwritten{};
    EXPECT_TRUE(std::equal(unwritten.begin(), unwritten.end(), rej.reserved1));
    EXPECT_TRUE(std::equal(unwritten.begin(), unwritten.end(), rej.reserved2));
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("Sent signal RHUNE_VORN_CONN_ESTABLISH_REJ: connectionRef: 0 procedureRef: 16909060 errorCode:1 "
                    "errorDescription:protocol(s) not supported: 2 3 mbox: 0x{:x}",
                    client.mbox())));

    EXPECT_EQ(fieldText(rejectOf(0, {}).errorDescription), "protocol(s) not supported:");
    EXPECT_EQ(fieldText(rejectOf(1, {VornU32(2), VornU32(1)}).errorDescription), "protocol(s) not supported: 2")
        << "what stands behind the list isn't of it";

    const std::vector<VornU32> many(20, VornU32(4294967295U));
    const auto cut = rejectOf(20, many);
    EXPECT_EQ(fieldText(cut.errorDescription),
              "protocol(s) not supported: 4294967295 4294967295 4294967295 4294967295 4294967295 4294967295 "
              "4294967295 42949")
        << "109 characters and their zero";
}

TEST_F(RhuneTest, when_the_count_is_larger_than_the_signal_then_only_the_whole_entries_count)
{
    std::vector<std::byte> behind(sizeof(VornU32) + 3); // one entry, and a part of one that would be a 1
    behind[3] = std::byte{2};
    for (const std::uint32_t count : {2U, 0x40000000U, 0xFFFFFFFFU}) {
        send<RhuneVornConnEstablishReqS>(
            client, 5, 6, [count](auto& request) { request.nbrOfSupportedProtocolRev = count; }, behind);
        EXPECT_EQ(fieldText(client.expect<RhuneVornConnEstablishRejS>().errorDescription),
                  "protocol(s) not supported: 2");
    }
    EXPECT_TRUE(RecordedTraces::has("Protocol revisions supported by the client: 2"));
    sendConnEstablishReq(client, 0xFFFFFFFF, {VornU32(3), VornU32(1)});
    EXPECT_EQ(client.expect<RhuneVornConnEstablishCfmS>().header.connectionRef, firstRef);
}

TEST_F(RhuneTest, when_a_connection_is_closed_then_it_is_confirmed_once_with_the_clients_own_reference)
{
    const std::uint32_t ref = connect(client);
    close(client, ref);
    const auto cfm = client.expect<RhuneVornConnCloseCfmS>();
    EXPECT_EQ(client.lastSender, unit.privateMbox());
    EXPECT_EQ(cfm.header.procedureRef, 9U);
    EXPECT_EQ(cfm.header.connectionRef, 77U);
    unit.settle();
    const std::string mbox = fmt::format("0x{:x}", client.mbox());
    EXPECT_TRUE(RecordedTraces::has(
        "Received RHUNE_VORN_CONN_CLOSE_REQ: procedureReference: 9 connectionReference: 4096 sender: " + mbox));
    EXPECT_TRUE(RecordedTraces::has("A client with corresponding server connection reference 4096 was found."));
    EXPECT_TRUE(RecordedTraces::has("The client with corresponding server connection reference 4096 was reset."));
    EXPECT_TRUE(
        RecordedTraces::has("Sent signal RHUNE_VORN_CONN_CLOSE_CFM: procedureRef: 9 connectionRef: 77 mbox: " + mbox));

    const auto mark = RecordedTraces::mark();
    close(client, ref);
    close(client, 0xFFFFFFFF);
    unit.settle();
    client.expectNothing();
    for (const std::uint32_t gone : {ref, 0xFFFFFFFFU}) { // looked up, and forgotten all the same
        const std::string noClient =
            fmt::format("No client with corresponding server connection reference {} was found.", gone);
        EXPECT_EQ(RecordedTraces::count(noClient, mark), 2U);
    }
}

TEST_F(RhuneTest, when_another_mailbox_closes_a_connection_then_it_gets_the_confirm)
{
    close(other, connect(client));
    EXPECT_EQ(other.expect<RhuneVornConnCloseCfmS>().header.connectionRef, 77U);
    unit.settle();
    client.expectNothing();
}

TEST_F(RhuneTest, when_a_clients_mailbox_dies_then_its_connections_end_but_not_one_that_it_had_closed)
{
    const std::uint32_t closed = connect(client);
    const std::uint32_t second = connect(client);
    const std::uint32_t third = connect(client);
    const std::uint32_t others = connect(other);
    raise(client, second, OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    close(client, closed);
    client.expect<RhuneVornConnCloseCfmS>();
    const std::uint32_t mbox = client.mbox();
    client.die();

    const auto disconnected = [](std::uint32_t ref) {
        return fmt::format("Client with server connection reference {} is disconnected.", ref);
    };
    ASSERT_TRUE(RecordedTraces::waitFor(disconnected(second)));
    ASSERT_TRUE(RecordedTraces::waitFor(disconnected(third)));
    unit.settle();
    EXPECT_TRUE(RecordedTraces::has(fmt::format(
        "Sent signal RHUNE_VORN_SERVER_KIV_MONITOR_IND: serverConnectionReference: {} mbox: 0x{:x}", second, mbox)));
    EXPECT_TRUE(RecordedTraces::has("The client with corresponding server connection reference 4097 was reset."));
    EXPECT_FALSE(RecordedTraces::has(disconnected(closed)));

    cease(other, second, OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_TRUE(hasFault("OMLA_CONST_FH_FAULT_ID_SW_ERROR")) << "it stays when its client goes";
    EXPECT_TRUE(
        RecordedTraces::has("Client with server connection reference 4097 is not connected. The failure is dropped."));
    cease(other, others, OMLA_CONST_FH_FAULT_ID_SW_ERROR);
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
    const auto sendShort = [this, ref](std::uint32_t number, std::size_t size) {
        std::vector<std::byte> bytes(size);
        const RhuneSignalHeader header{number, 9, ref};
        std::memcpy(bytes.data(), &header, std::min(size, sizeof(header)));
        client.sendBytes(unit.privateMbox(), bytes);
    };
    sendShort(RhuneVornConnEstablishReqS::number, sizeof(RhuneVornConnEstablishReqS) - 1);
    sendShort(RhuneVornConnCloseReqS::number, sizeof(RhuneVornConnCloseReqS) - 1);
    sendShort(RhuneVornFaultFwdS::number, sizeof(RhuneVornFaultFwdS) - 1);
    sendShort(RhuneVornFaultceaseFwdS::number, sizeof(RhuneVornFaultceaseFwdS) - 1);
    sendShort(RhuneVornServerKivMonitorIndS::number, sizeof(RhuneVornServerKivMonitorIndS) - 1);
    sendShort(RhuneVornConnCloseReqS::number, sizeof(std::uint32_t));
    unit.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("ABN: RHUNE_VORN_CONN_CLOSE_REQ of 11 bytes is too short. Ignoring it."));
    EXPECT_TRUE(RecordedTraces::has("ABN: RHUNE_VORN_FAULT_FWD of 151 bytes is too short. Ignoring it."));
    EXPECT_TRUE(RecordedTraces::has("ABN: RHUNE_VORN_FAULTCEASE_FWD of 15 bytes is too short. Ignoring it."));
    close(client, ref);
    client.expect<RhuneVornConnCloseCfmS>();
}

TEST_F(RhuneTest, when_a_connected_client_forwards_a_fault_then_it_is_active_until_it_is_ceased)
{
    const std::uint32_t ref = connect(client);
    raise(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR, "a description", "LABEL", 301);
    EXPECT_EQ(faults(), "OMLA_CONST_FH_FAULT_ID_SW_ERROR\n"
                        "faultId: 0x301\n"
                        "faultDescription: a description\n"
                        "faultCase: 0\n"
                        "recoveryTime: 301\n"
                        "hwFaultLabel: LABEL\n"
                        "numSources: 1\n"
                        "isReported: true\n\n");
    EXPECT_TRUE(RecordedTraces::has(
        fmt::format("Received signal RHUNE_VORN_FAULT_FWD: connectionRef: 4096 procedureRef: 9 faultId: 769 "
                    "faultDescription: a description recoveryTime: 301 hwFaultLabel: LABEL mbox: 0x{:x}",
                    client.mbox())));
    cease(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_EQ(faults(), "");
    EXPECT_TRUE(RecordedTraces::has(fmt::format("Received signal RHUNE_VORN_FAULTCEASE_FWD: connectionRef: 4096 "
                                                "procedureRef: 9 faultId: 769 mbox: 0x{:x}",
                                                client.mbox())));
    client.expectNothing();
}

TEST_F(RhuneTest, when_two_clients_raise_a_fault_then_it_takes_two_ceases)
{
    const std::uint32_t ref = connect(client);
    const std::uint32_t otherRef = connect(other);
    raise(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL);
    raise(other, otherRef, OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL);
    EXPECT_TRUE(hasFault("numSources: 2"));
    cease(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL);
    EXPECT_TRUE(hasFault("numSources: 1"));
    cease(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR_PARTIAL);
    EXPECT_EQ(faults(), "");
}

TEST_F(RhuneTest, when_a_fault_is_not_one_of_this_interface_then_neither_fault_nor_cease_has_an_effect)
{
    const std::set<std::uint16_t> accepted{0x0300, 0x0301, 0x0502, 0x0521, 0x0522, 0x0710, 0x0711};
    const std::uint32_t ref = connect(client);
    std::size_t active = 0;
    constexpr auto offered =
        std::to_array<std::uint16_t>({0x0000, 0x0101, 0x0103, 0x0104, 0x0108, 0x0300, 0x0301, 0x0302, 0x0502, 0x0521,
                                      0x0522, 0x0703, 0x0704, 0x0705, 0x0706, 0x0710, 0x0711, 0x0712, 0xFFFF});
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

TEST_F(RhuneTest, when_the_reference_is_not_that_of_a_connection_then_the_fault_is_dropped)
{
    raise(client, firstRef, OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_EQ(faults(), "");
    EXPECT_TRUE(
        RecordedTraces::has("Client with server connection reference 4096 is not connected. The failure is dropped."));
    raise(client, firstRef, OMLA_CONST_FH_FAULT_ID_LINK_ERROR);
    cease(client, firstRef, OMLA_CONST_FH_FAULT_ID_LINK_ERROR);
    unit.settle();
    EXPECT_FALSE(RecordedTraces::hasPart("is ignored by VORN-RHUNE")) << "the connection is asked for first";
    raise(client, connect(client), OMLA_CONST_FH_FAULT_ID_SW_ERROR);
    EXPECT_TRUE(hasFault("numSources: 1"));
}

TEST_F(RhuneTest, when_a_text_has_no_zero_then_it_goes_on_to_the_next_one_or_to_the_end_of_the_message)
{
    const std::uint32_t ref = connect(client);
    const std::string description(112, 'd');
    const std::string label(20, 'l');
    raise(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR, description, label, 0x41424300);
    EXPECT_TRUE(hasFault("faultDescription: " + description + "ABC"));
    EXPECT_TRUE(hasFault("hwFaultLabel: " + label));
    cease(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR);

    raise(client, ref, OMLA_CONST_FH_FAULT_ID_SW_ERROR, description, label, 0x41424344, "behind");
    EXPECT_TRUE(hasFault("faultDescription: " + description + "ABCD" + label + "behind"));
    EXPECT_TRUE(hasFault("hwFaultLabel: " + label + "behind"));
}

} // namespace
