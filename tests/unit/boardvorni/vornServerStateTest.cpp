/// What no client can cause: a session that is in none of the O&M states.

#include "vornServerState.h"

#include "serverThread.h"
#include "vornSession.h"
#include "vorni/oamState.h"

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

TEST(VornServerStateTest, when_a_session_has_no_state_then_it_is_neither_told_nor_changed)
{
    ServerThread thread;
    VornServerCommonData& commonData = thread.commonData;
    commonData.setPublicMbox(thread.post.addMailbox("public"));
    VornServerState component(commonData);
    ASSERT_TRUE(component.init());
    VorniPeer client{thread.post, "client"};
    client.appear();
    VornSession& session = commonData.addVornSession(client.mbox(), 1, 0, std::uint16_t{3}, "client", 0);
    constexpr auto noState = static_cast<State>(3);
    session.setVornState(noState);
    const auto expectRefused = [&](const auto& rej) {
        EXPECT_EQ(rej.errorCode, 1);
        EXPECT_EQ(rej.header.clientRef, client.clientRef);
        EXPECT_EQ(fieldText(rej.errorText),
                  "signal expected in VornState: STARTING OPERATIONAL, received in VornState: Unknown");
        EXPECT_EQ(session.getVornState(), noState);
    };
    client.sendTo<OmlaVornDisableOperationReqS>(commonData.getPrivateMbox(), [](auto&) {});
    thread.settle();
    expectRefused(client.expect<OmlaVornDisableOperationRejS>());
    client.sendTo<OmlaVornEnableOperationReqS>(commonData.getPrivateMbox(), [](auto&) {});
    thread.settle();
    expectRefused(client.expect<OmlaVornEnableOperationRejS>());

    client.sendTo<OmlaVornAuditReqS>(commonData.getPrivateMbox(), [](auto&) {});
    thread.settle();
    client.expectNothing();
    EXPECT_TRUE(RecordedTraces::has("Unknown O&M-state Unknown"));
}

} // namespace
