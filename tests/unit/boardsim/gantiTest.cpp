// The software manager of the simulated board: clients at message sockets, and the commands beside them.

#include "boardSimFixture.h"

#include "ganti/ganti.pb.h"
#include "ploe/ploe.h"
#include "runDir.h"

#include <boost/endian/conversion.hpp>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <poll.h>
#include <utility>
#include <vector>

namespace {

using namespace boardsim;
using namespace gant;

/// A client of the software manager. What it expects is the very next message.
class Peer
{
public:
    Peer() : m_socket(ploe_connect("ux:GANTServer", 0)), m_buffer(PLOE_MAX_MSG_SIZE)
    {
        EXPECT_NE(m_socket, nullptr);
        ploe_set_blocking(m_socket, false);
    }
    ~Peer() { close(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void close() { ploe_close(std::exchange(m_socket, nullptr)); }

    /// False where the server doesn't take any more for now.
    bool sendBytes(const std::string& bytes) { return ploe_send(m_socket, bytes.data(), bytes.size()) == 0; }

    template <typename Msg>
    bool send(std::uint32_t procRef, const Msg& message)
    {
        return sendBytes(word(Msg::MESSAGE_NUMBER) + word(procRef) + message.SerializeAsString());
    }

    template <typename Msg>
    Msg expect(std::uint32_t procRef)
    {
        Msg message;
        pollfd readable{ploe_fd(m_socket), POLLIN, 0};
        const ssize_t size = ::poll(&readable, 1, static_cast<int>(patience)) == 1
                                 ? ploe_receive(m_socket, m_buffer.data(), m_buffer.size())
                                 : -1;
        const std::string frame(m_buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
        const std::string header = word(Msg::MESSAGE_NUMBER) + word(procRef);
        EXPECT_EQ(frame.substr(0, 8), header) << "no " << Msg::descriptor()->name() << ' ' << procRef;
        EXPECT_TRUE(frame.size() >= 8 && message.ParseFromString(frame.substr(8)));
        return message;
    }

    /// The text form of the answer.
    template <typename Answer, typename Req>
    std::string ask(std::uint32_t procRef, const Req& request)
    {
        send(procRef, request);
        return expect<Answer>(procRef).ShortDebugString();
    }

    bool establish(std::uint32_t procRef = 1)
    {
        ConnEstablishReq request;
        request.add_supported_protocol_revisions(1);
        return ask<ConnEstablishCfm>(procRef, request) == "selected_protocol_revision: 1";
    }

    /// The ticket's number.
    std::uint32_t askForTicket(std::uint32_t procRef)
    {
        AcquireResourceReq request;
        request.set_ticket_request_reference(77);
        request.set_resource(SW_STORE);
        send(procRef, request);
        const auto confirm = expect<AcquireResourceCfm>(procRef);
        EXPECT_EQ(confirm.ticket_request_reference(), 77U);
        return confirm.ticket_number();
    }

    std::uint32_t acquire(std::uint32_t procRef)
    {
        const std::uint32_t ticket = askForTicket(procRef);
        EXPECT_EQ(expect<AcquireResourceInd>(procRef).ticket_number(), ticket);
        return ticket;
    }

    template <typename Req>
    static Req ofTicket(std::uint32_t ticket)
    {
        Req request;
        request.set_ticket_number(ticket);
        return request;
    }

    template <typename Req>
    static Req of(std::uint32_t ticket, const std::string& software)
    {
        auto request = ofTicket<Req>(ticket);
        request.set_software(software);
        return request;
    }

    static PushLoadData block(std::uint32_t ticket, std::uint32_t number, const std::string& data)
    {
        auto message = ofTicket<PushLoadData>(ticket);
        message.set_sequence_number(number);
        message.set_data(data);
        return message;
    }

    void load(std::uint32_t ticket, const std::string& software, const std::string& data = "x")
    {
        ask<PushLoadInitCfm>(8, of<PushLoadInitReq>(ticket, software));
        ask<PushLoadAck>(8, block(ticket, 1, data));
        send(8, ofTicket<PushLoadEndReq>(ticket));
        EXPECT_EQ(expect<PushLoadEndCfm>(8).result(), PushLoadEndCfm::COMPLETED);
    }

    static std::string word(std::uint32_t value)
    {
        boost::endian::native_to_big_inplace(value);
        return {reinterpret_cast<const char*>(&value), sizeof(value)};
    }

private:
    ploe_socket* m_socket;
    std::vector<char> m_buffer;
};

class BoardSimGantiTest : public BoardSimTest
{
protected:
    BoardSimGantiTest() { EXPECT_TRUE(peer.establish()); }

    /// "software STATUS" of each slot, "*" for the one that runs.
    std::string slots()
    {
        std::string text;
        const Json state = show("ganti");
        for (const Json& slot : state["slots"]) {
            text += slot["software"].get<std::string>() + ' ' + slot["status"].get<std::string>() +
                    (slot["running"] == true ? "* " : " ");
        }
        return text;
    }

    std::string write(const std::string& name, const std::string& content)
    {
        const std::string path = ruDir("") + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    static constexpr const char* given = "TVM5048211/4_R12C VALID TVM5048227/31_R83DN VALID* ";
    const std::string allFree = std::string(" EMPTY  EMPTY  EMPTY ") + given;
    const std::string description = ruDir("boardsim/ganti/slots.json");
    Peer peer;
};

TEST_F(BoardSimGantiTest, a_connection_is_established_and_capabilities_are_as_set)
{
    constexpr const char* all =
        "preinstalled_support { running: true } sw_comp_list_support { } lockable_resource_sw_store_support { } "
        "boot_sw_inventory_support { boot_sw_inventory { product_number: \"TVM5048211/4\" product_revision: \"R12C\" } "
        "} loading_block_size_support { block_size: 65536 } set_slot_working_support { }";
    EXPECT_EQ(peer.ask<GetCapabilitiesCfm>(2, GetCapabilitiesReq()), all);
    for (const char* line : {"preinstalled absent", "sw-comp-list absent", "lockable absent", "boot-inventory absent",
                             "block-size absent", "set-slot-working absent"}) {
        EXPECT_EQ(run(std::string("ganti capability ") + line), 0) << line;
    }
    EXPECT_EQ(peer.ask<GetCapabilitiesCfm>(3, GetCapabilitiesReq()), "");
    for (const char* line : {"preinstalled idle", "boot-inventory A R1 B R2", "block-size 100", "pull-load present"}) {
        EXPECT_EQ(run(std::string("ganti capability ") + line), 0) << line;
    }
    EXPECT_EQ(peer.ask<GetCapabilitiesCfm>(4, GetCapabilitiesReq()),
              "preinstalled_support { running: false } boot_sw_inventory_support { boot_sw_inventory { product_number: "
              "\"A\" product_revision: \"R1\" } boot_sw_inventory { product_number: \"B\" product_revision: \"R2\" } } "
              "pull_load_support { } loading_block_size_support { block_size: 100 }");
    EXPECT_EQ(peer.ask<SetCurrentSlotWorkingCfm>(5, SetCurrentSlotWorkingReq()), "");

    Peer other;
    ConnEstablishReq request;
    request.add_supported_protocol_revisions(2);
    EXPECT_EQ(other.ask<ConnEstablishRej>(6, request), "reason: NO_SUPPORTED_PROTOCOL_REVISION");
    run("ganti limit 1");
    request.add_supported_protocol_revisions(1);
    EXPECT_EQ(other.ask<ConnEstablishRej>(7, request), "reason: MAX_NUMBER_OF_CONNECTIONS_EXCEEDED");
}

TEST_F(BoardSimGantiTest, one_ticket_is_usable_at_a_time_and_the_next_client_is_told_when_it_is_its_turn)
{
    Peer second;
    Peer third;
    ASSERT_TRUE(second.establish() && third.establish());
    const std::uint32_t first = peer.acquire(0xFFFF0001);
    const std::uint32_t queued = second.askForTicket(2);
    const std::uint32_t behind = third.askForTicket(3);

    EXPECT_EQ(second.ask<PushLoadInitRej>(4, Peer::of<PushLoadInitReq>(queued, "A_R1")),
              fmt::format("ticket_number: {} reason: TICKET_IN_QUEUE", queued));
    EXPECT_EQ(second.ask<SwCompListRej>(4, Peer::ofTicket<SwCompListReq>(first)),
              fmt::format("ticket_number: {} reason: INVALID_TICKET_NUMBER", first)); // it is another client's
    EXPECT_EQ(second.ask<GetSwProductInvRej>(4, Peer::ofTicket<GetSwProductInvReq>(0)),
              "ticket_number: 0 reason: INVALID_TICKET_NUMBER");
    EXPECT_EQ(second.ask<PullLoadInitRej>(4, Peer::ofTicket<PullLoadInitReq>(queued)),
              fmt::format("ticket_number: {} reason: TICKET_IN_QUEUE", queued));
    EXPECT_EQ(third.ask<ReleaseResourceRej>(4, Peer::ofTicket<ReleaseResourceReq>(first)),
              fmt::format("ticket_number: {} reason: INVALID_TICKET_NUMBER", first));

    EXPECT_EQ(peer.ask<ReleaseResourceCfm>(5, Peer::ofTicket<ReleaseResourceReq>(first)),
              fmt::format("ticket_number: {}", first));
    EXPECT_EQ(second.expect<AcquireResourceInd>(2).ticket_number(), queued);
    second.close();
    EXPECT_EQ(third.expect<AcquireResourceInd>(3).ticket_number(), behind);
    EXPECT_EQ(third.ask<PullLoadAbortRej>(6, Peer::ofTicket<PullLoadAbortReq>(behind)),
              fmt::format("ticket_number: {} reason: NOT_IN_PROGRESS", behind));

    const std::uint32_t again = peer.askForTicket(7);
    EXPECT_EQ(peer.ask<ReleaseResourceCfm>(8, Peer::ofTicket<ReleaseResourceReq>(again)), // while it waits
              fmt::format("ticket_number: {}", again));
    EXPECT_EQ(show("ganti")["tickets"].size(), 1U);
    EXPECT_TRUE(third.establish(9)); // one that connects anew has no tickets
    EXPECT_TRUE(show("ganti")["tickets"].empty());
}

TEST_F(BoardSimGantiTest, what_is_loaded_is_on_the_board_byte_by_byte)
{
    const std::uint32_t ticket = peer.acquire(2);
    EXPECT_EQ(peer.ask<PushLoadInitCfm>(3, Peer::of<PushLoadInitReq>(ticket, "KDX_70/1_R1A")),
              fmt::format("ticket_number: {}", ticket));
    std::string content;
    for (const std::uint32_t number : {65534U, 65535U, 0U, 1U}) {
        std::string data(number == 0 ? 200'000 : 65536, static_cast<char>(number));
        data[number % 1000] = '\xFF';
        content += data;
        EXPECT_EQ(peer.ask<PushLoadAck>(100 + number, Peer::block(ticket, number, data)),
                  fmt::format("ticket_number: {} abort: false sequence_number: {}", ticket, number));
    }
    const Json load = show("ganti")["load"];
    EXPECT_EQ(load["size"], content.size());
    EXPECT_EQ(load["blocks"], 4);
    EXPECT_EQ(peer.ask<PushLoadInitRej>(4, Peer::of<PushLoadInitReq>(ticket, "OTHER_R1")),
              fmt::format("ticket_number: {} reason: BUSY", ticket));
    EXPECT_EQ(peer.ask<PushLoadEndCfm>(5, Peer::ofTicket<PushLoadEndReq>(ticket)),
              fmt::format("ticket_number: {} result: COMPLETED", ticket));
    EXPECT_EQ(peer.ask<PushLoadEndRej>(6, Peer::ofTicket<PushLoadEndReq>(ticket)),
              fmt::format("ticket_number: {} reason: INVALID_STATE", ticket));

    peer.send(7, Peer::ofTicket<GetSwProductInvReq>(ticket));
    const auto inventory = peer.expect<GetSwProductInvCfm>(7);
    ASSERT_EQ(inventory.product_inventory_size(), 5);
    EXPECT_EQ(inventory.product_inventory(0).ShortDebugString(),
              fmt::format("product_number: \"KDX_70/1\" revision: \"R1A\" running: false software_type: AUAPPLIC "
                          "size: {} status: VALID access: READ_WRITE sequence_number: 3",
                          content.size()));
    EXPECT_EQ(inventory.product_inventory(1).ShortDebugString(),
              "running: false software_type: AUAPPLIC size: 0 status: EMPTY access: READ_WRITE sequence_number: 0");

    std::string output;
    EXPECT_EQ(run("ganti compare KDX_70/1_R1A " + write("same", content), &output), 0);
    EXPECT_EQ(output, fmt::format("{} bytes, equal\n", content.size()));
    std::string other = content;
    other[300'000] ^= 1;
    EXPECT_EQ(run("ganti compare KDX_70/1_R1A " + write("other", other), &output), 1);
    EXPECT_NE(output.find("differ at byte 300000\n"), std::string::npos) << output;
    EXPECT_EQ(run("ganti compare KDX_70/1_R1A " + write("longer", content + '.'), &output), 1);
    EXPECT_NE(output.find(fmt::format("byte {}: the slot's ends there", content.size())), std::string::npos) << output;
    EXPECT_EQ(run("ganti compare KDX_70/1_R1A " + write("empty", ""), &output), 1);
    EXPECT_NE(output.find("byte 0: the file ends there"), std::string::npos) << output;

    run("ganti running KDX_70%1_R1A");
    EXPECT_EQ(peer.ask<GetRunningSwCfm>(8, GetRunningSwReq()), "running_software: \"KDX_70%1_R1A\"");
    for (const auto& [software, reason] :
         std::initializer_list<std::pair<const char*, const char*>>{{"KDX_70/1_R1A", "RUNNING"},
                                                                    {"TVM5048227/31_R83DN", "ALREADY_LOADED"},
                                                                    {"", "INTERNAL_ERROR"},
                                                                    {"_R1", "INTERNAL_ERROR"},
                                                                    {"A_", "INTERNAL_ERROR"},
                                                                    {"A B_R1", "INTERNAL_ERROR"},
                                                                    {"A\n_R1", "INTERNAL_ERROR"}}) {
        EXPECT_EQ(peer.ask<PushLoadInitRej>(9, Peer::of<PushLoadInitReq>(ticket, software)),
                  fmt::format("ticket_number: {} reason: {}", ticket, reason));
    }
    run("ganti running none");
    EXPECT_EQ(peer.ask<GetRunningSwRej>(10, GetRunningSwReq()), "reason: NOT_FOUND");
    EXPECT_EQ(peer.ask<SetCurrentSlotWorkingRej>(11, SetCurrentSlotWorkingReq()), "reason: INTERNAL_ERROR");
}

TEST_F(BoardSimGantiTest, a_load_that_goes_wrong_leaves_an_empty_slot)
{
    const std::uint32_t ticket = peer.acquire(2);
    const auto init = Peer::of<PushLoadInitReq>(ticket, "A_R1");
    const auto end = Peer::ofTicket<PushLoadEndReq>(ticket);
    const std::string failed = fmt::format("ticket_number: {} result: FAILED", ticket);
    peer.send(3, Peer::block(ticket, 1, "too early"));
    EXPECT_TRUE(peer.expect<PushLoadAck>(3).abort());

    using Numbers = std::vector<std::uint32_t>;
    for (const Numbers& numbers :
         {Numbers{}, Numbers{7, 9}, Numbers{7, 7}, Numbers{7, 6}, Numbers{65535, 65536}, Numbers{70000}}) {
        peer.ask<PushLoadInitCfm>(4, init);
        for (const std::uint32_t& number : numbers) {
            EXPECT_EQ(peer.ask<PushLoadAck>(5, Peer::block(ticket, number, "x")),
                      fmt::format("ticket_number: {} abort: {} sequence_number: {}", ticket, &number == &numbers.back(),
                                  number));
        }
        if (!numbers.empty()) { // nothing mends it
            peer.send(6, Peer::block(ticket, numbers.front() + 1, "x"));
            EXPECT_TRUE(peer.expect<PushLoadAck>(6).abort());
            EXPECT_EQ(slots(), std::string("A_R1 WRITING  EMPTY  EMPTY ") + given);
        }
        EXPECT_EQ(peer.ask<PushLoadEndCfm>(7, end), failed);
        EXPECT_EQ(slots(), allFree);
    }

    peer.ask<PushLoadInitCfm>(8, init);
    peer.ask<ReleaseResourceCfm>(9, Peer::ofTicket<ReleaseResourceReq>(ticket));
    EXPECT_EQ(slots(), allFree);
    {
        Peer other;
        ASSERT_TRUE(other.establish());
        const std::uint32_t next = other.acquire(10);
        other.ask<PushLoadInitCfm>(11, Peer::of<PushLoadInitReq>(next, "A_R1"));
        EXPECT_EQ(run("ganti clear"), 1); // not while a load goes on
    }
    EXPECT_TRUE(eventually([&] { return slots() == allFree; }));
    EXPECT_FALSE(std::filesystem::exists(ruDir("boardsim/ganti/slot1")));
}

TEST_F(BoardSimGantiTest, a_full_board_has_room_again_when_something_is_erased)
{
    const std::uint32_t ticket = peer.acquire(2);
    for (const char* software : {"A_R1", "B_R1", "C_R1"}) {
        peer.load(ticket, software);
    }
    EXPECT_EQ(peer.ask<PushLoadInitRej>(3, Peer::of<PushLoadInitReq>(ticket, "D_R1")),
              fmt::format("ticket_number: {} reason: RESOURCE_SHORTAGE", ticket));
    run("ganti running C_R1");
    for (const auto& [software, reason] :
         std::initializer_list<std::pair<const char*, const char*>>{{"C_R1", "BUSY"},
                                                                    {"TVM5048227/31_R83DN", "ILLEGAL_SOFTWARE"},
                                                                    {"D_R1", "ILLEGAL_SOFTWARE"},
                                                                    {"", "ILLEGAL_SOFTWARE"}}) {
        EXPECT_EQ(peer.ask<DeleteRej>(4, Peer::of<DeleteReq>(ticket, software)),
                  fmt::format("ticket_number: {} reason: {}", ticket, reason));
    }
    EXPECT_EQ(peer.ask<DeleteCfm>(5, Peer::of<DeleteReq>(ticket, "B_R1")), fmt::format("ticket_number: {}", ticket));
    peer.load(ticket, "D_R1");

    run("ganti erase-time 600000");
    peer.send(6, Peer::of<DeleteReq>(ticket, "A_R1"));
    EXPECT_EQ(peer.ask<DeleteRej>(7, Peer::of<DeleteReq>(ticket, "D_R1")),
              fmt::format("ticket_number: {} reason: BUSY", ticket));
    EXPECT_EQ(slots(), "A_R1 ERASING D_R1 VALID C_R1 VALID* TVM5048211/4_R12C VALID TVM5048227/31_R83DN VALID ");
    EXPECT_EQ(run("ganti slot 1 empty"), 1);
    EXPECT_EQ(run("ganti erase-time 0"), 0);
    peer.expect<DeleteCfm>(6);
    EXPECT_EQ(slots(), " EMPTY D_R1 VALID C_R1 VALID* TVM5048211/4_R12C VALID TVM5048227/31_R83DN VALID ");
    peer.load(ticket, "E_R1");
}

TEST_F(BoardSimGantiTest, the_component_list_comes_chunk_by_chunk_as_it_is_acknowledged)
{
    const std::uint32_t ticket = peer.acquire(2);
    const auto ack = [&](std::uint32_t procRef, bool abort) {
        auto message = Peer::ofTicket<SwCompListAck>(ticket);
        message.set_abort(abort);
        peer.send(procRef, message);
    };
    const auto request = Peer::ofTicket<SwCompListReq>(ticket);
    peer.load(ticket, "A/1_R1");
    peer.ask<SwCompListCfm>(3, request);
    auto data = peer.expect<SwCompListData>(3);
    EXPECT_TRUE(data.end());
    EXPECT_EQ(data.data(),
              "<LmcList>\n<!-- A/1 R1 -->\n<ProdNbr>A/1</ProdNbr>\n<Rev>R1</Rev>\n<SwList>\n<ListItem>\n"
              "<ProdNbr>A/1</ProdNbr>\n<StartRev>R1</StartRev>\n<StopRev>R1</StopRev>\n</ListItem>\n"
              "</SwList>\n</LmcList>\n"
              "<LmcList>\n<!-- TVM5048227/31 R83DN -->\n<ProdNbr>TVM5048227/31</ProdNbr>\n<Rev>R83DN</Rev>"
              "\n<Preinstalled/>\n<SwList>\n<ListItem>\n<ProdNbr>TVM5048227/31</ProdNbr>\n"
              "<StartRev>R83DN</StartRev>\n<StopRev>R83DN</StopRev>\n</ListItem>\n</SwList>\n</LmcList>\n");
    ack(3, false);

    EXPECT_EQ(run("ganti list-file " + write("list", "0123456789")), 0);
    for (const std::size_t chunk : {4U, 5U, 10U, 11U}) {
        run("ganti list-chunk " + std::to_string(chunk));
        peer.ask<SwCompListCfm>(4, request);
        std::string text;
        for (bool isEnd = false; !isEnd; isEnd = text.size() >= 10) {
            data = peer.expect<SwCompListData>(4);
            text += data.data();
            EXPECT_LE(data.data().size(), chunk);
            EXPECT_EQ(data.end(), text.size() == 10);
            ack(4, false);
        }
        EXPECT_EQ(text, "0123456789");
    }
    EXPECT_EQ(run("ganti list-file " + write("none", "")), 0);
    peer.ask<SwCompListCfm>(5, request);
    data = peer.expect<SwCompListData>(5);
    EXPECT_EQ(data.ShortDebugString(), fmt::format("ticket_number: {} end: true data: \"\"", ticket));

    run("ganti list-file default");
    run("ganti list-chunk 4");
    peer.ask<SwCompListCfm>(6, request);
    EXPECT_FALSE(peer.expect<SwCompListData>(6).end());
    ack(7, false); // of another request
    ack(6, true);
    ack(6, false);
    peer.ask<GetRunningSwCfm>(8, GetRunningSwReq()); // and nothing before
    EXPECT_EQ(show("ganti")["list"]["strayAcks"], 2);
}

TEST_F(BoardSimGantiTest, the_slots_outlive_the_server_and_what_was_half_done_is_empty)
{
    const std::uint32_t ticket = peer.acquire(2);
    peer.load(ticket, "A_R1", "of A");
    peer.load(ticket, "B_R1", "of B");
    run("ganti running B_R1");
    const std::string before = slots();
    peer.ask<PushLoadInitCfm>(3, Peer::of<PushLoadInitReq>(ticket, "C_R1"));
    EXPECT_EQ(run("ganti restart"), 0);
    EXPECT_EQ(slots(), before);
    EXPECT_EQ(run("ganti compare B_R1 " + write("b", "of B")), 0);
    EXPECT_EQ(show("ganti")["tickets"].size(), 0U);

    // As the end of the simulator's process leaves it.
    run("ganti stop");
    Json saved = Json::parse(std::ifstream(description));
    saved[0]["status"] = "ERASING";
    saved[2]["status"] = "WRITING";
    saved[2]["product"] = "C";
    std::ofstream(description) << saved.dump();
    write("boardsim/ganti/slot3", "half of C");
    std::filesystem::remove(ruDir("boardsim/ganti/slot4"));
    ASSERT_EQ(run("ganti start"), 0);
    EXPECT_EQ(slots(), " EMPTY B_R1 VALID*  EMPTY  EMPTY TVM5048227/31_R83DN VALID ");
    EXPECT_FALSE(std::filesystem::exists(ruDir("boardsim/ganti/slot3")));

    for (const char* damage : {"", "[{\"product\": 1}]", "{}", "[[[", "null", "[null]"}) {
        run("ganti stop");
        std::ofstream(description) << damage;
        EXPECT_EQ(run("ganti start"), 0) << damage;
        EXPECT_EQ(slots(), allFree) << damage;
        EXPECT_TRUE(std::filesystem::remove(description + ".damaged")) << damage;
    }
    Peer again;
    ASSERT_TRUE(again.establish());
    again.load(again.acquire(4), "B_R1"); // nothing of what was there before is left
}

TEST_F(BoardSimGantiTest, slots_are_as_commanded)
{
    EXPECT_EQ(run("ganti slot 1 A R1"), 0);
    EXPECT_EQ(run("ganti slot 2 B/1 - AUBOOT VALID READ_ONLY"), 0);
    EXPECT_EQ(run("ganti slot 6 F R6 AUAPPLIC ERASING"), 0);
    EXPECT_EQ(slots(), std::string("A_R1 VALID B/1 VALID  EMPTY ") + given + "F_R6 ERASING ");
    std::string table;
    EXPECT_EQ(run("ganti slots", &table), 0);
    EXPECT_NE(table.find("   2  B/1                  -          AUBOOT       VALID    READ_ONLY"), std::string::npos)
        << table;
    const std::uint32_t ticket = peer.acquire(2);
    EXPECT_EQ(peer.ask<DeleteRej>(3, Peer::of<DeleteReq>(ticket, "A_R1")),
              fmt::format("ticket_number: {} reason: BUSY", ticket)); // one is being erased already
    EXPECT_EQ(run("ganti slot 2 empty"), 0);
    EXPECT_EQ(run("ganti restart"), 0);
    EXPECT_EQ(slots(), std::string("A_R1 VALID  EMPTY  EMPTY ") + given + " EMPTY ");
    run("ganti stop"); // also while it is stopped
    EXPECT_EQ(run("ganti clear"), 0);
    run("ganti start");
    EXPECT_EQ(slots(), allFree);

    for (const char* line : {"slot 0 A R1",
                             "slot 7 A R1",
                             "slot 1",
                             "slot 1 A",
                             "slot 1 A R1 NO_TYPE",
                             "slot 1 A R1 AUAPPLIC GONE",
                             "slot 1 A R1 AUAPPLIC VALID NOBODY",
                             "running X",
                             "compare X /dev/null",
                             "compare TVM5048227/31_R83DN /no/such/file",
                             "list-file /no/such/file",
                             "list-chunk 1000000",
                             "capability block-size 2147483648",
                             "capability lockable maybe",
                             "capability dance present",
                             "capability boot-inventory A",
                             "capability preinstalled perhaps",
                             "limit 257",
                             "confirm SwCompListAck",
                             "reject PushLoadData",
                             "reject AcquireResourceInd",
                             "reject PushLoadInitReq reason: NONE"}) {
        std::string output;
        EXPECT_EQ(run(std::string("ganti ") + line, &output), 1) << line;
        EXPECT_NE(output, "") << line;
    }
    EXPECT_EQ(slots(), allFree);
}

TEST_F(BoardSimGantiTest, bad_frames_are_counted_and_the_connection_goes_on)
{
    Peer stranger;
    stranger.send(2, GetRunningSwReq()); // without a connection
    for (const std::string& frame :
         {std::string(7, '\0'), Peer::word(0) + Peer::word(1), Peer::word(99) + Peer::word(1),
          Peer::word(2) + Peer::word(1), // the server's own
          Peer::word(7) + Peer::word(1) + "\xFF\xFF"}) {
        peer.sendBytes(frame);
    }
    EXPECT_TRUE(stranger.establish(3));
    EXPECT_EQ(peer.ask<GetRunningSwCfm>(4, GetRunningSwReq()), "running_software: \"TVM5048227%31_R83DN\"");
    EXPECT_EQ(show("ganti")["dropped"].dump(), R"({"shorter than the header":1,"unknown connection":1,)"
                                               R"("unknown message number":3,"unparsable AcquireResourceReq":1})");
}

TEST_F(BoardSimGantiTest, a_client_that_reads_late_misses_nothing)
{
    std::uint32_t sent = 0;
    std::uint32_t full = 0;
    while (full < 3 && sent < 100'000) { // the server stops reading, then the socket fills up
        if (peer.send(sent, GetCapabilitiesReq())) {
            ++sent;
            full = 0;
        } else {
            ++full;
            eventually([&] { return show("ganti")["unsent"] != 0; });
        }
    }
    ASSERT_LT(sent, 100'000U);
    for (std::uint32_t procRef = 0; procRef < sent && !HasFailure(); ++procRef) {
        peer.expect<GetCapabilitiesCfm>(procRef);
    }
    EXPECT_EQ(show("ganti")["received"]["GetCapabilitiesReq"], sent);
}

TEST_F(BoardSimGantiTest, rules_hold_for_its_messages_and_keep_what_belongs_to_the_request)
{
    run("ganti hold AcquireResourceReq");
    AcquireResourceReq acquire;
    peer.send(2, acquire);
    ASSERT_EQ(run("ganti wait AcquireResourceReq"), 0);
    run("ganti release");
    const std::uint32_t ticket = peer.expect<AcquireResourceCfm>(2).ticket_number();
    peer.expect<AcquireResourceInd>(2); // behind its confirm all the same

    EXPECT_EQ(run("ganti reject PushLoadInitReq reason: ALREADY_LOADED 1"), 0); // the count in either place
    EXPECT_EQ(peer.ask<PushLoadInitRej>(3, Peer::of<PushLoadInitReq>(ticket, "A_R1")),
              fmt::format("ticket_number: {} reason: ALREADY_LOADED", ticket));
    EXPECT_EQ(run("ganti reject PushLoadInitReq 1 ticket_number: 0 reason: 3"), 0);
    EXPECT_EQ(peer.ask<PushLoadInitRej>(4, Peer::of<PushLoadInitReq>(ticket, "A_R1")), "ticket_number: 0 reason: BUSY");
    EXPECT_EQ(run("ganti reject SwCompListReq 1"), 0);
    EXPECT_EQ(peer.ask<SwCompListRej>(4, Peer::ofTicket<SwCompListReq>(ticket)),
              fmt::format("ticket_number: {}", ticket));

    peer.ask<PushLoadInitCfm>(5, Peer::of<PushLoadInitReq>(ticket, "A_R1"));
    EXPECT_EQ(run("ganti confirm PushLoadData 1 abort: true"), 0);
    EXPECT_EQ(peer.ask<PushLoadAck>(6, Peer::block(ticket, 1, "x")),
              fmt::format("ticket_number: {} abort: true sequence_number: 1", ticket));
    run("ganti silent PushLoadData 1");
    peer.send(7, Peer::block(ticket, 2, "x"));
    ASSERT_EQ(run("ganti wait PushLoadData 2"), 0);
    run("ganti hold PushLoadData 1");
    peer.send(8, Peer::block(ticket, 2, "y"));
    EXPECT_EQ(peer.ask<PushLoadAck>(9, Peer::block(ticket, 3, "z")),
              fmt::format("ticket_number: {} abort: false sequence_number: 3", ticket));
    run("ganti release PushLoadData");
    EXPECT_EQ(peer.expect<PushLoadAck>(8).sequence_number(), 2U);
    EXPECT_EQ(run("ganti confirm PushLoadEndReq result: FAILED 1"), 0);
    EXPECT_EQ(peer.ask<PushLoadEndCfm>(10, Peer::ofTicket<PushLoadEndReq>(ticket)),
              fmt::format("ticket_number: {} result: FAILED", ticket));
    EXPECT_EQ(run("ganti compare A_R1 " + write("a", "xyz")), 0);

    run("ganti hold DeleteReq"); // erased at once, told when released, also to nobody
    Peer other;
    ASSERT_TRUE(other.establish());
    peer.send(11, Peer::of<DeleteReq>(ticket, "A_R1"));
    ASSERT_EQ(run("ganti wait DeleteReq"), 0);
    EXPECT_EQ(slots(), allFree);
    const std::uint32_t next = other.askForTicket(12);
    run("ganti hold AcquireResourceInd");
    peer.close();
    EXPECT_TRUE(eventually([&] { return show("ganti")["held"].value("AcquireResourceInd", 0) == 1; }));
    run("ganti release");
    EXPECT_EQ(other.expect<AcquireResourceInd>(12).ticket_number(), next);
}

/// What the DUNL server is asked where software is loaded selectively.
TEST_F(BoardSimTest, devices_are_told_to_be_up_when_they_are_and_software_fits_as_set)
{
    using namespace tolme::dunl;
    const std::uint32_t connection = connectDunl();
    const auto ask = [&](std::uint32_t procedureRef) {
        send("DunlServer", MsgNo::ConnectedDevicesInitializedReq, procedureRef, connection);
        const auto confirm = expect<ConnectedDevicesInitializedCfm>(MsgNo::ConnectedDevicesInitializedCfm);
        EXPECT_EQ(confirm.procedureRef, procedureRef);
    };
    const auto told = [&] {
        return expect<ConnectedDevicesInitializedInd>(MsgNo::ConnectedDevicesInitializedInd).procedureRef;
    };
    ask(5);
    EXPECT_EQ(told(), 5U);
    run("dunl devices down");
    ask(6);
    ask(7);
    EXPECT_EQ(show("dunl")["selectiveLoading"]["waiting"], 2);
    EXPECT_FALSE(anyOf(MsgNo::ConnectedDevicesInitializedInd));
    run("dunl devices up");
    EXPECT_EQ(told(), 6U);
    EXPECT_EQ(told(), 7U);

    ValidateHwSwCompatibilityReq request;
    request.set_software("A%1_R1");
    const auto validated = [&] {
        send("DunlServer", MsgNo::ValidateHwSwCompatibilityReq, 8, connection, request);
        return expect<ValidateHwSwCompatibilityCfm>(MsgNo::ValidateHwSwCompatibilityCfm).body.software();
    };
    EXPECT_EQ(validated(), "A%1_R1");
    run("dunl compatibility B_R2");
    EXPECT_EQ(validated(), "B_R2");
    run("dunl compatibility failed");
    send("DunlServer", MsgNo::ValidateHwSwCompatibilityReq, 9, connection, request);
    EXPECT_EQ(expect<ValidateHwSwCompatibilityRej>(MsgNo::ValidateHwSwCompatibilityRej).body.ShortDebugString(),
              "error_type: 1");
    run("dunl compatibility ok");
    EXPECT_EQ(validated(), "A%1_R1");
}

} // namespace
