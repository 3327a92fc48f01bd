// The O&M state of the simulated board.

#include "boardSimFixture.h"

#include <algorithm>

namespace {

using namespace boardsim;
using tolme::dunl::SetOamStateReq;
namespace MsgNo = tolme::dunl::MsgNo;

class BoardSimOamStateTest : public BoardSimTest
{
protected:
    void set(tolme::dunl::OamState state)
    {
        SetOamStateReq request;
        request.set_state(state);
        send("DunlServer", MsgNo::SetOamStateReq, 9, m_connection, request);
        expect<tolme::dunl::SetOamStateCfm>(MsgNo::SetOamStateCfm);
    }

    std::string state()
    {
        std::string text;
        EXPECT_EQ(run("dunl oam-state", &text), 0);
        return text;
    }

    std::uint32_t m_connection = connectDunl();
};

TEST_F(BoardSimOamStateTest, each_state_is_confirmed_and_what_is_none_is_rejected_and_remembered)
{
    EXPECT_EQ(state(), "none\n");
    set(tolme::dunl::OAM_STARTING);
    EXPECT_EQ(state(), "STARTING\n");
    set(tolme::dunl::OAM_DISABLED);
    set(tolme::dunl::OAM_OPERATIONAL);
    EXPECT_EQ(state(), "OPERATIONAL\n");

    SetOamStateReq unknown;
    ASSERT_TRUE(unknown.ParseFromString("\x08\x07"));
    for (const SetOamStateReq& request : {SetOamStateReq(), unknown}) {
        send("DunlServer", MsgNo::SetOamStateReq, 10, m_connection, request);
        EXPECT_EQ(expect<tolme::dunl::SetOamStateRej>(MsgNo::SetOamStateRej).procedureRef, 10U);
    }
    EXPECT_EQ(show("dunl")["oamState"].dump(), R"({"state":"OPERATIONAL","requests":5,)"
                                               R"("history":["STARTING","DISABLED","OPERATIONAL","absent","7"]})");
    for (int i = 0; i < 16; ++i) { // the last sixteen are kept
        set(tolme::dunl::OAM_OPERATIONAL);
    }
    EXPECT_EQ(show("dunl")["oamState"]["history"], Json(std::vector<std::string>(16, "OPERATIONAL")));
    EXPECT_EQ(run("dunl restart"), 0);
    EXPECT_EQ(state(), "none\n");
    EXPECT_EQ(run("dunl oam-state now"), 1);
}

TEST_F(BoardSimOamStateTest, a_state_that_is_refused_by_rule_is_not_taken_and_a_held_one_is)
{
    EXPECT_EQ(run("dunl reject SetOamStateReq 1"), 0);
    SetOamStateReq request;
    request.set_state(tolme::dunl::OAM_DISABLED);
    send("DunlServer", MsgNo::SetOamStateReq, 1, m_connection, request);
    expect<tolme::dunl::SetOamStateRej>(MsgNo::SetOamStateRej);
    EXPECT_EQ(state(), "none\n");

    EXPECT_EQ(run("dunl hold SetOamStateReq"), 0);
    send("DunlServer", MsgNo::SetOamStateReq, 2, m_connection, request);
    EXPECT_EQ(run("dunl wait SetOamStateReq 2"), 0);
    EXPECT_EQ(state(), "DISABLED\n");
    EXPECT_FALSE(anyOf(MsgNo::SetOamStateCfm));
    EXPECT_EQ(run("dunl release"), 0);
    EXPECT_EQ(expect<tolme::dunl::SetOamStateCfm>(MsgNo::SetOamStateCfm).procedureRef, 2U);
}

TEST_F(BoardSimOamStateTest, the_board_has_the_capability_unless_it_is_taken_away)
{
    for (const bool isCapable : {true, false}) {
        send("DunlServer", MsgNo::GetCapabilitiesReq, 1, m_connection);
        const auto told = expect<tolme::dunl::GetCapabilitiesCfm>(MsgNo::GetCapabilitiesCfm).body.capabilities();
        EXPECT_EQ(std::count(told.begin(), told.end(), tolme::dunl::VORN_OAM_STATE), isCapable ? 1 : 0);
        EXPECT_EQ(run("dunl capabilities -VORN_OAM_STATE"), 0);
    }
}

} // namespace
