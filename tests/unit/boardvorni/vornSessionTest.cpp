/// Sessions and the gate that holds a client's connection confirmation.

#include "vornSession.h"
#include "serverThread.h"
#include "vorni/connection.h"

#include <fmt/format.h>
#include <numeric>
#include <sstream>

using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

class VornSessionTest : public ::testing::Test
{
protected:
    VornSessionTest()
    {
        client.appear();
        publicMbox.appear();
        session = newSession();
        session->setConnectivityConnectedState(std::nullopt);
    }
    ~VornSessionTest() override { session->setConnectivityConnectedState(std::nullopt); }

    std::unique_ptr<VornSession> newSession()
    {
        return std::make_unique<VornSession>(client.mbox(), 17, 18, std::uint16_t{3}, "DU_4", 0);
    }
    /// A confirmation with the references and `tail` behind it.
    static kiv_msg* confirmation(std::byte tail)
    {
        kiv_msg* msg = kiv_alloc(sizeof(OmlaVornConnEstablishCfmS) + 1, OmlaVornConnEstablishCfmS::number);
        auto* signal = viewSignal<OmlaVornConnEstablishCfmS>(msg);
        signal->header.clientRef = 0x01020304;
        signal->header.serverRef = 0x05060708;
        reinterpret_cast<std::byte*>(msg)[sizeof(*signal)] = tail;
        return msg;
    }
    void hold(VornSession& holder, std::byte tail = std::byte{0x55})
    {
        kiv_msg* msg = confirmation(tail);
        holder.setCfmPending(publicMbox.mbox(), msg);
        EXPECT_EQ(msg, nullptr);
    }
    std::byte expectConfirmation()
    {
        const Received cfm = client.expectNumber(OmlaVornConnEstablishCfmS::number);
        EXPECT_EQ(cfm.sender(), publicMbox.mbox());
        EXPECT_EQ(cfm.size(), 13U);
        EXPECT_EQ(viewSignal<OmlaVornConnEstablishCfmS>(cfm.get())->header.clientRef, 0x01020304U);
        return cfm.bytes().back();
    }
    /// One of the four answers, all with the value that is easily taken for none.
    static void answer(VornSession& session, int which)
    {
        switch (which) {
        case 0:
            return session.setMmiUserId(0);
        case 1:
            return session.setUtcTimeSourceRef(0);
        case 2:
            return session.setConnectivityConnectedState(false);
        default:
            return session.setDeepSleepConnectionReqResponded(false);
        }
    }
    std::string dump() const
    {
        std::ostringstream out;
        out << *session;
        return out.str();
    }

    ServerThread thread;
    Peer client{thread.post, "client"};
    Peer publicMbox{thread.post, "public"};
    std::unique_ptr<VornSession> session;
};

TEST_F(VornSessionTest, when_the_last_of_four_answers_comes_in_any_order_then_the_confirmation_goes_out)
{
    const std::array missing{"MMI UID is not set", "Time Source Ref is not set",
                             "Link Supervision hasn't responded yet", "Deep Sleep Connection hasn't responded yet"};
    std::array<int, 4> order{};
    std::iota(order.begin(), order.end(), 0);
    do {
        session->setConnectivityConnectedState(std::nullopt);
        session = newSession();
        hold(*session);
        std::array<bool, 4> isSet{};
        for (const int which : order) {
            const auto mark = RecordedTraces::mark();
            answer(*session, which);
            isSet.at(static_cast<std::size_t>(which)) = true;
            const auto first = std::find(isSet.begin(), isSet.end(), false);
            if (first != isSet.end()) {
                client.expectNothing();
                const char* text = missing.at(static_cast<std::size_t>(first - isSet.begin()));
                EXPECT_TRUE(RecordedTraces::has(fmt::format("Initializing DU_4: {}", text), mark)) << text;
            } else {
                EXPECT_TRUE(RecordedTraces::has("DU_4 initialized!", mark));
                EXPECT_TRUE(
                    RecordedTraces::has("OMLA_VORN_CONN_ESTABLISH_CFM{clientRef=16909060, serverRef=84281096}", mark));
            }
        }
        expectConfirmation();
        answer(*session, order[0]);
        client.expectNothing();
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(VornSessionTest, when_one_session_has_passed_then_another_does_not_wait_for_link_supervision)
{
    session->setConnectivityConnectedState(false);
    const auto second = newSession();
    hold(*second);
    answer(*second, 0);
    answer(*second, 1);
    client.expectNothing();
    answer(*second, 3);
    expectConfirmation();

    session->setConnectivityConnectedState(std::nullopt);
    hold(*second);
    answer(*second, 3);
    client.expectNothing();
}

TEST_F(VornSessionTest, when_all_is_known_already_then_a_confirmation_waits_for_the_next_answer)
{
    for (int which = 0; which < 4; ++which) {
        answer(*session, which);
    }
    hold(*session, std::byte{1});
    client.expectNothing();
    hold(*session, std::byte{2}); // the first is freed, which the leak check sees
    client.expectNothing();
    answer(*session, 1);
    EXPECT_EQ(expectConfirmation(), std::byte{2});
    client.expectNothing();
}

TEST_F(VornSessionTest, when_there_is_no_public_mailbox_then_the_confirmation_stays)
{
    for (int which = 0; which < 4; ++which) {
        answer(*session, which);
    }
    kiv_msg* msg = confirmation({});
    session->setCfmPending(KIV_NO_MBOX, msg);
    answer(*session, 0);
    EXPECT_TRUE(RecordedTraces::has("ABN: The public mailbox was not set with setCfmPending()"));
    session = newSession();
    client.expectNothing();
}

TEST_F(VornSessionTest, when_values_are_not_set_then_they_read_as_0)
{
    EXPECT_EQ(session->getUtcTimeSourceRef(), 0U);
    EXPECT_EQ(session->getMmiUserId(), 0U);
    EXPECT_EQ(session->getTempMeasRef(), 0U);
    EXPECT_EQ(session->getVornState(), State::STARTING);
    session->setUtcTimeSourceRef(5);
    session->setMmiUserId(6);
    EXPECT_EQ(session->getUtcTimeSourceRef(), 5U);
    EXPECT_EQ(session->getMmiUserId(), 6U);
}

TEST_F(VornSessionTest, when_a_procedure_reference_is_in_use_then_it_keeps_its_signal)
{
    session->addProcedureRef(9, 100);
    session->addProcedureRef(9, 200);
    EXPECT_TRUE(RecordedTraces::has("ABN: Cannot add procedureRef : (9) to procedureRefInfoMap.Key Value with signal "
                                    "Number: (200) already exist."));
    EXPECT_EQ(session->getProcedureRefSignal(9), 100U);
    EXPECT_TRUE(session->hasProcedureRef(9));
    session->eraseProcedureRef(9);
    session->eraseProcedureRef(9);
    EXPECT_FALSE(session->hasProcedureRef(9));
    EXPECT_EQ(session->getProcedureRefSignal(9), 0U);
}

TEST_F(VornSessionTest, when_a_session_is_dumped_then_the_deep_sleep_line_shows_the_common_state)
{
    const auto text = [this](const char* time, const char* mmi, const char* state, const char* connected) {
        return fmt::format("m_mboxId = 0x{:x}\nm_clientRef = 17\nm_serverRef = 18\nm_protocolRev = 3\n"
                           "m_mboxName = DU_4\nm_monitorId = 0\nm_vornState = {}\n"
                           "m_utcTimeSourceRef = {}\nm_mmiUserId = {}\nm_tempMeasRef = 77\n"
                           "s_connectivityConnectedState = {}\nm_deepSleepConnectionReqResponded = {}\n",
                           client.mbox(), state, time, mmi, connected, connected);
    };
    session->setTempMeasRef(77);
    session->setDeepSleepConnectionReqResponded(true);
    EXPECT_EQ(dump(), text("nullopt", "nullopt", "STARTING", "nullopt") + "m_pFwdMbox = nullptr\n");

    session->setUtcTimeSourceRef(255);
    session->setMmiUserId(0);
    session->setConnectivityConnectedState(false);
    session->setVornState(State::OPERATIONAL);
    session->setFwdMbox(new FwdMbox(0xABC, "VornFwdMbox_4"));
    EXPECT_EQ(dump(), text("255", "0", "OPERATIONAL", "0") +
                          "*m_pFwdMbox = {\nm_pFwdMbox:\n    m_parentMboxId = 0xabc\n"
                          "    m_mboxName = VornFwdMbox_4\n    m_mboxId = 0xffffffff\n}\n");
    session->setVornState(State::DISABLED);
    EXPECT_STREQ(session->getVornStateName(), "DISABLED");
    session->setVornState(static_cast<State>(3));
    EXPECT_STREQ(session->getVornStateName(), "Unknown");
}

} // namespace
