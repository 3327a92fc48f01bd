/// Hardware logs: writing and reading entries.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "unit.h"
#include "vorni/hwLog.h"

using namespace TestUnit;
using namespace tolme;
using VornTrace::RecordedTraces;
using namespace std::string_literals;

namespace {

class VornServerHwLogTest : public UnitTest
{
protected:
    VornServerHwLogTest()
    {
        unit.bringUp();
        m_client = &unit.connect();
    }

    Client& client() { return *m_client; }
    /// `entries` is what the area begins with.
    void sendSet(std::uint32_t logId, std::uint32_t length, const std::string& entries, std::size_t behind = 0)
    {
        NewSignal<OmlaVornHwLogSetReqS> signal(client().clientRef, client().serverRef, behind);
        std::string("a label of 16 ch").copy(signal->label, sizeof(signal->label)); // no zero
        signal->logId = logId;
        signal->length = length;
        entries.copy(reinterpret_cast<char*>(signal->entries), entries.size());
        client().sendSignal(client().publicMbox(), signal);
    }
    void sendGet(std::uint32_t logId)
    {
        client().send<OmlaVornHwLogGetReqS>([=](auto& request) { request.logId = logId; });
    }
    auto expectSet() { return unit.dunl.expect<dunl::HwLogSetReq>(dunl::MsgNo::HwLogSetReq); }
    auto expectGet() { return unit.dunl.expect<dunl::HwLogGetReq>(dunl::MsgNo::HwLogGetReq); }
    template <typename Reject = OmlaVornHwLogSetRejS>
    void expectRejected(std::uint16_t errorCode, const std::string& text)
    {
        const auto rej = client().expect<Reject>();
        EXPECT_EQ(rej.header.clientRef, client().clientRef);
        EXPECT_EQ(rej.header.serverRef, client().serverRef);
        EXPECT_EQ(rej.errorCode, errorCode);
        EXPECT_EQ(fieldText(rej.description), text);
    }
    template <typename Entries>
    static std::vector<std::string> list(const Entries& entries)
    {
        return {entries.begin(), entries.end()};
    }

private:
    Client* m_client = nullptr;
};

using Entries = std::vector<std::string>;

TEST_F(VornServerHwLogTest, when_entries_are_written_then_the_board_gets_them_and_the_client_its_answer)
{
    sendSet(999, 2, "first\0second\0third"s); // more than are counted
    const auto request = expectSet();
    EXPECT_EQ(request.body.log_id(), 999U);
    EXPECT_EQ(request.body.label(), "a label of 16 ch");
    EXPECT_EQ(list(request.body.entry()), (Entries{"first", "second"}));
    request.reply(dunl::MsgNo::HwLogSetCfm, dunl::HwLogSetCfm());
    const auto cfm = client().expect<OmlaVornHwLogSetCfmS>();
    EXPECT_EQ(cfm.header.clientRef, client().clientRef);
    EXPECT_EQ(cfm.header.serverRef, client().serverRef);
    EXPECT_TRUE(RecordedTraces::has("HW Log #2: \"second\" (size 6)"));
    EXPECT_TRUE(RecordedTraces::has("HwLogSetReq: procedureRef:" + std::to_string(request.procedureRef) +
                                    " mailboxId:" + std::to_string(client().mbox())));

    sendSet(0, 0, "no\0entries"s);
    const auto empty = expectSet();
    EXPECT_EQ(empty.body.entry_size(), 0);
    empty.reply(dunl::MsgNo::HwLogSetRej, dunl::HwLogSetRej());
    expectRejected(1, "");
}

TEST_F(VornServerHwLogTest, when_the_log_is_that_of_the_node_configuration_then_it_goes_with_its_own_message)
{
    sendSet(2, 1, "entry\0"s);
    const auto request = unit.dunl.expect<dunl::StoreNodeConfigEntryReq>(dunl::MsgNo::StoreNodeConfigEntryReq);
    EXPECT_EQ(request.body.log_id(), 2U);
    EXPECT_EQ(request.body.server_ref(), client().serverRef);
    EXPECT_EQ(request.body.label(), "a label of 16 ch");
    EXPECT_EQ(list(request.body.entry()), Entries{"entry"});
    request.reply(dunl::MsgNo::StoreNodeConfigEntryCfm, dunl::StoreNodeConfigEntryCfm());
    client().expect<OmlaVornHwLogSetCfmS>();
    EXPECT_TRUE(RecordedTraces::has("StoreNodeConfigEntryReq: procedureRef:" + std::to_string(request.procedureRef) +
                                    " mailboxId:" + std::to_string(client().mbox())));
    sendSet(2, 1, "entry\0"s);
    unit.dunl.expect<dunl::StoreNodeConfigEntryReq>(dunl::MsgNo::StoreNodeConfigEntryReq)
        .reply(dunl::MsgNo::StoreNodeConfigEntryRej, dunl::StoreNodeConfigEntryRej());
    expectRejected(1, "");
}

TEST_F(VornServerHwLogTest, when_a_write_is_malformed_then_it_is_rejected_by_the_first_thing_that_is_wrong)
{
    const auto sendShort = [&](std::size_t size, std::uint32_t logId) {
        std::vector<std::byte> bytes(size);
        OmlaVornHwLogSetReqS signal{};
        signal.header.sigNo = OmlaVornHwLogSetReqS::number;
        signal.header.setReferences(client().clientRef, client().serverRef);
        signal.logId = logId;
        std::memcpy(bytes.data(), &signal, size);
        client().sendBytes(client().publicMbox(), bytes);
    };
    const auto tooSmall = [](int size) {
        return "input signal (size=" + std::to_string(size) + ") is too small to be a OmlaVornHwLogSetReqS (size=460)";
    };
    sendSet(1000, 0, "");
    expectRejected(2, "logId out of range,logId:1000");
    sendShort(459, 1000);
    expectRejected(2, "logId out of range,logId:1000");
    sendShort(459, 1);
    expectRejected(1, tooSmall(459));
    sendShort(31, 0xFFFFFFFF); // ends inside the log's number
    expectRejected(1, tooSmall(31));
    sendShort(12, 1);
    expectRejected(1, tooSmall(12));

    sendSet(1, 3, "a\0b\0"s);
    expectRejected(1, "length field of 3 is different from the number of entries 0");
    EXPECT_TRUE(RecordedTraces::has("ABN: Malformed HwLog data can't find all 3 entries: \"a\\b" +
                                    std::string(421, '\\') + "\""));
    std::string full;
    for (int i = 0; i < 212; ++i) {
        full += "x\0"s;
    }
    sendSet(1, 213, full, 8); // what stands behind the area is no entry
    expectRejected(1, "length field of 213 is different from the number of entries 0");
    sendSet(1, 0xFFFFFFFF, std::string(424, 'x'));
    expectRejected(1, "length field of 4294967295 is different from the number of entries 0");
    unit.settle();
    unit.dunl.expectNothing();
}

TEST_F(VornServerHwLogTest, when_the_last_entry_has_no_end_then_it_ends_with_its_signal)
{
    sendSet(1, 1, std::string(424, 'x'));
    EXPECT_EQ(list(expectSet().body.entry()), Entries{std::string(424, 'x')});
    sendSet(1, 1, std::string(424, 'x'), 8); // the zero is behind the area
    EXPECT_EQ(list(expectSet().body.entry()), Entries{std::string(424, 'x')});
    sendSet(1, 2, "a\0"s + std::string(422, 'y'));
    EXPECT_EQ(list(expectSet().body.entry()), (Entries{"a", std::string(422, 'y')}));
}

TEST_F(VornServerHwLogTest, when_a_log_is_read_then_its_entries_come_as_far_as_they_fit)
{
    const auto read = [&](const Entries& entries) {
        sendGet(0xFFFFFFFF); // the board knows its logs
        const auto request = expectGet();
        EXPECT_EQ(request.body.log_id(), 0xFFFFFFFF);
        dunl::HwLogGetCfm cfm;
        for (const std::string& entry : entries) {
            cfm.add_entry(entry);
        }
        request.reply(dunl::MsgNo::HwLogGetCfm, cfm);
        const auto answer = client().expect<OmlaVornHwLogGetCfmS>();
        EXPECT_EQ(answer.header.clientRef, client().clientRef);
        EXPECT_EQ(answer.header.serverRef, client().serverRef);
        request.reply(dunl::MsgNo::HwLogGetCfm, cfm); // its transaction is gone
        const std::string area(reinterpret_cast<const char*>(answer.entries), sizeof(answer.entries));
        return std::pair(answer.length.value(), area);
    };
    const auto area = [](const std::string& text) { return text + std::string(424 - text.size(), '\0'); };
    EXPECT_EQ(read({}), std::pair(0U, area("")));
    EXPECT_EQ(read({"first", "", "third"}), std::pair(3U, area("first\0\0third\0"s)));
    EXPECT_EQ(read({std::string(423, 'x')}), std::pair(1U, area(std::string(423, 'x'))));
    EXPECT_EQ(read({"fits", std::string(419, 'x'), "b"}), std::pair(2U, area("fits\0"s + std::string(418, 'x'))));
    EXPECT_EQ(read({std::string(424, 'x')}), std::pair(1U, area(std::string(423, 'x'))));
    EXPECT_EQ(read({std::string(422, 'x'), "b"}), std::pair(1U, area(std::string(422, 'x'))));
    EXPECT_EQ(read({std::string(422, 'x'), "", ""}), std::pair(2U, area(std::string(422, 'x'))));
    EXPECT_EQ(read({"a\0b"s, "c"}), std::pair(2U, area("a\0c"s)));
    EXPECT_TRUE(RecordedTraces::has("DunlHwLogGetCfm:: missing transaction for the provided procedureRef!"));
}

TEST_F(VornServerHwLogTest, when_a_log_cannot_be_read_then_the_client_is_told_by_the_error_type)
{
    using Type = std::optional<std::uint32_t>;
    const auto reject = [&](const Request<dunl::HwLogGetReq>& request, Type type) {
        dunl::HwLogGetRej rej;
        if (type) {
            rej.set_error_type(*type);
        }
        request.reply(dunl::MsgNo::HwLogGetRej, rej);
    };
    sendGet(5);
    const auto request = expectGet();
    reject(request, std::nullopt);
    unit.settle();
    client().expectNothing();
    EXPECT_TRUE(RecordedTraces::has("DunlHwLogGetRej missing errorType! Ignoring signal!"));
    reject(request, 0); // the transaction has stayed
    expectRejected<OmlaVornHwLogGetRejS>(2, "logId out of range");
    reject(request, 0);
    unit.settle();
    client().expectNothing();
    EXPECT_TRUE(RecordedTraces::has("DunlHwLogGetRej:: missing transaction for the provided procedureRef!"));
    sendGet(5);
    reject(expectGet(), 1);
    expectRejected<OmlaVornHwLogGetRejS>(1, "Reading from HW log has failed");
    sendGet(5);
    reject(expectGet(), 2);
    expectRejected<OmlaVornHwLogGetRejS>(1, "ABN: Unknown ErrorCode!");
}

TEST_F(VornServerHwLogTest, when_a_client_has_no_session_then_it_may_ask_but_gets_nothing)
{
    Client& stranger = unit.addClient();
    const std::string mbox = std::to_string(stranger.mbox());
    stranger.send<OmlaVornHwLogSetReqS>();
    stranger.send<OmlaVornHwLogGetReqS>();
    const auto request = expectGet();
    request.reply(dunl::MsgNo::HwLogGetCfm, dunl::HwLogGetCfm());
    request.reply(dunl::MsgNo::HwLogGetRej, dunl::HwLogGetRej());
    sendSet(1, 1, "entry\0"s);
    const auto set = expectSet();
    const std::string gone = std::to_string(client().mbox());
    Client& witness = unit.connect(9);
    client().die();
    unit.dunl.expect<dunl::UnregisterUtcTimeSourceReq>(dunl::MsgNo::UnregisterUtcTimeSourceReq);
    set.reply(dunl::MsgNo::HwLogSetCfm, dunl::HwLogSetCfm());
    set.reply(dunl::MsgNo::HwLogSetRej, dunl::HwLogSetRej());
    unit.settle();
    stranger.expectNothing();
    witness.expectNothing();
    for (const std::string& trace :
         {"ABN: VornServer has no session for mailbox " + mbox + ". Ignoring OMLA_VORN_HWLOG_SET_REQ.",
          "ABN: DunlHwLogGetCfm:: cannot find VORN session for the provided mboxID!"s,
          "ABN: DunlHwLogGetRej:: cannot find VORN session for the provided mboxID!"s,
          "ABN: VornServer has no session for mailbox " + gone + ". Ignoring OMLA_VORN_HWLOG_SET_CFM.",
          "ABN: No DUNL transaction was found for procedureRef: " + std::to_string(set.procedureRef) +
              ". Ignoring HwLogSetRej."}) {
        EXPECT_TRUE(RecordedTraces::has(trace)) << trace;
    }
}

} // namespace
