/// Control of the optical indicator: four procedures of one kind, one of them a subscription.

#include "mmiUserTest.h"
#include "vorni/opticalIndicator.h"

using namespace tolme;
using namespace TestUnit;
using VornTrace::RecordedTraces;

namespace {

/// One of the procedures.
template <typename ReqS, typename CfmS, typename RejS, typename Message>
struct Procedure {
    std::uint32_t msgNo;
    std::string signal;     ///< of the request
    std::string message;    ///< of the board's, without the ending
    std::string unsendable; ///< the client is told

    static void send(const Client& client) { client.send<ReqS>(); }
};

#define OPTICAL_PROCEDURE(name_, signal_, what_)                                                                       \
    Procedure<OmlaVornOpticalIndicatorControl##name_##ReqS, OmlaVornOpticalIndicatorControl##name_##CfmS,              \
              OmlaVornOpticalIndicatorControl##name_##RejS, fesk::OpticalIndicatorControl##name_##Req>                 \
    {                                                                                                                  \
        fesk::MsgNo::OpticalIndicatorControl##name_##Req, "OMLA_VORN_OPTICAL_INDICATOR_CONTROL_" signal_ "_REQ",       \
            "OpticalIndicatorControl" #name_, "Could not " what_ " OpticalIndicatorControl."                           \
    }

class VornServerOpticalIndicatorControlTest : public MmiUserTest
{
protected:
    /// Takes the same steps for each procedure.
    template <typename Steps>
    static void forEachProcedure(Steps&& steps)
    {
        steps(OPTICAL_PROCEDURE(SubscribeStatusChange, "SUBSCRIBE_STATUS_CHANGE", "subscribe"));
        steps(OPTICAL_PROCEDURE(Activate, "ACTIVATE", "activate"));
        steps(OPTICAL_PROCEDURE(ActivateWithDuration, "ACTIVATE_WITH_DURATION", "activate with duration"));
        steps(OPTICAL_PROCEDURE(Deactivate, "DEACTIVATE", "deactivate"));
    }
    template <typename Req, typename Cfm, typename Rej, typename Message>
    auto ask(const Procedure<Req, Cfm, Rej, Message>& procedure, const Client& client, std::uint32_t userId = 20)
    {
        client.send<Req>();
        return expectAsked<Message>(procedure.msgNo, userId);
    }
    template <typename Req, typename Cfm, typename Rej, typename Message>
    static void expectConfirmed(const Procedure<Req, Cfm, Rej, Message>&, Client& client)
    {
        expectAt<Cfm>(client);
    }
    template <typename Req, typename Cfm, typename Rej, typename Message>
    static void expectRejected(const Procedure<Req, Cfm, Rej, Message>&, Client& client, const std::string& text)
    {
        expectReject<Rej>(client, text);
    }
    template <typename Subscription>
    static void indicate(const Subscription& subscription, std::uint32_t state = 1)
    {
        fesk::OpticalIndicatorControlStatusChangeInd ind;
        ind.set_state(state);
        subscription.reply(fesk::MsgNo::OpticalIndicatorControlStatusChangeInd, ind);
    }
    static constexpr const char* indication = "OpticalIndicatorControlStatusChangeInd";
};

TEST_F(VornServerOpticalIndicatorControlTest,
       when_the_board_answers_then_a_reject_ends_the_procedure_and_a_confirm_does_not)
{
    Client& client = unit.connect();
    std::uint32_t first = 0;
    forEachProcedure([&](const auto& procedure) {
        const auto confirmed = ask(procedure, client);
        first = first == 0 ? confirmed.procedureRef : first;
        confirmed.confirm();
        expectConfirmed(procedure, client);
        confirmed.confirm();
        expectConfirmed(procedure, client);
        for (const std::uint32_t state : {0U, 0xFFFFU, 0x12345U}) { // comes in the subscription; any will do
            indicate(confirmed, state);
            EXPECT_EQ(expectAt<OmlaVornOpticalIndicatorControlStatusChangeIndS>(client).state, state & 0xFFFF);
        }
        const auto rejected = ask(procedure, client);
        rejected.reject();
        expectRejected(procedure, client, "See logs to reveal why the FESK server rejected the request.");
        const std::uint32_t over = rejected.procedureRef;
        expectTraced({noTransaction(over, procedure.message + "Rej")}, [&] { rejected.reject(); });
        expectTraced({noTransaction(over, procedure.message + "Cfm")}, [&] { rejected.confirm(); });
        expectTraced({noTransaction(over, indication)}, [&] { indicate(rejected); });
        expectTraced({"ABN: OpticalIndicatorControlStatusChangeInd does not have a state."}, [&] {
            confirmed.reply(fesk::MsgNo::OpticalIndicatorControlStatusChangeInd,
                            fesk::OpticalIndicatorControlStatusChangeInd());
        });
    });
    EXPECT_EQ(RecordedTraces::count(fmt::format("ABN: Cannot add procedureRef : ({}) to procedureRefInfoMap.Key Value "
                                                "with signal Number: ({}) already exist.",
                                                fesk::MsgNo::OpticalIndicatorControlSubscribeStatusChangeReq, first)),
              1U)
        << "the session has the reference of the first subscription, and of no other procedure";
    for (const std::uint32_t duration : {0U, 0xFFFFFFFFU}) { // the board's to interpret
        client.send<OmlaVornOpticalIndicatorControlActivateWithDurationReqS>(
            [duration](auto& request) { request.duration = duration; });
        const auto asked = expectAsked<fesk::OpticalIndicatorControlActivateWithDurationReq>(
            fesk::MsgNo::OpticalIndicatorControlActivateWithDurationReq);
        EXPECT_TRUE(asked.body.has_duration());
        EXPECT_EQ(asked.body.duration(), duration);
    }
    expectSilence({&client});
}

TEST_F(VornServerOpticalIndicatorControlTest, when_the_client_has_gone_then_only_a_reject_ends_its_procedures)
{
    unit.connect(); // one that stays
    forEachProcedure([&, userId = 21U](const auto& procedure) mutable {
        Client& client = unit.connect();
        const auto asked = ask(procedure, client, userId++);
        const std::uint32_t gone = lose(client);
        for (int i = 0; i < 2; ++i) {
            expectTraced({noSession(gone, procedure.message + "Cfm")}, [&] { asked.confirm(); });
            expectTraced({noSession(gone, indication)}, [&] { indicate(asked); });
        }
        const std::string rej = procedure.message + "Rej";
        expectTraced({noSession(gone, rej), noTransaction(asked.procedureRef, rej)}, [&] { asked.reject(); });
    });
}

TEST_F(VornServerOpticalIndicatorControlTest,
       when_there_is_no_session_no_user_or_no_board_then_only_a_session_is_told_so)
{
    Client& stranger = unit.addClient();
    Client& client = unit.connect();
    Client& userless = connectWithoutUser();
    forEachProcedure([&](const auto& procedure) {
        expectTraced({"ABN: No session for this client exists. Ignoring " + procedure.signal + "!"},
                     [&] { procedure.send(stranger); });
        expectTraced({"ABN: MMI user has not been registered yet. Rejecting the " + procedure.signal + "!"},
                     [&] { procedure.send(userless); });
        expectRejected(procedure, userless, "MMI user has not been registered yet.");
    });
    expectSilence({&stranger, &userless});
    loseBoard();
    forEachProcedure([&](const auto& procedure) {
        procedure.send(client);
        expectRejected(procedure, client, procedure.unsendable);
    });
    unit.settle();
    client.expectNothing();
}

} // namespace
