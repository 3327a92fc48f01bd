// The hardware logs of the simulated board.

#include "boardSimFixture.h"

#include "runDir.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <optional>
#include <vector>

namespace {

using namespace boardsim;
using namespace tolme::dunl;

class BoardSimLogTest : public BoardSimTest
{
protected:
    using Texts = std::vector<std::string>;

    BoardSimLogTest() { std::filesystem::remove_all(ruDir("boardsim/dunl")); }

    /// Whether it is confirmed.
    template <typename Req>
    bool write(const Req& request, std::uint32_t number)
    {
        send("DunlServer", number, 3, m_connection, request);
        const std::uint32_t answers[] = {2, number + 1, number + 2};
        const std::shared_ptr<kiv_msg> answer(kiv_receive(answers, patience, KIV_ANY_SENDER), kiv_free);
        EXPECT_NE(answer, nullptr);
        return answer != nullptr && answer->number == number + 1;
    }

    template <typename Req>
    static Req of(std::uint32_t log, const Texts& entries, const std::string& label)
    {
        Req request;
        request.set_log_id(log);
        request.set_label(label);
        for (const std::string& entry : entries) {
            request.add_entry(entry);
        }
        return request;
    }

    bool set(std::uint32_t log, const Texts& entries, const std::string& label = "L")
    {
        return write(of<HwLogSetReq>(log, entries, label), MsgNo::HwLogSetReq);
    }

    bool storeNodeConfig(std::uint32_t log, const Texts& entries)
    {
        auto request = of<StoreNodeConfigEntryReq>(log, entries, "NODE");
        request.set_server_ref(150);
        return write(request, MsgNo::StoreNodeConfigEntryReq);
    }

    void ask(std::uint32_t log)
    {
        HwLogGetReq request;
        request.set_log_id(log);
        send("DunlServer", MsgNo::HwLogGetReq, 4, m_connection, request);
    }

    Texts get(std::uint32_t log)
    {
        ask(log);
        const auto confirm = expect<HwLogGetCfm>(MsgNo::HwLogGetCfm);
        return {confirm.body.entry().begin(), confirm.body.entry().end()};
    }

    /// Nothing: the reject doesn't tell it.
    std::optional<std::uint32_t> errorOf(std::uint32_t log)
    {
        ask(log);
        const auto reject = expect<HwLogGetRej>(MsgNo::HwLogGetRej).body;
        return reject.has_error_type() ? std::optional(reject.error_type()) : std::nullopt;
    }

    std::string printed(std::uint32_t log)
    {
        std::string text;
        EXPECT_EQ(run(fmt::format("dunl log {}", log), &text), 0) << text;
        return text;
    }

    std::uint32_t m_connection = connectDunl();
};

TEST_F(BoardSimLogTest, what_is_written_is_read_in_order_also_behind_a_restart)
{
    EXPECT_TRUE(set(0, {"first", "zwei\xE4\x01"}));
    EXPECT_TRUE(set(999, {}));
    EXPECT_TRUE(storeNodeConfig(2, {"node"}));
    EXPECT_EQ(run("dunl restart"), 0);
    m_connection = connectDunl();
    EXPECT_TRUE(set(0, {"third"}, "M"));
    EXPECT_EQ(get(0), (Texts{"first", "zwei\xE4\x01", "third"}));
    EXPECT_EQ(get(999), Texts());
    EXPECT_EQ(get(2), Texts{"node"});
    EXPECT_EQ(printed(0), "[L] first\n[L] zwei\xE4\\x01\n[M] third\n");
    EXPECT_EQ(printed(2), "[NODE, serverRef 150] node\n");
    EXPECT_EQ(show("dunl")["logEntries"].dump(), R"({"0":3,"2":1,"999":0})");

    EXPECT_EQ(run("dunl log 0 clear"), 0);
    EXPECT_EQ(errorOf(0), 0U);
    EXPECT_EQ(get(2), Texts{"node"});
    for (const char* line : {"", "0", "1000", "1000 clear", "2 empty", "2 clear it", "two"}) {
        EXPECT_EQ(run(std::string("dunl log ") + line), 1) << line;
    }
    EXPECT_EQ(get(2), Texts{"node"});
}

TEST_F(BoardSimLogTest, a_log_has_the_last_entries_that_fit_with_their_ends_into_424_bytes)
{
    const std::string hundred(99, 'x');
    EXPECT_TRUE(set(5, {"old", hundred, hundred, hundred, hundred}));
    EXPECT_EQ(get(5).size(), 5U); // 404 bytes
    EXPECT_TRUE(set(5, {std::string(18, 'y'), ""}));
    EXPECT_EQ(get(5), (Texts{"old", hundred, hundred, hundred, hundred, std::string(18, 'y'), ""}));
    EXPECT_TRUE(set(5, {"z"}));
    EXPECT_EQ(get(5).front(), hundred);
    EXPECT_EQ(get(5).size(), 7U);
    EXPECT_TRUE(set(5, {"gone", std::string(423, 'a')}));
    EXPECT_EQ(get(5), Texts{std::string(423, 'a')});
}

TEST_F(BoardSimLogTest, what_is_no_log_or_cant_be_kept_is_rejected_and_leaves_the_log_as_it_is)
{
    EXPECT_TRUE(set(5, {"kept"}));
    EXPECT_FALSE(set(5, {"ok", std::string(424, 'a')}));
    EXPECT_FALSE(set(5, {std::string("a\0b", 3)}));
    EXPECT_FALSE(set(5, {"ok"}, std::string(256, 'l')));
    EXPECT_EQ(get(5), Texts{"kept"});
    EXPECT_FALSE(set(1000, {"x"}));
    EXPECT_FALSE(set(2, {"x"}));
    EXPECT_FALSE(storeNodeConfig(3, {"x"}));
    EXPECT_FALSE(write(HwLogSetReq(), MsgNo::HwLogSetReq));
    for (const std::uint32_t log : {0U, 2U, 3U, 1000U}) {
        EXPECT_EQ(errorOf(log), 0U) << log;
    }

    std::ofstream(ruDir("boardsim/dunl/log6")) << "half an entry";
    std::filesystem::create_directory(ruDir("boardsim/dunl/log7"));
    for (const std::uint32_t log : {6U, 7U}) {
        EXPECT_EQ(errorOf(log), 1U) << log;
        EXPECT_FALSE(set(log, {"x"}));
        EXPECT_EQ(run(fmt::format("dunl log {}", log)), 1);
        EXPECT_EQ(run(fmt::format("dunl log {} clear", log)), 0);
        EXPECT_TRUE(set(log, {"x"}));
    }
    for (const auto& [fields, error] : std::initializer_list<std::pair<const char*, std::optional<std::uint32_t>>>{
             {"", 1U}, {"error_type: 7", 7U}, {"none", std::nullopt}}) {
        EXPECT_EQ(run(std::string("dunl reject HwLogGetReq 1 ") + fields), 0);
        EXPECT_EQ(errorOf(5), error);
    }
    EXPECT_EQ(get(5), Texts{"kept"});
}

} // namespace
